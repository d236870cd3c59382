#pragma once

#include "platform/SharingServices.h"

namespace pixmora {

// The desktop's registry of applications by content type (XDG .desktop files
// and mimeapps.list), through GIO, which also launches them.
class GioSharingServices : public SharingServices {
public:
    std::vector<Application> pngApplications() override;
    std::optional<QString> openWith(const QString &applicationId, const QString &path) override;
};

} // namespace pixmora

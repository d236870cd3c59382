#pragma once

#include <QString>

#include <optional>
#include <vector>

namespace pixmora {

// Other applications that can take a file: what a Share menu offers.
class SharingServices {
public:
    struct Application {
        QString id;        // what openWith() takes
        QString name;      // as the desktop names it
        QString iconName;  // a theme icon; may be empty
    };

    virtual ~SharingServices() = default;
    // The applications registered for PNG images, the user's default first.
    virtual std::vector<Application> pngApplications() = 0;
    // Starts the application on the file; nothing on success, else the reason.
    virtual std::optional<QString> openWith(const QString &applicationId, const QString &path) = 0;
};

} // namespace pixmora

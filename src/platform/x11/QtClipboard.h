#pragma once

#include "platform/Clipboard.h"

namespace pixmora {

// The CLIPBOARD selection. X11 offers one item, so of several images only
// the first is offered, as image/png.
class QtClipboard : public Clipboard {
public:
    void setPngImages(const QList<QByteArray> &pngs) override;
    void setText(const QString &text) override;
    bool hasImage() override;
    void clear() override;
};

} // namespace pixmora

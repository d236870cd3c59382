#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

namespace pixmora {

// The clipboard. It offers PNG images, or a line of text; a clipboard that
// holds one item keeps the first of several.
class Clipboard {
public:
    virtual ~Clipboard() = default;
    virtual void setPngImages(const QList<QByteArray> &pngs) = 0;
    virtual void setText(const QString &text) = 0;
    virtual bool hasImage() = 0;
    virtual void clear() = 0;
};

} // namespace pixmora

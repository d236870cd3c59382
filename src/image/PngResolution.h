#pragma once

#include <QByteArrayView>

#include <optional>

namespace pixmora {

// The horizontal resolution a PNG records in its pHYs chunk, in dots per inch
// rounded to a whole number (so 72, 144 and 216 come back exactly). Nothing
// when the bytes are no PNG or record no resolution in metres. Only the
// chunks before the image data are read, so the file's head is enough.
std::optional<int> pngDotsPerInch(QByteArrayView png);

} // namespace pixmora

#pragma once

#include <QImage>
#include <QSize>

class QIODevice;

namespace pixmora {

// The PNG read from png, reduced by area averaging to fit into box with its
// aspect ratio kept (never enlarged), row by row as it inflates: no full-size
// image is ever held, which for a 4K capture saves a 33 MB buffer and its
// page faults besides the scaling pass. RGB32 for opaque kinds, else
// ARGB32_Premultiplied.
//
// Only non-interlaced 8-bit grey, RGB and their alpha kinds without a colour
// key or an orientation are read (all Pixmora writes); for any other PNG, and
// for damaged data, the result is null and QImageReader is the way.
QImage decodeScaledPng(QIODevice &png, QSize box);

} // namespace pixmora

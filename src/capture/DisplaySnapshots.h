#pragma once

#include <QImage>
#include <QtGlobal>

#include <map>

namespace pixmora {

// The frozen full-resolution image of each display (device pixels), by
// display id, taken once before a selection overlay opens.
using DisplaySnapshots = std::map<quint32, QImage>;

} // namespace pixmora

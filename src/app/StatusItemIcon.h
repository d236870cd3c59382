#pragma once

#include <QIcon>

namespace pixmora {

// The tray glyph as pixmaps drawn from the grid each size was designed on,
// so edges stay sharp at 16, 22, 24 and 32 pixels and at twice those.
QIcon statusItemIcon();

} // namespace pixmora

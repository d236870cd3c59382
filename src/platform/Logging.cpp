#include "platform/Logging.h"

namespace pixmora {

Q_LOGGING_CATEGORY(lcApp, "pixmora.app")
Q_LOGGING_CATEGORY(lcCapture, "pixmora.capture")
Q_LOGGING_CATEGORY(lcScroll, "pixmora.scroll")
Q_LOGGING_CATEGORY(lcHistory, "pixmora.history")
Q_LOGGING_CATEGORY(lcMarkup, "pixmora.markup")
Q_LOGGING_CATEGORY(lcPreview, "pixmora.preview")
Q_LOGGING_CATEGORY(lcPlatform, "pixmora.platform")

} // namespace pixmora

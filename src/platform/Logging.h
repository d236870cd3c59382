#pragma once

#include <QLoggingCategory>

namespace pixmora {

// One category per subsystem. Failures that the user is not shown are
// logged once as warnings (on by default); QT_LOGGING_RULES switches
// categories, for example "pixmora.capture.debug=true".
Q_DECLARE_LOGGING_CATEGORY(lcApp)
Q_DECLARE_LOGGING_CATEGORY(lcCapture)
Q_DECLARE_LOGGING_CATEGORY(lcScroll)
Q_DECLARE_LOGGING_CATEGORY(lcHistory)
Q_DECLARE_LOGGING_CATEGORY(lcMarkup)
Q_DECLARE_LOGGING_CATEGORY(lcPreview)
Q_DECLARE_LOGGING_CATEGORY(lcPlatform)

} // namespace pixmora

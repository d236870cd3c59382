#pragma once

#include "platform/Displays.h"

#include <QImage>
#include <QObject>
#include <QSizeF>
#include <QTimer>

#include <chrono>
#include <functional>
#include <vector>

class QWidget;

namespace pixmora {

class Desktop;
class ScreenCapture;

struct PreviewTimings {
    std::chrono::milliseconds fadeIn{200};
    std::chrono::milliseconds visible{6000};   // from showing until the fade-out starts
    std::chrono::milliseconds fadeOut{250};
};

// The floating thumbnail that announces a capture in the lower-right corner
// of the main screen. One is live at a time; a click hands over to onEdit.
class PreviewPresenter {
public:
    PreviewPresenter(ScreenCapture &screens, Desktop &desktop, PreviewTimings timings = {});
    ~PreviewPresenter();
    PreviewPresenter(const PreviewPresenter &) = delete;
    PreviewPresenter &operator=(const PreviewPresenter &) = delete;

    // Replaces any thumbnail at once. image is in device pixels at scale.
    void show(const QImage &image, double scale, std::function<void()> onEdit);
    void dismiss(bool animated);

    bool autoDismissPending() const { return m_dismissTimer.isActive(); }

    // Fits a 260 x 180 point box without enlarging, never under 60 x 40 points.
    static QSizeF thumbnailSize(QSizeF pointSize);

private:
    QWidget *createPanel(const QImage &image, double scale, const DisplayInfo &screen);
    void releaseOnEditWhenNothingShows();
    static void remove(QWidget *panel);

    ScreenCapture &m_screens;
    Desktop &m_desktop;
    const PreviewTimings m_timings;
    QWidget *m_panel = nullptr;            // the live thumbnail, owned
    std::vector<QWidget *> m_fadingPanels;  // owned until their fade ends
    QTimer m_dismissTimer;
    std::function<void()> m_onEdit;
    // Context of the panels' callbacks: they go quiet once the presenter is gone.
    QObject m_lifetime;
};

} // namespace pixmora

#include "capture/WindowPickerController.h"

#include "capture/WindowPickerView.h"

#include <QCoreApplication>

#include <algorithm>
#include <utility>

namespace pixmora {

namespace {

constexpr int minimumSide = 40;
constexpr int firstDockLayer = 20;

// Half-open, like the frames of the window system: the right and bottom edges
// belong to the next window.
bool frameContains(const QRect &frame, QPointF point)
{
    return point.x() >= frame.left() && point.x() < frame.left() + frame.width() && point.y() >= frame.top()
        && point.y() < frame.top() + frame.height();
}

bool sameWindow(const std::optional<WindowInfo> &a, const std::optional<WindowInfo> &b)
{
    if (a.has_value() != b.has_value())
        return false;
    return !a || a->id == b->id;
}

// On screen, layer 0 to 19 (no desktop, docks or panels), at least 40 x 40
// points, not ours.
bool isCandidate(const WindowInfo &window, qint64 ownPid)
{
    return window.onScreen && window.layer >= 0 && window.layer < firstDockLayer
        && window.frame.width() >= minimumSide && window.frame.height() >= minimumSide && !window.ownWindow
        && window.pid != ownPid;
}

WindowList candidatesAmong(WindowList windows)
{
    const qint64 ownPid = QCoreApplication::applicationPid();  // a system call each time
    std::erase_if(windows, [ownPid](const WindowInfo &window) { return !isCandidate(window, ownPid); });
    return windows;
}

} // namespace

WindowPickerController::WindowPickerController(WindowList windows, DisplayList displays, DisplaySnapshots backdrops,
                                               Desktop &desktop, Completion completion, CursorPosition cursorPosition)
    : OverlayController(desktop, std::move(cursorPosition)),
      m_completion(std::move(completion)),
      m_candidates(candidatesAmong(std::move(windows))),
      m_displays(std::move(displays)),
      m_backdrops(std::move(backdrops))
{
}

QList<WindowPickerView *> WindowPickerController::views() const
{
    return panelsAs<WindowPickerView>();
}

void WindowPickerController::begin()
{
    std::vector<OverlayPanel *> views;
    for (const DisplayInfo &display : m_displays) {
        const auto backdrop = m_backdrops.find(display.id);
        views.push_back(new WindowPickerView(*this, desktop(), display,
                                             backdrop != m_backdrops.end() ? backdrop->second : QImage()));
    }
    cover(std::move(views));
    updateHighlight();
}

std::optional<WindowInfo> WindowPickerController::windowUnder(QPointF globalPoint) const
{
    // A window's frame is measured in the points of the display the point lies on.
    const auto display = std::find_if(m_displays.begin(), m_displays.end(), [globalPoint](const DisplayInfo &candidate) {
        return frameContains(candidate.frame, globalPoint);
    });
    if (display == m_displays.end())
        return std::nullopt;
    const auto hit = std::find_if(m_candidates.begin(), m_candidates.end(), [&](const WindowInfo &window) {
        const std::optional<QRect> frame = window.frameOn(display->id);
        return frame && frameContains(*frame, globalPoint);
    });
    if (hit == m_candidates.end())
        return std::nullopt;
    return *hit;
}

void WindowPickerController::updateHighlight()
{
    const QPoint pointer = cursorPosition();
    const std::optional<WindowInfo> found = windowUnder(pointer);
    for (WindowPickerView *view : views()) {
        // The label goes on the display under the pointer only, whole.
        const bool labelHere = view->display().frame.contains(pointer);
        if (!sameWindow(view->highlighted(), found) || view->showsLabel() != labelHere)
            view->setHighlighted(found, labelHere);
    }
}

void WindowPickerController::finish(std::optional<WindowInfo> window)
{
    if (!close())
        return;
    if (Completion completion = std::exchange(m_completion, nullptr))
        completion(std::move(window));
}

} // namespace pixmora

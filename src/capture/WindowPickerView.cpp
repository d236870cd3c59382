#include "capture/WindowPickerView.h"

#include "capture/WindowPickerController.h"
#include "platform/Desktop.h"

#include <QFontMetricsF>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPalette>

#include <algorithm>

namespace pixmora {

namespace {

const QColor dimColor = QColor::fromRgbF(0, 0, 0, 0.15);
const QColor labelBackground = QColor::fromRgbF(0, 0, 0, 0.65);
constexpr double outlineRadius = 8.0;
constexpr double outlineWidth = 3.0;
constexpr double labelRadius = 6.0;
// The stroke's outer half plus a pixel of antialiasing.
constexpr int outlineBleed = 3;

} // namespace

WindowPickerView::WindowPickerView(WindowPickerController &picker, Desktop &desktop, const DisplayInfo &display,
                                   QImage backdrop)
    : OverlayPanel(display, desktop, std::move(backdrop), dimColor), m_picker(&picker), m_desktop(desktop)
{
    // 13 points are screen points, the size of ordinary UI text.
    m_labelFont.setPixelSize(13);
    m_labelFont.setWeight(QFont::DemiBold);
    setCursor(Qt::PointingHandCursor);
}

QString WindowPickerView::labelText(const WindowInfo &window)
{
    QString text = window.appName.isEmpty() ? QStringLiteral("Window") : window.appName;
    if (!window.title.isEmpty())
        text += QStringLiteral(" \u2014 ") + window.title;
    return text;
}

WindowPickerView::LabelGeometry WindowPickerView::labelGeometry(QSizeF textSize, const QRectF &visibleOutline)
{
    const double width = std::min(textSize.width(), visibleOutline.width() - 24);
    const double height = textSize.height();
    const QPointF centre = visibleOutline.center();
    const QRectF capsule(centre.x() - width / 2 - 8, centre.y() - height / 2 - 4, width + 16, height + 8);
    // The text sits 2 points above the capsule's bottom edge.
    return {capsule, QRectF(capsule.left() + 8, capsule.bottom() - 2 - height, width, height)};
}

std::optional<WindowPickerView::Outline> WindowPickerView::outlineFor(const WindowInfo &window, bool withLabel) const
{
    const std::optional<QRect> frameHere = window.frameOn(display().id);
    if (!frameHere)
        return std::nullopt;
    const QRectF frame = QRectF(*frameHere).translated(-QPointF(display().frame.topLeft()));
    if (!withLabel)
        return Outline{frame, std::nullopt, {}};
    const QFontMetricsF metrics(m_labelFont);
    const QString text = labelText(window);
    const QSizeF textSize(metrics.horizontalAdvance(text), metrics.height());
    const LabelGeometry label = labelGeometry(textSize, frame.intersected(QRectF(rect())));
    const bool cut = label.text.width() < textSize.width();
    return Outline{frame, label, cut ? metrics.elidedText(text, Qt::ElideRight, label.text.width()) : text};
}

QRect WindowPickerView::areaOf(const std::optional<Outline> &outline)
{
    if (!outline)
        return {};
    const QRectF drawn = outline->label ? outline->frame.united(outline->label->capsule) : outline->frame;
    return drawn.toAlignedRect().adjusted(-outlineBleed, -outlineBleed, outlineBleed, outlineBleed);
}

void WindowPickerView::setHighlighted(std::optional<WindowInfo> window, bool withLabel)
{
    const QRect before = areaOf(m_outline);
    m_highlighted = std::move(window);
    m_showsLabel = withLabel;
    m_outline.reset();
    if (m_highlighted)
        m_outline = outlineFor(*m_highlighted, withLabel);
    update(before);
    update(areaOf(m_outline));
}

void WindowPickerView::keyPressEvent(QKeyEvent *event)
{
    event->accept();  // other keys are swallowed, not passed on
    if (event->key() == Qt::Key_Escape && m_picker)
        m_picker->cancel();
}

void WindowPickerView::mouseMoveEvent(QMouseEvent *)
{
    if (m_picker)
        m_picker->updateHighlight();
}

void WindowPickerView::mousePressEvent(QMouseEvent *event)
{
    event->accept();
    if (event->button() != Qt::LeftButton)
        return;
    // The position the outline follows, not the event's, so that the click
    // picks the window the user sees outlined.
    std::optional<WindowInfo> window;
    if (m_picker)
        window = m_picker->windowUnder(m_picker->cursorPosition());
    if (!window)
        m_desktop.beep();
    if (m_picker)
        m_picker->finish(std::move(window));
}

QRegion WindowPickerView::decorations() const
{
    return areaOf(m_outline);
}

void WindowPickerView::paint(QPainter &painter)
{
    paintBackdrop(painter);
    painter.fillRect(rect(), dimColor);
    if (!m_picker || !m_outline || !m_outline->frame.intersects(rect()))
        return;

    painter.setRenderHint(QPainter::Antialiasing);
    const QColor accent = QGuiApplication::palette().color(QPalette::Highlight);
    QColor accentFill = accent;
    accentFill.setAlphaF(0.3);
    painter.setPen(QPen(accent, outlineWidth));
    painter.setBrush(accentFill);
    painter.drawRoundedRect(m_outline->frame, outlineRadius, outlineRadius);
    if (!m_outline->label)
        return;

    painter.setPen(Qt::NoPen);
    painter.setBrush(labelBackground);
    painter.drawRoundedRect(m_outline->label->capsule, labelRadius, labelRadius);
    painter.setPen(Qt::white);
    painter.setFont(m_labelFont);
    painter.drawText(m_outline->label->text, Qt::AlignLeft | Qt::AlignTop | Qt::TextSingleLine, m_outline->text);
}

} // namespace pixmora

#include "scroll/ScrollHUDPanel.h"

#include <QKeyEvent>
#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QPushButton>

namespace pixmora {

namespace {

constexpr double cornerRadius = 10;
// Black at 0.78 over a middle grey: without a compositor the panel cannot be
// see-through, so it is opaque in the colour it would mostly look.
const QColor background(28, 28, 28);
const QColor hintOrange(255, 149, 0);

QFont systemFont(int pixelSize, QFont::Weight weight = QFont::Normal)
{
    QFont font;
    font.setPixelSize(pixelSize);
    font.setWeight(weight);
    return font;
}

QLabel *label(QWidget *parent, const QRect &frame, const QFont &font, const QColor &colour)
{
    auto *label = new QLabel(parent);
    label->setGeometry(frame);
    label->setFont(font);
    QPalette palette = label->palette();
    palette.setColor(QPalette::WindowText, colour);
    label->setPalette(palette);
    return label;
}

// Clicks work although the panel is not the active window; the keyboard goes
// to the panel, not to the button, so that Escape and Return always reach it.
QPushButton *button(QWidget *parent, const QString &title, const QRect &frame, const QFont &font,
                    const QString &look, const std::function<void()> &action)
{
    auto *button = new QPushButton(title, parent);
    button->setGeometry(frame);
    button->setFont(font);
    button->setFocusPolicy(Qt::NoFocus);
    button->setCursor(Qt::PointingHandCursor);
    button->setStyleSheet(look);
    QObject::connect(button, &QPushButton::clicked, parent, [action] {
        if (action)
            action();
    });
    return button;
}

} // namespace

// Frames as laid out for a 300 x 117 point panel, from its top-left corner.
ScrollHUDPanel::ScrollHUDPanel(std::function<void()> onCancel, std::function<void()> onDone)
    : QWidget(nullptr, Qt::Tool | Qt::FramelessWindowHint),
      m_onCancel(std::move(onCancel)),
      m_onDone(std::move(onDone))
{
    setObjectName(QStringLiteral("PixmoraScrollingCapture"));
    setWindowTitle(QStringLiteral("Pixmora Scrolling Capture"));
    setFixedSize(panelSize);
    setFocusPolicy(Qt::StrongFocus);

    label(this, QRect(14, 12, 272, 18), systemFont(13, QFont::DemiBold), Qt::white)
        ->setText(QStringLiteral("Scrolling Capture"));
    m_status = label(this, QRect(14, 34, 272, 16), systemFont(12), QColor::fromRgbF(1, 1, 1, 0.85));
    m_hint = label(this, QRect(14, 54, 272, 15), systemFont(11), hintOrange);
    m_cancel = button(this, QStringLiteral("Cancel"), QRect(102, 77, 88, 28), systemFont(13),
                      QStringLiteral("QPushButton { background: rgba(255, 255, 255, 41); color: rgba(255, 255, 255, 230);"
                                     " border: none; border-radius: 6px; }"
                                     "QPushButton:pressed { background: rgba(255, 255, 255, 82); }"),
                      m_onCancel);
    const QColor accent = palette().color(QPalette::Highlight);
    m_done = button(this, QStringLiteral("Done"), QRect(198, 77, 88, 28), systemFont(13, QFont::DemiBold),
                    QStringLiteral("QPushButton { background: %1; color: white; border: none; border-radius: 6px; }"
                                   "QPushButton:pressed { background: %2; }")
                        .arg(accent.name(), accent.darker(125).name()),
                    m_onDone);
    setStatus(QString::fromUtf8("Scroll down through the content…"));
}

void ScrollHUDPanel::setStatus(const QString &text)
{
    m_statusText = text;
    m_status->setText(m_status->fontMetrics().elidedText(text, Qt::ElideRight, m_status->width()));
}

void ScrollHUDPanel::setHint(const QString &text)
{
    m_hintText = text;
    m_hint->setText(m_hint->fontMetrics().elidedText(text, Qt::ElideRight, m_hint->width()));
}

void ScrollHUDPanel::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.fillRect(rect(), background);
}

// The window itself is cut to the rounded shape: its corners show what lies beneath.
void ScrollHUDPanel::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    QPainterPath shape;
    shape.addRoundedRect(QRectF(rect()), cornerRadius, cornerRadius);
    setMask(QRegion(shape.toFillPolygon().toPolygon()));
}

void ScrollHUDPanel::keyPressEvent(QKeyEvent *event)
{
    const auto run = [](const std::function<void()> &action) {
        if (action)
            action();
    };
    switch (event->key()) {
    case Qt::Key_Escape:
        run(m_onCancel);
        break;
    case Qt::Key_Return:
    case Qt::Key_Enter:
        run(m_onDone);
        break;
    default:
        QWidget::keyPressEvent(event);
    }
}

} // namespace pixmora

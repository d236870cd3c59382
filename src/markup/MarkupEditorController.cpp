#include "markup/MarkupEditorController.h"

#include "image/PngEncoder.h"
#include "markup/MarkupCanvasView.h"
#include "markup/MarkupColors.h"
#include "markup/MarkupTool.h"
#include "platform/AtomicFile.h"
#include "platform/Logging.h"

#include <QButtonGroup>
#include <QCloseEvent>
#include <QDateTime>
#include <QDir>
#include <QCoreApplication>
#include <QHBoxLayout>
#include <QHash>
#include <QMenu>
#include <QPainter>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>
#include <array>

// Resources of a static library must be registered by name, outside any namespace.
static void registerMarkupResources() { Q_INIT_RESOURCE(markup); }

namespace pixmora {

namespace {

// The room the window may take of the screen's visible frame.
constexpr double kScreenShare = 0.9;
constexpr QRect kScreenWithoutDisplays(0, 0, 1200, 800);
constexpr double kMinimumWidth = 640;
constexpr QSize kIconSize(18, 18);
// Buttons of fixed sizes keep the toolbar's layout the same whatever the fonts.
constexpr QSize kButtonSize(28, 28);
constexpr int kSwatchSize = 18;
constexpr int kTextButtonWidth = 72;

struct ToolButton {
    MarkupTool tool;
    const char *icon;
    const char *toolTip;
};
constexpr std::array<ToolButton, 8> kToolButtons{{
    {MarkupTool::select, "select", "Select / Move"},
    {MarkupTool::arrow, "arrow", "Arrow"},
    {MarkupTool::rectangle, "rectangle", "Rectangle"},
    {MarkupTool::oval, "oval", "Oval"},
    {MarkupTool::line, "line", "Line"},
    {MarkupTool::pen, "pen", "Freehand"},
    {MarkupTool::highlighter, "highlighter", "Highlighter"},
    {MarkupTool::text, "text", "Text"},
}};

// S, M and L: the stroke as seen on screen, and the text in image pixels.
struct Size {
    const char *label;
    double lineWidthPoints;
    double fontImagePx;
};
constexpr std::array<Size, 3> kSizes{{{"S", 2, 28}, {"M", 4, 40}, {"L", 8, 64}}};
constexpr int kDefaultSize = 1;

// Each SVG is parsed and rendered once per process: every editor shares the
// icons, and with them the pixmaps rendered for the first.
QIcon markupIcon(const char *name)
{
    static QHash<QString, QIcon> *icons = nullptr;
    if (!icons) {
        icons = new QHash<QString, QIcon>;
        // Icons hold pixmaps, which must go before the application does.
        qAddPostRoutine([] { delete std::exchange(icons, nullptr); });
    }
    const QString path = QStringLiteral(":/markup/icons/%1.svg").arg(QLatin1String(name));
    auto found = icons->constFind(path);
    if (found == icons->constEnd())
        found = icons->insert(path, QIcon(path));
    return *found;
}

QToolButton *iconButton(const QIcon &icon, const QString &description, const QString &toolTip)
{
    auto *button = new QToolButton;
    button->setFixedSize(kButtonSize);
    button->setIcon(icon);
    button->setIconSize(kIconSize);
    button->setAutoRaise(true);
    button->setToolTip(toolTip);
    button->setAccessibleName(description);
    return button;
}

// A round swatch with a thin separator-coloured rim, drawn for high-density screens too.
QIcon swatchIcon(const QColor &colour)
{
    QPixmap pixmap(kSwatchSize * 2, kSwatchSize * 2);
    pixmap.setDevicePixelRatio(2);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(QColor(0, 0, 0, 50), 1));
    painter.setBrush(colour);
    painter.drawEllipse(QRectF(0.5, 0.5, kSwatchSize - 1, kSwatchSize - 1));
    return QIcon(pixmap);
}

// Buttons of one choice, side by side without gaps, as a segmented control.
QWidget *segmented(QButtonGroup *group)
{
    auto *control = new QWidget;
    auto *layout = new QHBoxLayout(control);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    for (QAbstractButton *button : group->buttons()) {
        button->setCheckable(true);
        layout->addWidget(button);
    }
    group->setExclusive(true);
    return control;
}

} // namespace

MarkupEditorController::MarkupEditorController(QImage image, double scale, Platform platform)
    : m_platform(platform), m_imageScale(scale), m_canvas(nullptr)
{
    registerMarkupResources();
    setWindowTitle(QString::fromUtf8("Pixmora — Markup"));
    // Titled, closable and resizable; no minimize button.
    setWindowFlags(Qt::Window | Qt::CustomizeWindowHint | Qt::WindowTitleHint | Qt::WindowCloseButtonHint
                   | Qt::WindowMaximizeButtonHint);

    // The window looks the same active or not: otherwise each activation,
    // the first one included, repaints every widget, the whole 4K canvas with them.
    QPalette colours = palette();
    for (int role = 0; role < QPalette::NColorRoles; ++role) {
        const auto colourRole = QPalette::ColorRole(role);
        colours.setBrush(QPalette::Inactive, colourRole, colours.brush(QPalette::Active, colourRole));
    }
    setPalette(colours);

    const QSize pixels = image.size();
    m_canvas = new MarkupCanvasView(std::move(image));
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(buildToolbar());
    layout->addWidget(m_canvas, 1);

    // The window is never narrower than its toolbar, whatever the picture needs.
    layout->activate();
    const DisplayList displays = m_platform.screens.displays();
    const std::optional<QRect> visibleFrame =
        displays.empty() ? std::nullopt : std::optional(displays.front().availableFrame);
    resize(contentSize(pixels, scale, visibleFrame).toSize());

    const QPointer<MarkupEditorController> self(this);
    m_canvas->onChange = [self] {
        if (self)
            self->updateButtons();
    };
    updateButtons();
}

MarkupEditorController::~MarkupEditorController() = default;

QSizeF MarkupEditorController::contentSize(QSize imagePixels, double scale, std::optional<QRect> visibleFrame)
{
    const QRect screen = visibleFrame.value_or(kScreenWithoutDisplays);
    const QSizeF room(kScreenShare * screen.width(), kScreenShare * screen.height() - toolbarHeight);
    const QSizeF points = QSizeF(imagePixels) / (scale > 0 ? scale : 1);
    double zoom = 1;
    if (points.width() > 0 && points.height() > 0)
        zoom = std::min({room.width() / points.width(), room.height() / points.height(), 1.0});
    return {std::max(points.width() * zoom, kMinimumWidth), points.height() * zoom + toolbarHeight};
}

QWidget *MarkupEditorController::buildToolbar()
{
    auto *toolbar = new QWidget;
    toolbar->setFixedHeight(toolbarHeight);
    auto *row = new QHBoxLayout(toolbar);
    row->setContentsMargins(12, 6, 12, 6);
    row->setSpacing(10);

    m_tools = new QButtonGroup(this);
    for (const ToolButton &entry : kToolButtons) {
        const QString toolTip = QString::fromUtf8(entry.toolTip);
        m_tools->addButton(iconButton(markupIcon(entry.icon), toolTip, toolTip), int(entry.tool));
    }
    row->addWidget(segmented(m_tools));
    m_tools->button(int(MarkupTool::arrow))->setChecked(true);
    m_canvas->setTool(MarkupTool::arrow);
    connect(m_tools, &QButtonGroup::idClicked, this,
            [this](int id) { m_canvas->setTool(markupToolFromRaw(id).value_or(MarkupTool::arrow)); });

    auto *swatches = new QWidget;
    auto *swatchRow = new QHBoxLayout(swatches);
    swatchRow->setContentsMargins(0, 0, 0, 0);
    swatchRow->setSpacing(4);
    for (const QColor &colour : markupSwatchColors()) {
        auto *swatch = new QToolButton;
        swatch->setFixedSize(kSwatchSize, kSwatchSize);
        swatch->setIcon(swatchIcon(colour));
        swatch->setIconSize(QSize(kSwatchSize, kSwatchSize));
        swatch->setAutoRaise(true);
        swatch->setAccessibleName(colour.name());
        // The selection keeps its colour; the next annotation takes this one.
        connect(swatch, &QToolButton::clicked, this, [this, colour] { m_canvas->setColor(colour); });
        swatchRow->addWidget(swatch);
    }
    row->addWidget(swatches);

    auto *sizes = new QButtonGroup(this);
    for (std::size_t index = 0; index < kSizes.size(); ++index) {
        auto *button = new QToolButton;
        button->setFixedSize(kButtonSize);
        button->setText(QString::fromLatin1(kSizes[index].label));
        button->setAutoRaise(true);
        sizes->addButton(button, int(index));
    }
    row->addWidget(segmented(sizes));
    sizes->button(kDefaultSize)->setChecked(true);
    connect(sizes, &QButtonGroup::idClicked, this, [this](int id) {
        const Size &size = kSizes[id >= 0 && id < int(kSizes.size()) ? std::size_t(id) : std::size_t(kDefaultSize)];
        m_canvas->setLineWidthPoints(size.lineWidthPoints);
        m_canvas->setFontImagePx(size.fontImagePx);
    });

    m_undoButton = iconButton(markupIcon("undo"), QStringLiteral("Undo"), QStringLiteral("Undo (Ctrl+Z)"));
    m_redoButton = iconButton(markupIcon("redo"), QStringLiteral("Redo"), QStringLiteral("Redo (Ctrl+Shift+Z)"));
    auto *discard = iconButton(markupIcon("trash"), QStringLiteral("Discard"), QStringLiteral("Discard this screenshot"));
    connect(m_undoButton, &QAbstractButton::clicked, this, [this] { m_canvas->undo(); });
    connect(m_redoButton, &QAbstractButton::clicked, this, [this] { m_canvas->redo(); });
    connect(discard, &QAbstractButton::clicked, this, &MarkupEditorController::discardAction);
    for (QWidget *button : {static_cast<QWidget *>(m_undoButton), static_cast<QWidget *>(m_redoButton),
                            static_cast<QWidget *>(discard)})
        row->addWidget(button);
    row->addStretch(1);

    m_shareButton = iconButton(markupIcon("share"), QStringLiteral("Share"), QStringLiteral("Share"));
    connect(m_shareButton, &QAbstractButton::clicked, this, &MarkupEditorController::shareAction);
    row->addWidget(m_shareButton);
    const std::pair<const char *, std::function<void()>> textButtons[] = {
        {"Copy", [this] { copyAction(); }},
        {"Save", [this] { saveAction(); }},
        {"Done", [this] { close(); }},
    };
    for (const auto &[title, action] : textButtons) {
        auto *button = new QPushButton(QString::fromLatin1(title));
        button->setFixedWidth(kTextButtonWidth);
        button->setAutoDefault(false);
        connect(button, &QPushButton::clicked, this, action);
        row->addWidget(button);
    }
    // The keyboard stays with the canvas.
    for (QAbstractButton *button : toolbar->findChildren<QAbstractButton *>())
        button->setFocusPolicy(Qt::NoFocus);
    return toolbar;
}

void MarkupEditorController::updateButtons()
{
    m_undoButton->setEnabled(m_canvas->document().canUndo());
    m_redoButton->setEnabled(m_canvas->document().canRedo());
}

void MarkupEditorController::present()
{
    const DisplayList displays = m_platform.screens.displays();
    if (!displays.empty()) {
        QRect frame(QPoint(), size());
        frame.moveCenter(displays.front().availableFrame.center());
        move(frame.topLeft());
    }
    show();
    raise();
    activateWindow();
    m_canvas->setFocus(Qt::ActiveWindowFocusReason);
}

void MarkupEditorController::closeEvent(QCloseEvent *event)
{
    QWidget::closeEvent(event);
    if (const std::function<void()> closed = std::exchange(onClosed, nullptr))
        closed();
}

// --- Actions ---

void MarkupEditorController::copyAction()
{
    const QImage image = m_canvas->render();
    if (image.isNull())
        return;
    const QByteArray png = encodePng(image, m_imageScale);
    if (png.isEmpty()) {
        qCWarning(lcMarkup) << "Could not encode the edited" << image.size() << "image for the clipboard.";
        return;
    }
    m_platform.clipboard.setPngImages({png});
}

void MarkupEditorController::saveAction()
{
    const QImage image = m_canvas->render();
    if (!image.isNull() && onSave)
        onSave(image, m_imageScale);
}

// Other applications get a file of their own in the temporary folder.
void MarkupEditorController::shareAction()
{
    const QImage image = m_canvas->render();
    if (image.isNull())
        return;
    const QString path = QDir(QDir::tempPath())
                             .filePath(QStringLiteral("Screenshot-%1.png").arg(QDateTime::currentSecsSinceEpoch()));
    const QByteArray png = encodePng(image, m_imageScale);
    if (png.isEmpty()) {
        qCWarning(lcMarkup) << "Could not encode the edited" << image.size() << "image to share it.";
        return;
    }
    if (const std::optional<QString> failure = writeFileAtomically(path, png)) {
        qCWarning(lcMarkup) << "Could not write" << path << "to share it:" << *failure;
        return;
    }
    showShareMenu(path);
}

void MarkupEditorController::showShareMenu(const QString &path)
{
    if (m_shareMenu)
        m_shareMenu->close();
    auto *menu = new QMenu(this);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    for (const SharingServices::Application &application : m_platform.sharing.pngApplications()) {
        QAction *open = menu->addAction(QIcon::fromTheme(application.iconName), application.name);
        connect(open, &QAction::triggered, this, [this, id = application.id, path] {
            if (const std::optional<QString> failure = m_platform.sharing.openWith(id, path))
                qCWarning(lcMarkup) << "Could not share" << path << "with" << id << ":" << *failure;
        });
    }
    if (!menu->isEmpty())
        menu->addSeparator();
    connect(menu->addAction(QStringLiteral("Show in File Manager")), &QAction::triggered, this,
            [this, path] { m_platform.desktop.revealInFileManager(path); });
    connect(menu->addAction(QStringLiteral("Copy File Path")), &QAction::triggered, this,
            [this, path] { m_platform.clipboard.setText(path); });
    m_shareMenu = menu;
    menu->popup(m_shareButton->mapToGlobal(QPoint(0, m_shareButton->height())));
}

void MarkupEditorController::discardAction()
{
    m_platform.desktop.activateApplication();
    const int answer = m_platform.dialogs.runAlert(
        {QStringLiteral("Discard this screenshot?"),
         QStringLiteral("The screenshot and its saved file will be removed. This cannot be undone."),
         {QStringLiteral("Discard"), QStringLiteral("Cancel")}});
    if (answer != 0)
        return;
    if (onDiscard)
        onDiscard();
    close();
}

} // namespace pixmora

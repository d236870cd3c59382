#include "history/HistoryWindowController.h"

#include "history/HistoryItemDelegate.h"
#include "image/PngResolution.h"
#include "platform/AtomicFile.h"
#include "platform/Clipboard.h"
#include "platform/Dialogs.h"
#include "platform/Logging.h"

#include <QApplication>
#include <QBuffer>
#include <QEvent>
#include <QFile>
#include <QFileInfo>
#include <QGridLayout>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QImageReader>
#include <QKeyEvent>
#include <QLabel>
#include <QListWidget>
#include <QLocale>
#include <QMenu>
#include <QMouseEvent>
#include <QPushButton>
#include <QScreen>
#include <QScrollBar>
#include <QTimer>
#include <QtMath>
#include <QVBoxLayout>

#include <algorithm>

namespace pixmora {

namespace {

constexpr int entryRole = Qt::UserRole;

// The capture's PNG bytes, and its decoded image when asked for; nothing
// when the file cannot be read, is no PNG or does not decode.
std::optional<QByteArray> readCapture(const QString &path, QImage *decoded = nullptr)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        qCWarning(lcHistory).noquote() << "Could not read" << path << file.errorString();
        return std::nullopt;
    }
    QByteArray png = file.readAll();
    QBuffer buffer(&png);
    QImageReader reader(&buffer);
    reader.setAllocationLimit(CaptureHistoryStore::largestImageMegabytes);
    reader.setAutoTransform(true);
    if (reader.format() != "png" || !reader.size().isValid()) {
        qCWarning(lcHistory).noquote() << "Not a PNG image:" << path;
        return std::nullopt;
    }
    if (decoded && (*decoded = reader.read()).isNull()) {
        qCWarning(lcHistory).noquote() << "Could not decode" << path << reader.errorString();
        return std::nullopt;
    }
    return png;
}

void setSecondaryColour(QWidget *label)
{
    QPalette palette = label->palette();
    QColor colour = palette.color(QPalette::WindowText);
    colour.setAlphaF(0.6f);
    palette.setColor(QPalette::WindowText, colour);
    label->setPalette(palette);
}

} // namespace

HistoryWindowController::HistoryWindowController(CaptureHistoryStore &store, Clipboard &clipboard, Dialogs &dialogs,
                                                 OnOpen onOpen, std::optional<QString> thumbnailCache)
    : m_store(store), m_clipboard(clipboard), m_dialogs(dialogs), m_onOpen(std::move(onOpen))
{
    // Thumbnails are decoded at the size a tile shows them on the main screen.
    const QRect box = HistoryItemDelegate::thumbnailBox(HistoryItemDelegate::captionFont(QApplication::font()));
    const qreal ratio = QGuiApplication::primaryScreen() ? QGuiApplication::primaryScreen()->devicePixelRatio() : 1.0;
    m_thumbnails = std::make_unique<HistoryThumbnailLoader>(
        QSize(qCeil(box.width() * ratio), qCeil(box.height() * ratio)), std::move(thumbnailCache),
        [this](const QString &path) { showThumbnail(path); });
    for (const Entry &entry : m_store.entries())
        m_seenPaths.insert(entry.path);
    // Shortly after start, the history found there is readied on disk in the
    // background, so that even the first opening finds its thumbnails.
    QTimer::singleShot(prepareAfterStartMs, this, [this] {
        if (m_window && m_window->isVisible())
            return;
        const std::vector<HistoryThumbnailLoader::File> files = filesOf(m_store.entries());
        m_thumbnails->keepOnDiskOnly(files);
        m_thumbnails->prepareOnDisk(files);
    });
    // While hidden, the next opening reloads anyway; meanwhile a deleted
    // capture's thumbnail goes at once, and a new one's is made ready.
    m_listenerId = m_store.addListener([this] {
        if (m_window && m_window->isVisible()) {
            reload();
            return;
        }
        const std::vector<HistoryThumbnailLoader::File> files = filesOf(m_store.entries());
        m_thumbnails->keepOnDiskOnly(files);
        std::vector<HistoryThumbnailLoader::File> added;
        for (const HistoryThumbnailLoader::File &file : files)
            if (!m_seenPaths.contains(file.path))
                added.push_back(file);
        rememberPaths(files);
        m_thumbnails->prepareOnDisk(added);
    });
}

void HistoryWindowController::rememberPaths(const std::vector<HistoryThumbnailLoader::File> &files)
{
    m_seenPaths.clear();
    for (const HistoryThumbnailLoader::File &file : files)
        m_seenPaths.insert(file.path);
}

std::vector<HistoryThumbnailLoader::File> HistoryWindowController::filesOf(const std::vector<Entry> &entries)
{
    std::vector<HistoryThumbnailLoader::File> files;
    files.reserve(entries.size());
    // A file gone since the listing gets a stamp that matches no thumbnail.
    for (const Entry &entry : entries)
        files.push_back({entry.path, HistoryThumbnailLoader::stampOf(entry.path).value_or(
                                         HistoryThumbnailLoader::Stamp{})});
    return files;
}

HistoryWindowController::~HistoryWindowController()
{
    m_store.removeListener(m_listenerId);
    // Widgets being destroyed still send events; none may reach this object.
    if (m_window) {
        m_window->removeEventFilter(this);
        m_grid->removeEventFilter(this);
        m_grid->viewport()->removeEventFilter(this);
        m_grid->verticalScrollBar()->disconnect(m_grid);
    }
    m_window.reset();
}

void HistoryWindowController::buildUI()
{
    m_window = std::make_unique<QWidget>(nullptr, Qt::Window | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                                                      Qt::WindowCloseButtonHint | Qt::WindowMaximizeButtonHint);
    m_window->setWindowTitle(QStringLiteral("Recent Captures"));
    m_window->resize(720, 480);
    m_window->setMinimumSize(420, 320);
    m_window->installEventFilter(this);

    m_grid = new QListWidget;
    m_grid->setViewMode(QListView::IconMode);
    m_grid->setMovement(QListView::Static);
    m_grid->setResizeMode(QListView::Adjust);
    m_grid->setUniformItemSizes(true);
    m_grid->setSpacing(6);  // 12 between tiles, 14 at the edges with the layout's margin
    m_grid->setSelectionMode(QAbstractItemView::SingleSelection);
    m_grid->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    m_grid->verticalScrollBar()->setSingleStep(24);
    m_grid->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_grid->setFrameShape(QFrame::NoFrame);
    m_grid->setDragEnabled(false);
    m_grid->viewport()->setAutoFillBackground(false);
    m_grid->setItemDelegate(new HistoryItemDelegate(m_grid));
    m_grid->setContextMenuPolicy(Qt::CustomContextMenu);
    QObject::connect(m_grid, &QWidget::customContextMenuRequested, m_grid,
                     [this](QPoint position) { popUpContextMenu(position); });
    QObject::connect(m_grid->verticalScrollBar(), &QScrollBar::valueChanged, m_grid, [this] { requestThumbnails(); });
    m_grid->installEventFilter(this);
    m_grid->viewport()->installEventFilter(this);

    m_emptyLabel = new QLabel(QStringLiteral("No captures yet.\n\nEvery screenshot you take lands here automatically, "
                                             "so you can get it back after copying something else over it."));
    m_emptyLabel->setWordWrap(true);
    m_emptyLabel->setAlignment(Qt::AlignCenter);
    m_emptyLabel->setFixedWidth(340);
    setSecondaryColour(m_emptyLabel);

    m_footerLabel = new QLabel;
    m_footerLabel->setFont(HistoryItemDelegate::captionFont(m_footerLabel->font()));
    setSecondaryColour(m_footerLabel);
    auto *clearButton = new QPushButton(QString::fromUtf8("Clear History…"));
    QObject::connect(clearButton, &QPushButton::clicked, m_grid, [this] { clearAll(); });

    auto *content = new QGridLayout;
    content->setContentsMargins(8, 8, 8, 0);
    content->addWidget(m_grid, 0, 0);
    content->addWidget(m_emptyLabel, 0, 0, Qt::AlignCenter);
    auto *footer = new QHBoxLayout;
    footer->setContentsMargins(14, 8, 14, 12);
    footer->addWidget(m_footerLabel);
    footer->addStretch();
    footer->addWidget(clearButton);
    auto *layout = new QVBoxLayout(m_window.get());
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addLayout(content, 1);
    layout->addLayout(footer);
}

void HistoryWindowController::showWindow()
{
    if (!m_window)
        buildUI();
    reload();
    QScreen *screen = QGuiApplication::primaryScreen();
    if (screen && !m_window->isVisible()) {
        QRect frame(QPoint(), m_window->size());
        frame.moveCenter(screen->availableGeometry().center());
        m_window->move(frame.topLeft());
    }
    m_window->show();
    m_window->raise();
    m_window->activateWindow();
    // Laid out now: the tiles in view go first.
    requestThumbnails();
}

void HistoryWindowController::pauseBackgroundWork(bool paused) { m_thumbnails->pauseBackground(paused); }

void HistoryWindowController::reload()
{
    if (!m_window)
        return;
    const int current = m_grid->currentRow();
    const QString selected =
        current >= 0 && size_t(current) < m_files.size() ? m_files[size_t(current)].path : QString();
    const int scrolled = m_grid->verticalScrollBar()->value();
    m_entries = m_store.entries();
    m_files = filesOf(m_entries);
    rememberPaths(m_files);
    m_thumbnails->keepOnDiskOnly(m_files);
    m_rowOfPath.clear();
    m_grid->clear();
    const QLocale locale = QLocale::system();
    qint64 total = 0;
    for (int row = 0; row < int(m_entries.size()); ++row) {
        const Entry &entry = m_entries[size_t(row)];
        auto *item = new QListWidgetItem;
        item->setData(Qt::DisplayRole, locale.toString(entry.date.toLocalTime(), QLocale::ShortFormat));
        item->setData(Qt::ToolTipRole, QString::fromUtf8("Click to edit · right-click for more"));
        item->setData(entryRole, row);
        item->setSizeHint(HistoryItemDelegate::tileSize);
        if (const QImage thumbnail = m_thumbnails->thumbnail(m_files[size_t(row)]); !thumbnail.isNull())
            item->setData(Qt::DecorationRole, thumbnail);
        m_rowOfPath.insert(entry.path, row);
        m_grid->addItem(item);
        total += entry.bytes;
    }
    if (const auto row = m_rowOfPath.constFind(selected); row != m_rowOfPath.cend())
        m_grid->setCurrentRow(*row);
    m_grid->verticalScrollBar()->setValue(scrolled);
    m_emptyLabel->setVisible(m_entries.empty());
    m_grid->setVisible(!m_entries.empty());
    m_footerLabel->setText(footerText(qsizetype(m_entries.size()), total, locale));
    requestThumbnails();
}

QString HistoryWindowController::footerText(qsizetype count, qint64 bytes, const QLocale &locale)
{
    if (count == 0)
        return QString::fromUtf8("Captures are kept here automatically — the last %1.")
            .arg(CaptureHistoryStore::maxItems);
    return QString::fromUtf8("%1 capture%2 · %3 · kept on this computer only")
        .arg(count)
        .arg(count == 1 ? "" : "s")
        .arg(locale.formattedDataSize(bytes, 1, QLocale::DataSizeSIFormat));
}

QString HistoryWindowController::clearQuestion(qsizetype count)
{
    return QStringLiteral("This deletes the %1 capture%2 kept inside Pixmora. Screenshots you already saved to your "
                          "own folder are not touched.")
        .arg(count)
        .arg(count == 1 ? "" : "s");
}

// The tiles on screen now, then the rest from the top in the background,
// so that scrolling finds them ready.
void HistoryWindowController::requestThumbnails()
{
    if (!m_window->isVisible())
        return;
    std::vector<HistoryThumbnailLoader::File> visible, rest;
    const QRect shown = m_grid->viewport()->rect();
    for (int row = 0; row < m_grid->count(); ++row)
        (m_grid->visualItemRect(m_grid->item(row)).intersects(shown) ? visible : rest).push_back(m_files[size_t(row)]);
    const size_t urgent = visible.size();
    visible.insert(visible.end(), rest.begin(), rest.end());
    m_thumbnails->request(visible, urgent);
}

void HistoryWindowController::showThumbnail(const QString &path)
{
    const auto row = m_rowOfPath.constFind(path);
    if (row == m_rowOfPath.cend())
        return;
    const QImage thumbnail = m_thumbnails->thumbnail(m_files[size_t(*row)]);
    if (!thumbnail.isNull())
        m_grid->item(*row)->setData(Qt::DecorationRole, thumbnail);
}

// What the window did not get to is readied on disk in the background.
void HistoryWindowController::releaseThumbnails()
{
    m_grid->clear();
    m_entries.clear();
    m_rowOfPath.clear();
    m_thumbnails->clear();
    m_thumbnails->prepareOnDisk(m_files);
    m_files.clear();
}

const HistoryWindowController::Entry *HistoryWindowController::entryAt(int row) const
{
    return row >= 0 && size_t(row) < m_entries.size() ? &m_entries[size_t(row)] : nullptr;
}

double HistoryWindowController::scaleOfPng(QByteArrayView png)
{
    return std::max(pngDotsPerInch(png).value_or(72) / 72.0, 1.0);
}

void HistoryWindowController::open(const Entry &entry)
{
    QImage image;
    if (const std::optional<QByteArray> png = readCapture(entry.path, &image); png && m_onOpen)
        m_onOpen(image, scaleOfPng(*png), entry.path);
}

// The file's own bytes go to the clipboard: they are PNG already.
void HistoryWindowController::copy(const Entry &entry)
{
    if (const std::optional<QByteArray> png = readCapture(entry.path))
        m_clipboard.setPngImages({*png});
}

void HistoryWindowController::saveCopy(const Entry &entry)
{
    // A capture that is gone asks for no place to save it.
    const std::optional<QByteArray> png = readCapture(entry.path);
    if (!png)
        return;
    const std::optional<QString> target = m_dialogs.choosePngSaveLocation(QFileInfo(entry.path).fileName());
    if (!target)
        return;
    if (const std::optional<QString> reason = writeFileAtomically(*target, *png))
        qCWarning(lcHistory).noquote() << "Could not save a copy as" << *target << *reason;
}

// The store tells the window, which then reloads.
void HistoryWindowController::remove(const Entry &entry) { m_store.remove(entry); }

void HistoryWindowController::clearAll()
{
    if (m_entries.empty())
        return;
    const int answer = m_dialogs.runAlert({QStringLiteral("Clear capture history?"),
                                           clearQuestion(qsizetype(m_entries.size())),
                                           {QStringLiteral("Clear"), QStringLiteral("Cancel")}});
    if (answer == 0)
        m_store.removeAll();
}

std::unique_ptr<QMenu> HistoryWindowController::contextMenu(const Entry &entry)
{
    auto menu = std::make_unique<QMenu>();
    const auto add = [&](const QString &title, void (HistoryWindowController::*action)(const Entry &)) {
        QObject::connect(menu->addAction(title), &QAction::triggered, m_grid,
                         [this, entry, action] { (this->*action)(entry); });
    };
    add(QStringLiteral("Open in Markup Editor"), &HistoryWindowController::open);
    add(QStringLiteral("Copy"), &HistoryWindowController::copy);
    add(QString::fromUtf8("Save a Copy…"), &HistoryWindowController::saveCopy);
    menu->addSeparator();
    add(QStringLiteral("Delete"), &HistoryWindowController::remove);
    return menu;
}

void HistoryWindowController::popUpContextMenu(QPoint position)
{
    const QModelIndex index = m_grid->indexAt(position);
    const Entry *entry = entryAt(index.isValid() ? index.data(entryRole).toInt() : -1);
    if (!entry)
        return;
    m_grid->setCurrentIndex(index);
    QMenu *menu = contextMenu(*entry).release();
    menu->setAttribute(Qt::WA_DeleteOnClose);
    menu->popup(m_grid->viewport()->mapToGlobal(position));
}

bool HistoryWindowController::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_window.get()) {
        if (event->type() == QEvent::Hide)
            releaseThumbnails();
        return false;
    }
    if (watched == m_grid->viewport()) {
        if (event->type() == QEvent::MouseButtonPress) {
            const auto *press = static_cast<QMouseEvent *>(event);
            const QModelIndex index = m_grid->indexAt(press->position().toPoint());
            if (press->button() == Qt::LeftButton && index.isValid()) {
                m_grid->setCurrentIndex(index);
                // A copy: opening may reload the grid.
                if (const Entry *entry = entryAt(index.data(entryRole).toInt()))
                    open(Entry(*entry));
                return true;
            }
        } else if (event->type() == QEvent::Resize) {
            requestThumbnails();
        }
        return false;
    }
    if (watched == m_grid && event->type() == QEvent::KeyPress) {
        const int key = static_cast<QKeyEvent *>(event)->key();
        const Entry *entry = entryAt(m_grid->currentRow());
        if (entry && (key == Qt::Key_Return || key == Qt::Key_Enter)) {
            open(Entry(*entry));
            return true;
        }
        if (entry && key == Qt::Key_Delete) {
            remove(Entry(*entry));
            return true;
        }
    }
    return false;
}

} // namespace pixmora

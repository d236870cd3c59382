#include "markup/MarkupCanvasView.h"
#include "markup/MarkupEditorController.h"
#include "platform/fake/FakePlatform.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDir>
#include <QMenu>
#include <QScopeGuard>
#include <QTest>

#include <gtest/gtest.h>

namespace pixmora {
namespace {

QImage white(QSize size)
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(Qt::white);
    return image;
}

const QColor kRed(255, 59, 48);

// An editor on the fake platform's 1440 x 915 point main screen (875 points without its panel).
struct Editor {
    FakePlatform fake;
    std::unique_ptr<MarkupEditorController> editor;
    int discards = 0, closes = 0;

    explicit Editor(QImage image = white({800, 600}))
    {
        fake.screens.displayList = {FakeScreenCapture::display(1, {0, 0, 1440, 915}, 2.0)};
        editor = std::make_unique<MarkupEditorController>(image, 2, fake.platform());
        editor->onDiscard = [this] { ++discards; };
        editor->onClosed = [this] { ++closes; };
        editor->present();
    }
    MarkupCanvasView &canvas() const { return *editor->canvas(); }
    QAbstractButton *button(const QString &label) const
    {
        for (QAbstractButton *button : editor->findChildren<QAbstractButton *>()) {
            if (button->toolTip() == label || button->text() == label || button->accessibleName() == label)
                return button;
        }
        ADD_FAILURE() << "no button " << label.toStdString();
        return nullptr;
    }
    void click(const QString &label) const { QTest::mouseClick(button(label), Qt::LeftButton); }
    // A rectangle between two points of the image.
    void drawBox(QPointF imageFrom, QPointF imageTo) const
    {
        click("Rectangle");
        const QPoint from = canvas().imageToView(imageFrom).toPoint();
        const QPoint to = canvas().imageToView(imageTo).toPoint();
        QTest::mousePress(&canvas(), Qt::LeftButton, {}, from);
        QTest::mouseMove(&canvas(), to);
        QTest::mouseRelease(&canvas(), Qt::LeftButton, {}, to);
    }
};

// At its point size, or smaller to fit the screen.
TEST(MarkupEditor, TheWindowShowsTheCaptureWithUndoAndRedoEnabledOnlyWhenTheyCanAct)
{
    const QRect visible(0, 0, 1440, 875);
    EXPECT_EQ(MarkupEditorController::contentSize({3000, 2000}, 2, visible), QSizeF(1109.25, 787.5));  // zoom 0.7395
    EXPECT_EQ(MarkupEditorController::contentSize({400, 200}, 2, visible), QSizeF(640, 148));  // at least 640 wide
    Editor editor(white({3000, 2000}));
    EXPECT_EQ(editor.editor->size(), QSize(1109, 788));
    QAbstractButton *undo = editor.button("Undo (Ctrl+Z)");
    QAbstractButton *redo = editor.button("Redo (Ctrl+Shift+Z)");
    const auto enabled = [&] { return std::pair(undo->isEnabled(), redo->isEnabled()); };
    EXPECT_EQ(enabled(), std::pair(false, false));
    editor.drawBox({300, 100}, {400, 200});
    EXPECT_EQ(enabled(), std::pair(true, false));
    editor.click("Undo");
    EXPECT_EQ(enabled(), std::pair(false, true));
    editor.click("Redo");
    EXPECT_EQ(editor.canvas().document().annotations().size(), 1u);
    EXPECT_EQ(enabled(), std::pair(true, false));
}

// Sharing writes a private temporary file first; Discard asks first.
TEST(MarkupEditor, CopyAndShareHandOverTheFlattenedCaptureAtItsScaleAndDiscardAsksFirst)
{
    Editor editor;
    editor.drawBox({360, 200}, {560, 400});
    editor.click("Copy");
    ASSERT_EQ(editor.fake.clipboard.items.size(), 1);
    const QImage copied = QImage::fromData(editor.fake.clipboard.items.front());
    EXPECT_EQ(copied.size(), QSize(800, 600));
    EXPECT_EQ(qRound(copied.dotsPerMeterX() * 0.0254), 144);
    EXPECT_EQ(copied.pixelColor(360, 200), kRed);

    editor.fake.sharing.applications = {{"viewer.desktop", "Image Viewer", "image-viewer"},
                                        {"paint.desktop", "Paint", ""}};
    editor.click("Share");
    QMenu *menu = editor.editor->shareMenu();
    ASSERT_NE(menu, nullptr);
    QStringList titles;
    for (QAction *action : menu->actions())
        titles << action->text();
    EXPECT_EQ(titles, (QStringList{"Image Viewer", "Paint", "", "Show in File Manager", "Copy File Path"}));
    menu->actions()[1]->trigger();
    ASSERT_EQ(editor.fake.sharing.launches.size(), 1u);
    EXPECT_EQ(editor.fake.sharing.launches[0].applicationId, "paint.desktop");
    const QString path = editor.fake.sharing.launches[0].path;
    EXPECT_EQ(QFileInfo(path).absolutePath(), QDir(QDir::tempPath()).absolutePath());
    EXPECT_EQ(QImage(path).pixelColor(360, 200), kRed);
    QFile::remove(path);

    editor.fake.dialogs.alertAnswers = {1};
    editor.click("Discard this screenshot");
    ASSERT_EQ(editor.fake.dialogs.alerts.size(), 1);
    EXPECT_EQ(editor.fake.dialogs.alerts[0].message, "Discard this screenshot?");
    EXPECT_EQ(std::tuple(editor.discards, editor.closes, editor.editor->isVisible()), std::tuple(0, 0, true));
    editor.click("Discard this screenshot");
    EXPECT_EQ(std::tuple(editor.discards, editor.closes, editor.editor->isVisible()), std::tuple(1, 1, false));
}

// Repainting a 4K canvas takes a frame; switching windows must not cost one.
TEST(MarkupEditor, TheCanvasRepaintsWhenItChangesButNotWhenTheWindowOrTheKeyboardComesOrGoes)
{
    // As desktop themes do, inactive windows get other colours.
    const QPalette original = QApplication::palette();
    QPalette themed = original;
    themed.setColor(QPalette::Inactive, QPalette::Highlight, Qt::gray);
    QApplication::setPalette(themed);
    const auto restore = qScopeGuard([&] { QApplication::setPalette(original); });
    Editor editor(white({3000, 2000}));
    ASSERT_TRUE(QTest::qWaitForWindowExposed(editor.editor.get()));
    struct PaintCounter : QObject {
        int paints = 0;
        bool eventFilter(QObject *, QEvent *event) override
        {
            paints += event->type() == QEvent::Paint;
            return false;
        }
    } counter;
    QCoreApplication::processEvents();
    editor.canvas().installEventFilter(&counter);
    for (const QEvent::Type type : {QEvent::WindowDeactivate, QEvent::WindowActivate}) {
        QEvent event(type);
        QApplication::sendEvent(editor.editor.get(), &event);
        QTest::qWait(50);
    }
    for (const QEvent::Type type : {QEvent::FocusOut, QEvent::FocusIn}) {
        QFocusEvent event(type, Qt::ActiveWindowFocusReason);
        QApplication::sendEvent(&editor.canvas(), &event);
        QTest::qWait(50);
    }
    EXPECT_EQ(counter.paints, 0);
    editor.drawBox({300, 100}, {400, 200});
    EXPECT_TRUE(QTest::qWaitFor([&] { return counter.paints > 0; }));
}

} // namespace
} // namespace pixmora

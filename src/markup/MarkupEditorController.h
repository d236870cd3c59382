#pragma once

#include "platform/Platform.h"

#include <QImage>
#include <QMenu>
#include <QPointer>
#include <QWidget>

#include <functional>
#include <optional>

class QAbstractButton;
class QButtonGroup;

namespace pixmora {

class MarkupCanvasView;

// The "Pixmora — Markup" window: a toolbar of tools, colours and sizes,
// undo and redo, discard, share, copy, save and done, over the canvas of one
// capture. It writes no files of its own but the one it shares: saving and
// discarding are the opener's, through onSave and onDiscard.
class MarkupEditorController : public QWidget {
    Q_OBJECT

public:
    // scale: the capture's device pixels per point, passed on with every flattened image.
    MarkupEditorController(QImage image, double scale, Platform platform);
    ~MarkupEditorController() override;

    // Centres the window on the main screen, shows it active and gives the canvas the keyboard.
    void present();

    MarkupCanvasView *canvas() const { return m_canvas; }
    double imageScale() const { return m_imageScale; }
    // The menu of the last Share, while it is open.
    QMenu *shareMenu() const { return m_shareMenu; }

    static constexpr int toolbarHeight = 48;
    // The window's content: the capture at its size in points, smaller when
    // it does not fit 90% of the main screen's visible frame (or of a
    // 1200 x 800 point one without a screen), never narrower than 640
    // points, with the toolbar above.
    static QSizeF contentSize(QSize imagePixels, double scale, std::optional<QRect> visibleFrame);

    // The flattened image and imageScale(); the window stays open.
    std::function<void(const QImage &, double)> onSave;
    // After the user confirmed; the window then closes.
    std::function<void()> onDiscard;
    // Once, when the window closes, however it was closed.
    std::function<void()> onClosed;

    void copyAction();
    void shareAction();
    void saveAction();
    void discardAction();

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    QWidget *buildToolbar();
    void showShareMenu(const QString &path);
    void updateButtons();

    Platform m_platform;
    const double m_imageScale;
    MarkupCanvasView *m_canvas;
    QButtonGroup *m_tools = nullptr;
    QAbstractButton *m_undoButton = nullptr;
    QAbstractButton *m_redoButton = nullptr;
    QAbstractButton *m_shareButton = nullptr;
    QPointer<QMenu> m_shareMenu;
};

} // namespace pixmora

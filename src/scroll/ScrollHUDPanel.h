#pragma once

#include <QWidget>

#include <functional>

class QLabel;
class QPushButton;

namespace pixmora {

// The small floating panel of a scrolling capture: a title, a status line,
// an alignment hint, Cancel and Done. It knows nothing of the capture: it
// shows what it is told and reports Cancel (the button or Escape) and Done
// (the button or Return). Keys reach it only once the user has clicked it,
// since it must not take the keyboard from the application being scrolled.
class ScrollHUDPanel : public QWidget {
    Q_OBJECT

public:
    static constexpr QSize panelSize{300, 117};

    ScrollHUDPanel(std::function<void()> onCancel, std::function<void()> onDone);

    // Both are cut short with an ellipsis when too long for the panel.
    void setStatus(const QString &text);
    void setHint(const QString &text);
    QString status() const { return m_statusText; }
    QString hint() const { return m_hintText; }

    QPushButton *cancelButton() const { return m_cancel; }
    QPushButton *doneButton() const { return m_done; }

protected:
    void paintEvent(QPaintEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    const std::function<void()> m_onCancel, m_onDone;
    QLabel *m_status;
    QLabel *m_hint;
    QPushButton *m_cancel;
    QPushButton *m_done;
    QString m_statusText, m_hintText;
};

} // namespace pixmora

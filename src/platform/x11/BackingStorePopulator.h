#pragma once

#include <QHash>
#include <QObject>

class QWidget;

namespace pixmora {

// Faults in the memory behind each window's drawing surface in one call,
// before the window first paints into it. Qt gives every new or enlarged
// window fresh shared memory, and on the virtual machines Pixmora runs on
// touching it page by page costs about 100 ms for a 4K window, 30 ms when
// populated first. Installed on the application as an event filter; main
// thread only.
class BackingStorePopulator : public QObject {
public:
    explicit BackingStorePopulator(QObject *parent = nullptr);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void populate(QWidget *window);

    // The first byte of the surface each window had when last populated.
    QHash<const QWidget *, const uchar *> m_populated;
    bool m_failureLogged = false;
};

} // namespace pixmora

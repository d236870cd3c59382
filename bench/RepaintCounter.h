#pragma once

#include <QEvent>
#include <QObject>

namespace pixmora {

// Counts the repaints of the overlay panels it watches.
class RepaintCounter : public QObject {
public:
    int repaints = 0;

protected:
    bool eventFilter(QObject *, QEvent *event) override
    {
        repaints += event->type() == QEvent::UpdateRequest ? 1 : 0;
        return false;
    }
};

} // namespace pixmora

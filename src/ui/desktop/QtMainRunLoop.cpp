#include "ui/desktop/QtMainRunLoop.h"

#include <QMetaObject>
#include <QThread>
#include <QTimer>

namespace rilo::ui {

void QtMainRunLoop::post(std::function<void()> task) {
    QMetaObject::invokeMethod(&receiver_, std::move(task), Qt::QueuedConnection);
}

void QtMainRunLoop::postAfter(std::chrono::milliseconds delay, std::function<void()> task) {
    if (QThread::currentThread() == receiver_.thread()) {
        QTimer::singleShot(delay, Qt::PreciseTimer, &receiver_, std::move(task));
        return;
    }
    // A timer belongs to the thread that starts it: the main thread starts it.
    post([this, delay, task = std::move(task)]() mutable {
        QTimer::singleShot(delay, Qt::PreciseTimer, &receiver_, std::move(task));
    });
}

} // namespace rilo::ui

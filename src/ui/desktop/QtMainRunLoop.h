#pragma once

// The application model's run loop on Qt's event loop. It must be made on
// the thread that runs QApplication::exec (the main thread), after the
// application object. post and postAfter may be called from any thread;
// the tasks run on the main thread, posted ones in the order of posting.
// Tasks still waiting when the loop is destroyed never run.

#include "shared/MainRunLoop.h"

#include <QObject>

namespace rilo::ui {

class QtMainRunLoop final : public MainRunLoop {
public:
    QtMainRunLoop() = default;
    QtMainRunLoop(const QtMainRunLoop&) = delete;
    QtMainRunLoop& operator=(const QtMainRunLoop&) = delete;

    void post(std::function<void()> task) override;
    void postAfter(std::chrono::milliseconds delay, std::function<void()> task) override;

private:
    // Lives on the main thread; the tasks are delivered to it, and go with it.
    QObject receiver_;
};

} // namespace rilo::ui

#pragma once

// One Qt application per test program, on an X server of its own (Xvfb),
// made by the first suite that asks for it. It is a global test environment:
// gtest ends the application after the last test, while Qt's own libraries
// are still there (an application ended at exit crashes in them).

#include "support/XvfbServer.h"

#include <QApplication>
#include <chrono>
#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>

namespace rilo::testing {

class QtTestApplication final : public ::testing::Environment {
public:
    // Starts Xvfb and the application on the first call.
    static QApplication& get() {
        static QtTestApplication* const instance = [] {
            auto* made = new QtTestApplication;
            ::testing::AddGlobalTestEnvironment(made); // gtest owns it from here
            return made;
        }();
        return *instance->application_;
    }

    void TearDown() override {
        application_.reset();
        server_.reset();
    }

    // Runs the event loop until the condition holds (true) or the limit has
    // passed (false).
    template <class Condition>
    static bool processEventsUntil(Condition condition, std::chrono::milliseconds limit) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (!condition()) {
            if (std::chrono::steady_clock::now() >= deadline) {
                return false;
            }
            QApplication::processEvents(QEventLoop::AllEvents, 20);
        }
        return true;
    }

private:
    QtTestApplication()
        : server_(std::make_unique<XvfbServer>(1280, 800)) {
        ::setenv("DISPLAY", server_->display().c_str(), 1);
        ::setenv("QT_QPA_PLATFORM", "xcb", 1);
        application_ = std::make_unique<QApplication>(argc_, argv_);
    }

    std::unique_ptr<XvfbServer> server_;
    int argc_ = 1;
    char name_[16] = "ui_desktop";
    char* argv_[2] = {name_, nullptr};
    std::unique_ptr<QApplication> application_;
};

} // namespace rilo::testing

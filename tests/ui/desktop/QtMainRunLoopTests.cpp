// The model's run loop on Qt's event loop, turned by a real application.

#include "ui/desktop/QtMainRunLoop.h"
#include "ui/desktop/QtTestApplication.h"

#include <QThread>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace rilo::testing {
namespace {

using namespace std::chrono_literals;

class QtMainRunLoopTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!XvfbServer::isAvailable()) {
            GTEST_SKIP() << "Xvfb is not installed";
        }
        QtTestApplication::get();
    }
};

TEST_F(QtMainRunLoopTest, TasksPostedFromAnotherThreadRunOnTheMainThreadInOrder) {
    ui::QtMainRunLoop loop;
    std::vector<int> ran;
    std::vector<bool> onMainThread;
    std::thread poster([&] {
        for (int index = 0; index < 100; ++index) {
            loop.post([&, index] {
                ran.push_back(index);
                onMainThread.push_back(QThread::currentThread() == QCoreApplication::instance()->thread());
            });
        }
    });
    poster.join();
    ASSERT_TRUE(QtTestApplication::processEventsUntil([&] { return ran.size() == 100; }, 30s));
    for (int index = 0; index < 100; ++index) {
        EXPECT_EQ(ran[index], index);
        EXPECT_TRUE(onMainThread[index]);
    }
}

TEST_F(QtMainRunLoopTest, DelayedTasksRunOnceTheirTimeHasComeFromAnyThread) {
    ui::QtMainRunLoop loop;
    std::vector<std::string> ran;
    const auto start = std::chrono::steady_clock::now();
    std::chrono::steady_clock::duration waited{};
    loop.postAfter(150ms, [&] {
        ran.push_back("main");
        waited = std::chrono::steady_clock::now() - start;
    });
    std::thread([&] { loop.postAfter(50ms, [&] { ran.push_back("other"); }); }).join();
    loop.post([&] { ran.push_back("now"); });
    ASSERT_TRUE(QtTestApplication::processEventsUntil([&] { return ran.size() == 3; }, 30s));
    EXPECT_EQ(ran, (std::vector<std::string>{"now", "other", "main"}));
    EXPECT_GE(waited, 150ms);
}

TEST_F(QtMainRunLoopTest, TasksStillWaitingWhenTheLoopGoesNeverRun) {
    bool ran = false;
    {
        ui::QtMainRunLoop loop;
        loop.post([&] { ran = true; });
        loop.postAfter(10ms, [&] { ran = true; });
    }
    QtTestApplication::processEventsUntil([] { return false; }, 100ms);
    EXPECT_FALSE(ran);
}

} // namespace
} // namespace rilo::testing

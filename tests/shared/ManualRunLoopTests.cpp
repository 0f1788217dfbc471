#include "shared/MainRunLoop.h"

#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace rilo {
namespace {

using namespace std::chrono_literals;

TEST(ManualRunLoopTest, RunsTasksOnTheTurningThreadByDueTimeThenByOrder) {
    ManualRunLoop loop;
    std::vector<int> order;
    std::vector<std::thread::id> threads;
    loop.postAfter(60ms, [&] { order.push_back(3); });
    loop.postAfter(20ms, [&] { order.push_back(2); });
    std::thread poster([&] {
        loop.poster()([&] {
            order.push_back(1);
            threads.push_back(std::this_thread::get_id());
        });
    });
    poster.join();
    EXPECT_EQ(loop.runPending(), 1);
    EXPECT_EQ(order, std::vector<int>{1});
    EXPECT_EQ(threads, std::vector<std::thread::id>{std::this_thread::get_id()});
    EXPECT_FALSE(loop.runUntil([&] { return order.size() == 3; }, 5ms));
    EXPECT_TRUE(loop.runUntil([&] { return order.size() == 3; }, 5s));
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
}

} // namespace
} // namespace rilo

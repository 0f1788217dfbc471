#include "LoopbackHttpServer.h"
#include "UpdateFeedFixture.h"
#include "app/updates/AppUpdateController.h"
#include "app/updates/AppUpdateError.h"
#include "support/MainThreadTaskQueue.h"
#include "support/TemporaryDirectory.h"

#include <chrono>
#include <gtest/gtest.h>
#include <memory>

namespace rilo::app {
namespace {

using rilo::testing::CannedAnswer;
using namespace std::chrono_literals;

constexpr IsoDate launchTime{1'772'438'400};

class AppUpdateControllerTest : public ::testing::Test {
protected:
    rilo::testing::TemporaryDirectory directory;
    UserDefaults defaults{directory.path() / "settings.json"};
    rilo::testing::LoopbackHttpServer server;
    rilo::testing::MainThreadTaskQueue mainThread;
    std::vector<std::string> openedURLs;
    int observedChanges = 0;

    std::unique_ptr<AppUpdateController> makeController(const std::string& currentVersion,
                                                        AppUpdateTransportLimits limits) {
        auto controller = std::make_unique<AppUpdateController>(
            defaults, server.url(rilo::testing::metadataPath), currentVersion, limits, mainThread.poster(),
            [this](const std::string& url) { openedURLs.push_back(url); });
        controller->setObserver([this] { ++observedChanges; });
        return controller;
    }

    std::unique_ptr<AppUpdateController> makeController(const std::string& currentVersion = "1.2.0") {
        return makeController(currentVersion, rilo::testing::shortLimits());
    }

    void finishCheck(const AppUpdateController& controller) {
        ASSERT_TRUE(mainThread.runUntil(
            [&] { return controller.activity() == AppUpdateController::Activity::idle; }, 10s));
    }

    void serveVersion(const std::string& version) {
        server.answer(rilo::testing::metadataPath, CannedAnswer::json(rilo::testing::metadataJson(version)));
    }
};

TEST_F(AppUpdateControllerTest, AManualCheckAnnouncesANewerVersionAndOpensOnlyItsDownload) {
    serveVersion("1.3.0");
    server.answer(rilo::testing::releaseNotesPath,
                  CannedAnswer::json(rilo::testing::releaseNotesJson("1.3.0")));
    const auto controller = makeController();

    controller->openDownload();
    EXPECT_TRUE(openedURLs.empty());

    controller->checkForUpdates();
    EXPECT_EQ(controller->activity(), AppUpdateController::Activity::checking);
    finishCheck(*controller);

    ASSERT_TRUE(controller->availableUpdate());
    EXPECT_EQ(controller->availableUpdate()->metadata.version, "1.3.0");
    ASSERT_TRUE(controller->availableUpdate()->releaseNote);
    EXPECT_EQ(controller->availableUpdate()->releaseNote->title, "更顺手的剪辑");
    EXPECT_FALSE(controller->notice());
    EXPECT_EQ(observedChanges, 2);

    controller->openDownload();
    EXPECT_EQ(openedURLs, std::vector<std::string>{server.url("/feed/downloads/Rilo-1.3.0.tar.zst")});
    EXPECT_FALSE(controller->openErrorMessage());
}

TEST_F(AppUpdateControllerTest, AManualCheckTellsWhenItIsUpToDateOrFailed) {
    const auto controller = makeController();
    serveVersion("1.3.0");
    controller->checkForUpdates();
    finishCheck(*controller);
    ASSERT_TRUE(controller->availableUpdate());

    // The endpoint went back to the running version: the offer is withdrawn.
    serveVersion("1.2.0");
    controller->checkForUpdates();
    finishCheck(*controller);
    ASSERT_TRUE(controller->notice());
    EXPECT_EQ(controller->notice()->title, "已是最新版本");
    EXPECT_EQ(controller->notice()->message, "当前安装的 Rilo 1.2.0 已是最新版本。");
    EXPECT_FALSE(controller->availableUpdate());
    const auto firstNoticeID = controller->notice()->id;

    server.answer(rilo::testing::metadataPath, CannedAnswer::status(500));
    controller->checkForUpdates();
    finishCheck(*controller);
    ASSERT_TRUE(controller->notice());
    EXPECT_NE(controller->notice()->id, firstNoticeID);
    EXPECT_EQ(controller->notice()->title, "无法检查更新");
    EXPECT_EQ(controller->notice()->message, "更新服务器返回错误（HTTP 500）。");

    server.answer(rilo::testing::metadataPath, CannedAnswer::json("not json at all"));
    controller->checkForUpdates();
    finishCheck(*controller);
    EXPECT_EQ(controller->notice()->message, AppUpdateError::invalidResponse().message());
}

TEST_F(AppUpdateControllerTest, AnUnreadableRunningVersionEndsTheCheckWithoutAsking) {
    serveVersion("1.3.0");
    for (const char* running : {"", "development"}) {
        const auto controller = makeController(running);
        controller->checkForUpdates();
        EXPECT_EQ(controller->activity(), AppUpdateController::Activity::idle);
        ASSERT_TRUE(controller->notice());
        EXPECT_EQ(controller->notice()->title, "无法检查更新");
        EXPECT_EQ(controller->notice()->message,
                  std::string(running).empty() ? "无法读取当前应用版本。" : "无法识别当前应用版本。");
    }
    EXPECT_EQ(server.requestCount(rilo::testing::metadataPath), 0);
}

TEST_F(AppUpdateControllerTest, TheMainThreadRunsOnWhileTheEndpointIsSlow) {
    server.answer(rilo::testing::metadataPath, CannedAnswer::held(rilo::testing::metadataJson("1.3.0")));
    const auto controller =
        makeController("1.2.0", AppUpdateTransportLimits{.connectTimeout = 5s,
                                                         .totalTimeout = 5s,
                                                         .maximumMetadataBytes = 4096,
                                                         .maximumReleaseNotesBytes = 4096});
    controller->checkForUpdates();
    // The check has returned while the server still holds its answer; a
    // check that blocked would only have come back failed, at the timeout.
    ASSERT_TRUE(server.waitForRequests(rilo::testing::metadataPath, 1));
    bool otherWorkRan = false;
    mainThread.poster()([&] { otherWorkRan = true; });
    mainThread.runPending();
    EXPECT_TRUE(otherWorkRan);
    EXPECT_EQ(controller->activity(), AppUpdateController::Activity::checking);

    server.releaseHeldAnswers();
    finishCheck(*controller);
    ASSERT_TRUE(controller->availableUpdate());
    EXPECT_FALSE(controller->notice());
}

TEST_F(AppUpdateControllerTest, AHangingOrAbsentEndpointEndsAsAFailureNotice) {
    server.answer(rilo::testing::metadataPath, CannedAnswer::hang());
    const auto controller = makeController();
    controller->checkForUpdates();
    finishCheck(*controller);
    ASSERT_TRUE(controller->notice());
    EXPECT_EQ(controller->notice()->title, "无法检查更新");
    const auto timeoutMessage = controller->notice()->message;

    server.stop();
    controller->checkForUpdates();
    finishCheck(*controller);
    EXPECT_EQ(controller->notice()->title, "无法检查更新");
    EXPECT_NE(controller->notice()->message, timeoutMessage);
}

TEST_F(AppUpdateControllerTest, TheAutomaticCheckRunsOncePerDayAndIsSilent) {
    server.answer(rilo::testing::metadataPath, CannedAnswer::status(503));
    {
        const auto controller = makeController();
        controller->checkAutomatically(launchTime);
        finishCheck(*controller);
        EXPECT_FALSE(controller->notice());
        EXPECT_TRUE(controller->requestedAutomaticCheck());
        // Once per start of the program, even a day later.
        controller->checkAutomatically(IsoDate{launchTime.secondsSinceEpoch + 2 * 86400});
        EXPECT_EQ(controller->activity(), AppUpdateController::Activity::idle);
    }
    EXPECT_EQ(defaults.date("updates.lastAutomaticCheckAt"), launchTime);
    EXPECT_EQ(server.requestCount(rilo::testing::metadataPath), 1);

    // The next start within a day does not ask.
    makeController()->checkAutomatically(IsoDate{launchTime.secondsSinceEpoch + 86399});
    EXPECT_EQ(server.requestCount(rilo::testing::metadataPath), 1);

    serveVersion("1.2.0");
    {
        const auto controller = makeController();
        controller->checkAutomatically(IsoDate{launchTime.secondsSinceEpoch + 86400});
        finishCheck(*controller);
        EXPECT_FALSE(controller->notice());
    }
    EXPECT_EQ(server.requestCount(rilo::testing::metadataPath), 2);

    serveVersion("1.3.0");
    const auto controller = makeController();
    controller->checkAutomatically(IsoDate{launchTime.secondsSinceEpoch + 3 * 86400});
    finishCheck(*controller);
    ASSERT_TRUE(controller->availableUpdate());
    EXPECT_FALSE(controller->notice());
}

TEST_F(AppUpdateControllerTest, AManualCheckDuringTheAutomaticOneTellsItsEnd) {
    server.answer(rilo::testing::metadataPath, CannedAnswer::held(rilo::testing::metadataJson("1.2.0")));
    const auto controller =
        makeController("1.2.0", AppUpdateTransportLimits{.connectTimeout = 5s,
                                                         .totalTimeout = 5s,
                                                         .maximumMetadataBytes = 4096,
                                                         .maximumReleaseNotesBytes = 4096});
    controller->checkAutomatically(launchTime);
    ASSERT_TRUE(server.waitForRequests(rilo::testing::metadataPath, 1));
    controller->checkForUpdates();
    server.releaseHeldAnswers();
    finishCheck(*controller);
    ASSERT_TRUE(controller->notice());
    EXPECT_EQ(controller->notice()->title, "已是最新版本");
    EXPECT_EQ(server.requestCount(rilo::testing::metadataPath), 1);
}

TEST_F(AppUpdateControllerTest, AnOutcomeArrivingAfterTheControllerIsGoneIsDropped) {
    serveVersion("1.3.0");
    auto controller = makeController();
    controller->checkForUpdates();
    // Wait for the outcome to be posted, but do not run it yet.
    ASSERT_TRUE(mainThread.waitForTask(10s));
    controller.reset();
    EXPECT_EQ(mainThread.runPending(), 1);
}

TEST_F(AppUpdateControllerTest, ABrowserThatCannotOpenLeavesAMessage) {
    serveVersion("1.3.0");
    AppUpdateController controller(defaults, server.url(rilo::testing::metadataPath), "1.2.0",
                                   rilo::testing::shortLimits(), mainThread.poster(),
                                   [](const std::string&) { throw AppUpdateError::cannotOpenBrowser(); });
    controller.checkForUpdates();
    finishCheck(controller);
    controller.openDownload();
    EXPECT_EQ(controller.openErrorMessage(), AppUpdateError::cannotOpenBrowser().message());
    EXPECT_TRUE(controller.availableUpdate());
}

TEST_F(AppUpdateControllerTest, ABuildWithoutAnEndpointNeverChecks) {
    AppUpdateController controller(defaults, "", "1.2.0", rilo::testing::shortLimits(), mainThread.poster(),
                                   [](const std::string&) {});
    controller.checkForUpdates();
    controller.checkAutomatically(launchTime);
    EXPECT_EQ(controller.activity(), AppUpdateController::Activity::idle);
    EXPECT_FALSE(controller.notice());
    EXPECT_FALSE(defaults.contains("updates.lastAutomaticCheckAt"));
}

} // namespace
} // namespace rilo::app

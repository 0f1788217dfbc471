#include "LoopbackHttpServer.h"
#include "UpdateFeedFixture.h"
#include "app/updates/AppUpdateError.h"
#include "app/updates/AppUpdateService.h"
#include "support/MainThreadTaskQueue.h"

#include <gtest/gtest.h>

namespace rilo::app {
namespace {

using rilo::testing::CannedAnswer;

class AppUpdateServiceTest : public ::testing::Test {
protected:
    rilo::testing::LoopbackHttpServer server;
    rilo::testing::MainThreadTaskQueue mainThread;
    AppUpdateService service{server.url(rilo::testing::metadataPath), rilo::testing::shortLimits(),
                             mainThread.poster()};
    AppVersion current = AppVersion::parse("1.2.0").value();

    AppUpdateErrorCase failureCase() {
        try {
            service.checkForUpdate(current, {});
        } catch (const AppUpdateError& error) {
            return error.errorCase();
        }
        ADD_FAILURE() << "the check did not fail with AppUpdateError";
        return AppUpdateErrorCase::cannotOpenBrowser;
    }
};

TEST_F(AppUpdateServiceTest, ANewerVersionComesWithItsNoteAndADownloadBesideTheMetadata) {
    server.answer(rilo::testing::metadataPath,
                  CannedAnswer::json(rilo::testing::metadataJson("1.3.0-beta.2")));
    server.answer(rilo::testing::releaseNotesPath,
                  CannedAnswer::json(rilo::testing::releaseNotesJson("1.3.0-beta.2")));

    const auto update = service.checkForUpdate(current, {});

    ASSERT_TRUE(update);
    EXPECT_EQ(update->metadata.version, "1.3.0-beta.2");
    EXPECT_EQ(update->metadata.size, 73400320u);
    EXPECT_EQ(update->downloadURL, server.url("/feed/downloads/Rilo-1.3.0-beta.2.tar.zst"));
    ASSERT_TRUE(update->releaseNote);
    EXPECT_EQ(update->releaseNote->title, "更顺手的剪辑");
    ASSERT_EQ(update->releaseNote->sections.size(), 1u);
    EXPECT_EQ(update->releaseNote->sections[0].items[1], "自动缩放更平滑");
}

TEST_F(AppUpdateServiceTest, AMissingOrBrokenCatalogLeavesOnlyTheNoteOut) {
    server.answer(rilo::testing::metadataPath, CannedAnswer::json(rilo::testing::metadataJson("1.3.0")));
    for (const auto& catalog : {CannedAnswer::status(404), CannedAnswer::json("{\"schemaVersion\": 1"),
                                CannedAnswer::json(rilo::testing::releaseNotesJson("1.2.9"))}) {
        server.answer(rilo::testing::releaseNotesPath, catalog);
        const auto update = service.checkForUpdate(current, {});
        ASSERT_TRUE(update);
        EXPECT_EQ(update->metadata.version, "1.3.0");
        EXPECT_FALSE(update->releaseNote);
    }
}

TEST_F(AppUpdateServiceTest, TheSameOrAnOlderVersionIsNoUpdateAndFetchesNoNotes) {
    for (const char* remote : {"1.2.0", "v1.2", "1.2.0-rc.1", "1.1.9"}) {
        server.answer(rilo::testing::metadataPath, CannedAnswer::json(rilo::testing::metadataJson(remote)));
        EXPECT_FALSE(service.checkForUpdate(current, {})) << remote;
    }
    EXPECT_EQ(server.requestCount(rilo::testing::releaseNotesPath), 0);
}

TEST_F(AppUpdateServiceTest, ErrorAnswersAreClassified) {
    server.answer(rilo::testing::metadataPath, CannedAnswer::status(500));
    try {
        service.checkForUpdate(current, {});
        FAIL() << "a 500 was taken as an answer";
    } catch (const AppUpdateError& error) {
        EXPECT_EQ(error.errorCase(), AppUpdateErrorCase::httpStatus);
        EXPECT_EQ(error.message(), "更新服务器返回错误（HTTP 500）。");
    }

    for (const char* garbage : {"<html>maintenance</html>", "", "{\"version\": "}) {
        server.answer(rilo::testing::metadataPath, CannedAnswer::json(garbage));
        EXPECT_EQ(failureCase(), AppUpdateErrorCase::invalidResponse) << garbage;
    }
    server.answer(rilo::testing::metadataPath, CannedAnswer::raw("SSH-2.0-OpenSSH_9.2\r\n"));
    EXPECT_EQ(failureCase(), AppUpdateErrorCase::invalidResponse);
    server.answer(rilo::testing::metadataPath, CannedAnswer::json(std::string(128 * 1024, ' ') + "{}"));
    EXPECT_EQ(failureCase(), AppUpdateErrorCase::invalidResponse);

    const std::vector<std::string> notMetadata{
        rilo::testing::metadataJson("1.3.0.beta"), rilo::testing::metadataJson(""), "[1, 2, 3]",
        R"({"version": "1.3.0"})",
        // A download that is not on the web is never offered.
        R"({"version": "1.3.0", "key": "file:///etc/passwd", "sha256": "", "size": 1, "publishedAt": "2026-03-02T08:15:30Z"})"};
    for (const auto& metadata : notMetadata) {
        server.answer(rilo::testing::metadataPath, CannedAnswer::json(metadata));
        EXPECT_EQ(failureCase(), AppUpdateErrorCase::invalidMetadata) << metadata;
    }
}

TEST_F(AppUpdateServiceTest, AHangingOrAbsentServerFailsWithinTheTimeouts) {
    server.answer(rilo::testing::metadataPath, CannedAnswer::hang());
    EXPECT_THROW(service.checkForUpdate(current, {}), AppUpdateConnectionError);

    server.stop();
    EXPECT_THROW(service.checkForUpdate(current, {}), AppUpdateConnectionError);
}

TEST_F(AppUpdateServiceTest, AStopEndsAHangingCheckAsCancelled) {
    server.answer(rilo::testing::metadataPath, CannedAnswer::hang());
    AppUpdateService patientService(server.url(rilo::testing::metadataPath),
                                    AppUpdateTransportLimits{.connectTimeout = std::chrono::seconds(60),
                                                             .totalTimeout = std::chrono::seconds(60),
                                                             .maximumMetadataBytes = 1024,
                                                             .maximumReleaseNotesBytes = 1024},
                                    mainThread.poster());
    std::stop_source stop;
    std::jthread stopper([&] {
        server.waitForRequests(rilo::testing::metadataPath, 1);
        stop.request_stop();
    });
    EXPECT_THROW(patientService.checkForUpdate(current, stop.get_token()), CancellationError);
}

} // namespace
} // namespace rilo::app

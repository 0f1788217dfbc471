// An open editor and the real command line on one package: the agent's
// commit reaches the session through the watcher and can be undone there.

#include "app/editing/ProjectTimelineWatcher.h"
#include "app/editing/TimelineEditingSession.h"
#include "project/engine/TimelineMapper.h"
#include "shared/Files.h"
#include "support/CliLibraryTest.h"
#include "support/MainThreadTaskQueue.h"
#include "support/RecordedPackage.h"

#include <chrono>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace rilo {
namespace {

using namespace std::chrono_literals;

constexpr auto patience = 20s;

struct ChangeReport {
    EditTimeline timeline;
    bool committed = false;
    bool shouldPersist = false;
};

class TimelineEditingEndToEnd : public testing::CliLibraryTest {
protected:
    testing::RecordedPackage recorded;
    std::string prefix;
    ProjectTime duration;
    bool hasWebcam = false;
    TimelineState opened;

    std::vector<ChangeReport> changes;
    std::unique_ptr<TimelineEditingSession> session;
    testing::MainThreadTaskQueue mainThread;
    ProjectTimelineWatcher watcher{mainThread.poster()};

    void SetUp() override {
        testing::RecordedPackageOptions options;
        options.movie.duration = ProjectTime::fromSeconds(6);
        recorded = testing::makeRecordedPackage(store, options);
        prefix = recorded.manifest.id.string().substr(0, 8);
        duration = recorded.manifest.duration;
        hasWebcam = recorded.manifest.webcam.has_value();
        // The first timeline, as a finished recording leaves it.
        store.writeTimeline(store.readTimeline(recorded.package, duration, hasWebcam), recorded.package);

        // What the application does when it opens the project.
        opened = store.readTimelineState(recorded.package, duration, hasWebcam);
        session = std::make_unique<TimelineEditingSession>(
            opened.timeline, duration, recorded.manifest.encodedPixelSize,
            [this](const EditTimeline& timeline, bool committed, bool shouldPersist) {
                changes.push_back({timeline, committed, shouldPersist});
            },
            [] {});
        watcher.start(recorded.package.editsDirectory(), [this] {
            session->reloadExternalTimeline(
                [this] { return store.readTimeline(recorded.package, duration, hasWebcam); });
        });
    }
};

TEST_F(TimelineEditingEndToEnd, AnAgentsCutArrivesAsAnUndoableStep) {
    succeed({"cut", prefix, "--range", "1000,2000", "--apply", "--expect", opened.digest});

    ASSERT_TRUE(mainThread.runUntil([&] { return session->timeline() != opened.timeline; }, patience));
    EXPECT_EQ(session->timeline(), store.readTimeline(recorded.package, duration, hasWebcam));
    EXPECT_EQ(TimelineMapper(session->timeline(), duration).sequenceDuration(),
              TimelineMapper(opened.timeline, duration).sequenceDuration() - ProjectTime::fromSeconds(1));
    EXPECT_TRUE(session->canUndo());
    ASSERT_EQ(changes.size(), 1u);
    EXPECT_TRUE(changes.back().committed);
    EXPECT_FALSE(changes.back().shouldPersist);
    EXPECT_EQ(session->message(), std::nullopt);

    session->undo();
    EXPECT_EQ(session->timeline(), opened.timeline);
    EXPECT_TRUE(changes.back().committed);
    EXPECT_TRUE(changes.back().shouldPersist);
}

TEST_F(TimelineEditingEndToEnd, AnOutsideWriteThatDoesNotDecodeLeavesTheTimeline) {
    writeFileAtomically(recorded.package.timelineURL(), "{\"segments\": [");

    ASSERT_TRUE(mainThread.runUntil([&] { return session->message().has_value(); }, patience));
    EXPECT_EQ(session->timeline(), opened.timeline);
    EXPECT_FALSE(session->canUndo());
    EXPECT_TRUE(changes.empty());
}

} // namespace
} // namespace rilo

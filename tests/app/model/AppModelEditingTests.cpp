// The open project against the files: the command line committing beside
// the editor, writes that fail, a package that disappears, and players that
// are overtaken while they are built.

#include "app/model/AppModelFixture.h"

#include <condition_variable>
#include <mutex>
#include <set>
#include <thread>

namespace rilo {
namespace {

using namespace std::chrono_literals;
using testing::AppModelTest;
using Kind = AppModelPhase::Kind;

testing::RecordedPackage makeProject(ProjectStore& store) {
    testing::RecordedPackageOptions options;
    options.movie.duration = ProjectTime::fromSeconds(6);
    return testing::makeRecordedPackage(store, options);
}

TEST_F(AppModelTest, AnAgentsCommitArrivesWhileTheModelsOwnWritesDoNotComeBack) {
    const testing::RecordedPackage recorded = makeProject(store);
    const ProjectPackage& package = recorded.package;
    startModel();
    open(package);
    TimelineEditingSession& session = *model->timelineSession();
    const EditTimeline opened = session.timeline();

    // Our own write comes back through the watcher; its reload reads the
    // file only after a newer edit was made. Recognised by its digest, it
    // must not be taken as a change from outside, which would put the older
    // state back over the newer edit.
    const std::string openedDigest = model->lastPersistedTimelineDigest();
    session.split(ProjectTime::fromMilliseconds(1000));
    const EditTimeline first = session.timeline();
    ASSERT_TRUE(waitFor([&] { return model->lastPersistedTimelineDigest() != openedDigest; }));
    ASSERT_EQ(timelineOnDisk(package), first);
    std::this_thread::sleep_for(500ms); // the watcher posts its reload
    loop.runPending();                  // the reload reads the file
    std::this_thread::sleep_for(300ms); // its answer waits on the loop
    session.split(ProjectTime::fromMilliseconds(2000));
    const EditTimeline second = session.timeline();
    ASSERT_TRUE(waitFor([&] {
        return timelineOnDisk(package) == second &&
               model->lastPersistedTimelineDigest() == store.timelineDigest(package);
    }));
    settle(500ms);
    EXPECT_EQ(session.timeline(), second);
    EXPECT_FALSE(session.canRedo());
    session.undo();
    session.undo();
    EXPECT_EQ(session.timeline(), opened);
    EXPECT_FALSE(session.canUndo());
    ASSERT_TRUE(waitFor([&] {
        return timelineOnDisk(package) == opened &&
               model->lastPersistedTimelineDigest() == store.timelineDigest(package);
    }));

    // The agent cuts a second out through the real command line.
    const std::string prefix = recorded.manifest.id.string().substr(0, 8);
    succeed({"cut", prefix, "--range", "1000,2000", "--apply", "--expect", store.timelineDigest(package)});

    ASSERT_TRUE(waitFor([&] { return session.timeline() != opened; }));
    EXPECT_EQ(session.timeline(), timelineOnDisk(package));
    EXPECT_EQ(model->lastPersistedTimelineDigest(), store.timelineDigest(package));
    EXPECT_TRUE(session.canUndo());
    EXPECT_EQ(session.message(), std::nullopt);
    EXPECT_EQ(model->timelineMediaMessage(), std::nullopt);
    // The player is made anew for the cut.
    EXPECT_TRUE(
        waitFor([&] { return isReady() && model->player()->duration() == ProjectTime::fromSeconds(5); }));

    // Undoing the agent's cut is an edit of ours like any other.
    session.undo();
    ASSERT_TRUE(waitFor([&] { return timelineOnDisk(package) == opened; }));
    EXPECT_EQ(model->timelineMediaMessage(), std::nullopt);
}

TEST_F(AppModelTest, AFailedWriteKeepsTheEditAndTheEditorOpen) {
    const testing::RecordedPackage recorded = makeProject(store);
    const ProjectPackage& package = recorded.package;
    startModel();
    open(package);
    TimelineEditingSession& session = *model->timelineSession();
    const std::string openedDigest = store.timelineDigest(package);

    // The commit lock cannot be taken while a directory stands in its place.
    const std::filesystem::path lock = package.editsDirectory() / ".timeline.lock";
    std::filesystem::remove(lock);
    std::filesystem::create_directory(lock);
    session.split(ProjectTime::fromMilliseconds(1000));
    const EditTimeline edited = session.timeline();

    ASSERT_TRUE(waitFor([&] { return model->timelineMediaMessage().has_value(); }));
    EXPECT_TRUE(model->timelineMediaMessage()->starts_with("编辑保存失败："));
    EXPECT_EQ(session.timeline(), edited);
    EXPECT_EQ(store.timelineDigest(package), openedDigest);
    EXPECT_EQ(finishEditing(), false);
    EXPECT_EQ(model->phase().kind, Kind::ready);
    EXPECT_EQ(model->timelineSession(), &session);

    // Once a write succeeds again, leaving is allowed.
    std::filesystem::remove(lock);
    session.split(ProjectTime::fromMilliseconds(2000));
    const EditTimeline saved = session.timeline();
    EXPECT_EQ(finishEditing(), true);
    EXPECT_EQ(timelineOnDisk(package), saved);
    EXPECT_EQ(model->phase().kind, Kind::idle);
    EXPECT_TRUE(model->showsRecentProjects());
    EXPECT_EQ(model->timelineSession(), nullptr);
    EXPECT_EQ(model->player(), nullptr);
}

TEST_F(AppModelTest, AProjectDeletedWhileOpenEndsInAMessageAndTheModelGoesOn) {
    const testing::RecordedPackage removed = makeProject(store);
    const testing::RecordedPackage other = makeProject(store);
    startModel();
    open(removed.package);
    // Nothing of ours is still writing into it (the waveform cache).
    ASSERT_TRUE(waitFor([&] { return mediaLoaded(); }));

    std::filesystem::remove_all(removed.package.rootURL);
    model->timelineSession()->updateAudio(MediaTrackKind::microphone, true, std::nullopt);

    ASSERT_TRUE(waitFor([&] { return model->timelineMediaMessage().has_value(); }));
    EXPECT_TRUE(model->timelineMediaMessage()->starts_with("编辑保存失败："));
    EXPECT_EQ(finishEditing(), false);

    model->dismissResult();
    EXPECT_EQ(model->phase().kind, Kind::idle);
    EXPECT_EQ(model->currentSnapshot(), std::nullopt);
    ASSERT_TRUE(waitFor([&] { return !listed(removed.package) && listed(other.package); }));
    open(other.package);
    EXPECT_EQ(model->currentSnapshot()->manifest.id, other.manifest.id);
    EXPECT_EQ(model->timelineMediaMessage(), std::nullopt);
}

TEST_F(AppModelTest, APlayerBuildThatIsOvertakenIsNeverPublished) {
    const testing::RecordedPackage recorded = makeProject(store);

    // The second build (the first after opening) is held until the third has
    // been asked for, so that it finishes after being overtaken.
    std::mutex mutex;
    std::condition_variable changed;
    int builds = 0;
    bool overtaken = false;
    makePlayer = [&, make = makePlayer](const ProjectSnapshot& snapshot) {
        std::unique_lock lock(mutex);
        const int build = ++builds;
        changed.notify_all();
        if (build == 2) {
            changed.wait(lock, [&] { return overtaken; });
        }
        lock.unlock();
        return make(snapshot);
    };
    startModel();
    open(recorded.package);

    std::set<std::int64_t> shownDurations;
    model->setObserver([&] {
        if (model->player()) {
            shownDurations.insert(model->player()->duration().nanoseconds);
        }
    });
    EditTimeline longer = model->timelineSession()->timeline();
    longer.segments.at(0).sourceRange.duration = ProjectTime::fromSeconds(5);
    EditTimeline shorter = longer;
    shorter.segments.at(0).sourceRange.duration = ProjectTime::fromSeconds(4);

    model->rebuildPlayer(longer);
    {
        std::unique_lock lock(mutex);
        ASSERT_TRUE(changed.wait_for(lock, patience, [&] { return builds == 2; }));
    }
    model->rebuildPlayer(shorter);
    {
        const std::lock_guard lock(mutex);
        overtaken = true;
    }
    changed.notify_all();

    ASSERT_TRUE(
        waitFor([&] { return isReady() && model->player()->duration() == ProjectTime::fromSeconds(4); }));
    settle(300ms);
    EXPECT_EQ(model->player()->duration(), ProjectTime::fromSeconds(4));
    EXPECT_EQ(builds, 3);
    EXPECT_FALSE(shownDurations.contains(ProjectTime::fromSeconds(5).nanoseconds));
    model.reset(); // before the factory's locals go
}

} // namespace
} // namespace rilo

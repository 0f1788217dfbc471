// The editing frame of the timeline session: undo and redo, gestures, changes
// from outside and refused edits.

#include "app/editing/TimelineEditingSession.h"
#include "project/engine/TimelineMapper.h"
#include "support/TimelineBuilders.h"

#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace rilo {
namespace {

using testing::between;
using testing::ms;
using testing::segment;
using testing::timelineOf;

const ProjectTime sourceDuration = ms(12'000);

struct ChangeReport {
    EditTimeline timeline;
    bool committed = false;
    bool shouldPersist = false;
};

class TimelineEditingSessionTest : public ::testing::Test {
protected:
    EditTimeline original = timelineOf({segment(ms(0), sourceDuration)});
    std::vector<ChangeReport> changes;
    int publishedChanges = 0;
    std::unique_ptr<TimelineEditingSession> session = open(original);

    std::unique_ptr<TimelineEditingSession> open(const EditTimeline& timeline) {
        return std::make_unique<TimelineEditingSession>(
            timeline, sourceDuration, PixelSize(1920, 1080),
            [this](const EditTimeline& changed, bool committed, bool shouldPersist) {
                changes.push_back({changed, committed, shouldPersist});
            },
            [this] { ++publishedChanges; });
    }

    const ZoomSegment& onlyZoom() const {
        EXPECT_EQ(session->timeline().zooms.size(), 1u);
        return session->timeline().zooms.front();
    }
};

TEST_F(TimelineEditingSessionTest, KeepsTheNewestHundredUndoStepsAndRedoesThemAll) {
    for (int step = 1; step <= 101; ++step) {
        session->updateAudio(MediaTrackKind::microphone, std::nullopt, -0.5 * step);
    }
    ASSERT_EQ(changes.size(), 101u);
    const EditTimeline newest = session->timeline();

    int undone = 0;
    while (session->canUndo()) {
        session->undo();
        ++undone;
    }
    EXPECT_EQ(undone, 100);
    // The oldest step was dropped: the first edit can no longer be undone.
    EXPECT_EQ(session->timeline().audioMix.microphone.gainDecibels, -0.5);
    EXPECT_TRUE(session->canRedo());

    while (session->canRedo()) {
        session->redo();
    }
    EXPECT_EQ(session->timeline(), newest);
    EXPECT_TRUE(changes.back().committed);
    EXPECT_TRUE(changes.back().shouldPersist);
}

TEST_F(TimelineEditingSessionTest, ADragIsOneUndoStepAndADragBackToTheStartIsNone) {
    session->addZoom(ms(2'000));
    const EditTimeline withZoom = session->timeline();
    const Uuid zoomID = onlyZoom().id;
    changes.clear();

    session->beginCoalescedEdit();
    for (const std::int64_t start : {1'900, 1'800, 1'700}) {
        session->updateZoomStart(zoomID, ms(start));
    }
    EXPECT_EQ(changes.size(), 3u);
    for (const ChangeReport& change : changes) {
        EXPECT_FALSE(change.committed);
        EXPECT_FALSE(change.shouldPersist);
    }
    session->endCoalescedEdit();
    ASSERT_EQ(changes.size(), 4u);
    EXPECT_TRUE(changes.back().committed);
    EXPECT_TRUE(changes.back().shouldPersist);
    EXPECT_EQ(changes.back().timeline, session->timeline());
    EXPECT_EQ(onlyZoom().startTime, ms(1'700));

    session->undo();
    EXPECT_EQ(session->timeline(), withZoom);
    session->redo();

    // Out and back again: no step, and nothing to persist.
    const EditTimeline dragged = session->timeline();
    const std::size_t reported = changes.size();
    session->beginCoalescedEdit();
    session->moveZoom(zoomID, ms(5'000), session->timeline().segments.front().id);
    session->moveZoom(zoomID, ms(1'700), session->timeline().segments.front().id);
    session->endCoalescedEdit();
    EXPECT_EQ(session->timeline(), dragged);
    EXPECT_EQ(changes.size(), reported + 2);
    EXPECT_FALSE(changes.back().committed);
    session->undo();
    EXPECT_EQ(session->timeline(), withZoom);
}

TEST_F(TimelineEditingSessionTest, AnOutsideChangeDuringADragLandsOnTopOfIt) {
    session->addZoom(ms(2'000));
    const EditTimeline beforeDrag = session->timeline();
    const Uuid zoomID = onlyZoom().id;

    EditTimeline external = beforeDrag;
    external.cursor.scale = 2;
    EditTimeline newerExternal = beforeDrag;
    newerExternal.cursor.scale = 2.5;

    session->beginCoalescedEdit();
    session->updateZoomEnd(zoomID, ms(4'000));
    const EditTimeline dragged = session->timeline();
    session->applyExternalTimeline(external);
    session->applyExternalTimeline(newerExternal);
    // The drag goes on undisturbed.
    EXPECT_EQ(session->timeline(), dragged);
    session->endCoalescedEdit();

    EXPECT_EQ(session->timeline(), newerExternal);
    EXPECT_TRUE(changes.back().committed);
    EXPECT_FALSE(changes.back().shouldPersist);
    session->undo();
    EXPECT_EQ(session->timeline(), dragged);
    session->undo();
    EXPECT_EQ(session->timeline(), beforeDrag);
}

TEST_F(TimelineEditingSessionTest, AnOutsideChangeIsOneUndoableStepThatIsNotWrittenBack) {
    session->applyExternalTimeline(original);
    EXPECT_TRUE(changes.empty());
    EXPECT_FALSE(session->canUndo());

    EditTimeline external = original;
    external.segments = {segment(ms(0), ms(4'000)), segment(ms(6'000), sourceDuration)};
    session->selectSegment(original.segments.front().id);
    session->applyExternalTimeline(external);
    EXPECT_EQ(session->timeline(), external);
    ASSERT_EQ(changes.size(), 1u);
    EXPECT_TRUE(changes.back().committed);
    EXPECT_FALSE(changes.back().shouldPersist);
    EXPECT_TRUE(session->canUndo());
    // The segment it replaced is no longer selectable.
    EXPECT_EQ(session->selectedSegmentID(), std::nullopt);

    // Undoing it is an edit of this editor like any other, and is persisted.
    session->undo();
    EXPECT_EQ(session->timeline(), original);
    EXPECT_TRUE(changes.back().committed);
    EXPECT_TRUE(changes.back().shouldPersist);
    EXPECT_TRUE(session->canRedo());
}

TEST_F(TimelineEditingSessionTest, AnInvalidOutsideTimelineIsRefusedWithAMessage) {
    EditTimeline external = original;
    external.segments = {segment(ms(0), ms(20'000))};
    session->applyExternalTimeline(external);
    EXPECT_EQ(session->timeline(), original);
    EXPECT_TRUE(session->message().has_value());
    EXPECT_FALSE(session->canUndo());
    EXPECT_TRUE(changes.empty());

    session->reloadExternalTimeline([]() -> EditTimeline { throw FileError("读不出来"); });
    EXPECT_EQ(session->message(), "读不出来");
    EXPECT_EQ(session->timeline(), original);
}

TEST_F(TimelineEditingSessionTest, ARefusedEditKeepsTheTimelineAndTheNextEditClearsItsMessage) {
    const int publishedBefore = publishedChanges;
    session->split(sourceDuration);
    EXPECT_EQ(session->timeline(), original);
    EXPECT_EQ(session->message(), "播放头不在可分割片段内。");
    EXPECT_TRUE(changes.empty());
    EXPECT_EQ(publishedChanges, publishedBefore + 1);

    session->updatePlaybackRate(original.segments.front().id, 0.505);
    EXPECT_EQ(session->message(), "播放倍率必须位于0.50x至4.00x并以0.01x递增。");
    EXPECT_EQ(session->timeline(), original);

    session->split(ms(6'000));
    EXPECT_EQ(session->timeline().segments.size(), 2u);
    EXPECT_EQ(session->message(), std::nullopt);
}

TEST_F(TimelineEditingSessionTest, SelectionsFollowTheElementsThroughUndo) {
    session->addZoom(ms(2'000));
    ASSERT_EQ(session->selectedZoomID(), onlyZoom().id);
    session->undo();
    EXPECT_TRUE(session->timeline().zooms.empty());
    EXPECT_EQ(session->selectedZoomID(), std::nullopt);

    // A split keeps the left half's id, so the selection survives it and its
    // undo; deleting the selected segment clears it.
    session->select(ms(9'000));
    const Uuid selected = *session->selectedSegmentID();
    session->split(ms(6'000));
    session->select(ms(9'000));
    const Uuid rightHalf = *session->selectedSegmentID();
    EXPECT_NE(rightHalf, selected);
    session->rippleDeleteSelection();
    EXPECT_EQ(session->selectedSegmentID(), std::nullopt);
    EXPECT_EQ(TimelineMapper(session->timeline(), sourceDuration).sequenceDuration(), ms(6'000));
    session->undo();
    session->selectSegment(rightHalf);
    session->undo();
    EXPECT_EQ(session->selectedSegmentID(), std::nullopt);
}

} // namespace
} // namespace rilo

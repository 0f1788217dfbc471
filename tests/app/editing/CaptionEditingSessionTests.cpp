#include "app/editing/CaptionEditingSession.h"
#include "support/TimelineBuilders.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace rilo {
namespace {

using testing::frame;

const ProjectTime sourceDuration = frame(600);

Uuid cueID(std::uint8_t n) {
    Uuid id;
    id.bytes[6] = 0x40;
    id.bytes[15] = n;
    return id;
}

CaptionCue cueAt(std::uint8_t n, std::int64_t startFrame, std::int64_t endFrame, std::string text) {
    return {cueID(n), frame(startFrame), frame(endFrame), std::move(text), {}, {}};
}

CaptionDocument sampleDocument() {
    CaptionDocument document;
    document.sourceAudioDigest = std::string(64, 'a');
    document.basedOnTimelineDigest = std::string(64, 'b');
    CaptionCue second = cueAt(2, 120, 180, "自动缩放和字幕");
    second.highlights = {{"自动缩放", 1}, {"字幕", 1}};
    document.cues = {cueAt(1, 0, 60, "今天看看剪辑"), second};
    return document.validated(sourceDuration);
}

struct Change {
    CaptionDocument document;
    bool committed = false;
    bool shouldPersist = false;
};

// A session over the sample document that records what it reports.
struct RecordedSession {
    std::vector<Change> changes;
    int publishedChanges = 0;
    CaptionEditingSession session{
        sampleDocument(), sourceDuration,
        [this](const CaptionDocument& document, bool committed, bool shouldPersist) {
            changes.push_back({document, committed, shouldPersist});
        },
        [this] { ++publishedChanges; }};
};

std::vector<CaptionDocument> undoAll(CaptionEditingSession& session) {
    std::vector<CaptionDocument> documents;
    while (session.canUndo()) {
        session.undo();
        documents.push_back(session.document());
    }
    return documents;
}

TEST(CaptionEditingSession, ACueDragIsOneUndoStepAndTheStepIsTakenAtItsEnd) {
    RecordedSession recorded;
    CaptionEditingSession& session = recorded.session;
    const CaptionDocument original = session.document();

    session.beginCoalescedEdit();
    session.moveCue(cueID(2), frame(200));
    session.moveCue(cueID(2), frame(260));
    session.trimEnd(cueID(2), frame(340));
    EXPECT_FALSE(session.canUndo());
    session.endCoalescedEdit();

    ASSERT_EQ(recorded.changes.size(), 4u);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_FALSE(recorded.changes[i].committed);
        EXPECT_FALSE(recorded.changes[i].shouldPersist);
    }
    EXPECT_TRUE(recorded.changes[3].committed);
    EXPECT_TRUE(recorded.changes[3].shouldPersist);
    const CaptionDocument dragged = session.document();
    EXPECT_EQ(recorded.changes[3].document, dragged);
    EXPECT_EQ(dragged.cues[1].start, frame(260));
    EXPECT_EQ(dragged.cues[1].end, frame(340));

    EXPECT_EQ(undoAll(session), std::vector{original});
    session.redo();
    EXPECT_EQ(session.document(), dragged);
    EXPECT_FALSE(session.canRedo());

    // A drag that ends where it began leaves no step.
    session.beginCoalescedEdit();
    session.moveCue(cueID(2), frame(400));
    session.moveCue(cueID(2), frame(260));
    session.endCoalescedEdit();
    EXPECT_EQ(undoAll(session).size(), 1u);
}

TEST(CaptionEditingSession, ARejectedEditKeepsTheDocumentAndShowsWhy) {
    RecordedSession recorded;
    CaptionEditingSession& session = recorded.session;
    const CaptionDocument original = session.document();

    session.updateText(cueID(1), " \n ");
    EXPECT_EQ(session.document(), original);
    EXPECT_EQ(session.message(), "字幕文字不能为空。");
    EXPECT_TRUE(recorded.changes.empty());
    EXPECT_EQ(recorded.publishedChanges, 1);

    // A drag into the next cue is refused as a whole, not stopped short.
    session.beginCoalescedEdit();
    session.moveCue(cueID(1), frame(100));
    session.endCoalescedEdit();
    EXPECT_EQ(session.document(), original);
    EXPECT_EQ(session.message(), "字幕不能与相邻字幕重叠。");
    EXPECT_FALSE(session.canUndo());

    session.updateText(cueID(1), "今天换个说法");
    EXPECT_EQ(session.document().cues[0].text, "今天换个说法");
    EXPECT_EQ(session.message(), std::nullopt);
}

TEST(CaptionEditingSession, AnOutsideDocumentArrivingDuringADragTakesEffectAtItsEnd) {
    RecordedSession recorded;
    CaptionEditingSession& session = recorded.session;
    const CaptionDocument original = session.document();
    CaptionDocument imported = original;
    imported.cues.push_back(cueAt(3, 400, 460, "代理导入的字幕"));

    session.beginCoalescedEdit();
    session.moveCue(cueID(2), frame(200));
    session.applyExternalDocument(imported);
    EXPECT_EQ(session.document().cues.size(), 2u);
    session.moveCue(cueID(2), frame(220));
    const CaptionDocument dragged = session.document();
    session.endCoalescedEdit();

    EXPECT_EQ(session.document(), imported);
    ASSERT_GE(recorded.changes.size(), 2u);
    const Change& dragEnd = recorded.changes[recorded.changes.size() - 2];
    EXPECT_EQ(dragEnd.document, dragged);
    EXPECT_TRUE(dragEnd.committed && dragEnd.shouldPersist);
    const Change& arrival = recorded.changes.back();
    EXPECT_EQ(arrival.document, imported);
    EXPECT_TRUE(arrival.committed);
    EXPECT_FALSE(arrival.shouldPersist); // already on disk

    // Undoing the outside change is an ordinary, persisted change.
    session.undo();
    EXPECT_EQ(session.document(), dragged);
    EXPECT_TRUE(recorded.changes.back().shouldPersist);
    session.undo();
    EXPECT_EQ(session.document(), original);
}

TEST(CaptionEditingSession, OutsideDocumentsThatAreEqualOrInvalidAddNoStep) {
    RecordedSession recorded;
    CaptionEditingSession& session = recorded.session;
    const CaptionDocument original = session.document();

    session.applyExternalDocument(original);
    CaptionDocument overlapping = original;
    overlapping.cues[1].start = frame(30);
    session.applyExternalDocument(overlapping);

    EXPECT_EQ(session.document(), original);
    EXPECT_FALSE(session.canUndo());
    EXPECT_TRUE(recorded.changes.empty());
    EXPECT_EQ(session.message(), "字幕文本、顺序或时间范围无效。");
}

TEST(CaptionEditingSession, TheHundredAndFirstEditDropsTheOldestStep) {
    RecordedSession recorded;
    CaptionEditingSession& session = recorded.session;
    for (int edit = 1; edit <= 101; ++edit) {
        session.updateText(cueID(1), "第" + std::to_string(edit) + "次");
    }
    const std::vector<CaptionDocument> undone = undoAll(session);
    ASSERT_EQ(undone.size(), CaptionEditingSession::maximumUndoSteps);
    EXPECT_EQ(undone.back().cues[0].text, "第1次");
    EXPECT_EQ(session.document().cues[0].text, "第1次");
}

TEST(CaptionEditingSession, ReplacingAHighlightIsOneStepAndABadReplacementChangesNothing) {
    RecordedSession recorded;
    CaptionEditingSession& session = recorded.session;
    const CaptionDocument original = session.document();

    session.replaceHighlight(cueID(2), {"自动缩放", 1}, {"和", 1});
    EXPECT_EQ(session.document().cues[1].highlights, (std::vector<CaptionHighlight>{{"和", 1}, {"字幕", 1}}));
    EXPECT_EQ(recorded.changes.size(), 1u);

    const CaptionDocument replaced = session.document();
    session.replaceHighlight(cueID(2), {"和", 1}, {"缩放和字", 1}); // overlaps 字幕
    EXPECT_EQ(session.document(), replaced);
    EXPECT_EQ(session.message(), "请选择字幕正文中的一段连续关键词。");

    session.removeHighlight(cueID(2), {"字幕", 1});
    EXPECT_EQ(session.document().cues[1].highlights, (std::vector<CaptionHighlight>{{"和", 1}}));

    EXPECT_EQ(undoAll(session), (std::vector{replaced, original}));
}

TEST(CaptionEditingSession, SelectionAndTextFocusFollowTheCuesThroughUndoAndRedo) {
    RecordedSession recorded;
    CaptionEditingSession& session = recorded.session;

    session.addCue(cueAt(3, 300, 360, "新字幕"), true);
    EXPECT_EQ(session.selectedCueID(), cueID(3));
    EXPECT_EQ(session.textFocusRequestCueID(), cueID(3));
    ASSERT_TRUE(session.selectedCue().has_value());
    EXPECT_EQ(session.selectedCue()->text, "新字幕");
    session.consumeTextFocusRequest(cueID(1));
    EXPECT_EQ(session.textFocusRequestCueID(), cueID(3));

    session.undo();
    EXPECT_EQ(session.selectedCueID(), std::nullopt);
    EXPECT_EQ(session.textFocusRequestCueID(), std::nullopt);
    session.redo();
    EXPECT_EQ(session.document().cues.size(), 3u);
    EXPECT_EQ(session.selectedCueID(), std::nullopt);

    session.select(cueID(2));
    session.removeSelectedCue();
    EXPECT_EQ(session.document().cues.size(), 2u);
    EXPECT_EQ(session.selectedCueID(), std::nullopt);
    session.undo();
    session.select(cueID(2));
    EXPECT_EQ(session.selectedCueID(), cueID(2));
    session.select(cueID(9));
    EXPECT_EQ(session.selectedCueID(), std::nullopt);

    // A refused addition selects nothing.
    session.addCue(cueAt(4, 130, 140, "重叠"), true);
    EXPECT_EQ(session.selectedCueID(), std::nullopt);
    EXPECT_EQ(session.textFocusRequestCueID(), std::nullopt);

    const int published = recorded.publishedChanges;
    session.select(std::nullopt);
    EXPECT_EQ(recorded.publishedChanges, published);
}

} // namespace
} // namespace rilo

#include "project/caption/CaptionDocumentEngine.h"
#include "support/Thrown.h"
#include "support/TimelineBuilders.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace rilo {
namespace {

using testing::frame;
using testing::ns;
using Case = CaptionEditingError::Case;

const ProjectTime sourceDuration = frame(600); // ten seconds

Uuid cueID(std::uint8_t n) {
    Uuid id;
    id.bytes[6] = 0x40;
    id.bytes[15] = n;
    return id;
}

CaptionCue cueAt(std::uint8_t n, std::int64_t startFrame, std::int64_t endFrame, std::string text) {
    return {cueID(n), frame(startFrame), frame(endFrame), std::move(text), {}, {}};
}

// Cue 1 over frames 0...60 with three timed words, cue 2 over 120...180 with
// two highlights.
CaptionDocument sampleDocument() {
    CaptionDocument document;
    document.sourceAudioDigest = std::string(64, 'a');
    document.basedOnTimelineDigest = std::string(64, 'b');
    CaptionCue first = cueAt(1, 0, 60, "今天 看看 剪辑");
    first.words = {
        {frame(0), frame(20), "今天"}, {frame(20), frame(40), "看看"}, {frame(40), frame(60), "剪辑"}};
    CaptionCue second = cueAt(2, 120, 180, "自动缩放和字幕");
    second.highlights = {{"自动缩放", 1}, {"字幕", 1}};
    document.cues = {first, second};
    return document.validated(sourceDuration);
}

std::vector<Uuid> cueOrder(const CaptionDocument& document) {
    std::vector<Uuid> ids;
    for (const CaptionCue& cue : document.cues) {
        ids.push_back(cue.id);
    }
    return ids;
}

template <class Body>
std::optional<Case> failure(Body body) {
    return testing::thrownCase<CaptionEditingError>(body);
}

TEST(CaptionDocumentEngine, AddSnapsTrimsAndPlacesACueThatTouchesBothNeighbours) {
    CaptionCue added = cueAt(3, 0, 0, "  中间这句\n");
    added.start = frame(60) + ns(4'000'000);        // snaps back to frame 60
    added.end = frame(120) - ns(5'000'000);         // snaps forward to frame 120
    added.words = {{frame(60), frame(70), "中间"}}; // not taken
    added.highlights = {{"中间", 1}};

    const CaptionDocument result = CaptionDocumentEngine::addCue(sampleDocument(), added, sourceDuration);

    EXPECT_EQ(cueOrder(result), (std::vector{cueID(1), cueID(3), cueID(2)}));
    EXPECT_EQ(result.cues[1], (CaptionCue{cueID(3), frame(60), frame(120), "中间这句", {}, {}}));
    EXPECT_EQ(result.cues[0], sampleDocument().cues[0]);
}

TEST(CaptionDocumentEngine, AddRefusesEmptyTextRangesOutsideTheSourceOrUnderAFrameAndOverlaps) {
    const CaptionDocument document = sampleDocument();
    auto add = [&](CaptionCue cue) {
        return failure([&] { (void)CaptionDocumentEngine::addCue(document, cue, sourceDuration); });
    };
    EXPECT_EQ(add(cueAt(3, 60, 120, " \n\t")), Case::emptyText);
    EXPECT_EQ(add(cueAt(3, 590, 601, "过了结尾")), Case::invalidRange);
    EXPECT_EQ(add(cueAt(3, -1, 0, "开头之前")), Case::invalidRange);
    // Both ends snap to frame 70: shorter than a frame.
    CaptionCue subFrame = cueAt(3, 70, 70, "太短");
    subFrame.end = frame(70) + ns(5'000'000);
    EXPECT_EQ(add(subFrame), Case::invalidRange);
    EXPECT_EQ(add(cueAt(3, 59, 100, "压到前一句")), Case::overlapsNeighbor);
    EXPECT_EQ(add(cueAt(3, 100, 121, "压到后一句")), Case::overlapsNeighbor);
    EXPECT_EQ(add(cueAt(3, 130, 140, "在一句之内")), Case::overlapsNeighbor);
    // An id already in use is caught by the validator and passes as it is.
    EXPECT_EQ(testing::thrownCase<CaptionValidationError>([&] {
                  (void)CaptionDocumentEngine::addCue(document, cueAt(1, 300, 360, "重复"), sourceDuration);
              }),
              CaptionValidationError::Case::invalidCue);
}

TEST(CaptionDocumentEngine, MoveShiftsWordsAndMayPassOverACueButNeverStopsAtANeighbour) {
    const CaptionDocument document = sampleDocument();

    const CaptionDocument moved =
        CaptionDocumentEngine::moveCue(document, cueID(1), frame(60) + ns(3'000'000), sourceDuration);
    EXPECT_EQ(moved.cues[0].start, frame(60));
    EXPECT_EQ(moved.cues[0].end, frame(120)); // now touches cue 2
    EXPECT_EQ(moved.cues[0].words, (std::vector<CaptionWord>{{frame(60), frame(80), "今天"},
                                                             {frame(80), frame(100), "看看"},
                                                             {frame(100), frame(120), "剪辑"}}));

    const CaptionDocument passed =
        CaptionDocumentEngine::moveCue(document, cueID(1), frame(300), sourceDuration);
    EXPECT_EQ(cueOrder(passed), (std::vector{cueID(2), cueID(1)}));
    EXPECT_EQ(passed.cues[1].start, frame(300));

    auto move = [&](const Uuid& id, std::int64_t startFrame) {
        return failure(
            [&] { (void)CaptionDocumentEngine::moveCue(document, id, frame(startFrame), sourceDuration); });
    };
    EXPECT_EQ(move(cueID(1), 61), Case::overlapsNeighbor);
    EXPECT_EQ(move(cueID(1), 150), Case::overlapsNeighbor);
    EXPECT_EQ(move(cueID(2), 59), Case::overlapsNeighbor);
    EXPECT_EQ(move(cueID(2), 541), Case::invalidRange);
    EXPECT_EQ(move(cueID(1), -1), Case::invalidRange);
    EXPECT_EQ(move(cueID(9), 300), Case::cueNotFound);
}

TEST(CaptionDocumentEngine, TrimsDropWordsTheyCutThroughWhole) {
    const CaptionDocument document = sampleDocument();

    const CaptionDocument trimmedStart =
        CaptionDocumentEngine::trimStart(document, cueID(1), frame(25), sourceDuration);
    EXPECT_EQ(trimmedStart.cues[0].start, frame(25));
    EXPECT_EQ(trimmedStart.cues[0].words, (std::vector<CaptionWord>{{frame(40), frame(60), "剪辑"}}));
    EXPECT_EQ(trimmedStart.cues[0].text, document.cues[0].text);

    const CaptionDocument trimmedEnd =
        CaptionDocumentEngine::trimEnd(document, cueID(1), frame(39), sourceDuration);
    EXPECT_EQ(trimmedEnd.cues[0].end, frame(39));
    EXPECT_EQ(trimmedEnd.cues[0].words, (std::vector<CaptionWord>{{frame(0), frame(20), "今天"}}));

    // Growing keeps every word.
    const CaptionDocument grown =
        CaptionDocumentEngine::trimEnd(document, cueID(1), frame(120), sourceDuration);
    EXPECT_EQ(grown.cues[0].words, document.cues[0].words);
}

TEST(CaptionDocumentEngine, TrimsRefuseSubFrameCuesTheSourceEdgesAndNeighbours) {
    const CaptionDocument document = sampleDocument();
    auto trimStart = [&](const Uuid& id, ProjectTime t) {
        return failure([&] { (void)CaptionDocumentEngine::trimStart(document, id, t, sourceDuration); });
    };
    auto trimEnd = [&](const Uuid& id, ProjectTime t) {
        return failure([&] { (void)CaptionDocumentEngine::trimEnd(document, id, t, sourceDuration); });
    };
    // Half a frame before the end still snaps onto the end.
    EXPECT_EQ(trimStart(cueID(2), frame(180) - ns(7'000'000)), Case::invalidRange);
    EXPECT_EQ(trimEnd(cueID(2), frame(120) + ns(7'000'000)), Case::invalidRange);
    EXPECT_EQ(trimStart(cueID(1), frame(-1)), Case::invalidRange);
    EXPECT_EQ(trimEnd(cueID(2), frame(601)), Case::invalidRange);
    EXPECT_EQ(trimStart(cueID(2), frame(59)), Case::overlapsNeighbor);
    EXPECT_EQ(trimEnd(cueID(1), frame(121)), Case::overlapsNeighbor);
    EXPECT_EQ(trimEnd(cueID(9), frame(100)), Case::cueNotFound);

    EXPECT_EQ(CaptionDocumentEngine::trimStart(document, cueID(2), frame(60), sourceDuration).cues[1].start,
              frame(60));
    EXPECT_EQ(CaptionDocumentEngine::trimEnd(document, cueID(2), frame(600), sourceDuration).cues[1].end,
              frame(600));
}

TEST(CaptionDocumentEngine, RetypingTheSameTextKeepsWordsAndHighlightsAndANewTextDropsThem) {
    const CaptionDocument document = sampleDocument();

    EXPECT_EQ(CaptionDocumentEngine::updateText(document, cueID(2), "\n 自动缩放和字幕  ", sourceDuration),
              document);

    const CaptionDocument retyped =
        CaptionDocumentEngine::updateText(document, cueID(1), " 换一句 ", sourceDuration);
    EXPECT_EQ(retyped.cues[0], (CaptionCue{cueID(1), frame(0), frame(60), "换一句", {}, {}}));

    EXPECT_EQ(failure([&] {
                  (void)CaptionDocumentEngine::updateText(document, cueID(1), "\u3000\n", sourceDuration);
              }),
              Case::emptyText);
    EXPECT_EQ(
        failure([&] { (void)CaptionDocumentEngine::updateText(document, cueID(9), "文字", sourceDuration); }),
        Case::cueNotFound);
    // The validator's own rules pass through unchanged.
    EXPECT_EQ(testing::thrownCase<CaptionValidationError>([&] {
                  (void)CaptionDocumentEngine::updateText(document, cueID(1), std::string(2001, 'x'),
                                                          sourceDuration);
              }),
              CaptionValidationError::Case::invalidCue);
}

TEST(CaptionDocumentEngine, HighlightsAreKeptInTextOrderAndBadOnesReadAsAKeywordRequest) {
    const CaptionDocument document = sampleDocument();

    const CaptionDocument highlighted =
        CaptionDocumentEngine::addHighlight(document, cueID(1), {"看看", 1}, sourceDuration);
    const CaptionDocument second =
        CaptionDocumentEngine::addHighlight(highlighted, cueID(1), {"今天", 1}, sourceDuration);
    EXPECT_EQ(second.cues[0].highlights, (std::vector<CaptionHighlight>{{"今天", 1}, {"看看", 1}}));
    EXPECT_EQ(second.cues[0].words, document.cues[0].words);

    auto add = [&](const CaptionDocument& base, CaptionHighlight highlight) {
        return failure([&] {
            (void)CaptionDocumentEngine::addHighlight(base, cueID(2), std::move(highlight), sourceDuration);
        });
    };
    EXPECT_EQ(add(document, {"自动缩放和字幕", 1}), Case::invalidHighlight); // the whole cue
    EXPECT_EQ(add(document, {"字幕", 2}), Case::invalidHighlight);           // only one match
    EXPECT_EQ(add(document, {"缩放", 1}), Case::invalidHighlight);           // inside another
    EXPECT_EQ(add(document, {"和", 0}), Case::invalidHighlight);

    CaptionDocument full = CaptionDocumentEngine::clearHighlights(document, cueID(2), sourceDuration);
    full = CaptionDocumentEngine::updateText(full, cueID(2), "a b c d e f g h i", sourceDuration);
    for (const char* letter : {"a", "b", "c", "d", "e", "f", "g", "h"}) {
        full = CaptionDocumentEngine::addHighlight(full, cueID(2), {letter, 1}, sourceDuration);
    }
    EXPECT_EQ(full.cues[1].highlights.size(), 8u);
    EXPECT_EQ(add(full, {"i", 1}), Case::invalidHighlight);
    EXPECT_EQ(add(full, {"x", 1}), Case::invalidHighlight);
}

TEST(CaptionDocumentEngine, ClearsHighlightsAndRemovesCues) {
    const CaptionDocument document = sampleDocument();

    const CaptionDocument cleared =
        CaptionDocumentEngine::clearHighlights(document, cueID(2), sourceDuration);
    EXPECT_TRUE(cleared.cues[1].highlights.empty());
    EXPECT_EQ(cleared.cues[1].text, document.cues[1].text);

    const CaptionDocument removed = CaptionDocumentEngine::removeCue(document, cueID(1), sourceDuration);
    EXPECT_EQ(cueOrder(removed), std::vector{cueID(2)});
    EXPECT_EQ(failure([&] { (void)CaptionDocumentEngine::removeCue(removed, cueID(1), sourceDuration); }),
              Case::cueNotFound);
    EXPECT_EQ(
        failure([&] { (void)CaptionDocumentEngine::clearHighlights(removed, cueID(1), sourceDuration); }),
        Case::cueNotFound);
}

} // namespace
} // namespace rilo

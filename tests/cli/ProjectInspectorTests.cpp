#include "cli/ProjectInspector.h"
#include "project/document/TimelineValidationError.h"
#include "support/PackageFixtures.h"
#include "support/TimelineBuilders.h"

#include <gtest/gtest.h>

namespace rilo::cli {
namespace {

using rilo::testing::ms;
using rilo::testing::segment;

MouseEvent press(std::int64_t milliseconds, MouseButton button, MousePhase phase,
                 std::optional<bool> inside) {
    MouseEvent event;
    event.time = ProjectTime{milliseconds * 1'000'000 + 400'000};
    event.button = button;
    event.phase = phase;
    event.isInsideSource = inside;
    return event;
}

// A recording of 12.3 s with a webcam: three segments at 1x, 0.5x and 1.5x.
ProjectSnapshot sampleSnapshot() {
    ProjectSnapshot snapshot;
    snapshot.packageURL = "/library/A.rilo";
    snapshot.manifest =
        testing::sampleManifest(*Uuid::parse("0A0B0C0D-0000-4000-8000-000000000001"), IsoDate{1'700'000'000});
    snapshot.timeline.segments = {segment(ms(0), ms(4000), 1000), segment(ms(5000), ms(9000), 500),
                                  segment(ms(10000), ms(12000), 1500)};
    snapshot.timeline.zooms = {{Uuid::random(), ms(1000), ms(1500), ms(2000), ms(2500), {0.5, 0.5}, 1.5}};
    snapshot.mouseEvents = {
        press(100, MouseButton::left, MousePhase::down, true),
        press(200, MouseButton::left, MousePhase::up, true),
        press(300, MouseButton::left, MousePhase::down, false),        // outside the source
        press(400, MouseButton::right, MousePhase::down, true),        // not the left button
        press(500, MouseButton::left, MousePhase::down, std::nullopt), // older recording: inside
        press(600, MouseButton::left, MousePhase::moved, true),
    };
    return snapshot;
}

TEST(ProjectInspector, DescribesSegmentsOnBothAxesZoomsTracksAndClicks) {
    const ProjectSnapshot snapshot = sampleSnapshot();
    const CLIProjectDescription description = ProjectInspector::describe(snapshot, "digest");

    EXPECT_EQ(description.id, "0A0B0C0D-0000-4000-8000-000000000001");
    EXPECT_EQ(description.state, "completed");
    EXPECT_EQ(description.sourceWidth, 3024);
    EXPECT_EQ(description.sourceHeight, 1964);
    EXPECT_EQ(description.sourceDurationMilliseconds, 12345);
    // 4000 + 8000 + 1333.33...
    EXPECT_EQ(description.sequenceDurationMilliseconds, 13333);
    ASSERT_EQ(description.segments.size(), 3u);
    EXPECT_EQ(description.segments[1], (CLISegmentDescription{snapshot.timeline.segments[1].id.string(), 5000,
                                                              9000, 4000, 12000, 0.5}));
    EXPECT_EQ(description.segments[2].sequenceEndMilliseconds, 13333);
    EXPECT_EQ(description.zooms, (std::vector<CLIZoomDescription>{{0, snapshot.timeline.zooms[0].id.string(),
                                                                   1000, 2500, 0.5, 0.5, 1.5}}));
    EXPECT_EQ(description.tracks,
              (std::map<std::string, bool>{
                  {"screen", true}, {"webcam", true}, {"systemAudio", true}, {"microphone", true}}));
    // Tracks follow the manifest.
    ProjectManifest manifest = snapshot.manifest;
    manifest.webcam.reset();
    manifest.media.tracks = {{MediaTrackKind::screen, 0}, {MediaTrackKind::microphone, 1}};
    EXPECT_EQ(ProjectInspector::trackPresence(manifest),
              (std::map<std::string, bool>{
                  {"screen", true}, {"webcam", false}, {"systemAudio", false}, {"microphone", true}}));
    EXPECT_EQ(description.clickMilliseconds, (std::vector<std::int64_t>{100, 500}));
    EXPECT_EQ(description.captionCueCount, 0);
    EXPECT_FALSE(description.captionLanguage.has_value());
    EXPECT_EQ(description.timelineDigest, "digest");

    // The summary counts the segments not at normal speed.
    const CLITimelineSummary summary = ProjectInspector::timelineSummary(
        snapshot.timeline, TimelineMapper(snapshot.timeline, snapshot.manifest.duration));
    EXPECT_EQ(summary.segmentCount, 3);
    EXPECT_EQ(summary.speedSegmentCount, 2);
    EXPECT_EQ(summary.zoomCount, 1);

    ProjectSnapshot invalid = snapshot;
    invalid.timeline.segments.push_back(segment(ms(11000), ms(12300), 1000)); // overlaps the last one
    EXPECT_THROW(ProjectInspector::describe(invalid, "digest"), TimelineValidationError);
}

TEST(ProjectInspector, CuesShowWhereTheyStayVisibleAfterCuts) {
    const ProjectSnapshot snapshot = sampleSnapshot();
    const TimelineMapper mapper(snapshot.timeline, snapshot.manifest.duration);
    CaptionDocument document;
    document.cues = {
        {Uuid::random(), ms(3000), ms(6000), "跨越剪切", {{ms(3000), ms(3500), "跨越"}}, {{"剪切", 1}}},
        {Uuid::random(), ms(9200), ms(9800), "剪掉了", {}, {}},
    };
    const auto cues = ProjectInspector::cueDescriptions(document, mapper);
    ASSERT_EQ(cues.size(), 2u);
    // 3000...4000 at 1x, then 5000...6000 at 0.5x (2000 ms of sequence).
    EXPECT_EQ(cues[0].sequenceRanges, (std::vector<CLIRange>{{3000, 4000}, {4000, 6000}}));
    EXPECT_EQ(cues[0].words, (std::vector<CLICaptionWordDescription>{{3000, 3500, "跨越"}}));
    EXPECT_EQ(cues[0].highlights, (std::vector<CLICaptionHighlightDescription>{{"剪切", 1}}));
    EXPECT_EQ(cues[1].id, document.cues[1].id.string());
    EXPECT_TRUE(cues[1].sequenceRanges.empty());
}

} // namespace
} // namespace rilo::cli

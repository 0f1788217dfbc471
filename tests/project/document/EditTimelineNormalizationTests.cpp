#include "project/document/TimelineCodecs.h"

#include <gtest/gtest.h>
#include <initializer_list>
#include <string>
#include <vector>

namespace rilo {
namespace {

constexpr ProjectTime tenSeconds = ProjectTime::fromSeconds(10);

Uuid uuid(const char* text) {
    return *Uuid::parse(text);
}

AnnotationElement annotation(const char* id, std::int64_t zIndex, std::int64_t startNanoseconds) {
    auto element =
        AnnotationElement::defaultAnnotation(AnnotationKind::rectangle, ProjectTime{startNanoseconds},
                                             ProjectTime{startNanoseconds + 100}, zIndex, 16.0 / 9.0);
    element.id = uuid(id);
    return element;
}

// Carries a member of every schema step, with values unlike the defaults.
EditTimeline timelineOfVersion(std::int64_t version) {
    EditTimeline timeline;
    timeline.schemaVersion = version;
    timeline.segments = {
        {uuid("0B7F2C1E-8D3A-4C5B-9E6F-112233445566"), {ProjectTime{0}, tenSeconds}, {1000}}};
    timeline.webcamFullscreenSegments = {{Uuid::random(), ProjectTime{0}, ProjectTime{5}}};
    timeline.motionBlurAmount = 0.2;
    timeline.annotations = {annotation("00000000-0000-4000-8000-000000000001", 0, 0)};
    timeline.deviceFrame = DeviceFrameEdit{true, "tablet"};
    return timeline;
}

TEST(EditTimelineNormalization, EmptyDocumentGetsOneWholeRangeSegment) {
    const EditTimeline timeline = json::decodeDocument<EditTimeline>("{}").normalized(tenSeconds, false);
    EXPECT_EQ(timeline.schemaVersion, EditTimeline::currentSchemaVersion);
    EXPECT_EQ(timeline.schemaVersion, 8);
    ASSERT_EQ(timeline.segments.size(), 1U);
    EXPECT_EQ(timeline.segments[0].sourceRange, (ProjectTimeRange{ProjectTime{0}, tenSeconds}));
    EXPECT_EQ(timeline.segments[0].playbackRate, TimelinePlaybackRate::normal());
    EXPECT_NE(timeline.segments[0].id, Uuid{});

    EXPECT_TRUE(EditTimeline::empty().normalized(ProjectTime{0}, false).segments.empty());
    EXPECT_TRUE(EditTimeline::empty().normalized(ProjectTime{-5}, false).segments.empty());
}

TEST(EditTimelineNormalization, ExistingSegmentsAreKept) {
    const EditTimeline stored = timelineOfVersion(8);
    EXPECT_EQ(stored.normalized(ProjectTime::fromSeconds(30), false).segments, stored.segments);
}

TEST(EditTimelineNormalization, EachStoredSchemaLosesWhatItDidNotKnow) {
    struct Case {
        std::int64_t version;
        bool keepsFullscreenSegments;
        bool keepsMotionBlur;
        bool keepsAnnotations;
        bool keepsDeviceFrame;
    };
    const std::vector<Case> cases = {
        {0, false, false, false, false}, {1, false, false, false, false}, {2, false, false, false, false},
        {3, false, false, false, false}, {4, false, false, false, false}, {5, true, false, false, false},
        {6, true, true, false, false},   {7, true, true, true, false},    {8, true, true, true, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE("schema " + std::to_string(c.version));
        const EditTimeline stored =
            json::decodeDocument<EditTimeline>(json::encodeDocument(timelineOfVersion(c.version)));
        const EditTimeline timeline = stored.normalized(tenSeconds, false);
        EXPECT_EQ(timeline.schemaVersion, 8);
        EXPECT_EQ(timeline.webcamFullscreenSegments.size(), c.keepsFullscreenSegments ? 1U : 0U);
        EXPECT_EQ(timeline.motionBlurAmount, c.keepsMotionBlur ? 0.2 : 0.5);
        EXPECT_EQ(timeline.annotations.size(), c.keepsAnnotations ? 1U : 0U);
        EXPECT_EQ(timeline.deviceFrame.has_value(), c.keepsDeviceFrame);
    }
}

TEST(EditTimelineNormalization, NewerSchemaIsLeftAsItStands) {
    EditTimeline stored = timelineOfVersion(9);
    stored.canvas.padding = 0.5;
    const EditTimeline timeline = stored.normalized(tenSeconds, false);
    EXPECT_EQ(timeline.schemaVersion, 9);
    EXPECT_EQ(timeline.motionBlurAmount, 0.2);
    EXPECT_TRUE(timeline.deviceFrame);
    EXPECT_EQ(timeline.annotations.size(), 1U);
    EXPECT_EQ(timeline.webcamFullscreenSegments.size(), 1U);
    // Values are still made orderly.
    EXPECT_EQ(timeline.canvas.padding, 0.18);
}

TEST(EditTimelineNormalization, WebcamFollowsWhetherTheRecordingHasOne) {
    EditTimeline stored = timelineOfVersion(8);
    stored.webcamOverlay = WebcamOverlay::newRecording();
    stored.webcamKeyframes = {{Uuid::random(), ProjectTime{1}, PointValue{0.1, 0.1}, 0.2}};

    const EditTimeline without = stored.normalized(tenSeconds, false);
    EXPECT_FALSE(without.webcamOverlay);
    EXPECT_TRUE(without.webcamKeyframes.empty());
    EXPECT_EQ(without.webcamFullscreenSegments, stored.webcamFullscreenSegments);

    const EditTimeline with = stored.normalized(tenSeconds, true);
    EXPECT_EQ(with.webcamOverlay, WebcamOverlay::newRecording());
    EXPECT_EQ(with.webcamKeyframes, stored.webcamKeyframes);

    stored.webcamOverlay.reset();
    EXPECT_EQ(stored.normalized(tenSeconds, true).webcamOverlay, WebcamOverlay::defaultValue());
}

TEST(EditTimelineNormalization, KeyframesOutsideTheSourceAreDroppedAndTheRestSorted) {
    EditTimeline stored = timelineOfVersion(8);
    for (const std::int64_t t :
         std::initializer_list<std::int64_t>{tenSeconds.nanoseconds, 5, -1, tenSeconds.nanoseconds - 1, 0}) {
        stored.webcamKeyframes.push_back({Uuid::random(), ProjectTime{t}, PointValue{0.5, 0.5}, 0.2});
    }
    std::vector<std::int64_t> times;
    for (const auto& keyframe : stored.normalized(tenSeconds, true).webcamKeyframes) {
        times.push_back(keyframe.time.nanoseconds);
    }
    EXPECT_EQ(times, (std::vector<std::int64_t>{0, 5, tenSeconds.nanoseconds - 1}));
}

TEST(EditTimelineNormalization, ListsAreSorted) {
    EditTimeline stored = timelineOfVersion(8);
    stored.webcamFullscreenSegments = {{Uuid::random(), ProjectTime{30}, ProjectTime{40}},
                                       {Uuid::random(), ProjectTime{10}, ProjectTime{20}}};
    const ZoomSegment zoom{
        Uuid::random(), ProjectTime{}, ProjectTime{}, ProjectTime{}, ProjectTime{}, PointValue{0.5, 0.5}, 2};
    ZoomSegment late = zoom;
    late.startTime = ProjectTime{900};
    ZoomSegment early = zoom;
    early.startTime = ProjectTime{100};
    stored.zooms = {late, early};
    // By zIndex, then start time, then id.
    const auto a = annotation("00000000-0000-4000-8000-00000000000A", 1, 50);
    const auto b = annotation("00000000-0000-4000-8000-000000000009", 1, 50);
    const auto c = annotation("FFFFFFFF-0000-4000-8000-000000000000", 1, 10);
    const auto d = annotation("00000000-0000-4000-8000-000000000000", 2, 0);
    const auto e = annotation("FFFFFFFF-0000-4000-8000-000000000000", 0, 99);
    stored.annotations = {d, a, c, e, b};

    const EditTimeline timeline = stored.normalized(tenSeconds, false);
    EXPECT_EQ(timeline.webcamFullscreenSegments[0].startTime, ProjectTime{10});
    EXPECT_EQ(timeline.zooms, (std::vector<ZoomSegment>{early, late}));
    EXPECT_EQ(timeline.annotations, (std::vector<AnnotationElement>{e, c, b, a, d}));
}

TEST(EditTimelineNormalization, PresetOfTheOtherBackgroundFallsBackToTheDefault) {
    EditTimeline stored = EditTimeline::empty();
    stored.canvas.background = CanvasBackground::solid;
    stored.canvas.preset = CanvasBackgroundPreset::aurora;
    EXPECT_EQ(stored.normalized(tenSeconds, false).canvas.preset, CanvasBackgroundPreset::midnight);

    stored.canvas.background = CanvasBackground::gradient;
    stored.canvas.preset = CanvasBackgroundPreset::lime;
    EXPECT_EQ(stored.normalized(tenSeconds, false).canvas.preset, CanvasBackgroundPreset::midnightViolet);

    stored.canvas.preset = CanvasBackgroundPreset::aurora;
    EXPECT_EQ(stored.normalized(tenSeconds, false).canvas.preset, CanvasBackgroundPreset::aurora);
}

TEST(EditTimelineNormalization, ValuesAreClampedToTheirRanges) {
    const EditTimeline high = json::decodeDocument<EditTimeline>(R"({"schemaVersion": 8,
        "canvas": {"padding": 0.5, "cornerRadius": 0.5}, "cursor": {"scale": 10},
        "audioMix": {"systemAudio": {"isMuted": false, "gainDecibels": 30},
                     "microphone": {"isMuted": true, "gainDecibels": 12.5}}})")
                                  .normalized(tenSeconds, false);
    EXPECT_EQ(high.canvas.padding, 0.18);
    EXPECT_EQ(high.canvas.cornerRadius, 0.08);
    EXPECT_EQ(high.cursor.scale, 3.0);
    EXPECT_EQ(high.audioMix.systemAudio.gainDecibels, 12);
    EXPECT_EQ(high.audioMix.microphone, (AudioTrackEdit{true, 12}));

    EditTimeline low = EditTimeline::empty();
    low.canvas.padding = -1;
    low.canvas.cornerRadius = -1;
    low.cursor.scale = 0.1;
    low.audioMix = {{false, -100}, {false, -60.5}};
    const EditTimeline clamped = low.normalized(tenSeconds, false);
    EXPECT_EQ(clamped.canvas.padding, 0);
    EXPECT_EQ(clamped.canvas.cornerRadius, 0);
    EXPECT_EQ(clamped.cursor.scale, 0.5);
    EXPECT_EQ(clamped.audioMix.systemAudio.gainDecibels, -60);
    EXPECT_EQ(clamped.audioMix.microphone.gainDecibels, -60);

    // A missing radius reads as 0.035, which is inside the range.
    EXPECT_EQ(json::decodeDocument<EditTimeline>(R"({"canvas": {}})")
                  .normalized(tenSeconds, false)
                  .canvas.cornerRadius,
              0.035);
}

TEST(EditTimelineNormalization, IsIdempotent) {
    EditTimeline stored = timelineOfVersion(6);
    stored.segments.clear();
    stored.canvas.padding = 0.9;
    const EditTimeline once = stored.normalized(tenSeconds, true);
    EXPECT_EQ(once.normalized(tenSeconds, true), once);
}

} // namespace
} // namespace rilo

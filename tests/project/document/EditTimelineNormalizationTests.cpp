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

TEST(EditTimelineNormalization, OnlyAnEmptyDocumentGetsOneWholeRangeSegment) {
    const EditTimeline timeline = json::decodeDocument<EditTimeline>("{}").normalized(tenSeconds, false);
    EXPECT_EQ(timeline.schemaVersion, EditTimeline::currentSchemaVersion);
    ASSERT_EQ(timeline.segments.size(), 1U);
    EXPECT_EQ(timeline.segments[0].sourceRange, (ProjectTimeRange{ProjectTime{0}, tenSeconds}));
    EXPECT_EQ(timeline.segments[0].playbackRate, TimelinePlaybackRate::normal());
    EXPECT_TRUE(EditTimeline::empty().normalized(ProjectTime{0}, false).segments.empty());

    const EditTimeline stored = timelineOfVersion(8);
    EXPECT_EQ(stored.normalized(ProjectTime::fromSeconds(30), false).segments, stored.segments);
}

TEST(EditTimelineNormalization, EachStoredSchemaLosesWhatItDidNotKnowAndNewerOnesStay) {
    struct Case {
        std::int64_t version;
        bool keepsFullscreenSegments;
        bool keepsMotionBlur;
        bool keepsAnnotations;
        bool keepsDeviceFrame;
    };
    const std::vector<Case> cases = {
        {0, false, false, false, false}, {4, false, false, false, false}, {5, true, false, false, false},
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

    // Nothing is dropped, but values are still made orderly.
    EditTimeline stored = timelineOfVersion(9);
    stored.canvas.padding = 0.5;
    const EditTimeline timeline = stored.normalized(tenSeconds, false);
    EXPECT_EQ(timeline.schemaVersion, 9);
    EXPECT_EQ(timeline.motionBlurAmount, 0.2);
    EXPECT_TRUE(timeline.deviceFrame);
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

TEST(EditTimelineNormalization, ListsAreSortedAndKeyframesOutsideTheSourceDropped) {
    EditTimeline stored = timelineOfVersion(8);
    for (const std::int64_t t :
         std::initializer_list<std::int64_t>{tenSeconds.nanoseconds, 5, -1, tenSeconds.nanoseconds - 1, 0}) {
        stored.webcamKeyframes.push_back({Uuid::random(), ProjectTime{t}, PointValue{0.5, 0.5}, 0.2});
    }
    stored.webcamFullscreenSegments = {{Uuid::random(), ProjectTime{30}, ProjectTime{40}},
                                       {Uuid::random(), ProjectTime{10}, ProjectTime{20}}};
    ZoomSegment late{Uuid::random(), ProjectTime{900}, {}, {}, {}, PointValue{0.5, 0.5}, 2};
    ZoomSegment early = late;
    early.startTime = ProjectTime{100};
    stored.zooms = {late, early};
    // By zIndex, then start time, then id.
    const auto a = annotation("00000000-0000-4000-8000-00000000000A", 1, 50);
    const auto b = annotation("00000000-0000-4000-8000-000000000009", 1, 50);
    const auto c = annotation("FFFFFFFF-0000-4000-8000-000000000000", 1, 10);
    const auto d = annotation("00000000-0000-4000-8000-000000000000", 2, 0);
    const auto e = annotation("FFFFFFFF-0000-4000-8000-000000000000", 0, 99);
    stored.annotations = {d, a, c, e, b};

    const EditTimeline timeline = stored.normalized(tenSeconds, true);
    std::vector<std::int64_t> times;
    for (const auto& keyframe : timeline.webcamKeyframes) {
        times.push_back(keyframe.time.nanoseconds);
    }
    EXPECT_EQ(times, (std::vector<std::int64_t>{0, 5, tenSeconds.nanoseconds - 1}));
    EXPECT_EQ(timeline.webcamFullscreenSegments[0].startTime, ProjectTime{10});
    EXPECT_EQ(timeline.zooms[0].startTime, ProjectTime{100});
    EXPECT_EQ(timeline.annotations, (std::vector<AnnotationElement>{e, c, b, a, d}));
}

TEST(EditTimelineNormalization, PresetsFallBackAndValuesAreClampedIdempotently) {
    const struct {
        CanvasBackground background;
        CanvasBackgroundPreset stored;
        CanvasBackgroundPreset expected;
    } rows[] = {
        {CanvasBackground::solid, CanvasBackgroundPreset::aurora, CanvasBackgroundPreset::midnight},
        {CanvasBackground::gradient, CanvasBackgroundPreset::lime, CanvasBackgroundPreset::midnightViolet},
        {CanvasBackground::gradient, CanvasBackgroundPreset::aurora, CanvasBackgroundPreset::aurora},
    };
    for (const auto& row : rows) {
        EditTimeline stored = EditTimeline::empty();
        stored.canvas.background = row.background;
        stored.canvas.preset = row.stored;
        EXPECT_EQ(stored.normalized(tenSeconds, false).canvas.preset, row.expected);
    }

    // Values are clamped to their ranges, and normalizing twice changes nothing.
    EditTimeline high = EditTimeline::empty();
    high.canvas.padding = 0.5;
    high.canvas.cornerRadius = 0.5;
    high.cursor.scale = 10;
    high.audioMix = {{false, 30}, {true, 12.5}};
    const EditTimeline clampedHigh = high.normalized(tenSeconds, false);
    EXPECT_EQ(clampedHigh.canvas.padding, 0.18);
    EXPECT_EQ(clampedHigh.canvas.cornerRadius, 0.08);
    EXPECT_EQ(clampedHigh.cursor.scale, 3.0);
    EXPECT_EQ(clampedHigh.audioMix.systemAudio.gainDecibels, 12);
    EXPECT_EQ(clampedHigh.audioMix.microphone, (AudioTrackEdit{true, 12}));

    EditTimeline low = EditTimeline::empty();
    low.canvas.padding = -1;
    low.cursor.scale = 0.1;
    low.audioMix = {{false, -100}, {false, -60.5}};
    const EditTimeline clampedLow = low.normalized(tenSeconds, false);
    EXPECT_EQ(clampedLow.canvas.padding, 0);
    EXPECT_EQ(clampedLow.cursor.scale, 0.5);
    EXPECT_EQ(clampedLow.audioMix.microphone.gainDecibels, -60);

    EditTimeline stored = timelineOfVersion(6);
    stored.segments.clear();
    stored.canvas.padding = 0.9;
    const EditTimeline once = stored.normalized(tenSeconds, true);
    EXPECT_EQ(once.normalized(tenSeconds, true), once);
}

} // namespace
} // namespace rilo

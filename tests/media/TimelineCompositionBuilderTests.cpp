#include "media/TimelineCompositionPlan.h"
#include "support/Thrown.h"
#include "support/TimelineBuilders.h"

#include <cmath>
#include <gtest/gtest.h>

namespace rilo {
namespace {

using testing::between;
using testing::ms;
using testing::ns;
using testing::segment;
using testing::timelineOf;

using Insert = TimelineCompositionInsert;

MediaTrackInfo trackInfo(std::int64_t index, MediaType type, ProjectTimeRange range) {
    MediaTrackInfo track;
    track.index = index;
    track.mediaType = type;
    track.codecName = type == MediaType::video ? "h264" : "aac";
    track.timeRange = range;
    return track;
}

// A three-second recording: screen at 0, system audio at 1, microphone at 2,
// each over the whole recording unless a test shortens it.
class TimelineCompositionBuilderTest : public ::testing::Test {
protected:
    TimelineCompositionBuilderTest() {
        snapshot.manifest.duration = ms(3000);
        snapshot.manifest.media.tracks = {
            {MediaTrackKind::screen, 0}, {MediaTrackKind::systemAudio, 1}, {MediaTrackKind::microphone, 2}};
        media.duration = ms(3000);
        media.tracks = {trackInfo(0, MediaType::video, whole), trackInfo(1, MediaType::audio, whole),
                        trackInfo(2, MediaType::audio, whole)};
    }

    TimelineCompositionPlan build() const {
        return TimelineCompositionBuilder::build(snapshot, media, std::stop_token{});
    }

    const ProjectTimeRange whole = between(ms(0), ms(3000));
    ProjectSnapshot snapshot;
    MediaFileInfo media;
};

TEST_F(TimelineCompositionBuilderTest, OneSegmentAtNormalSpeedIsOneInsertPerTrack) {
    snapshot.timeline = timelineOf({segment(ms(0), ms(3000))});

    const auto plan = build();

    const std::vector<Insert> one{{whole, whole, TimelinePlaybackRate::normal()}};
    EXPECT_EQ(plan.duration(), ms(3000));
    EXPECT_EQ(plan.screen.source, media.tracks[0]);
    EXPECT_EQ(plan.screen.inserts, one);
    EXPECT_FALSE(plan.webcam.has_value());
    ASSERT_EQ(plan.audio.size(), 2u);
    EXPECT_EQ(plan.audio[0].kind, MediaTrackKind::systemAudio);
    EXPECT_EQ(plan.audio[0].track.source, media.tracks[1]);
    EXPECT_EQ(plan.audio[1].kind, MediaTrackKind::microphone);
    EXPECT_EQ(plan.audio[1].track.source, media.tracks[2]);
    for (const auto& audio : plan.audio) {
        EXPECT_EQ(audio.track.inserts, one);
        EXPECT_FLOAT_EQ(audio.linearVolume, 1);
    }
}

TEST_F(TimelineCompositionBuilderTest, CutsAndRatesPlaceEachTracksOwnStretchRoundingOutwards) {
    // Kept: 0-1 s at 1x, 1.5-2 s at 2x, 2 s to 3 s minus 3 ns at 3x. The last
    // segment's exact length of 333333332.33 ns projects to 333333332 ns.
    snapshot.timeline = timelineOf({segment(ms(0), ms(1000)), segment(ms(1500), ms(2000), 2000),
                                    segment(ms(2000), ms(3000) - ns(3), 3000)});
    // System audio starts 1 ns into the 2x segment; the microphone ends
    // 200000001 ns into it.
    media.tracks[1].timeRange = between(ms(1500) + ns(1), ms(3000));
    media.tracks[2].timeRange = between(ms(0), ms(1700) + ns(1));

    const auto plan = build();

    EXPECT_EQ(plan.duration(), ms(1250) + ns(333'333'332));
    EXPECT_EQ(
        plan.screen.inserts,
        (std::vector<Insert>{
            {between(ms(0), ms(1000)), between(ms(0), ms(1000)), {1000}},
            {between(ms(1500), ms(2000)), between(ms(1000), ms(1250)), {2000}},
            // 333333333 ns rounded up, kept within the segment.
            {between(ms(2000), ms(3000) - ns(3)), between(ms(1250), ms(1250) + ns(333'333'332)), {3000}},
        }));
    ASSERT_EQ(plan.audio.size(), 2u);
    // A late start: the first segment is skipped, the offset of 0.5 ns rounds down.
    EXPECT_EQ(
        plan.audio[0].track.inserts,
        (std::vector<Insert>{
            {between(ms(1500) + ns(1), ms(2000)), between(ms(1000), ms(1250)), {2000}},
            {between(ms(2000), ms(3000) - ns(3)), between(ms(1250), ms(1250) + ns(333'333'332)), {3000}},
        }));
    // An early end: 100000000.5 ns rounds up, and the last segment is skipped.
    EXPECT_EQ(plan.audio[1].track.inserts,
              (std::vector<Insert>{
                  {between(ms(0), ms(1000)), between(ms(0), ms(1000)), {1000}},
                  {between(ms(1500), ms(1700) + ns(1)), between(ms(1000), ms(1100) + ns(1)), {2000}},
              }));
}

TEST_F(TimelineCompositionBuilderTest, VolumesFollowTheMixAndOnlyRecordedTracksHaveOne) {
    snapshot.timeline = timelineOf({segment(ms(0), ms(3000))});
    snapshot.timeline.audioMix.systemAudio.gainDecibels = 20;
    snapshot.timeline.audioMix.microphone.isMuted = true;

    const auto plan = build();
    ASSERT_EQ(plan.audio.size(), 2u);
    EXPECT_NEAR(plan.audio[0].linearVolume, std::pow(10.0, 12.0 / 20), 1e-5);
    EXPECT_EQ(plan.audio[1].linearVolume, 0);

    // Without microphone media the setting has nothing to apply to.
    snapshot.manifest.media.tracks.pop_back();
    snapshot.timeline.audioMix.microphone = {false, 6};
    const auto withoutMicrophone = build();
    ASSERT_EQ(withoutMicrophone.audio.size(), 1u);
    EXPECT_EQ(withoutMicrophone.audio[0].kind, MediaTrackKind::systemAudio);
}

TEST_F(TimelineCompositionBuilderTest, RefusesMediaThatCannotFillTheSequenceOrBeDecoded) {
    using Case = TimelineCompositionBuilderError::Case;
    snapshot.timeline = timelineOf({segment(ms(0), ms(1000)), segment(ms(2000), ms(3000), 2000)});

    // One short track is a hole; all of them short means the media is
    // shorter than the manifest says.
    media.tracks[1].timeRange = between(ms(0), ms(2999));
    media.tracks[2].timeRange = between(ms(0), ms(2500));
    EXPECT_NO_THROW(build());
    media.tracks[0].timeRange = between(ms(0), ms(2900));
    const auto shortMedia = testing::thrown<TimelineCompositionBuilderError>([&] { build(); });
    ASSERT_TRUE(shortMedia.has_value());
    EXPECT_EQ(shortMedia->errorCase(), Case::durationMismatch);
    EXPECT_EQ(shortMedia->message(), "Composition 时长与 TimelineMapper 不一致。");

    media.tracks[0].timeRange = whole;
    media.tracks[2].codecName = "none";
    const auto undecodable = testing::thrown<TimelineCompositionBuilderError>([&] { build(); });
    ASSERT_TRUE(undecodable.has_value());
    EXPECT_EQ(undecodable->errorCase(), Case::cannotCreateTrack);
    EXPECT_EQ(undecodable->message(), "无法创建 audio Composition 轨道。");

    std::stop_source stop;
    stop.request_stop();
    EXPECT_TRUE(testing::thrown<CancellationError>([&] {
                    TimelineCompositionBuilder::build(snapshot, media, stop.get_token());
                }).has_value());
}

} // namespace
} // namespace rilo

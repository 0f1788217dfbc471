// The thumbnail strip of a real recording: which times it shows, that each
// picture is the frame presented at its source time, and the memory cache.

#include "media/TimelineTrackResolver.h"
#include "media/pictures/FrameNumberPicture.h"
#include "media/pictures/TimelineThumbnailProfile.h"
#include "media/pictures/TimelineThumbnailService.h"
#include "project/engine/TimelineMapper.h"
#include "project/store/ProjectStore.h"
#include "support/BuildCatalog.h"
#include "support/RecordedPackage.h"
#include "support/TemporaryDirectory.h"
#include "support/Thrown.h"
#include "support/TimelineBuilders.h"

#include <gtest/gtest.h>

namespace rilo {
namespace {

using testing::ms;

constexpr std::int64_t framesPerSecond = 30;
constexpr std::size_t thumbnailBytes = 78 * 44 * 4;

// The frame presented at a source time: the last one whose time (i / fps,
// truncated to whole nanoseconds as the file's times are read) is not later.
std::int64_t frameAt(ProjectTime sourceTime) {
    const auto start = [](std::int64_t index) { return index * 1'000'000'000 / framesPerSecond; };
    std::int64_t index = sourceTime.nanoseconds * framesPerSecond / 1'000'000'000;
    while (start(index + 1) <= sourceTime.nanoseconds) {
        ++index;
    }
    return index;
}

class TimelineThumbnailServiceTest : public ::testing::Test {
protected:
    void SetUp() override {
        testing::RecordedPackageOptions options;
        options.movie.screen = {PixelSize(320, 180), framesPerSecond, testing::MoviePicture::frameNumber};
        options.movie.systemAudio.reset();
        options.movie.microphone.reset();
        const testing::RecordedPackage recorded = testing::makeRecordedPackage(store_, options);
        snapshot_ = store_.loadSnapshot(recorded.package);
        // 0-1 s at normal speed, then 1.5-3 s at 1.5x: 2 s of sequence.
        snapshot_.timeline = testing::timelineOf(
            {testing::segment(ms(0), ms(1000)), testing::segment(ms(1500), ms(3000), 1500)});
    }

    // 88 / 160 = 0.55 s between thumbnails.
    static constexpr double pixelsPerSecond = 160;
    const ProjectTimeRange wholeSequence = testing::between(ms(0), ms(2000));

    testing::TemporaryDirectory directory_;
    ProjectStore store_{directory_.path() / "Projects", testing::buildCatalog};
    ProjectSnapshot snapshot_;
};

TEST_F(TimelineThumbnailServiceTest, EachThumbnailIsTheFramePresentedAtItsSourceTime) {
    TimelineThumbnailService service(1 << 20);
    const std::vector<TimelineThumbnail> thumbnails =
        service.thumbnails(snapshot_, pixelsPerSecond, wholeSequence, {});

    // 0, 0.55, the second segment's start at 1, 1.1, 1.65.
    const TimelineMapper mapper(snapshot_.timeline, snapshot_.manifest.duration);
    ASSERT_EQ(thumbnails.size(), 5u);
    EXPECT_EQ(thumbnails[2].sequenceTime, ms(1000));
    for (const TimelineThumbnail& thumbnail : thumbnails) {
        EXPECT_EQ(thumbnail.sourceTime, mapper.mappedTimeForSequenceTime(thumbnail.sequenceTime)->sourceTime);
        EXPECT_EQ(thumbnail.image.width, 78);
        EXPECT_EQ(thumbnail.image.height, 44);
        // Between keyframes (one a second) and between frames: 0.55 s is
        // frame 16.5, 2.475 s (1.65 at 1.5x after 1.5 s) frame 74.25.
        EXPECT_EQ(testing::frameNumberShown(thumbnail.image), frameAt(thumbnail.sourceTime))
            << "at sequence time " << thumbnail.sequenceTime.nanoseconds;
    }
    EXPECT_EQ(service.generatedImageCount(), 5);
}

TEST_F(TimelineThumbnailServiceTest, CachedThumbnailsComeBackWithoutDecodingWithinTheCacheBound) {
    TimelineThumbnailService service(1 << 20);
    const auto first = service.thumbnails(snapshot_, pixelsPerSecond, wholeSequence, {});
    ASSERT_EQ(service.generatedImageCount(), 5);
    EXPECT_EQ(service.thumbnails(snapshot_, pixelsPerSecond, wholeSequence, {}), first);
    EXPECT_EQ(service.generatedImageCount(), 5);

    // A stretch from 1.1 s asks for the source times of the first
    // request's last two pictures.
    const auto later =
        service.thumbnails(snapshot_, pixelsPerSecond, testing::between(ms(1100), ms(2000)), {});
    ASSERT_EQ(later.size(), 2u);
    EXPECT_EQ(later[0], first[3]);
    EXPECT_EQ(later[1], first[4]);
    EXPECT_EQ(service.generatedImageCount(), 5);

    service.emptyCache();
    EXPECT_EQ(service.thumbnails(snapshot_, pixelsPerSecond, wholeSequence, {}), first);
    EXPECT_EQ(service.generatedImageCount(), 10);

    // Room for two pictures: the five of a request push one another out.
    TimelineThumbnailService small(2 * thumbnailBytes);
    small.thumbnails(snapshot_, pixelsPerSecond, wholeSequence, {});
    EXPECT_EQ(small.thumbnails(snapshot_, pixelsPerSecond, wholeSequence, {}), first);
    EXPECT_GT(small.generatedImageCount(), 5);
}

TEST_F(TimelineThumbnailServiceTest, AStoppedRequestMakesNothing) {
    TimelineThumbnailService service(1 << 20);
    std::stop_source stop;
    stop.request_stop();
    EXPECT_TRUE(testing::thrown<CancellationError>(
        [&] { service.thumbnails(snapshot_, pixelsPerSecond, wholeSequence, stop.get_token()); }));
    EXPECT_EQ(service.generatedImageCount(), 0);
}

TEST_F(TimelineThumbnailServiceTest, AManifestPointingPastTheFileFailsWithTheResolversError) {
    TimelineThumbnailService service(1 << 20);
    ProjectSnapshot broken = snapshot_;
    broken.manifest.media.tracks.at(0).trackIndex = 5;
    EXPECT_EQ(testing::thrownCase<TimelineTrackResolverError>(
                  [&] { service.thumbnails(broken, pixelsPerSecond, wholeSequence, {}); }),
              TimelineTrackResolverError::Case::missingTrack);
    EXPECT_EQ(service.thumbnails(snapshot_, pixelsPerSecond, wholeSequence, {}).size(), 5u);
}

class TimelineThumbnailProfileTest : public ::testing::Test {
protected:
    // 0-10 s and 12-20 s of the source: 18 s of sequence, the second
    // segment starting at 10 s.
    TimelineMapper mapper_{
        testing::timelineOf({testing::segment(ms(0), ms(10'000)), testing::segment(ms(12'000), ms(20'000))}),
        ms(20'000)};
};

TEST_F(TimelineThumbnailProfileTest, IntervalFollowsTheZoomWithinItsLimits) {
    using TimelineThumbnailProfile::interval;
    // The whole minute in 1000 pixels: one thumbnail every 88 pixels.
    EXPECT_EQ(interval(1000.0 / 60), ms(5280));
    EXPECT_EQ(interval(176), ms(500));
    EXPECT_EQ(interval(1000), ms(500));
    EXPECT_EQ(interval(1), ms(88'000));
    EXPECT_EQ(interval(0.5), ms(88'000));
    EXPECT_EQ(interval(std::nan("")), ms(88'000));
}

TEST_F(TimelineThumbnailProfileTest, TimesStepThroughTheRequestAndAddSegmentStarts) {
    using TimelineThumbnailProfile::sequenceTimes;
    const std::vector<ProjectTime> whole{ms(0), ms(5280), ms(10'000), ms(10'560), ms(15'840)};
    EXPECT_EQ(sequenceTimes(mapper_, 1000.0 / 60, testing::between(ms(0), ms(18'000))), whole);
    // Clamped to the sequence.
    EXPECT_EQ(sequenceTimes(mapper_, 1000.0 / 60, testing::between(ms(-5000), ms(100'000))), whole);
    // From the requested start; the next step (11.28 s) lies past the end.
    EXPECT_EQ(sequenceTimes(mapper_, 1000.0 / 60, testing::between(ms(6000), ms(11'000))),
              (std::vector<ProjectTime>{ms(6000), ms(10'000)}));
    EXPECT_TRUE(sequenceTimes(mapper_, 1000.0 / 60, testing::between(ms(18'000), ms(19'000))).empty());
}

TEST_F(TimelineThumbnailProfileTest, AtMostThreeHundredTimesCountingSegmentStarts) {
    // 1000 s of sequence at two thumbnails a second; a segment starts at
    // 100.25 s, between two steps.
    const TimelineMapper mapper(testing::timelineOf({testing::segment(ms(0), ms(100'250)),
                                                     testing::segment(ms(100'250), ms(1'000'000))}),
                                ms(1'000'000));
    const std::vector<ProjectTime> times =
        TimelineThumbnailProfile::sequenceTimes(mapper, 1000, testing::between(ms(0), ms(1'000'000)));
    ASSERT_EQ(times.size(), TimelineThumbnailProfile::maximumCount);
    EXPECT_EQ(times[200], ms(100'000));
    EXPECT_EQ(times[201], ms(100'250));
    EXPECT_EQ(times.back(), ms(149'000));
}

TEST_F(TimelineThumbnailProfileTest, RequestWindowKeepsItsKeyWhileScrollingWithinHalfAView) {
    const auto window = [](std::int64_t startMilliseconds, double pixelsPerSecond) {
        return TimelineThumbnailRequestWindow::make(
            testing::between(ms(startMilliseconds), ms(startMilliseconds + 10'000)), pixelsPerSecond);
    };
    const TimelineThumbnailRequestWindow first = window(10'000, 50);
    EXPECT_EQ(window(14'999, 50), first);
    EXPECT_EQ(first.requestedRange, testing::between(ms(10'000), ms(25'000)));
    EXPECT_NE(window(15'000, 50).key, first.key);
    EXPECT_NE(window(9'999, 50).key, first.key);
    EXPECT_NE(window(10'000, 60).key, first.key);
}

} // namespace
} // namespace rilo

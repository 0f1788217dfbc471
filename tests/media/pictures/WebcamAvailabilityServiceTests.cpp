// The stretches in which a recording's webcam track has pictures, read from
// real movies whose webcam frames come at chosen times.

#include "media/pictures/WebcamAvailabilityService.h"
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
using testing::ns;

class WebcamAvailabilityServiceTest : public ::testing::Test {
protected:
    ProjectSnapshot record(std::optional<testing::VideoTrackOptions> webcam) {
        testing::RecordedPackageOptions options;
        options.movie.duration = ms(2000);
        options.movie.webcam = std::move(webcam);
        options.movie.systemAudio.reset();
        options.movie.microphone.reset();
        options.clicks = {};
        return store_.loadSnapshot(testing::makeRecordedPackage(store_, options).package);
    }

    testing::TemporaryDirectory directory_;
    ProjectStore store_{directory_.path() / "Projects", testing::buildCatalog};
};

TEST_F(WebcamAvailabilityServiceTest, AGapLongerThanHalfASecondSplitsTheStretches) {
    testing::VideoTrackOptions webcam{PixelSize(64, 36), 30};
    // The camera starts late; 300 -> 800 ms is exactly half a second, 900 ms
    // -> 1400 ms + 1 ns is 1 ns more.
    webcam.frameTimes = {ms(100), ms(200), ms(300), ms(800), ms(900), ms(1400) + ns(1), ms(1500), ms(1600)};
    const ProjectSnapshot snapshot = record(webcam);

    // A fragmented recording gives each frame the length of one frame at the
    // track's 30 fps; a stretch ends after its last frame's.
    const ProjectTime frameLength{1'000'000'000 / 30};
    EXPECT_EQ(WebcamAvailabilityService::availableRanges(snapshot),
              (std::vector<ProjectTimeRange>{testing::between(ms(100), ms(900) + frameLength),
                                             testing::between(ms(1400) + ns(1), ms(1600) + frameLength)}));
}

TEST_F(WebcamAvailabilityServiceTest, AProjectWithoutWebcamHasNoStretchesAndABrokenOneSaysWhy) {
    EXPECT_TRUE(WebcamAvailabilityService::availableRanges(record(std::nullopt)).empty());

    const ProjectSnapshot withWebcam = record(testing::VideoTrackOptions{PixelSize(64, 36), 30});
    ASSERT_EQ(WebcamAvailabilityService::availableRanges(withWebcam),
              std::vector<ProjectTimeRange>{testing::between(ms(0), ms(2000))});
    std::filesystem::remove(withWebcam.mediaURL());
    const auto message = testing::thrownMessage<WebcamAvailabilityServiceError>(
        [&] { WebcamAvailabilityService::availableRanges(withWebcam); });
    ASSERT_TRUE(message);
    EXPECT_TRUE(message->starts_with("摄像头轨道诊断暂不可用：无法打开项目媒体")) << *message;
}

} // namespace
} // namespace rilo

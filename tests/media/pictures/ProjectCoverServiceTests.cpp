// The cover of a recording: its first picture, fitted into 640 x 360, kept
// in memory and in the cache folder for a later run.

#include "media/ImageDecoding.h"
#include "media/pictures/FrameNumberPicture.h"
#include "media/pictures/ProjectCoverService.h"
#include "shared/Files.h"
#include "support/MediaFixture.h"
#include "support/TemporaryDirectory.h"
#include "support/Thrown.h"
#include "support/TimelineBuilders.h"

#include <gtest/gtest.h>

namespace rilo {
namespace {

namespace fs = std::filesystem;
using testing::ms;

constexpr std::size_t cacheBytes = 8 << 20;

testing::RecordingMovieOptions movieOptions() {
    testing::RecordingMovieOptions options;
    options.duration = ms(1000);
    options.screen = {PixelSize(960, 540), 30, testing::MoviePicture::frameNumber};
    options.systemAudio.reset();
    options.microphone.reset();
    return options;
}

class ProjectCoverServiceTest : public ::testing::Test {
protected:
    testing::TemporaryDirectory directory_;
    fs::path movie_ = directory_ / "recording.mov";
    fs::path cacheDirectory_ = directory_ / "Covers";
};

TEST_F(ProjectCoverServiceTest, CoverIsTheFirstFrameAndIsReadBackFromTheCacheFolder) {
    testing::writeRecordingMovie(movie_, movieOptions());
    ProjectCoverService service(cacheDirectory_, cacheBytes);
    const RgbaImage cover = service.cover(movie_, "project-1");
    EXPECT_EQ(cover.width, 640);
    EXPECT_EQ(cover.height, 360);
    EXPECT_EQ(testing::frameNumberShown(cover), 0);

    const fs::path file = service.cacheFile("project-1");
    EXPECT_EQ(file.parent_path(), cacheDirectory_);
    const RgbaImage stored = decodeImage(readFileBytes(file));
    EXPECT_EQ(stored.width, 640);
    EXPECT_EQ(stored.height, 360);

    // Without the media: from memory, and in a later run from the folder.
    fs::remove(movie_);
    EXPECT_EQ(service.cover(movie_, "project-1"), cover);
    ProjectCoverService laterRun(cacheDirectory_, cacheBytes);
    const RgbaImage readBack = laterRun.cover(movie_, "project-1");
    EXPECT_EQ(readBack.width, 640);
    EXPECT_EQ(testing::frameNumberShown(readBack), 0);

    // Another key is another cover, which needs the media.
    const auto failure =
        testing::thrown<ProjectCoverServiceError>([&] { laterRun.cover(movie_, "project-2"); });
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->message(), "无法从项目媒体生成缩略图。");
    EXPECT_FALSE(fs::exists(laterRun.cacheFile("project-2")));
}

TEST_F(ProjectCoverServiceTest, APictureMoreThanASecondAfterTheStartGivesNoCover) {
    testing::RecordingMovieOptions options = movieOptions();
    options.duration = ms(3000);
    options.screen.frameTimes = {ms(1500), ms(2000)};
    testing::writeRecordingMovie(movie_, options);
    ProjectCoverService service(cacheDirectory_, cacheBytes);
    EXPECT_TRUE(testing::thrown<ProjectCoverServiceError>([&] { service.cover(movie_, "late"); }));

    options.screen.frameTimes = {ms(900), ms(2000)};
    testing::writeRecordingMovie(movie_, options);
    EXPECT_EQ(testing::frameNumberShown(service.cover(movie_, "in-time")), 0);
}

} // namespace
} // namespace rilo

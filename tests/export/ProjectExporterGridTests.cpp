// The export's fixed frame grid and the still frame's size: the arithmetic
// that decides how many pictures a file has and how large a still is.

#include "export/ProjectExporter.h"
#include "rendering/ProjectFrameRenderer.h"

#include <gtest/gtest.h>

namespace rilo {
namespace {

TEST(ProjectExporterGrid, FramesCoverTheSequenceOnAFixedGrid) {
    // ceil(d * fps): a partial last frame still gets a picture.
    EXPECT_EQ(ProjectExporter::frameCount(ProjectTime{10'010'000'000}, 30), 301);
    EXPECT_EQ(ProjectExporter::frameCount(ProjectTime{10'000'000'000}, 30), 300);
    EXPECT_EQ(ProjectExporter::frameCount(ProjectTime{1}, 60), 1);
    EXPECT_EQ(ProjectExporter::frameCount(ProjectTime{0}, 60), 0);
    // A week at 60 fps does not overflow.
    EXPECT_EQ(ProjectExporter::frameCount(ProjectTime{604'800'000'000'000}, 60), 36'288'000);
    // Frame times are truncated to whole nanoseconds, never drifting.
    EXPECT_EQ(ProjectExporter::frameTime(1, 30).nanoseconds, 33'333'333);
    EXPECT_EQ(ProjectExporter::frameTime(30, 30).nanoseconds, 1'000'000'000);
    EXPECT_EQ(ProjectExporter::frameTime(36'287'999, 60).nanoseconds, 604'799'983'333'333);
}

TEST(ProjectFrameRendererSize, MeasuresAreEvenAndAtLeastTwo) {
    EXPECT_EQ(ProjectFrameRenderer::outputSize(640, 16.0 / 9), PixelSize::unnormalized(640, 360));
    EXPECT_EQ(ProjectFrameRenderer::outputSize(1281, 16.0 / 9), PixelSize::unnormalized(1280, 720));
    EXPECT_EQ(ProjectFrameRenderer::outputSize(1, 16.0 / 9), PixelSize::unnormalized(2, 2));
    EXPECT_EQ(ProjectFrameRenderer::outputSize(720, 9.0 / 16), PixelSize::unnormalized(720, 1280));
    // 1001 / 0.8 = 1251.25: the height is rounded, then lowered to even.
    EXPECT_EQ(ProjectFrameRenderer::outputSize(1001, 0.8), PixelSize::unnormalized(1000, 1250));
}

} // namespace
} // namespace rilo

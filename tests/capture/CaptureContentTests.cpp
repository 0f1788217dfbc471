#include "capture/CaptureContent.h"
#include "capture/MediaTime.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace rilo {
namespace {

TEST(CaptureWindowEligibility, OffersOnlyOtherProgramsNormalWindowsOfAUsableSize) {
    const CaptureWindowEligibility window{42, "xterm", 0, 160, 100};
    EXPECT_TRUE(window.isEligible(7));
    EXPECT_FALSE(window.isEligible(42));
    CaptureWindowEligibility narrow = window;
    narrow.width = 159;
    EXPECT_FALSE(narrow.isEligible(7));
    CaptureWindowEligibility panel = window;
    panel.windowLayer = 1;
    EXPECT_FALSE(panel.isEligible(7));
    CaptureWindowEligibility endless = window;
    endless.height = std::numeric_limits<double>::infinity();
    EXPECT_FALSE(endless.isEligible(7));
}

TEST(DisplayCaptureGeometry, SizesStayWithinTheLongestEdgeAndEven) {
    EXPECT_EQ(DisplayCaptureGeometry::initialPixelSize({2560, 1440}, 2), PixelSize(3840, 2160));
    EXPECT_EQ(DisplayCaptureGeometry::initialPixelSize({1001, 701}, 1), PixelSize(1000, 700));

    CaptureSourceDescriptor display;
    display.nativeID = 7;
    display.globalFrame = {1920, 0, 1280, 800};
    display.pointPixelScale = 2;
    // Larger than the display: clamped to it.
    const CaptureSourceDescriptor whole =
        DisplayCaptureGeometry::croppedSource(display, {-50, 100, 2000, 900});
    EXPECT_EQ(whole.areaSourceRect, (RectValue{0, 0, 1280, 800}));
    EXPECT_EQ(whole.kind, CaptureSourceKind::area);
    EXPECT_EQ(whole.nativeID, 7U);
    // Inside: rounded to whole pixels of the display, placed on the desktop.
    const CaptureSourceDescriptor area =
        DisplayCaptureGeometry::croppedSource(display, {10.3, 20, 300.2, 200});
    EXPECT_EQ(area.areaSourceRect, (RectValue{10.5, 20, 300, 200}));
    EXPECT_EQ(area.globalFrame, (RectValue{1930.5, 20, 300, 200}));
    EXPECT_EQ(area.initialPixelSize, PixelSize(600, 400));
}

TEST(MediaTime, ArithmeticIsExactAcrossTimescalesAndRoundsHalfAwayFromZero) {
    const MediaTime frame{1, 30, true};
    EXPECT_EQ(frame + frame + frame, (MediaTime{1, 10, true}));
    EXPECT_EQ(nanosecondsFromMediaTime(frame), 33'333'333);
    EXPECT_EQ(nanosecondsFromMediaTime(MediaTime{-1, 3, true}), -333'333'333);
    EXPECT_EQ(nanosecondsFromMediaTime(MediaTime{1, 2'000'000'000, true}), 1); // half a nanosecond
    EXPECT_FALSE((MediaTime::nanoseconds(5) - MediaTime::invalid()).isNumeric);
    EXPECT_EQ(nanosecondsFromMediaTime(MediaTime::invalid()), 0);
    EXPECT_TRUE(MediaTime::nanoseconds(33'333'333) < frame);
}

} // namespace
} // namespace rilo

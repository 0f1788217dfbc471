#include "capture/RecordingLiveStatus.h"

#include <gtest/gtest.h>

namespace rilo {
namespace {

TEST(RecordingLiveStatus, WebcamStateFollowsTheOptionsAndOnlyStoppingOrDiscardingIsTerminal) {
    RecordingOptions options;
    options.capturesWebcam = false;
    EXPECT_EQ(RecordingLiveStatus::initial(options).webcamState, RecordingWebcamState::disabled);
    options.capturesWebcam = true;
    EXPECT_EQ(RecordingLiveStatus::initial(options).webcamState, RecordingWebcamState::active);
    for (const auto& [state, raw] : json::EnumNames<RecordingTransportState>::entries) {
        EXPECT_EQ(isTerminal(state), raw == "stopping" || raw == "discarding") << raw;
    }
}

TEST(RecordingLiveStatusThrottle, PublishesAtMostEveryHundredMilliseconds) {
    RecordingLiveStatusThrottle throttle;
    EXPECT_TRUE(throttle.shouldPublish(5'000'000'000));
    EXPECT_FALSE(throttle.shouldPublish(5'099'999'999));
    // A refusal does not move the reference point.
    EXPECT_TRUE(throttle.shouldPublish(5'100'000'000));
    EXPECT_EQ(throttle.lastPublishUptimeNanoseconds, 5'100'000'000U);
    // A clock that went back is refused, however far.
    EXPECT_FALSE(throttle.shouldPublish(1'000'000'000));
    EXPECT_EQ(throttle.lastPublishUptimeNanoseconds, 5'100'000'000U);
}

} // namespace
} // namespace rilo

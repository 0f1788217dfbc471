#include "PulseAudioTestFixture.h"
#include "capture/AudioLevelMeter.h"
#include "capture/CaptureDeviceErrors.h"
#include "capture/MediaTime.h"
#include "capture/pulse/PulseAudioCaptureSource.h"
#include "capture/pulse/PulseAudioDeviceService.h"
#include "support/Thrown.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace rilo {
namespace {

using namespace std::chrono_literals;
using testing::thrownCase;
using testing::thrownMessage;

struct ReceivedBuffer {
    AudioSampleBuffer buffer;
    std::int64_t arrivalNanoseconds = 0; // host time when the handler got it
};

// Keeps what a source hands over, for the test thread to wait for and read.
class Receiver {
public:
    AudioCaptureSource::SampleHandler sampleHandler() {
        return [this](const AudioSampleBuffer& buffer) {
            const auto arrival = static_cast<std::int64_t>(hostUptimeNanoseconds());
            const std::scoped_lock lock(mutex_);
            buffers_.push_back({buffer, arrival});
            changed_.notify_all();
        };
    }
    AudioCaptureSource::FailureHandler failureHandler() {
        return [this](const std::string& message) {
            const std::scoped_lock lock(mutex_);
            failures_.push_back(message);
            changed_.notify_all();
        };
    }

    // Waits (up to a generous limit) until the buffers received so far satisfy the condition.
    bool waitUntil(const std::function<bool(const std::vector<ReceivedBuffer>&)>& condition) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, 10s, [&] { return condition(buffers_); });
    }
    bool waitForFailure() {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, 10s, [&] { return !failures_.empty(); });
    }
    // Waits until `duration` more of sound has arrived, and returns that part.
    std::vector<ReceivedBuffer> next(std::chrono::milliseconds duration) {
        const std::size_t first = buffers().size();
        const std::int64_t frames = 48'000 * duration.count() / 1'000;
        EXPECT_TRUE(waitUntil([&](const std::vector<ReceivedBuffer>& buffers) {
            std::int64_t received = 0;
            for (std::size_t index = first; index < buffers.size(); ++index) {
                received += buffers[index].buffer.frameCount;
            }
            return received >= frames;
        }));
        const std::vector<ReceivedBuffer> all = buffers();
        return {all.begin() + static_cast<std::ptrdiff_t>(first), all.end()};
    }

    std::vector<ReceivedBuffer> buffers() const {
        const std::scoped_lock lock(mutex_);
        return buffers_;
    }
    std::vector<std::string> failures() const {
        const std::scoped_lock lock(mutex_);
        return failures_;
    }

private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<ReceivedBuffer> buffers_;
    std::vector<std::string> failures_;
};

std::int64_t nanosecondsOf(const ReceivedBuffer& received) {
    return nanosecondsFromMediaTime(received.buffer.presentationTime);
}

// Whether the buffer's time stamp is close to when it arrived: before it (its
// first frame was captured at least a buffer's length earlier), give or take
// the 20 ms that the stamps may wander from the estimate, and not long before.
bool isNearItsArrival(const ReceivedBuffer& received) {
    const std::int64_t ageNanoseconds = received.arrivalNanoseconds - nanosecondsOf(received);
    return ageNanoseconds > -30'000'000 && ageNanoseconds < 200'000'000;
}

// Where a buffer does not start exactly where the one before ended (to the
// rounding of one frame's nanoseconds), its index.
std::vector<std::size_t> discontinuities(const std::vector<ReceivedBuffer>& buffers) {
    std::vector<std::size_t> result;
    for (std::size_t index = 1; index < buffers.size(); ++index) {
        const std::int64_t expected =
            nanosecondsOf(buffers[index - 1]) + buffers[index - 1].buffer.frameCount * 1'000'000'000 / 48'000;
        if (std::abs(nanosecondsOf(buffers[index]) - expected) > 1) {
            result.push_back(index);
        }
    }
    return result;
}

// The frequency of the sound in one channel, from how often it changes sign.
double frequencyOf(const std::vector<ReceivedBuffer>& buffers, int channel) {
    std::int64_t signChanges = 0;
    std::int64_t frames = 0;
    float previous = 0.0F;
    for (const ReceivedBuffer& received : buffers) {
        const std::vector<float>& samples = *received.buffer.samples;
        for (std::int64_t frame = 0; frame < received.buffer.frameCount; ++frame, ++frames) {
            const float value = samples[static_cast<std::size_t>(frame * 2 + channel)];
            if (frames > 0 && (value < 0.0F) != (previous < 0.0F)) {
                ++signChanges;
            }
            previous = value;
        }
    }
    return static_cast<double>(signChanges) / 2.0 / (static_cast<double>(frames) / 48'000.0);
}

double quietestLevel(const std::vector<ReceivedBuffer>& buffers) {
    double level = 1.0;
    for (const ReceivedBuffer& received : buffers) {
        level = std::min(level, AudioLevelMeter::normalizedLevel(received.buffer).value_or(1.0));
    }
    return level;
}

double loudestLevel(const std::vector<ReceivedBuffer>& buffers) {
    double level = 0.0;
    for (const ReceivedBuffer& received : buffers) {
        level = std::max(level, AudioLevelMeter::normalizedLevel(received.buffer).value_or(0.0));
    }
    return level;
}

class PulseAudioCaptureSourceTest : public testing::PulseAudioTest {};

TEST_F(PulseAudioCaptureSourceTest, SystemAudioRecordsWhatTheDefaultOutputPlaysOnTheHostClock) {
    std::unique_ptr<AudioCaptureSource> source = makeSystemAudioCaptureSource();
    Receiver receiver;
    const auto startedNanoseconds = static_cast<std::int64_t>(hostUptimeNanoseconds());
    source->start(receiver.sampleHandler(), receiver.failureHandler());
    EXPECT_EQ(source->deviceName(), "Rilo Test Output");

    const std::vector<ReceivedBuffer> silence = receiver.next(300ms);
    EXPECT_DOUBLE_EQ(loudestLevel(silence), 0.0);

    server().control({"load-module", "module-sine", "sink=rilo_null", "frequency=440"});
    ASSERT_TRUE(receiver.waitUntil([](const std::vector<ReceivedBuffer>& buffers) {
        return !buffers.empty() && loudestLevel({buffers.end() - 1, buffers.end()}) > 0.5;
    }));
    const std::vector<ReceivedBuffer> tone = receiver.next(500ms);
    source->stop();

    EXPECT_GT(quietestLevel(tone), 0.5);
    EXPECT_NEAR(frequencyOf(tone, 0), 440.0, 10.0);
    EXPECT_NEAR(frequencyOf(tone, 1), 440.0, 10.0);

    const std::vector<ReceivedBuffer> all = receiver.buffers();
    EXPECT_EQ(discontinuities(all), std::vector<std::size_t>{});
    EXPECT_GT(nanosecondsOf(all.front()), startedNanoseconds - 200'000'000);
    for (const ReceivedBuffer& received : all) {
        EXPECT_EQ(received.buffer.sampleRate, 48'000);
        EXPECT_EQ(received.buffer.channelCount, 2);
        EXPECT_EQ(received.buffer.samples->size(), static_cast<std::size_t>(received.buffer.frameCount * 2));
        EXPECT_LE(received.buffer.frameCount, 480);
        EXPECT_TRUE(isNearItsArrival(received)) << received.arrivalNanoseconds - nanosecondsOf(received);
    }
    EXPECT_TRUE(receiver.failures().empty());
}

TEST_F(PulseAudioCaptureSourceTest, AMicrophoneRecordsItsSourceInBothChannels) {
    const MicrophoneDeviceDescriptor microphone = PulseAudioDeviceService().resolveMicrophone("rilo_sine");
    std::unique_ptr<AudioCaptureSource> source = makeMicrophoneCaptureSource(microphone);
    Receiver receiver;
    source->start(receiver.sampleHandler(), receiver.failureHandler());
    EXPECT_EQ(source->deviceName(), microphone.name);

    const std::vector<ReceivedBuffer> sound = receiver.next(500ms);
    source->stop();
    const std::size_t receivedAtStop = receiver.buffers().size();

    ASSERT_GT(sound.size(), 5U);
    // The sine source runs at 44.1 kHz, mono: resampled and spread to both
    // channels. (It hands out its sound in blocks of up to two seconds, so
    // its time stamps say little; the output's monitor is used for those.)
    EXPECT_GT(quietestLevel({sound.begin() + 5, sound.end()}), 0.5);
    EXPECT_NEAR(frequencyOf(sound, 0), 440.0, 10.0);
    EXPECT_NEAR(frequencyOf(sound, 1), 440.0, 10.0);

    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(receiver.buffers().size(), receivedAtStop) << "buffers arrived after stop()";
}

TEST_F(PulseAudioCaptureSourceTest, AfterTheOutputWasSuspendedTheTimeStampsFollowTheHostClockAgain) {
    std::unique_ptr<AudioCaptureSource> source = makeSystemAudioCaptureSource();
    Receiver receiver;
    source->start(receiver.sampleHandler(), receiver.failureHandler());
    receiver.next(200ms);

    server().control({"suspend-sink", "rilo_null", "1"});
    std::this_thread::sleep_for(1s);
    server().control({"suspend-sink", "rilo_null", "0"});
    const std::vector<ReceivedBuffer> resumed = receiver.next(300ms);
    source->stop();

    // Counting frames on across the pause would put them a second behind.
    EXPECT_FALSE(discontinuities(receiver.buffers()).empty());
    for (const ReceivedBuffer& received : resumed) {
        EXPECT_TRUE(isNearItsArrival(received)) << received.arrivalNanoseconds - nanosecondsOf(received);
    }
}

TEST_F(PulseAudioCaptureSourceTest, StartFailsWithoutTheDeviceOrTheServer) {
    Receiver receiver;
    std::unique_ptr<AudioCaptureSource> unplugged =
        makeMicrophoneCaptureSource({"rilo_unplugged", "USB", false});
    EXPECT_EQ(thrownCase<MicrophoneCaptureError>(
                  [&] { unplugged->start(receiver.sampleHandler(), receiver.failureHandler()); }),
              MicrophoneCaptureErrorCase::deviceUnavailable);
    unplugged->stop();

    server().kill();
    std::unique_ptr<AudioCaptureSource> microphone = makeMicrophoneCaptureSource({"rilo_sine", "Sine", true});
    EXPECT_EQ(thrownCase<MicrophoneCaptureError>(
                  [&] { microphone->start(receiver.sampleHandler(), receiver.failureHandler()); }),
              MicrophoneCaptureErrorCase::deviceUnavailable);
    std::unique_ptr<AudioCaptureSource> systemAudio = makeSystemAudioCaptureSource();
    const auto message = thrownMessage<SystemAudioCaptureError>(
        [&] { systemAudio->start(receiver.sampleHandler(), receiver.failureHandler()); });
    ASSERT_TRUE(message);
    EXPECT_TRUE(message->starts_with("系统音频当前不可用：")) << *message;

    EXPECT_TRUE(receiver.buffers().empty());
    EXPECT_TRUE(receiver.failures().empty());
}

TEST_F(PulseAudioCaptureSourceTest, AMicrophoneUnpluggedWhileRecordingEndsCaptureOnce) {
    std::unique_ptr<AudioCaptureSource> source = makeMicrophoneCaptureSource({"rilo_sine", "Sine", true});
    Receiver receiver;
    source->start(receiver.sampleHandler(), receiver.failureHandler());
    receiver.next(100ms);

    server().control({"unload-module", "module-sine-source"});
    ASSERT_TRUE(receiver.waitForFailure());
    const std::size_t receivedAtFailure = receiver.buffers().size();
    std::this_thread::sleep_for(200ms);
    source->stop();

    EXPECT_EQ(receiver.failures(), std::vector<std::string>{"所选麦克风已不可用，请重新选择。"});
    EXPECT_EQ(receiver.buffers().size(), receivedAtFailure);
}

TEST_F(PulseAudioCaptureSourceTest, SystemAudioEndsWhenTheServerGoesAway) {
    std::unique_ptr<AudioCaptureSource> source = makeSystemAudioCaptureSource();
    Receiver receiver;
    source->start(receiver.sampleHandler(), receiver.failureHandler());
    receiver.next(100ms);

    server().kill();
    ASSERT_TRUE(receiver.waitForFailure());
    source->stop();

    ASSERT_EQ(receiver.failures().size(), 1U);
    EXPECT_TRUE(receiver.failures().front().starts_with("系统音频当前不可用："))
        << receiver.failures().front();
}

} // namespace
} // namespace rilo

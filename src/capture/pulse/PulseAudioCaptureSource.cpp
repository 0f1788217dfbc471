#include "capture/pulse/PulseAudioCaptureSource.h"

#include "capture/CaptureDeviceErrors.h"
#include "capture/MediaTime.h"
#include "capture/pulse/PulseConnection.h"
#include "capture/pulse/PulseIntrospection.h"

#include <algorithm>
#include <bit>
#include <chrono>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <pulse/error.h>
#include <stop_token>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace rilo {

namespace {

constexpr int sampleRate = 48'000;
constexpr int channelCount = 2;
constexpr std::size_t bytesPerFrame = sizeof(float) * channelCount;
constexpr std::int64_t framesPerBuffer = sampleRate / 100; // 10 ms
constexpr std::int64_t nanosecondsPerSecond = 1'000'000'000;
constexpr std::int64_t driftLimitNanoseconds = 20'000'000;
// Enough to empty a socket that filled while the thread was kept waiting.
constexpr int maximumCatchUpRounds = 256;

// The server hands over float32le as it is; this machine reads it as float.
static_assert(std::endian::native == std::endian::little);

// Split into whole seconds first so that days of frames do not overflow.
constexpr std::int64_t nanosecondsForFrames(std::int64_t frames) noexcept {
    return frames / sampleRate * nanosecondsPerSecond +
           frames % sampleRate * nanosecondsPerSecond / sampleRate;
}

constexpr std::int64_t framesForNanoseconds(std::int64_t nanoseconds) noexcept {
    return nanoseconds / nanosecondsPerSecond * sampleRate +
           nanoseconds % nanosecondsPerSecond * sampleRate / nanosecondsPerSecond;
}

// Places buffers on the host clock. Arrival times jitter with scheduling, so
// buffers are counted on from one anchor at the sample rate, and the anchor
// only moves when the estimate has wandered more than the drift limit away.
class CaptureClock {
public:
    struct Placement {
        std::int64_t timeNanoseconds = 0;
        // Frames at the start of the buffer that the previous buffers already
        // covered: they are left out rather than overlap.
        std::int64_t skippedFrames = 0;
    };

    Placement place(std::int64_t estimatedNanoseconds, std::int64_t frameCount) noexcept {
        if (!anchorNanoseconds_) {
            anchorNanoseconds_ = estimatedNanoseconds;
        }
        Placement placement{*anchorNanoseconds_ + nanosecondsForFrames(framesSinceAnchor_), 0};
        const std::int64_t drift = estimatedNanoseconds - placement.timeNanoseconds;
        if (drift > driftLimitNanoseconds) {
            anchorNanoseconds_ = estimatedNanoseconds;
            framesSinceAnchor_ = 0;
            placement.timeNanoseconds = estimatedNanoseconds;
        } else if (drift < -driftLimitNanoseconds) {
            placement.skippedFrames = std::min(frameCount, framesForNanoseconds(-drift));
        }
        framesSinceAnchor_ += frameCount - placement.skippedFrames;
        return placement;
    }

private:
    std::optional<std::int64_t> anchorNanoseconds_;
    std::int64_t framesSinceAnchor_ = 0;
};

// What to record: the monitor of the default output, or a named source.
struct AudioInput {
    bool isSystemAudio = false;
    std::string sourceName;
    std::string deviceName;
};

class PulseAudioCaptureSource final : public AudioCaptureSource {
public:
    explicit PulseAudioCaptureSource(AudioInput input)
        : input_(std::move(input)) {}
    PulseAudioCaptureSource(const PulseAudioCaptureSource&) = delete;
    PulseAudioCaptureSource& operator=(const PulseAudioCaptureSource&) = delete;
    ~PulseAudioCaptureSource() override { stop(); }

    void start(SampleHandler handler, FailureHandler failureHandler) override;
    // Joins the capture thread first, then lets go of the stream and the server.
    void stop() override { capture_.reset(); }
    std::string deviceName() const override {
        const std::scoped_lock lock(inputMutex_);
        return input_.deviceName;
    }

private:
    // The connection, stream and thread of one start() ... stop().
    struct Capture;

    std::unique_ptr<Capture> openCapture(SampleHandler handler, FailureHandler failureHandler);

    mutable std::mutex inputMutex_; // guards input_, which start() fills in for the system audio
    AudioInput input_;
    std::unique_ptr<Capture> capture_;
};

struct PulseAudioCaptureSource::Capture {
    Capture(bool isSystemAudio, SampleHandler sampleHandler, FailureHandler failureHandler,
            pulse::Deadline deadline)
        : connection(pulse::applicationName, deadline)
        , isSystemAudio(isSystemAudio)
        , sampleHandler(std::move(sampleHandler))
        , failureHandler(std::move(failureHandler)) {}

    pulse::PulseConnection connection;
    pulse::StreamHandle stream;
    const bool isSystemAudio;
    const SampleHandler sampleHandler;
    const FailureHandler failureHandler;
    CaptureClock clock;
    // Set on the capture thread once capture has failed.
    bool hasEnded = false;
    // Declared last: stopped and joined before anything it uses goes away.
    std::jthread thread;

    void connectStream(const std::string& sourceName, pulse::Deadline deadline);
    void run(const std::stop_token& stopToken);
    void readAvailable();
    void deliver(const float* samples, std::int64_t frameCount, std::int64_t estimatedNanoseconds);
    void end(const std::string& message);
    std::int64_t oldestUnreadFrameAgeNanoseconds();
    std::string failureMessage() const;
};

void PulseAudioCaptureSource::Capture::connectStream(const std::string& sourceName,
                                                     pulse::Deadline deadline) {
    const pa_sample_spec sampleSpec{PA_SAMPLE_FLOAT32LE, sampleRate, channelCount};
    pa_channel_map channelMap;
    pa_channel_map_init_stereo(&channelMap);
    stream.reset(pa_stream_new(connection.context(), isSystemAudio ? "Rilo 系统音频" : "Rilo 麦克风",
                               &sampleSpec, &channelMap));
    if (stream == nullptr) {
        throw pulse::PulseServerError(connection.lastError());
    }
    // Small fragments keep the latency, and so the error of the time stamps, low.
    pa_buffer_attr bufferAttributes{};
    bufferAttributes.maxlength = static_cast<std::uint32_t>(-1);
    bufferAttributes.tlength = static_cast<std::uint32_t>(-1);
    bufferAttributes.prebuf = static_cast<std::uint32_t>(-1);
    bufferAttributes.minreq = static_cast<std::uint32_t>(-1);
    bufferAttributes.fragsize = static_cast<std::uint32_t>(framesPerBuffer * bytesPerFrame);
    auto flags = static_cast<pa_stream_flags_t>(PA_STREAM_ADJUST_LATENCY | PA_STREAM_AUTO_TIMING_UPDATE);
    if (!isSystemAudio) {
        // A chosen microphone that goes away ends the recording of it rather
        // than carrying on silently with another one.
        flags = static_cast<pa_stream_flags_t>(flags | PA_STREAM_DONT_MOVE);
    }
    if (pa_stream_connect_record(stream.get(), sourceName.c_str(), &bufferAttributes, flags) < 0) {
        throw pulse::PulseServerError(connection.lastError());
    }
    connection.runUntil(
        [this] {
            const pa_stream_state_t state = pa_stream_get_state(stream.get());
            if (state == PA_STREAM_FAILED || state == PA_STREAM_TERMINATED) {
                throw pulse::PulseServerError(connection.lastError());
            }
            return state == PA_STREAM_READY;
        },
        deadline);
}

// From here on the loop and every callback belong to the capture thread.
void PulseAudioCaptureSource::Capture::run(const std::stop_token& stopToken) {
    pa_mainloop* mainloop = connection.mainloop();
    const std::stop_callback wake(stopToken, [mainloop] { pa_mainloop_wakeup(mainloop); });
    while (!stopToken.stop_requested() && !hasEnded) {
        // Wait for the next event, then take in whatever else has already
        // arrived: libpulse takes one packet from the socket per round, and
        // the time estimate must see all the sound that is on its way, or a
        // late wake-up would make the first packets look fresh.
        int dispatched = pa_mainloop_iterate(mainloop, 1, nullptr);
        for (int round = 0; dispatched > 0 && round < maximumCatchUpRounds; ++round) {
            dispatched = pa_mainloop_iterate(mainloop, 0, nullptr);
        }
        if (dispatched < 0) {
            end(failureMessage());
        } else if (!hasEnded && !stopToken.stop_requested()) {
            readAvailable();
        }
    }
}

void PulseAudioCaptureSource::Capture::readAvailable() {
    if (pa_stream_get_state(stream.get()) != PA_STREAM_READY) {
        return;
    }
    const auto arrivalNanoseconds = static_cast<std::int64_t>(hostUptimeNanoseconds());
    const std::int64_t firstFrameNanoseconds = arrivalNanoseconds - oldestUnreadFrameAgeNanoseconds();
    std::int64_t framesRead = 0;
    while (!hasEnded && pa_stream_readable_size(stream.get()) > 0) {
        const void* data = nullptr;
        std::size_t byteCount = 0;
        if (pa_stream_peek(stream.get(), &data, &byteCount) < 0) {
            end(failureMessage());
            return;
        }
        if (byteCount == 0) {
            return;
        }
        // No data with a length is a hole in the stream: it is delivered as
        // silence so that the buffers stay contiguous.
        const auto frameCount = static_cast<std::int64_t>(byteCount / bytesPerFrame);
        for (std::int64_t offset = 0; offset < frameCount && !hasEnded; offset += framesPerBuffer) {
            const float* samples =
                data == nullptr ? nullptr : static_cast<const float*>(data) + offset * channelCount;
            deliver(samples, std::min(framesPerBuffer, frameCount - offset),
                    firstFrameNanoseconds + nanosecondsForFrames(framesRead + offset));
        }
        framesRead += frameCount;
        pa_stream_drop(stream.get());
    }
}

void PulseAudioCaptureSource::Capture::deliver(const float* samples, std::int64_t frameCount,
                                               std::int64_t estimatedNanoseconds) {
    const CaptureClock::Placement placement = clock.place(estimatedNanoseconds, frameCount);
    const std::int64_t keptFrames = frameCount - placement.skippedFrames;
    if (keptFrames <= 0) {
        return;
    }
    auto values =
        std::make_shared<std::vector<float>>(static_cast<std::size_t>(keptFrames * channelCount), 0.0F);
    if (samples != nullptr) {
        const float* first = samples + placement.skippedFrames * channelCount;
        std::copy(first, first + keptFrames * channelCount, values->begin());
    }
    AudioSampleBuffer buffer;
    buffer.presentationTime = MediaTime::nanoseconds(placement.timeNanoseconds);
    buffer.sampleRate = sampleRate;
    buffer.channelCount = channelCount;
    buffer.frameCount = keptFrames;
    buffer.samples = std::move(values);
    // A handler that throws ends capture like a failure of the device would.
    try {
        sampleHandler(buffer);
    } catch (const std::exception& error) {
        end(error.what());
    } catch (...) {
        end(failureMessage());
    }
}

void PulseAudioCaptureSource::Capture::end(const std::string& message) {
    if (hasEnded) {
        return;
    }
    hasEnded = true;
    if (failureHandler) {
        try {
            failureHandler(message);
        } catch (...) {
            // The failure has been told as far as it can be; capture ends either way.
        }
    }
}

// How long ago the oldest frame not yet read was captured: what waits in the
// stream's buffer, plus the source's own latency and the way here as the
// server's last timing report gives them. (The stream's interpolated latency
// is no help: for a monitor it counts in the output's latency, which an idle
// output sets high and a playing one low.)
std::int64_t PulseAudioCaptureSource::Capture::oldestUnreadFrameAgeNanoseconds() {
    const auto pendingFrames =
        static_cast<std::int64_t>(pa_stream_readable_size(stream.get()) / bytesPerFrame);
    std::int64_t ageNanoseconds = nanosecondsForFrames(pendingFrames);
    if (const pa_timing_info* timing = pa_stream_get_timing_info(stream.get())) {
        ageNanoseconds += static_cast<std::int64_t>(timing->source_usec + timing->transport_usec) * 1'000;
    }
    return ageNanoseconds;
}

std::string PulseAudioCaptureSource::Capture::failureMessage() const {
    if (isSystemAudio) {
        return SystemAudioCaptureError::unavailable(pa_strerror(connection.lastError())).message();
    }
    return MicrophoneCaptureError::deviceUnavailable().message();
}

std::unique_ptr<PulseAudioCaptureSource::Capture>
PulseAudioCaptureSource::openCapture(SampleHandler handler, FailureHandler failureHandler) {
    const pulse::Deadline deadline = std::chrono::steady_clock::now() + pulse::serverAnswerTimeout;
    AudioInput input;
    {
        const std::scoped_lock lock(inputMutex_);
        input = input_;
    }
    auto capture = std::make_unique<Capture>(input.isSystemAudio, std::move(handler),
                                             std::move(failureHandler), deadline);
    if (input.isSystemAudio) {
        // The output that plays now, which may not be the one of the last recording.
        const pulse::SinkDescription output = pulse::defaultSink(capture->connection, deadline);
        input.sourceName = output.monitorSourceName;
        input.deviceName = output.description;
        const std::scoped_lock lock(inputMutex_);
        input_ = input;
    }
    capture->connectStream(input.sourceName, deadline);
    return capture;
}

void PulseAudioCaptureSource::start(SampleHandler handler, FailureHandler failureHandler) {
    stop();
    std::unique_ptr<Capture> capture;
    try {
        capture = openCapture(std::move(handler), std::move(failureHandler));
    } catch (const pulse::PulseServerError& error) {
        const bool isSystemAudio = [this] {
            const std::scoped_lock lock(inputMutex_);
            return input_.isSystemAudio;
        }();
        if (isSystemAudio) {
            throw SystemAudioCaptureError::unavailable(error.what());
        }
        throw MicrophoneCaptureError::deviceUnavailable();
    }
    // Failures are watched only now, so that nothing reaches the handlers
    // before start() returns, nor on this thread. Sound is read by the loop
    // of the capture thread.
    Capture* const target = capture.get();
    pa_stream_set_state_callback(
        target->stream.get(),
        [](pa_stream* stream, void* userdata) {
            const pa_stream_state_t state = pa_stream_get_state(stream);
            if (state == PA_STREAM_FAILED || state == PA_STREAM_TERMINATED) {
                auto& failed = *static_cast<Capture*>(userdata);
                failed.end(failed.failureMessage());
            }
        },
        target);
    pa_context_set_state_callback(
        target->connection.context(),
        [](pa_context* context, void* userdata) {
            if (!PA_CONTEXT_IS_GOOD(pa_context_get_state(context))) {
                auto& failed = *static_cast<Capture*>(userdata);
                failed.end(failed.failureMessage());
            }
        },
        target);
    target->thread = std::jthread([target](const std::stop_token& stopToken) { target->run(stopToken); });
    capture_ = std::move(capture);
}

} // namespace

std::unique_ptr<AudioCaptureSource> makeSystemAudioCaptureSource() {
    return std::make_unique<PulseAudioCaptureSource>(AudioInput{true, {}, {}});
}

std::unique_ptr<AudioCaptureSource>
makeMicrophoneCaptureSource(const MicrophoneDeviceDescriptor& microphone) {
    return std::make_unique<PulseAudioCaptureSource>(AudioInput{false, microphone.id, microphone.name});
}

} // namespace rilo

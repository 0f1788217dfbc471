#include "playback/PlaybackAudioOutput.h"

#include <algorithm>
#include <pulse/context.h>
#include <pulse/error.h>
#include <pulse/stream.h>
#include <pulse/thread-mainloop.h>
#include <vector>

namespace rilo {

namespace {

constexpr int sampleRate = CompositionAudioReader::sampleRate;
constexpr int channelCount = CompositionAudioReader::channelCount;
constexpr std::size_t bytesPerFrame = sizeof(float) * channelCount;
// Frames read from the composition at most at a time (10 ms).
constexpr std::size_t chunkFrames = 480;
// What the server keeps queued ahead of the speaker.
constexpr pa_usec_t queuedMicroseconds = 60'000;

struct MainloopDeleter {
    void operator()(pa_threaded_mainloop* loop) const noexcept {
        pa_threaded_mainloop_stop(loop);
        pa_threaded_mainloop_free(loop);
    }
};
struct ContextDeleter {
    void operator()(pa_context* context) const noexcept {
        pa_context_set_state_callback(context, nullptr, nullptr);
        pa_context_disconnect(context);
        pa_context_unref(context);
    }
};
struct StreamDeleter {
    void operator()(pa_stream* stream) const noexcept {
        pa_stream_set_state_callback(stream, nullptr, nullptr);
        pa_stream_set_write_callback(stream, nullptr, nullptr);
        pa_stream_disconnect(stream);
        pa_stream_unref(stream);
    }
};

void signalLoop(void* loop) {
    pa_threaded_mainloop_signal(static_cast<pa_threaded_mainloop*>(loop), 0);
}

} // namespace

// One connection and playback stream, for one run from start() to stop().
// Members are destroyed stream first, then context, then the loop (which
// is stopped before it is freed).
struct PulseAudioPlaybackOutput::Connection {
    std::unique_ptr<pa_threaded_mainloop, MainloopDeleter> loop;
    std::unique_ptr<pa_context, ContextDeleter> context;
    std::unique_ptr<pa_stream, StreamDeleter> stream;

    ~Connection() {
        if (loop) {
            // The loop's thread must not run while the objects it serves go.
            pa_threaded_mainloop_stop(loop.get());
        }
        stream.reset();
        context.reset();
    }

    // Connects and opens the stream; false when the server cannot be
    // reached or refuses the stream.
    bool open(const std::optional<std::string>& server) {
        loop.reset(pa_threaded_mainloop_new());
        if (!loop) {
            return false;
        }
        pa_threaded_mainloop* raw = loop.get();
        context.reset(pa_context_new(pa_threaded_mainloop_get_api(raw), "Rilo"));
        if (!context) {
            return false;
        }
        pa_context_set_state_callback(
            context.get(), [](pa_context*, void* data) { signalLoop(data); }, raw);
        if (pa_context_connect(context.get(), server ? server->c_str() : nullptr, PA_CONTEXT_NOAUTOSPAWN,
                               nullptr) < 0 ||
            pa_threaded_mainloop_start(raw) < 0) {
            return false;
        }
        pa_threaded_mainloop_lock(raw);
        const bool ready = awaitContext() && openStream();
        pa_threaded_mainloop_unlock(raw);
        return ready;
    }

    bool awaitContext() {
        while (true) {
            const pa_context_state_t state = pa_context_get_state(context.get());
            if (state == PA_CONTEXT_READY) {
                return true;
            }
            if (!PA_CONTEXT_IS_GOOD(state)) {
                return false;
            }
            pa_threaded_mainloop_wait(loop.get());
        }
    }

    bool openStream() {
        const pa_sample_spec spec{PA_SAMPLE_FLOAT32LE, static_cast<std::uint32_t>(sampleRate),
                                  static_cast<std::uint8_t>(channelCount)};
        stream.reset(pa_stream_new(context.get(), "Preview", &spec, nullptr));
        if (!stream) {
            return false;
        }
        pa_threaded_mainloop* raw = loop.get();
        pa_stream_set_state_callback(
            stream.get(), [](pa_stream*, void* data) { signalLoop(data); }, raw);
        pa_stream_set_write_callback(
            stream.get(), [](pa_stream*, std::size_t, void* data) { signalLoop(data); }, raw);
        pa_buffer_attr attributes{};
        attributes.maxlength = static_cast<std::uint32_t>(-1);
        attributes.tlength = static_cast<std::uint32_t>(pa_usec_to_bytes(queuedMicroseconds, &spec));
        attributes.prebuf = static_cast<std::uint32_t>(-1);
        attributes.minreq = static_cast<std::uint32_t>(-1);
        attributes.fragsize = static_cast<std::uint32_t>(-1);
        const auto flags = static_cast<pa_stream_flags_t>(
            PA_STREAM_INTERPOLATE_TIMING | PA_STREAM_AUTO_TIMING_UPDATE | PA_STREAM_ADJUST_LATENCY);
        if (pa_stream_connect_playback(stream.get(), nullptr, &attributes, flags, nullptr, nullptr) < 0) {
            return false;
        }
        while (true) {
            const pa_stream_state_t state = pa_stream_get_state(stream.get());
            if (state == PA_STREAM_READY) {
                return true;
            }
            if (!PA_STREAM_IS_GOOD(state)) {
                return false;
            }
            pa_threaded_mainloop_wait(raw);
        }
    }

    // Feeds the stream until stop is asked for or the stream fails. The
    // clock learns, after every write, which position the speaker plays.
    void feed(const std::stop_token& stop, CompositionAudioReader& reader, ProjectTime start,
              PlaybackClock& clock) {
        pa_threaded_mainloop* raw = loop.get();
        std::vector<float> chunk(chunkFrames * channelCount);
        pa_threaded_mainloop_lock(raw);
        while (!stop.stop_requested() && PA_STREAM_IS_GOOD(pa_stream_get_state(stream.get()))) {
            const std::size_t writable = pa_stream_writable_size(stream.get());
            if (writable == static_cast<std::size_t>(-1)) {
                break;
            }
            if (writable < bytesPerFrame) {
                pa_threaded_mainloop_wait(raw);
                follow(start, clock);
                continue;
            }
            const std::size_t frames = std::min(writable / bytesPerFrame, chunkFrames);
            pa_threaded_mainloop_unlock(raw);
            const std::size_t read = reader.read(chunk.data(), frames);
            std::fill(chunk.begin() + static_cast<std::ptrdiff_t>(read * channelCount),
                      chunk.begin() + static_cast<std::ptrdiff_t>(frames * channelCount), 0.0F);
            pa_threaded_mainloop_lock(raw);
            if (pa_stream_write(stream.get(), chunk.data(), frames * bytesPerFrame, nullptr, 0,
                                PA_SEEK_RELATIVE) < 0) {
                break;
            }
            follow(start, clock);
        }
        pa_threaded_mainloop_unlock(raw);
    }

    // Called with the loop locked.
    void follow(ProjectTime start, PlaybackClock& clock) {
        const pa_timing_info* timing = pa_stream_get_timing_info(stream.get());
        pa_usec_t played = 0;
        if (timing == nullptr || timing->playing == 0 || pa_stream_get_time(stream.get(), &played) < 0) {
            return;
        }
        clock.follow(PlaybackClock::hostNow(),
                     ProjectTime{start.nanoseconds + static_cast<std::int64_t>(played) * 1000});
    }
};

PulseAudioPlaybackOutput::PulseAudioPlaybackOutput(std::optional<std::string> server)
    : server_(std::move(server)) {}

PulseAudioPlaybackOutput::~PulseAudioPlaybackOutput() {
    stop();
}

bool PulseAudioPlaybackOutput::start(std::unique_ptr<CompositionAudioReader> reader, ProjectTime start,
                                     PlaybackClock& clock) {
    stop();
    auto connection = std::make_shared<Connection>();
    if (!connection->open(server_)) {
        return false;
    }
    connection_ = connection;
    feeder_ =
        std::jthread([connection, reader = std::move(reader), start, &clock](const std::stop_token& stop) {
            connection->feed(stop, *reader, start, clock);
        });
    return true;
}

void PulseAudioPlaybackOutput::stop() {
    if (feeder_.joinable()) {
        feeder_.request_stop();
        // Wake the feeder from its wait for room in the stream.
        pa_threaded_mainloop_lock(connection_->loop.get());
        pa_threaded_mainloop_signal(connection_->loop.get(), 0);
        pa_threaded_mainloop_unlock(connection_->loop.get());
        feeder_.join();
    }
    feeder_ = {};
    connection_.reset();
}

} // namespace rilo

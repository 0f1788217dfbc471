#include "app/recording/RecordingCueSounds.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswresample/swresample.h>
}
#include <algorithm>
#include <pulse/error.h>
#include <pulse/simple.h>

namespace rilo {
namespace {

struct InputDeleter {
    void operator()(AVFormatContext* context) const noexcept { avformat_close_input(&context); }
};
struct DecoderDeleter {
    void operator()(AVCodecContext* context) const noexcept { avcodec_free_context(&context); }
};
struct FrameDeleter {
    void operator()(AVFrame* frame) const noexcept { av_frame_free(&frame); }
};
struct PacketDeleter {
    void operator()(AVPacket* packet) const noexcept { av_packet_free(&packet); }
};
struct ResamplerDeleter {
    void operator()(SwrContext* context) const noexcept { swr_free(&context); }
};
struct PlaybackDeleter {
    void operator()(pa_simple* connection) const noexcept { pa_simple_free(connection); }
};

// Converts one decoded frame to interleaved 16-bit samples at its own rate and channels.
bool appendConverted(SwrContext* resampler, const AVFrame& frame, int channelCount,
                     std::vector<std::int16_t>& samples) {
    const std::size_t start = samples.size();
    samples.resize(start +
                   static_cast<std::size_t>(frame.nb_samples) * static_cast<std::size_t>(channelCount));
    std::uint8_t* output = reinterpret_cast<std::uint8_t*>(samples.data() + start);
    const int converted =
        swr_convert(resampler, &output, frame.nb_samples,
                    const_cast<const std::uint8_t**>(frame.extended_data), frame.nb_samples);
    if (converted < 0) {
        return false;
    }
    samples.resize(start + static_cast<std::size_t>(converted) * static_cast<std::size_t>(channelCount));
    return true;
}

} // namespace

RecordingCueSounds::RecordingCueSounds(std::filesystem::path directory, DiagnosticsHandler diagnostics)
    : directory_(std::move(directory))
    , diagnostics_(std::move(diagnostics))
    , player_([this](const std::stop_token& stop) { run(stop); }) {}

RecordingCueSounds::~RecordingCueSounds() {
    player_.request_stop();
    player_.join();
}

std::string RecordingCueSounds::missingResourceNote(const std::string& name) {
    return "提示音资源 " + name + ".wav 不可用，已静默继续。";
}

std::string RecordingCueSounds::outputFailureNote(const std::string& name) {
    return "系统输出设备无法播放提示音 " + name + ".wav，已静默继续。";
}

void RecordingCueSounds::play(const std::string& name, std::chrono::milliseconds length) {
    const std::shared_ptr<const Sound> sound = load(name);
    if (!sound) {
        diagnostics_(missingResourceNote(name));
        return;
    }
    const auto frames = static_cast<std::size_t>(
        std::max<std::int64_t>(0, static_cast<std::int64_t>(sound->sampleRate) * length.count() / 1000));
    Request request{name, sound,
                    std::min(sound->samples.size(), frames * static_cast<std::size_t>(sound->channelCount))};
    {
        const std::scoped_lock guard(lock_);
        queue_.push_back(std::move(request));
    }
    queued_.notify_all();
}

std::shared_ptr<const RecordingCueSounds::Sound> RecordingCueSounds::load(const std::string& name) {
    if (const auto known = loaded_.find(name); known != loaded_.end()) {
        return known->second;
    }
    const std::filesystem::path path = directory_ / (name + ".wav");
    AVFormatContext* opened = nullptr;
    if (avformat_open_input(&opened, path.c_str(), nullptr, nullptr) < 0) {
        return nullptr;
    }
    const std::unique_ptr<AVFormatContext, InputDeleter> input(opened);
    if (avformat_find_stream_info(input.get(), nullptr) < 0) {
        return nullptr;
    }
    const AVCodec* codec = nullptr;
    const int streamIndex = av_find_best_stream(input.get(), AVMEDIA_TYPE_AUDIO, -1, -1, &codec, 0);
    if (streamIndex < 0 || codec == nullptr) {
        return nullptr;
    }
    const std::unique_ptr<AVCodecContext, DecoderDeleter> decoder(avcodec_alloc_context3(codec));
    if (!decoder || avcodec_parameters_to_context(decoder.get(), input->streams[streamIndex]->codecpar) < 0 ||
        avcodec_open2(decoder.get(), codec, nullptr) < 0) {
        return nullptr;
    }
    const int channelCount = decoder->ch_layout.nb_channels;
    if (channelCount < 1 || channelCount > 2 || decoder->sample_rate <= 0) {
        return nullptr;
    }
    SwrContext* allocated = nullptr;
    if (swr_alloc_set_opts2(&allocated, &decoder->ch_layout, AV_SAMPLE_FMT_S16, decoder->sample_rate,
                            &decoder->ch_layout, decoder->sample_fmt, decoder->sample_rate, 0, nullptr) < 0) {
        return nullptr;
    }
    const std::unique_ptr<SwrContext, ResamplerDeleter> resampler(allocated);
    if (swr_init(resampler.get()) < 0) {
        return nullptr;
    }

    auto sound = std::make_shared<Sound>();
    sound->sampleRate = decoder->sample_rate;
    sound->channelCount = channelCount;
    const std::unique_ptr<AVPacket, PacketDeleter> packet(av_packet_alloc());
    const std::unique_ptr<AVFrame, FrameDeleter> frame(av_frame_alloc());
    const auto drain = [&]() {
        while (avcodec_receive_frame(decoder.get(), frame.get()) >= 0) {
            const bool converted = appendConverted(resampler.get(), *frame, channelCount, sound->samples);
            av_frame_unref(frame.get());
            if (!converted) {
                return false;
            }
        }
        return true;
    };
    while (av_read_frame(input.get(), packet.get()) >= 0) {
        const bool ours = packet->stream_index == streamIndex;
        const bool sent = !ours || avcodec_send_packet(decoder.get(), packet.get()) >= 0;
        av_packet_unref(packet.get());
        if (!sent || !drain()) {
            return nullptr;
        }
    }
    avcodec_send_packet(decoder.get(), nullptr);
    if (!drain() || sound->samples.empty()) {
        return nullptr;
    }
    loaded_[name] = sound;
    return sound;
}

void RecordingCueSounds::run(const std::stop_token& stop) {
    while (true) {
        Request request;
        {
            std::unique_lock guard(lock_);
            if (!queued_.wait(guard, stop, [this] { return !queue_.empty(); })) {
                return;
            }
            request = std::move(queue_.front());
            queue_.pop_front();
        }
        playNow(request);
    }
}

void RecordingCueSounds::playNow(const Request& request) const {
    const pa_sample_spec format{PA_SAMPLE_S16LE, static_cast<std::uint32_t>(request.sound->sampleRate),
                                static_cast<std::uint8_t>(request.sound->channelCount)};
    int error = 0;
    const std::unique_ptr<pa_simple, PlaybackDeleter> output(
        pa_simple_new(nullptr, "Rilo", PA_STREAM_PLAYBACK, nullptr, request.name.c_str(), &format, nullptr,
                      nullptr, &error));
    const std::size_t bytes = request.sampleCount * sizeof(std::int16_t);
    if (!output || pa_simple_write(output.get(), request.sound->samples.data(), bytes, &error) < 0 ||
        pa_simple_drain(output.get(), &error) < 0) {
        diagnostics_(outputFailureNote(request.name));
    }
}

} // namespace rilo

#include "media/audio/CaptionAudioExporter.h"

#include "media/FFmpegHandles.h"
#include "shared/Sha256.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/mathematics.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>
#include <system_error>
#include <vector>

namespace rilo::CaptionAudioExporter {

namespace {

constexpr int bytesPerSample = 2;

struct ResamplerDeleter {
    void operator()(SwrContext* context) const noexcept { swr_free(&context); }
};
using Resampler = std::unique_ptr<SwrContext, ResamplerDeleter>;

// The WAV being written: a WAVE muxer taking packets of 16-bit mono samples
// as they come, which fills in the header's sizes when it is finished.
class WaveWriter {
public:
    explicit WaveWriter(const std::filesystem::path& path) {
        AVFormatContext* raw = nullptr;
        if (avformat_alloc_output_context2(&raw, nullptr, "wav", path.c_str()) < 0 || raw == nullptr) {
            throw CaptionAudioExporterError::cannotWrite();
        }
        output_.reset(raw);
        AVStream* stream = avformat_new_stream(output_.get(), nullptr);
        if (stream == nullptr) {
            throw CaptionAudioExporterError::cannotWrite();
        }
        AVCodecParameters& parameters = *stream->codecpar;
        parameters.codec_type = AVMEDIA_TYPE_AUDIO;
        parameters.codec_id = AV_CODEC_ID_PCM_S16LE;
        parameters.sample_rate = sampleRate;
        av_channel_layout_default(&parameters.ch_layout, channelCount);
        parameters.bits_per_coded_sample = bytesPerSample * 8;
        parameters.block_align = bytesPerSample * channelCount;
        parameters.bit_rate = static_cast<std::int64_t>(sampleRate) * channelCount * bytesPerSample * 8;
        stream->time_base = AVRational{1, sampleRate};
        if (avio_open(&output_->pb, path.c_str(), AVIO_FLAG_WRITE) < 0) {
            throw CaptionAudioExporterError::cannotWrite();
        }
        packet_.reset(av_packet_alloc());
        if (!packet_) {
            throw std::bad_alloc();
        }
    }

    void start() {
        if (avformat_write_header(output_.get(), nullptr) < 0) {
            throw CaptionAudioExporterError::cannotStart();
        }
    }

    void write(const std::int16_t* samples, std::int64_t frameCount) {
        if (frameCount <= 0) {
            return;
        }
        const auto byteCount = static_cast<int>(frameCount * channelCount * bytesPerSample);
        if (av_new_packet(packet_.get(), byteCount) < 0) {
            throw std::bad_alloc();
        }
        std::memcpy(packet_->data, samples, static_cast<std::size_t>(byteCount));
        packet_->pts = framesWritten_;
        packet_->dts = framesWritten_;
        packet_->duration = frameCount;
        packet_->stream_index = 0;
        av_packet_rescale_ts(packet_.get(), AVRational{1, sampleRate}, output_->streams[0]->time_base);
        framesWritten_ += frameCount;
        const int written = av_write_frame(output_.get(), packet_.get());
        av_packet_unref(packet_.get());
        if (written < 0) {
            throw CaptionAudioExporterError::cannotWrite();
        }
    }

    void finish() {
        if (av_write_trailer(output_.get()) < 0 || avio_closep(&output_->pb) < 0) {
            throw CaptionAudioExporterError::cannotWrite();
        }
    }

private:
    ffmpeg::OutputContext output_;
    ffmpeg::Packet packet_;
    std::int64_t framesWritten_ = 0;
};

// Decodes one audio track and hands it to the writer as 16 kHz mono.
class TrackTranscoder {
public:
    TrackTranscoder(const std::filesystem::path& mediaPath, std::int64_t trackIndex) {
        AVFormatContext* rawInput = nullptr;
        if (avformat_open_input(&rawInput, mediaPath.c_str(), nullptr, nullptr) < 0) {
            throw CaptionAudioExporterError::cannotRead();
        }
        input_.reset(rawInput);
        if (trackIndex < 0 || static_cast<std::uint64_t>(trackIndex) >= input_->nb_streams) {
            throw CaptionAudioExporterError::cannotRead();
        }
        streamIndex_ = static_cast<int>(trackIndex);
        for (unsigned index = 0; index < input_->nb_streams; ++index) {
            input_->streams[index]->discard =
                static_cast<int>(index) == streamIndex_ ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
        }
        const AVStream& stream = *input_->streams[streamIndex_];
        if (stream.codecpar->codec_type != AVMEDIA_TYPE_AUDIO) {
            throw CaptionAudioExporterError::cannotRead();
        }
        codec_ = avcodec_find_decoder(stream.codecpar->codec_id);
        decoder_.reset(codec_ != nullptr ? avcodec_alloc_context3(codec_) : nullptr);
        if (!decoder_ || avcodec_parameters_to_context(decoder_.get(), stream.codecpar) < 0) {
            throw CaptionAudioExporterError::cannotRead();
        }
        decoder_->pkt_timebase = stream.time_base;
        packet_.reset(av_packet_alloc());
        frame_.reset(av_frame_alloc());
        if (!packet_ || !frame_) {
            throw std::bad_alloc();
        }
    }

    void start() {
        if (avcodec_open2(decoder_.get(), codec_, nullptr) < 0 || decoder_->ch_layout.nb_channels < 1) {
            throw CaptionAudioExporterError::cannotStart();
        }
    }

    void copy(WaveWriter& writer, const std::stop_token& stopToken) {
        for (;;) {
            const int read = av_read_frame(input_.get(), packet_.get());
            if (read == AVERROR_EOF) {
                break;
            }
            if (read < 0) {
                throw CaptionAudioExporterError::cannotRead();
            }
            if (packet_->stream_index == streamIndex_) {
                send(packet_.get(), writer);
            }
            av_packet_unref(packet_.get());
            if (stopToken.stop_requested()) {
                throw CancellationError();
            }
        }
        send(nullptr, writer);
        if (resampler_) {
            convert(nullptr, 0, writer);
        }
    }

private:
    void send(const AVPacket* packet, WaveWriter& writer) {
        const int sent = avcodec_send_packet(decoder_.get(), packet);
        // A damaged packet is skipped; the decoder goes on with the next one.
        if (sent < 0 && sent != AVERROR_INVALIDDATA && sent != AVERROR_EOF) {
            throw CaptionAudioExporterError::cannotRead();
        }
        for (;;) {
            const int received = avcodec_receive_frame(decoder_.get(), frame_.get());
            if (received == AVERROR(EAGAIN) || received == AVERROR_EOF) {
                return;
            }
            if (received == AVERROR_INVALIDDATA) {
                continue;
            }
            if (received < 0) {
                throw CaptionAudioExporterError::cannotRead();
            }
            if (!resampler_) {
                openResampler(*frame_);
            }
            convert(const_cast<const std::uint8_t**>(frame_->extended_data), frame_->nb_samples, writer);
            av_frame_unref(frame_.get());
        }
    }

    // Made with the first decoded frame, whose layout and rate it must take.
    void openResampler(const AVFrame& frame) {
        AVChannelLayout inputLayout{};
        if (av_channel_layout_copy(&inputLayout, frame.ch_layout.nb_channels > 0
                                                     ? &frame.ch_layout
                                                     : &decoder_->ch_layout) < 0) {
            throw CaptionAudioExporterError::cannotStart();
        }
        AVChannelLayout outputLayout{};
        av_channel_layout_default(&outputLayout, channelCount);
        const int rate = frame.sample_rate > 0 ? frame.sample_rate : decoder_->sample_rate;
        SwrContext* raw = nullptr;
        const int made = swr_alloc_set_opts2(&raw, &outputLayout, AV_SAMPLE_FMT_S16, sampleRate, &inputLayout,
                                             static_cast<AVSampleFormat>(frame.format), rate, 0, nullptr);
        av_channel_layout_uninit(&inputLayout);
        av_channel_layout_uninit(&outputLayout);
        if (made < 0) {
            throw CaptionAudioExporterError::cannotStart();
        }
        resampler_.reset(raw);
        if (swr_init(resampler_.get()) < 0) {
            throw CaptionAudioExporterError::cannotStart();
        }
        // Samples before time 0 only start the codec up (AAC priming): the
        // track's time, and so the WAV, begins after them.
        const std::int64_t firstPts =
            frame.best_effort_timestamp != AV_NOPTS_VALUE ? frame.best_effort_timestamp : frame.pts;
        if (firstPts != AV_NOPTS_VALUE && firstPts < 0) {
            primingFramesLeft_ =
                av_rescale_q(-firstPts, input_->streams[streamIndex_]->time_base, AVRational{1, sampleRate});
        }
    }

    // Converts one decoded frame (or, with none, what the resampler holds
    // back) and writes it.
    void convert(const std::uint8_t** input, int frameCount, WaveWriter& writer) {
        for (;;) {
            const int capacity = swr_get_out_samples(resampler_.get(), frameCount);
            if (capacity < 0) {
                throw CaptionAudioExporterError::cannotRead();
            }
            if (capacity == 0) {
                return;
            }
            block_.resize(static_cast<std::size_t>(capacity) * channelCount);
            auto* output = reinterpret_cast<std::uint8_t*>(block_.data());
            const int converted = swr_convert(resampler_.get(), &output, capacity, input, frameCount);
            if (converted < 0) {
                throw CaptionAudioExporterError::cannotRead();
            }
            const std::int64_t dropped = std::min<std::int64_t>(primingFramesLeft_, converted);
            primingFramesLeft_ -= dropped;
            writer.write(block_.data() + dropped * channelCount, converted - dropped);
            // Fed input is taken in one call; only a flush loops until drained.
            if (input != nullptr || converted == 0) {
                return;
            }
        }
    }

    ffmpeg::InputContext input_;
    const AVCodec* codec_ = nullptr;
    ffmpeg::CodecContext decoder_;
    ffmpeg::Packet packet_;
    ffmpeg::Frame frame_;
    Resampler resampler_;
    int streamIndex_ = 0;
    std::int64_t primingFramesLeft_ = 0;
    std::vector<std::int16_t> block_;
};

} // namespace

std::string exportTrack(const ProjectSnapshot& snapshot, MediaTrackKind track,
                        const std::filesystem::path& outputURL, const std::stop_token& stopToken) {
    const auto& tracks = snapshot.manifest.media.tracks;
    const auto found =
        std::find_if(tracks.begin(), tracks.end(), [&](const MediaTrack& t) { return t.kind == track; });
    if (found == tracks.end()) {
        throw CaptionAudioExporterError::missingTrack(track);
    }
    std::error_code ignored;
    std::filesystem::remove(outputURL, ignored);

    TrackTranscoder transcoder(snapshot.mediaURL(), found->trackIndex);
    WaveWriter writer(outputURL);
    writer.start();
    transcoder.start();
    transcoder.copy(writer, stopToken);
    writer.finish();
    try {
        return sha256HexOfFile(outputURL);
    } catch (const std::exception&) {
        throw CaptionAudioExporterError::cannotWrite();
    }
}

} // namespace rilo::CaptionAudioExporter

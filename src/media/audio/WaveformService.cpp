#include "media/audio/WaveformService.h"

#include "media/FFmpegHandles.h"
#include "media/audio/WaveformCacheFile.h"
#include "project/document/ProjectPackage.h"
#include "shared/Files.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/mathematics.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

namespace rilo {

namespace {

constexpr int envelopeSampleRate = 48'000;
// 20 ms at 48 kHz.
constexpr std::int64_t framesPerBucket = 960;

struct ResamplerDeleter {
    void operator()(SwrContext* context) const noexcept { swr_free(&context); }
};
using Resampler = std::unique_ptr<SwrContext, ResamplerDeleter>;

// Folds interleaved 16-bit frames into 20 ms buckets; buckets run across
// the ends of the blocks handed in, and every channel of a frame counts.
class BucketAccumulator {
public:
    BucketAccumulator(int channelCount, std::vector<WaveformPeak>& peaks)
        : channelCount_(channelCount)
        , peaks_(peaks) {}

    void add(const std::int16_t* samples, std::int64_t frameCount) {
        while (frameCount > 0) {
            const std::int64_t take = std::min(frameCount, framesPerBucket - framesInBucket_);
            const std::int64_t sampleCount = take * channelCount_;
            std::int16_t minimum = minimum_;
            std::int16_t maximum = maximum_;
            for (std::int64_t i = 0; i < sampleCount; ++i) {
                minimum = std::min(minimum, samples[i]);
                maximum = std::max(maximum, samples[i]);
            }
            minimum_ = minimum;
            maximum_ = maximum;
            samples += sampleCount;
            frameCount -= take;
            framesInBucket_ += take;
            framesSoFar_ += take;
            if (framesInBucket_ == framesPerBucket) {
                closeBucket();
            }
        }
    }

    // Keeps a final partial bucket.
    void finish() {
        if (framesInBucket_ > 0) {
            closeBucket();
        }
    }

    std::int64_t framesSoFar() const noexcept { return framesSoFar_; }

private:
    void closeBucket() {
        peaks_.push_back({minimum_, maximum_});
        minimum_ = std::numeric_limits<std::int16_t>::max();
        maximum_ = std::numeric_limits<std::int16_t>::min();
        framesInBucket_ = 0;
    }

    int channelCount_;
    std::vector<WaveformPeak>& peaks_;
    std::int16_t minimum_ = std::numeric_limits<std::int16_t>::max();
    std::int16_t maximum_ = std::numeric_limits<std::int16_t>::min();
    std::int64_t framesInBucket_ = 0;
    std::int64_t framesSoFar_ = 0;
};

// Decodes one audio track of the file to 48 kHz 16-bit PCM with the track's
// own channels, and folds it into buckets as it goes.
class WaveformDecoder {
public:
    WaveformDecoder(const std::filesystem::path& mediaPath, std::int64_t trackIndex) {
        AVFormatContext* rawInput = nullptr;
        if (avformat_open_input(&rawInput, mediaPath.c_str(), nullptr, nullptr) < 0) {
            throw WaveformServiceError::readerFailed(WaveformServiceError::readerCannotStart);
        }
        input_.reset(rawInput);
        if (trackIndex < 0 || static_cast<std::uint64_t>(trackIndex) >= input_->nb_streams) {
            throw WaveformServiceError::readerFailed(WaveformServiceError::readerCannotStart);
        }
        streamIndex_ = static_cast<int>(trackIndex);
        for (unsigned index = 0; index < input_->nb_streams; ++index) {
            input_->streams[index]->discard =
                static_cast<int>(index) == streamIndex_ ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
        }
        const AVStream& stream = *input_->streams[streamIndex_];
        if (stream.codecpar->codec_type != AVMEDIA_TYPE_AUDIO) {
            throw WaveformServiceError::unsupportedTrack();
        }
        const AVCodec* codec = avcodec_find_decoder(stream.codecpar->codec_id);
        decoder_.reset(codec != nullptr ? avcodec_alloc_context3(codec) : nullptr);
        if (!decoder_ || avcodec_parameters_to_context(decoder_.get(), stream.codecpar) < 0) {
            throw WaveformServiceError::readerFailed(WaveformServiceError::readerCannotStart);
        }
        decoder_->pkt_timebase = stream.time_base;
        if (avcodec_open2(decoder_.get(), codec, nullptr) < 0 || decoder_->ch_layout.nb_channels < 1) {
            throw WaveformServiceError::readerFailed(WaveformServiceError::readerCannotStart);
        }
        packet_.reset(av_packet_alloc());
        frame_.reset(av_frame_alloc());
        if (!packet_ || !frame_) {
            throw std::bad_alloc();
        }
    }

    void decode(std::int64_t expectedFrames, const std::stop_token& stopToken,
                const WaveformService::Progress& progress, std::vector<WaveformPeak>& peaks) {
        peaks.reserve(static_cast<std::size_t>(expectedFrames / framesPerBucket + 1));
        for (;;) {
            const int read = av_read_frame(input_.get(), packet_.get());
            if (read == AVERROR_EOF) {
                break;
            }
            if (read < 0) {
                throw WaveformServiceError::readerFailed(WaveformServiceError::readerDidNotComplete);
            }
            if (packet_->stream_index == streamIndex_) {
                send(packet_.get(), peaks);
            }
            av_packet_unref(packet_.get());
            if (stopToken.stop_requested()) {
                throw CancellationError();
            }
            if (progress && accumulator_) {
                progress(std::min(1.0, static_cast<double>(accumulator_->framesSoFar()) /
                                           static_cast<double>(expectedFrames)));
            }
        }
        send(nullptr, peaks);
        if (accumulator_) {
            convert(nullptr, 0);
            accumulator_->finish();
        }
        if (progress) {
            progress(1.0);
        }
    }

private:
    void send(const AVPacket* packet, std::vector<WaveformPeak>& peaks) {
        const int sent = avcodec_send_packet(decoder_.get(), packet);
        // A damaged packet is skipped, as a player would; the decoder goes on
        // with the next one.
        if (sent < 0 && sent != AVERROR_INVALIDDATA && sent != AVERROR_EOF) {
            throw WaveformServiceError::readerFailed(WaveformServiceError::readerDidNotComplete);
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
                throw WaveformServiceError::readerFailed(WaveformServiceError::readerDidNotComplete);
            }
            if (!accumulator_) {
                openResampler(*frame_, peaks);
            }
            convert(const_cast<const std::uint8_t**>(frame_->extended_data), frame_->nb_samples);
            av_frame_unref(frame_.get());
        }
    }

    // Made with the first decoded frame, whose layout and rate it must take.
    void openResampler(const AVFrame& frame, std::vector<WaveformPeak>& peaks) {
        SwrContext* raw = nullptr;
        // Input and output share the track's own channels; 5.1's signature
        // wants writable layouts.
        AVChannelLayout layout{};
        if (av_channel_layout_copy(&layout, frame.ch_layout.nb_channels > 0 ? &frame.ch_layout
                                                                            : &decoder_->ch_layout) < 0) {
            throw WaveformServiceError::readerFailed(WaveformServiceError::readerCannotStart);
        }
        const int rate = frame.sample_rate > 0 ? frame.sample_rate : decoder_->sample_rate;
        const int made = swr_alloc_set_opts2(&raw, &layout, AV_SAMPLE_FMT_S16, envelopeSampleRate, &layout,
                                             static_cast<AVSampleFormat>(frame.format), rate, 0, nullptr);
        channelCount_ = layout.nb_channels;
        av_channel_layout_uninit(&layout);
        // Samples before time 0 only start the codec up (AAC priming): the
        // track's time, and so the first bucket, begins after them.
        const std::int64_t firstPts =
            frame.best_effort_timestamp != AV_NOPTS_VALUE ? frame.best_effort_timestamp : frame.pts;
        if (firstPts != AV_NOPTS_VALUE && firstPts < 0) {
            primingFramesLeft_ = av_rescale_q(-firstPts, input_->streams[streamIndex_]->time_base,
                                              AVRational{1, envelopeSampleRate});
        }
        if (made < 0) {
            throw WaveformServiceError::readerFailed(WaveformServiceError::readerCannotStart);
        }
        resampler_.reset(raw);
        if (swr_init(resampler_.get()) < 0) {
            throw WaveformServiceError::readerFailed(WaveformServiceError::readerCannotStart);
        }
        accumulator_.emplace(channelCount_, peaks);
    }

    // Converts one decoded frame (or, with none, what the resampler holds
    // back) into one contiguous block of samples and folds it in.
    void convert(const std::uint8_t** input, int frameCount) {
        for (;;) {
            const int capacity = swr_get_out_samples(resampler_.get(), frameCount);
            if (capacity < 0) {
                throw WaveformServiceError::readerFailed(WaveformServiceError::bufferNotContiguous);
            }
            if (capacity == 0) {
                return;
            }
            block_.resize(static_cast<std::size_t>(capacity) * static_cast<std::size_t>(channelCount_));
            auto* output = reinterpret_cast<std::uint8_t*>(block_.data());
            const int converted = swr_convert(resampler_.get(), &output, capacity, input, frameCount);
            if (converted < 0) {
                throw WaveformServiceError::readerFailed(WaveformServiceError::bufferNotContiguous);
            }
            const std::int64_t dropped = std::min<std::int64_t>(primingFramesLeft_, converted);
            primingFramesLeft_ -= dropped;
            accumulator_->add(block_.data() + dropped * channelCount_, converted - dropped);
            // Fed input is taken in one call; only a flush loops until drained.
            if (input != nullptr || converted == 0) {
                return;
            }
        }
    }

    ffmpeg::InputContext input_;
    ffmpeg::CodecContext decoder_;
    ffmpeg::Packet packet_;
    ffmpeg::Frame frame_;
    Resampler resampler_;
    int streamIndex_ = 0;
    int channelCount_ = 0;
    std::int64_t primingFramesLeft_ = 0;
    std::vector<std::int16_t> block_;
    std::optional<BucketAccumulator> accumulator_;
};

} // namespace

std::filesystem::path WaveformService::cacheURL(const std::filesystem::path& packageURL,
                                                MediaTrackKind kind) {
    return ProjectPackage{packageURL}.waveformCacheDirectory() / WaveformCacheFile::fileName(kind);
}

WaveformEnvelope WaveformService::envelope(MediaTrackKind kind, const ProjectSnapshot& snapshot) const {
    return envelope(kind, snapshot, Progress{});
}

WaveformEnvelope WaveformService::envelope(MediaTrackKind kind, const ProjectSnapshot& snapshot,
                                           const Progress& progress) const {
    if (kind == MediaTrackKind::screen) {
        throw WaveformServiceError::unsupportedTrack();
    }
    const auto& tracks = snapshot.manifest.media.tracks;
    const auto track =
        std::find_if(tracks.begin(), tracks.end(), [&](const MediaTrack& t) { return t.kind == kind; });
    if (track == tracks.end()) {
        throw WaveformServiceError::cannotReadTrack();
    }
    const std::filesystem::path mediaPath = snapshot.mediaURL();
    const WaveformCacheKey key{track->trackIndex, WaveformCacheFile::fingerprint(mediaPath)};
    const std::filesystem::path cachePath = cacheURL(snapshot.packageURL, kind);
    try {
        WaveformEnvelope cached = WaveformCacheFile::read(cachePath, key, kind);
        if (progress) {
            progress(1.0);
        }
        return cached;
    } catch (const WaveformServiceError&) {
        // A miss: a missing, damaged, foreign or stale file is made again.
    }

    const std::int64_t durationNanoseconds =
        std::max<std::int64_t>(snapshot.manifest.duration.nanoseconds, 0);
    const std::int64_t expectedFrames = std::max<std::int64_t>(
        1, av_rescale_rnd(durationNanoseconds, envelopeSampleRate, 1'000'000'000, AV_ROUND_DOWN));
    WaveformEnvelope made{kind, {}};
    WaveformDecoder(mediaPath, track->trackIndex).decode(expectedFrames, stopToken_, progress, made.peaks);

    try {
        std::filesystem::create_directories(cachePath.parent_path());
        writeFileAtomically(cachePath, WaveformCacheFile::encode(key, made));
    } catch (const std::exception&) {
        // Without a cache the next request decodes again; the envelope stands.
    }
    return made;
}

WaveformEnvelope WaveformService::fileEnvelope(MediaTrackKind kind,
                                               const std::filesystem::path& audioFile) const {
    WaveformEnvelope made{kind, {}};
    WaveformDecoder(audioFile, 0).decode(1, stopToken_, Progress{}, made.peaks);
    return made;
}

} // namespace rilo

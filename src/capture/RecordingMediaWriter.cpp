#include "capture/RecordingMediaWriter.h"

#include "media/FFmpegHandles.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/channel_layout.h>
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <array>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <functional>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace rilo {
namespace {

constexpr int audioSampleRate = 48'000;
constexpr std::int64_t audioBitRate = 192'000;
constexpr std::int64_t webcamBitRate = 4'000'000;
constexpr int keyframeIntervalSeconds = 2;
// Sound that arrives further than this from where the track stands is placed
// where its time says: the gap is filled with silence, an overlap cut off.
constexpr std::int64_t audioRealignFrames = audioSampleRate / 50;
constexpr AVRational microseconds{1, 1'000'000};

struct AudioFifoDeleter {
    void operator()(AVAudioFifo* fifo) const noexcept { av_audio_fifo_free(fifo); }
};
using AudioFifo = std::unique_ptr<AVAudioFifo, AudioFifoDeleter>;

[[noreturn]] void failWith(int code) {
    throw RecordingMediaWriterError::appendFailed(ffmpeg::errorText(code));
}

void check(int code) {
    if (code < 0) {
        failWith(code);
    }
}

struct VideoTrack {
    ffmpeg::CodecContext codec;
    AVStream* stream = nullptr;
    ffmpeg::Scaler scaler;
    ffmpeg::Frame frame;
    std::int64_t lastPresentationMicroseconds = -1;
};

struct AudioTrack {
    ffmpeg::CodecContext codec;
    AVStream* stream = nullptr;
    AudioFifo fifo;
    ffmpeg::Frame frame;
    std::int64_t fifoStartFrame = 0;          // sample index of the fifo's first frame
    std::optional<std::int64_t> nextFrame;    // sample index where the next sound belongs
    std::array<std::vector<float>, 2> planes; // scratch for de-interleaving
};

ffmpeg::CodecContext openVideoEncoder(AVFormatContext* output, PixelSize size, std::int64_t framesPerSecond,
                                      std::int64_t bitRate, const std::string& trackName, AVStream*& stream) {
    const AVCodec* encoder = avcodec_find_encoder_by_name("libx264");
    stream = avformat_new_stream(output, nullptr);
    ffmpeg::CodecContext codec(encoder != nullptr ? avcodec_alloc_context3(encoder) : nullptr);
    if (encoder == nullptr || stream == nullptr || !codec) {
        throw RecordingMediaWriterError::cannotAddInput(trackName);
    }
    const int fps = static_cast<int>(std::max<std::int64_t>(framesPerSecond, 1));
    codec->width = static_cast<int>(size.width);
    codec->height = static_cast<int>(size.height);
    codec->pix_fmt = AV_PIX_FMT_YUV420P;
    codec->time_base = microseconds;
    codec->framerate = {fps, 1};
    codec->bit_rate = bitRate;
    codec->gop_size = fps * keyframeIntervalSeconds;
    codec->max_b_frames = 0;
    codec->color_primaries = AVCOL_PRI_BT709;
    codec->color_trc = AVCOL_TRC_BT709;
    codec->colorspace = AVCOL_SPC_BT709;
    codec->color_range = AVCOL_RANGE_MPEG;
    if ((output->oformat->flags & AVFMT_GLOBALHEADER) != 0) {
        codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    }
    // Live capture has to keep up with the screen on a small machine: the
    // fastest preset, without look-ahead or frame delay, with the two High
    // profile tools that cost little (CABAC and the 8x8 transform), which at
    // 1080p60 measured no more processor time than the preset alone.
    ffmpeg::Options settings;
    settings.set("preset", "ultrafast");
    settings.set("tune", "zerolatency");
    settings.set("x264-params", "cabac=1:8x8dct=1");
    if (avcodec_open2(codec.get(), encoder, settings.get()) < 0 ||
        avcodec_parameters_from_context(stream->codecpar, codec.get()) < 0) {
        throw RecordingMediaWriterError::cannotAddInput(trackName);
    }
    stream->time_base = codec->time_base;
    stream->avg_frame_rate = codec->framerate;
    return codec;
}

VideoTrack makeVideoTrack(AVFormatContext* output, PixelSize size, std::int64_t framesPerSecond,
                          std::int64_t bitRate, const std::string& trackName) {
    VideoTrack track;
    track.codec = openVideoEncoder(output, size, framesPerSecond, bitRate, trackName, track.stream);
    track.frame.reset(av_frame_alloc());
    if (!track.frame) {
        throw RecordingMediaWriterError::cannotAddInput(trackName);
    }
    track.frame->format = AV_PIX_FMT_YUV420P;
    track.frame->width = track.codec->width;
    track.frame->height = track.codec->height;
    if (av_frame_get_buffer(track.frame.get(), 0) < 0) {
        throw RecordingMediaWriterError::cannotAddInput(trackName);
    }
    return track;
}

AudioTrack makeAudioTrack(AVFormatContext* output, const std::string& trackName) {
    AudioTrack track;
    const AVCodec* encoder = avcodec_find_encoder_by_name("aac");
    track.stream = avformat_new_stream(output, nullptr);
    track.codec.reset(encoder != nullptr ? avcodec_alloc_context3(encoder) : nullptr);
    if (encoder == nullptr || track.stream == nullptr || !track.codec) {
        throw RecordingMediaWriterError::cannotAddInput(trackName);
    }
    track.codec->sample_rate = audioSampleRate;
    track.codec->sample_fmt = AV_SAMPLE_FMT_FLTP;
    track.codec->bit_rate = audioBitRate;
    track.codec->time_base = {1, audioSampleRate};
    av_channel_layout_default(&track.codec->ch_layout, 2);
    if ((output->oformat->flags & AVFMT_GLOBALHEADER) != 0) {
        track.codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    }
    if (avcodec_open2(track.codec.get(), encoder, nullptr) < 0 ||
        avcodec_parameters_from_context(track.stream->codecpar, track.codec.get()) < 0) {
        throw RecordingMediaWriterError::cannotAddInput(trackName);
    }
    track.stream->time_base = track.codec->time_base;
    track.fifo.reset(av_audio_fifo_alloc(AV_SAMPLE_FMT_FLTP, 2, audioSampleRate));
    track.frame.reset(av_frame_alloc());
    if (!track.fifo || !track.frame) {
        throw RecordingMediaWriterError::cannotAddInput(trackName);
    }
    return track;
}

// Where a picture of the source size lies in the frame when fitted with its
// aspect ratio kept, on even pixels for the halved chroma planes.
struct FittedRect {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
};

FittedRect fitted(int sourceWidth, int sourceHeight, int width, int height) {
    if (sourceWidth == width && sourceHeight == height) {
        return {0, 0, width, height};
    }
    const double scale = std::min(double(width) / sourceWidth, double(height) / sourceHeight);
    const int fittedWidth = std::max(2, static_cast<int>(sourceWidth * scale) & ~1);
    const int fittedHeight = std::max(2, static_cast<int>(sourceHeight * scale) & ~1);
    return {((width - fittedWidth) / 2) & ~1, ((height - fittedHeight) / 2) & ~1, fittedWidth, fittedHeight};
}

void fillBlack(AVFrame* frame) {
    for (int plane = 0; plane < 3; ++plane) {
        const int rows = plane == 0 ? frame->height : (frame->height + 1) / 2;
        std::fill_n(frame->data[plane], static_cast<std::size_t>(frame->linesize[plane]) * rows,
                    static_cast<std::uint8_t>(plane == 0 ? 16 : 128));
    }
}

enum class JobKind { screen, webcam, systemAudio, microphone };

struct Job {
    JobKind kind = JobKind::screen;
    std::int64_t presentationNanoseconds = 0; // since the start of the file
    std::shared_ptr<const CapturedImage> image;
    AudioSampleBuffer sound;
};

} // namespace

class RecordingMediaWriter::State {
    using FrameCounts = RecordingMediaWriter::FrameCounts;

public:
    State(std::filesystem::path path, PixelSize size, const RecordingOptions& options,
          const std::optional<WebcamCaptureConfiguration>& webcamConfiguration)
        : path_(std::move(path)) {
        std::error_code error;
        std::filesystem::remove(path_, error);
        if (error) {
            throw FileError("无法移除旧的录制文件：" + path_.string());
        }
        AVFormatContext* context = nullptr;
        if (avformat_alloc_output_context2(&context, nullptr, "mov", path_.c_str()) < 0 ||
            context == nullptr) {
            throw RecordingMediaWriterError::cannotAddInput("屏幕");
        }
        output_.reset(context);
        screen_ = makeVideoTrack(context, size, options.framesPerSecond, size.recommendedBitRate(), "屏幕");
        if (webcamConfiguration) {
            webcam_ = makeVideoTrack(context, webcamConfiguration->pixelSize,
                                     webcamConfiguration->framesPerSecond, webcamBitRate, "摄像头");
        }
        if (options.capturesSystemAudio) {
            systemAudio_ = makeAudioTrack(context, "系统音频");
        }
        if (options.capturesMicrophone) {
            microphone_ = makeAudioTrack(context, "麦克风");
        }
    }

    ~State() { stopWorker(true); }

    void throwIfFailed() {
        const std::lock_guard guard(mutex_);
        if (terminalError_) {
            std::rethrow_exception(terminalError_);
        }
    }

    void appendScreen(const VideoSampleBuffer& sample) {
        throwIfFailed();
        if (!startPTS_) {
            startWriting();
            startPTS_ = sample.presentationTime;
        }
        if (!sample.image || !enqueueVideo(JobKind::screen, sample)) {
            ++result_.droppedVideoFrames;
            return;
        }
        ++result_.videoFrames;
        lastVideoPTS_ = sample.presentationTime;
    }

    void appendAudio(const AudioSampleBuffer& sample, RecordingAudioTrack kind) {
        throwIfFailed();
        const bool system = kind == RecordingAudioTrack::systemAudio;
        std::optional<MediaTime>& last = system ? lastSystemAudioPTS_ : lastMicrophonePTS_;
        if (last && !(sample.presentationTime > *last)) {
            return;
        }
        if (!startPTS_ || !(system ? systemAudio_ : microphone_) || !sample.samples) {
            return;
        }
        enqueue(Job{system ? JobKind::systemAudio : JobKind::microphone,
                    sinceStart(sample.presentationTime),
                    {},
                    sample});
        last = sample.presentationTime;
        ++(system ? result_.systemAudioSamples : result_.microphoneSamples);
        if (lastVideoPTS_) {
            const std::int64_t offset = nanosecondsFromMediaTime(sample.presentationTime - *lastVideoPTS_);
            auto& [first, latest] = system ? systemOffsets_ : microphoneOffsets_;
            if (!first) {
                first = offset;
            }
            latest = offset;
        }
    }

    void appendWebcam(const VideoSampleBuffer& sample) {
        throwIfFailed();
        if (!startPTS_ || !webcam_ || !sample.image ||
            (lastWebcamPTS_ && !(sample.presentationTime > *lastWebcamPTS_))) {
            ++result_.droppedWebcamFrames;
            return;
        }
        // The first picture also covers the time from the start of the file,
        // so that the webcam track has no hole before it.
        if (!hasWrittenWebcamSample_ && sample.presentationTime > *startPTS_) {
            VideoSampleBuffer ground = sample;
            ground.presentationTime = *startPTS_;
            if (!enqueueVideo(JobKind::webcam, ground)) {
                ++result_.droppedWebcamFrames;
                return;
            }
            hasWrittenWebcamSample_ = true;
        }
        if (!enqueueVideo(JobKind::webcam, sample)) {
            ++result_.droppedWebcamFrames;
            return;
        }
        hasWrittenWebcamSample_ = true;
        lastWebcamPTS_ = sample.presentationTime;
        ++result_.webcamFrames;
        if (lastVideoPTS_) {
            result_.maximumWebcamOffsetNanoseconds = std::max<std::int64_t>(
                result_.maximumWebcamOffsetNanoseconds,
                std::abs(nanosecondsFromMediaTime(sample.presentationTime - *lastVideoPTS_)));
        }
    }

    RecordingMediaWriterResult finish() {
        if (!startPTS_) {
            stopWorker(true);
            return result_;
        }
        stopWorker(false);
        {
            const std::lock_guard guard(mutex_);
            if (terminalError_) {
                try {
                    std::rethrow_exception(terminalError_);
                } catch (const std::exception& error) {
                    throw RecordingMediaWriterError::finishFailed(error.what());
                }
            }
        }
        output_.reset();
        if (startPTS_ && lastVideoPTS_) {
            result_.duration = ProjectTime{nanosecondsFromMediaTime(*lastVideoPTS_ - *startPTS_)};
        }
        const auto drift =
            [](const std::pair<std::optional<std::int64_t>, std::optional<std::int64_t>>& offsets) {
                return offsets.first && offsets.second ? std::abs(*offsets.second - *offsets.first)
                                                       : std::int64_t{0};
            };
        result_.maximumAVDriftNanoseconds = std::max(drift(systemOffsets_), drift(microphoneOffsets_));
        return result_;
    }

    FrameCounts frameCounts() const { return {result_.videoFrames, result_.droppedVideoFrames}; }

    void cancel() {
        stopWorker(true);
        const std::lock_guard guard(mutex_);
        terminalError_ = std::make_exception_ptr(RecordingMediaWriterError::cancelled());
    }

private:
    std::int64_t sinceStart(MediaTime time) const { return nanosecondsFromMediaTime(time - *startPTS_); }

    void startWriting() {
        AVFormatContext* context = output_.get();
        if (avio_open(&context->pb, path_.c_str(), AVIO_FLAG_WRITE) < 0) {
            throw RecordingMediaWriterError::startFailed("无法创建文件 " + path_.string());
        }
        // Every written packet reaches the file at once, and a fragment
        // closes about every second: a process that dies loses at most the
        // fragment under way.
        context->flush_packets = 1;
        context->max_interleave_delta = 1'000'000;
        ffmpeg::Options settings;
        settings.set("movflags", "frag_keyframe+empty_moov+default_base_moof");
        settings.set("frag_duration", "1000000");
        settings.set("movie_timescale", "600");
        const int code = avformat_write_header(context, settings.get());
        if (code < 0) {
            throw RecordingMediaWriterError::startFailed(ffmpeg::errorText(code));
        }
        worker_ = std::jthread([this] { run(); });
    }

    bool enqueueVideo(JobKind kind, const VideoSampleBuffer& sample) {
        const std::lock_guard guard(mutex_);
        int& pending = kind == JobKind::screen ? pendingScreenFrames_ : pendingWebcamFrames_;
        if (pending >= maximumPendingFrames || !worker_.joinable()) {
            return false;
        }
        ++pending;
        jobs_.push_back(Job{kind, sinceStart(sample.presentationTime), sample.image, {}});
        wakeUp_.notify_one();
        return true;
    }

    void enqueue(Job job) {
        const std::lock_guard guard(mutex_);
        if (!worker_.joinable()) {
            return;
        }
        jobs_.push_back(std::move(job));
        wakeUp_.notify_one();
    }

    // Ends the worker: after the queue is drained and the file completed,
    // or at once, leaving the file as it stands.
    void stopWorker(bool abandon) {
        {
            const std::lock_guard guard(mutex_);
            ending_ = true;
            abandon_ = abandon_ || abandon;
            wakeUp_.notify_one();
        }
        if (worker_.joinable()) {
            worker_.join();
        }
    }

    // The writer's thread: encodes and writes the queued work.
    void run() {
        bool failed = false;
        for (;;) {
            Job job;
            {
                std::unique_lock lock(mutex_);
                wakeUp_.wait(lock, [this] { return !jobs_.empty() || ending_; });
                if (abandon_ || (ending_ && jobs_.empty())) {
                    break;
                }
                job = std::move(jobs_.front());
                jobs_.pop_front();
                if (job.kind == JobKind::screen) {
                    --pendingScreenFrames_;
                } else if (job.kind == JobKind::webcam) {
                    --pendingWebcamFrames_;
                }
            }
            if (!failed) {
                failed = !perform([&] { encode(job); });
            }
        }
        bool abandon = false;
        {
            const std::lock_guard guard(mutex_);
            abandon = abandon_;
            jobs_.clear();
        }
        if (!failed && !abandon) {
            perform([&] { complete(); });
        }
    }

    bool perform(const std::function<void()>& work) {
        try {
            work();
            return true;
        } catch (...) {
            const std::lock_guard guard(mutex_);
            if (!terminalError_) {
                terminalError_ = std::current_exception();
            }
            return false;
        }
    }

    void encode(const Job& job) {
        switch (job.kind) {
        case JobKind::screen:
            encodePicture(*screen_, *job.image, job.presentationNanoseconds);
            break;
        case JobKind::webcam:
            encodePicture(*webcam_, *job.image, job.presentationNanoseconds);
            break;
        case JobKind::systemAudio:
            encodeSound(*systemAudio_, job.sound, job.presentationNanoseconds);
            break;
        case JobKind::microphone:
            encodeSound(*microphone_, job.sound, job.presentationNanoseconds);
            break;
        }
    }

    void encodePicture(VideoTrack& track, const CapturedImage& image, std::int64_t presentationNanoseconds) {
        AVFrame* frame = track.frame.get();
        check(av_frame_make_writable(frame));
        const FittedRect rect = fitted(image.width, image.height, frame->width, frame->height);
        if (rect.width != frame->width || rect.height != frame->height) {
            fillBlack(frame);
        }
        track.scaler.reset(sws_getCachedContext(
            track.scaler.release(), image.width, image.height, static_cast<AVPixelFormat>(image.pixelFormat),
            rect.width, rect.height, AV_PIX_FMT_YUV420P, SWS_BILINEAR, nullptr, nullptr, nullptr));
        if (!track.scaler) {
            throw RecordingMediaWriterError::appendFailed("无法转换画面格式");
        }
        const int* table = sws_getCoefficients(SWS_CS_ITU709);
        sws_setColorspaceDetails(track.scaler.get(), table, 1, table, 0, 0, 1 << 16, 1 << 16);
        std::array<std::uint8_t*, 4> destination{
            frame->data[0] + rect.y * frame->linesize[0] + rect.x,
            frame->data[1] + (rect.y / 2) * frame->linesize[1] + rect.x / 2,
            frame->data[2] + (rect.y / 2) * frame->linesize[2] + rect.x / 2,
            nullptr,
        };
        sws_scale(track.scaler.get(), image.planes.data(), image.bytesPerRow.data(), 0, image.height,
                  destination.data(), frame->linesize);
        std::int64_t pts = presentationNanoseconds / 1000;
        if (pts <= track.lastPresentationMicroseconds) {
            pts = track.lastPresentationMicroseconds + 1;
        }
        track.lastPresentationMicroseconds = pts;
        frame->pts = pts;
        send(track.codec.get(), track.stream, frame);
    }

    void encodeSound(AudioTrack& track, const AudioSampleBuffer& sound,
                     std::int64_t presentationNanoseconds) {
        const std::int64_t channels = std::max(sound.channelCount, 1);
        std::int64_t frames = std::min<std::int64_t>(sound.frameCount, sound.samples->size() / channels);
        std::int64_t skip = 0;
        const std::int64_t at = presentationNanoseconds * audioSampleRate / 1'000'000'000;
        if (!track.nextFrame) {
            skip = std::max<std::int64_t>(0, -at);
            track.nextFrame = std::max<std::int64_t>(0, at);
            track.fifoStartFrame = *track.nextFrame;
        } else if (at > *track.nextFrame + audioRealignFrames) {
            writeSilence(track, at - *track.nextFrame);
        } else if (at < *track.nextFrame - audioRealignFrames) {
            skip = *track.nextFrame - at;
        }
        if (skip >= frames) {
            return;
        }
        frames -= skip;
        for (auto& plane : track.planes) {
            plane.resize(static_cast<std::size_t>(frames));
        }
        const float* source = sound.samples->data() + skip * channels;
        for (std::int64_t i = 0; i < frames; ++i) {
            track.planes[0][i] = source[i * channels];
            track.planes[1][i] = source[i * channels + (channels > 1 ? 1 : 0)];
        }
        std::array<void*, 2> planes{track.planes[0].data(), track.planes[1].data()};
        check(av_audio_fifo_write(track.fifo.get(), planes.data(), static_cast<int>(frames)));
        *track.nextFrame += frames;
        drainSound(track, false);
    }

    void writeSilence(AudioTrack& track, std::int64_t frames) {
        for (auto& plane : track.planes) {
            plane.assign(static_cast<std::size_t>(frames), 0.0F);
        }
        std::array<void*, 2> planes{track.planes[0].data(), track.planes[1].data()};
        check(av_audio_fifo_write(track.fifo.get(), planes.data(), static_cast<int>(frames)));
        *track.nextFrame += frames;
    }

    // Encodes whole encoder frames from the fifo, and at the end the rest.
    void drainSound(AudioTrack& track, bool final) {
        const int frameSize = track.codec->frame_size > 0 ? track.codec->frame_size : 1024;
        while (av_audio_fifo_size(track.fifo.get()) >= frameSize ||
               (final && av_audio_fifo_size(track.fifo.get()) > 0)) {
            const int count = std::min(frameSize, av_audio_fifo_size(track.fifo.get()));
            AVFrame* frame = track.frame.get();
            av_frame_unref(frame);
            frame->format = AV_SAMPLE_FMT_FLTP;
            frame->sample_rate = audioSampleRate;
            frame->nb_samples = count;
            check(av_channel_layout_copy(&frame->ch_layout, &track.codec->ch_layout));
            check(av_frame_get_buffer(frame, 0));
            if (av_audio_fifo_read(track.fifo.get(), reinterpret_cast<void**>(frame->data), count) != count) {
                throw RecordingMediaWriterError::appendFailed("音频缓冲读取失败");
            }
            frame->pts = track.fifoStartFrame;
            track.fifoStartFrame += count;
            send(track.codec.get(), track.stream, frame);
        }
    }

    void send(AVCodecContext* codec, AVStream* stream, const AVFrame* frame) {
        check(avcodec_send_frame(codec, frame));
        ffmpeg::Packet packet(av_packet_alloc());
        if (!packet) {
            throw RecordingMediaWriterError::appendFailed("内存不足");
        }
        for (;;) {
            const int code = avcodec_receive_packet(codec, packet.get());
            if (code == AVERROR(EAGAIN) || code == AVERROR_EOF) {
                return;
            }
            check(code);
            av_packet_rescale_ts(packet.get(), codec->time_base, stream->time_base);
            packet->stream_index = stream->index;
            check(av_interleaved_write_frame(output_.get(), packet.get()));
        }
    }

    void complete() {
        for (auto* track : {&screen_, &webcam_}) {
            if (*track) {
                send((*track)->codec.get(), (*track)->stream, nullptr);
            }
        }
        for (auto* track : {&systemAudio_, &microphone_}) {
            if (*track && (*track)->nextFrame) {
                drainSound(**track, true);
                send((*track)->codec.get(), (*track)->stream, nullptr);
            }
        }
        check(av_write_trailer(output_.get()));
    }

    std::filesystem::path path_;
    ffmpeg::OutputContext output_;
    std::optional<VideoTrack> screen_;
    std::optional<VideoTrack> webcam_;
    std::optional<AudioTrack> systemAudio_;
    std::optional<AudioTrack> microphone_;

    // The capture path's bookkeeping.
    std::optional<MediaTime> startPTS_;
    std::optional<MediaTime> lastVideoPTS_;
    std::optional<MediaTime> lastWebcamPTS_;
    std::optional<MediaTime> lastSystemAudioPTS_;
    std::optional<MediaTime> lastMicrophonePTS_;
    bool hasWrittenWebcamSample_ = false;
    std::pair<std::optional<std::int64_t>, std::optional<std::int64_t>> systemOffsets_;
    std::pair<std::optional<std::int64_t>, std::optional<std::int64_t>> microphoneOffsets_;
    RecordingMediaWriterResult result_;

    // Shared with the writer's thread.
    std::mutex mutex_;
    std::condition_variable wakeUp_;
    std::deque<Job> jobs_;
    int pendingScreenFrames_ = 0;
    int pendingWebcamFrames_ = 0;
    bool ending_ = false;
    bool abandon_ = false;
    std::exception_ptr terminalError_;
    std::jthread worker_;
};

RecordingMediaWriter::RecordingMediaWriter(
    std::filesystem::path path, PixelSize size, const RecordingOptions& options,
    const std::optional<WebcamCaptureConfiguration>& webcamConfiguration)
    : state_(std::make_unique<State>(std::move(path), size, options, webcamConfiguration)) {}

RecordingMediaWriter::~RecordingMediaWriter() = default;

void RecordingMediaWriter::append(const VideoSampleBuffer& sample) {
    state_->appendScreen(sample);
}

void RecordingMediaWriter::append(const AudioSampleBuffer& sample, RecordingAudioTrack track) {
    state_->appendAudio(sample, track);
}

void RecordingMediaWriter::appendWebcam(const VideoSampleBuffer& sample) {
    state_->appendWebcam(sample);
}

RecordingMediaWriterResult RecordingMediaWriter::finish() {
    return state_->finish();
}

void RecordingMediaWriter::cancel() {
    state_->cancel();
}

RecordingMediaWriter::FrameCounts RecordingMediaWriter::frameCounts() const {
    return state_->frameCounts();
}

} // namespace rilo

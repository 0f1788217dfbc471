#include "capture/writer/RecordingMediaWriter.h"

#include "capture/writer/RecordingTrackEncoders.h"
#include "media/FFmpegHandles.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <functional>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

namespace rilo {
namespace {

using namespace recording;

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
            encodePicture(output_.get(), *screen_, *job.image, job.presentationNanoseconds);
            break;
        case JobKind::webcam:
            encodePicture(output_.get(), *webcam_, *job.image, job.presentationNanoseconds);
            break;
        case JobKind::systemAudio:
            encodeSound(output_.get(), *systemAudio_, job.sound, job.presentationNanoseconds);
            break;
        case JobKind::microphone:
            encodeSound(output_.get(), *microphone_, job.sound, job.presentationNanoseconds);
            break;
        }
    }

    void complete() {
        for (auto* track : {&screen_, &webcam_}) {
            if (*track) {
                send(output_.get(), (*track)->codec.get(), (*track)->stream, nullptr);
            }
        }
        for (auto* track : {&systemAudio_, &microphone_}) {
            if (*track && (*track)->nextFrame) {
                drainSound(output_.get(), **track, true);
                send(output_.get(), (*track)->codec.get(), (*track)->stream, nullptr);
            }
        }
        const int trailer = av_write_trailer(output_.get());
        if (trailer < 0) {
            throw RecordingMediaWriterError::appendFailed(ffmpeg::errorText(trailer));
        }
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

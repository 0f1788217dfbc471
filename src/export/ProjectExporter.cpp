#include "export/ProjectExporter.h"

#include "export/ExportMediaWriter.h"
#include "export/ProjectExporterError.h"
#include "media/CompositionAudioReader.h"
#include "media/TimelineCompositionPlan.h"
#include "media/VideoTrackDecoder.h"
#include "rendering/RenderContext.h"
#include "rendering/RenderTarget.h"
#include "rendering/SceneRenderer.h"
#include "scene/SceneEvaluator.h"

#include <array>
#include <condition_variable>
#include <exception>
#include <limits>
#include <mutex>
#include <thread>
#include <vector>

namespace rilo {

namespace {

constexpr std::int64_t audioSampleRate = 48'000;
constexpr std::size_t audioBlockFrames = 4096;

// The encoding thread and the pictures waiting for it. The drawing thread
// fills slot i % framesInFlight with frame i once the encoder has given the
// slot back; the encoder takes the slots in the same order. Audio is fed from
// the encoding thread too, so that the writer is only ever used there.
class EncodingPipeline {
public:
    EncodingPipeline(ExportMediaWriter& writer, CompositionAudioReader* audio, std::int64_t framesPerSecond,
                     PixelSize size, ReadbackFormat format)
        : writer_(writer)
        , audio_(audio)
        , framesPerSecond_(framesPerSecond)
        , size_(size)
        , format_(format) {
        for (Slot& slot : slots_) {
            slot.pixels.resize(
                RenderTarget::byteCount(format, static_cast<int>(size.width), static_cast<int>(size.height)));
        }
        thread_ = std::jthread([this](std::stop_token stop) { encodeAll(stop); });
    }

    ~EncodingPipeline() {
        thread_.request_stop();
        {
            // Taken so that the encoder is either waiting, and woken, or has
            // not yet looked at the stop request.
            std::lock_guard lock(mutex_);
        }
        changed_.notify_all();
    }

    // The buffer for frame `index`, once the encoder is done with its slot.
    // Rethrows the encoder's failure.
    std::vector<std::uint8_t>& acquire(std::int64_t index) {
        Slot& slot = slots_[static_cast<std::size_t>(index % ProjectExporter::framesInFlight)];
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return failure_ || !slot.filled; });
        rethrowFailure();
        return slot.pixels;
    }

    void submit(std::int64_t index) {
        Slot& slot = slots_[static_cast<std::size_t>(index % ProjectExporter::framesInFlight)];
        {
            std::lock_guard lock(mutex_);
            slot.index = index;
            slot.filled = true;
        }
        changed_.notify_all();
    }

    // Frames the encoder has taken in.
    std::int64_t encodedFrames() const {
        std::lock_guard lock(mutex_);
        return encoded_;
    }

    // Waits for the frames in flight and the rest of the audio, and finishes
    // the file. Rethrows the encoder's failure.
    void finish() {
        {
            std::lock_guard lock(mutex_);
            finishing_ = true;
        }
        changed_.notify_all();
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return failure_ || done_; });
        rethrowFailure();
    }

private:
    struct Slot {
        std::vector<std::uint8_t> pixels;
        std::int64_t index = 0;
        bool filled = false;
    };

    void rethrowFailure() const {
        if (failure_) {
            std::rethrow_exception(failure_);
        }
    }

    void encodeAll(const std::stop_token& stop) {
        try {
            for (std::int64_t next = 0;; ++next) {
                Slot& slot = slots_[static_cast<std::size_t>(next % ProjectExporter::framesInFlight)];
                {
                    std::unique_lock lock(mutex_);
                    changed_.wait(lock, [&] { return stop.stop_requested() || slot.filled || finishing_; });
                    if (stop.stop_requested()) {
                        return;
                    }
                    if (!slot.filled) {
                        break; // finishing, and every frame is in
                    }
                }
                pumpAudio(ProjectTime{ProjectExporter::frameTime(slot.index, framesPerSecond_).nanoseconds +
                                      ProjectExporter::audioLeadNanoseconds});
                writer_.appendVideo(planes(slot.pixels), slot.index);
                {
                    std::lock_guard lock(mutex_);
                    slot.filled = false;
                    ++encoded_;
                }
                changed_.notify_all();
            }
            pumpAudio(std::nullopt);
            writer_.finish();
            std::lock_guard lock(mutex_);
            done_ = true;
        } catch (...) {
            std::lock_guard lock(mutex_);
            failure_ = std::current_exception();
        }
        changed_.notify_all();
    }

    // The picture in a slot: RGBA rows, or tightly packed Y, U and V planes.
    VideoFramePlanes planes(const std::vector<std::uint8_t>& pixels) const {
        VideoFramePlanes picture;
        picture.width = static_cast<int>(size_.width);
        picture.height = static_cast<int>(size_.height);
        if (format_ == ReadbackFormat::rgba) {
            picture.layout = VideoPixelLayout::rgba;
            picture.data[0] = pixels.data();
            picture.strides[0] = picture.width * 4;
            return picture;
        }
        picture.layout = VideoPixelLayout::yuv420p;
        picture.matrix = VideoColorMatrix::bt709;
        const std::size_t luma =
            static_cast<std::size_t>(picture.width) * static_cast<std::size_t>(picture.height);
        picture.data = {pixels.data(), pixels.data() + luma, pixels.data() + luma + luma / 4};
        picture.strides = {picture.width, picture.width / 2, picture.width / 2};
        return picture;
    }

    // Feeds audio up to `until` (sequence time), or to its end.
    void pumpAudio(std::optional<ProjectTime> until) {
        if (audio_ == nullptr) {
            return;
        }
        while (!until || audioFrames_ * 1'000'000'000 / audioSampleRate <= until->nanoseconds) {
            const std::size_t count = audio_->read(audioBuffer_.data(), audioBlockFrames);
            if (count == 0) {
                audio_ = nullptr;
                return;
            }
            writer_.appendAudio(audioBuffer_.data(), count);
            audioFrames_ += static_cast<std::int64_t>(count);
        }
    }

    ExportMediaWriter& writer_;
    CompositionAudioReader* audio_;
    std::int64_t framesPerSecond_;
    PixelSize size_;
    ReadbackFormat format_;
    std::array<Slot, ProjectExporter::framesInFlight> slots_;
    std::array<float, audioBlockFrames * 2> audioBuffer_{};
    std::int64_t audioFrames_ = 0;

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::int64_t encoded_ = 0;
    bool finishing_ = false;
    bool done_ = false;
    std::exception_ptr failure_;
    std::jthread thread_;
};

} // namespace

ProjectExporter::ProjectExporter(RenderContext& context, SceneRenderer& renderer)
    : context_(context)
    , renderer_(renderer) {}

std::int64_t ProjectExporter::frameCount(ProjectTime sequenceDuration,
                                         std::int64_t framesPerSecond) noexcept {
    if (sequenceDuration.nanoseconds <= 0 || framesPerSecond <= 0) {
        return 0;
    }
    // ceil(d * fps / 1e9), split so that the product cannot overflow.
    const std::int64_t seconds = sequenceDuration.nanoseconds / 1'000'000'000;
    const std::int64_t rest = sequenceDuration.nanoseconds % 1'000'000'000;
    return seconds * framesPerSecond + (rest * framesPerSecond + 999'999'999) / 1'000'000'000;
}

ProjectTime ProjectExporter::frameTime(std::int64_t index, std::int64_t framesPerSecond) noexcept {
    const std::int64_t seconds = index / framesPerSecond;
    const std::int64_t rest = index % framesPerSecond;
    return ProjectTime{seconds * 1'000'000'000 + rest * 1'000'000'000 / framesPerSecond};
}

void ProjectExporter::exportProject(const ProjectSnapshot& snapshot, const std::filesystem::path& target,
                                    const ExportConfiguration& configuration,
                                    const std::optional<CanvasState>& canvasOverride,
                                    const std::optional<WebcamOverlay>& webcam,
                                    const ProgressHandler& progress, std::stop_token stop) {
    const auto throwIfCancelled = [&] {
        if (stop.stop_requested()) {
            throw CancellationError();
        }
    };
    progress(ExportProgressUpdate{ExportPhase::preparing, 0, 0});
    const CanvasState canvas = canvasOverride ? *canvasOverride : CanvasState(snapshot.timeline.canvas);
    const ResolvedExportConfiguration resolved =
        configuration.resolved(snapshot.manifest.encodedPixelSize, canvas.aspectRatio);
    context_.makeCurrent();
    renderer_.registerProjectAssets(snapshot);
    std::error_code ignored;
    std::filesystem::remove(target, ignored);

    const TimelineCompositionPlan plan = TimelineCompositionBuilder::build(snapshot, stop);
    throwIfCancelled();
    const std::filesystem::path media = snapshot.mediaURL();
    VideoTrackDecoder screen(media, plan.screen.source.index);
    std::optional<VideoTrackDecoder> webcamDecoder;
    if (plan.webcam) {
        webcamDecoder.emplace(media, plan.webcam->source.index);
    }
    std::optional<CompositionAudioReader> audio;
    if (!plan.audio.empty()) {
        audio.emplace(plan, media);
    }
    // 4:2:0 pictures have even measures: an odd original size loses its last
    // column or row.
    ResolvedExportConfiguration encoded = resolved;
    encoded.outputSize = PixelSize::unnormalized(std::max<std::int64_t>(resolved.outputSize.width & ~1, 2),
                                                 std::max<std::int64_t>(resolved.outputSize.height & ~1, 2));
    const PixelSize size = encoded.outputSize;
    ExportMediaWriter writer(target, encoded, audio.has_value());

    const SceneEvaluator evaluator(snapshot, canvas);
    const TimelineVisualEdits edits(snapshot.timeline, canvas, webcam);
    const TimelineMapper& mapper = plan.mapper;
    const std::int64_t fps = resolved.framesPerSecond;
    const std::int64_t total = frameCount(mapper.sequenceDuration(), fps);
    RenderTarget picture(context_, static_cast<int>(size.width), static_cast<int>(size.height));
    // On a GPU, packing YUV in a shader saves the encoder's thread the colour
    // conversion and 60% of the bytes read back; on a CPU driver the shader
    // pass costs more than the conversion, which then runs beside the drawing.
    const ReadbackFormat format = picture.supportsYuv420p() && !context_.isSoftwareRenderer()
                                      ? ReadbackFormat::yuv420p
                                      : ReadbackFormat::rgba;
    ExportProgressLimiter limiter;

    EncodingPipeline pipeline(writer, audio ? &*audio : nullptr, fps, size, format);
    // The read of frame i is collected while frame i + 1 is drawn.
    const auto handOver = [&](std::int64_t index) {
        std::vector<std::uint8_t>& bytes = pipeline.acquire(index);
        const std::uint8_t* read = picture.mapReadback();
        if (read == nullptr) {
            throw ProjectExporterError(ProjectExporterError::Case::renderFailed);
        }
        std::copy_n(read, bytes.size(), bytes.data());
        picture.unmap();
        pipeline.submit(index);
    };
    std::optional<Uuid> lastSegment;
    // Webcam pictures before this source time lie before the current segment's cut.
    ProjectTime cutFloor{std::numeric_limits<std::int64_t>::min()};
    std::int64_t reported = -1;
    for (std::int64_t i = 0; i < total; ++i) {
        throwIfCancelled();
        const std::optional<TimelineMappedTime> mapped = mapper.mappedTimeForSequenceTime(frameTime(i, fps));
        if (!mapped) {
            throw ProjectExporterError(ProjectExporterError::Case::renderFailed);
        }
        if (!lastSegment || *lastSegment != mapped->segmentID) {
            // No webcam picture from before a cut is shown after it.
            const auto& projections = mapper.projections();
            cutFloor = ProjectTime{std::numeric_limits<std::int64_t>::min()};
            for (std::size_t p = 1; p < projections.size(); ++p) {
                if (projections[p].segment.id == mapped->segmentID &&
                    projections[p - 1].segment.sourceRange.end() !=
                        projections[p].segment.sourceRange.start) {
                    cutFloor = projections[p - 1].segment.sourceRange.end();
                }
            }
            lastSegment = mapped->segmentID;
        }
        const DecodedVideoFrame* screenFrame = screen.frameAt(mapped->sourceTime);
        const DecodedVideoFrame* webcamFrame =
            webcamDecoder ? webcamDecoder->frameAt(mapped->sourceTime) : nullptr;
        if (webcamFrame != nullptr) {
            const ProjectTime shown = webcamFrame->presentationTime();
            const std::int64_t distance = std::abs((shown - mapped->sourceTime).nanoseconds);
            if (distance > webcamToleranceNanoseconds || shown < cutFloor) {
                webcamFrame = nullptr;
            }
        }
        const SceneState scene = evaluator.evaluate(mapped->sourceTime, edits, snapshot.captions);
        std::optional<VideoFramePlanes> webcamPlanes;
        if (webcamFrame != nullptr) {
            webcamPlanes = webcamFrame->planes();
        }
        renderer_.encode(screenFrame->planes(), webcamPlanes ? &*webcamPlanes : nullptr, scene, picture);
        picture.startReadback(format);
        if (i > 0) {
            handOver(i - 1);
        }

        const std::int64_t encoded = pipeline.encodedFrames();
        if (encoded != reported) {
            reported = encoded;
            limiter.report(encoded, total, progress);
        }
    }
    if (total > 0) {
        handOver(total - 1);
    }
    pipeline.finish();
    progress(ExportProgressUpdate::rendering(total, total));
    progress(ExportProgressUpdate{ExportPhase::finalizing, total, total});
    progress(ExportProgressUpdate{ExportPhase::completed, total, total});
}

} // namespace rilo

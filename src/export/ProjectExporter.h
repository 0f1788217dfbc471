#pragma once

// Makes the finished video file of a project: reads the cut and speed-changed
// media as decoded pictures and mixed sound, evaluates and draws every output
// frame, and feeds the encoder. Output frames lie on a fixed grid (frame i at
// i / fps), so an export is the same on any machine at any speed.
//
// Work is split over two threads: the calling thread decodes, evaluates,
// draws and reads pictures back; an encoding thread converts and encodes them
// and the audio, with at most three frames waiting between the two. The GPU
// context must be current on the calling thread.
//
// Whatever fails, and on cancellation, the partial file is deleted and the
// error is thrown; a file that was at the target before is gone either way.

#include "export/ExportConfiguration.h"
#include "export/ExportProgress.h"
#include "project/store/ProjectSnapshot.h"
#include "scene/SceneState.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <stop_token>

namespace rilo {

class RenderContext;
class SceneRenderer;

class ProjectExporter {
public:
    // At most this many frames wait between drawing and encoding.
    static constexpr int framesInFlight = 3;
    // Audio is fed this far ahead of the current video frame.
    static constexpr std::int64_t audioLeadNanoseconds = 2'000'000'000;
    // A webcam picture further than this from the frame's time is not shown.
    static constexpr std::int64_t webcamToleranceNanoseconds = 500'000'000;

    using ProgressHandler = std::function<void(const ExportProgressUpdate&)>;

    ProjectExporter(RenderContext& context, SceneRenderer& renderer);

    // Exports with `canvas` and `webcam` in place of the timeline's, where
    // given. `progress` is called on the calling thread. Throws what fails,
    // CancellationError when `stop` is requested.
    void exportProject(const ProjectSnapshot& snapshot, const std::filesystem::path& target,
                       const ExportConfiguration& configuration, const std::optional<CanvasState>& canvas,
                       const std::optional<WebcamOverlay>& webcam, const ProgressHandler& progress,
                       std::stop_token stop);

    // The number of frames of a sequence at a frame rate: ceil(d * fps).
    static std::int64_t frameCount(ProjectTime sequenceDuration, std::int64_t framesPerSecond) noexcept;
    // The sequence time of frame `index`, in whole nanoseconds.
    static ProjectTime frameTime(std::int64_t index, std::int64_t framesPerSecond) noexcept;

private:
    RenderContext& context_;
    SceneRenderer& renderer_;
};

} // namespace rilo

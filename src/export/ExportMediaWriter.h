#pragma once

// Encodes an export's pictures and mixed sound into an MP4 file.
//
// Video is H.264 (High profile) or HEVC (Main profile) at the configuration's
// size, frame rate and average bit rate, one keyframe every 2 seconds, no
// B-frames, tagged BT.709 limited range. Audio, when there is any, is AAC at
// 48 kHz stereo, 192 kbit/s. The movie's time scale is 600.
//
// Pictures come one per frame of the output grid: frame i is presented at
// i / framesPerSecond. Sound comes as interleaved stereo floats continuing
// from time 0, in pieces of any length. The two may be given in any
// interleaving; the muxer orders the packets.
//
// finish() flushes the encoders and completes the file. A writer dropped
// without a successful finish() closes its file and deletes it, so that a
// failed or cancelled export leaves nothing behind.
//
// One thread at a time. Every failure throws ProjectExporterError:
// cannotStart (the file cannot be created or begun), cannotAddWriterInput
// (an encoder or a track cannot be made), unsupportedVideoSettings (the
// encoder is missing or refuses the settings, or an output measure is odd,
// which 4:2:0 video cannot store), appendFailed (encoding or writing fails,
// with FFmpeg's text).

#include "export/ExportConfiguration.h"
#include "export/ProjectExporterError.h"
#include "shared/VideoFramePlanes.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>

namespace rilo {

class ExportMediaWriter {
public:
    // Creates the file (replacing one at the path) and writes its header.
    ExportMediaWriter(std::filesystem::path path, const ResolvedExportConfiguration& configuration,
                      bool hasAudio);
    ~ExportMediaWriter();
    ExportMediaWriter(const ExportMediaWriter&) = delete;
    ExportMediaWriter& operator=(const ExportMediaWriter&) = delete;

    // The picture must have the output size; yuv420p is encoded as it is,
    // other layouts are converted (RGBA as BT.709 limited range). Frame
    // indices rise by one from 0.
    void appendVideo(const VideoFramePlanes& picture, std::int64_t frameIndex);
    // `frameCount` stereo frames of 48 kHz sound: 2 * frameCount floats.
    void appendAudio(const float* interleavedStereo, std::size_t frameCount);
    void finish();

private:
    class State;
    std::unique_ptr<State> state_;
};

} // namespace rilo

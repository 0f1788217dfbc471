#pragma once

// Real recorded media for tests: QuickTime movies written through FFmpeg with
// the track layout of a recording (screen video first, then the webcam, then
// system audio, then the microphone). Pictures change from frame to frame and
// audio tracks carry a steady tone.

#include "project/document/ProjectManifest.h"
#include "shared/Errors.h"
#include "shared/Geometry.h"
#include "shared/ProjectTime.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace rilo::testing {

class MediaFixtureError : public LocalizedError {
public:
    using LocalizedError::LocalizedError;
};

struct AudioTrackOptions {
    double frequencyHertz = 440;
    // Stretches of the track that are digital silence instead of the tone.
    std::vector<ProjectTimeRange> silentRanges;
};

// What the frames show: a luma ramp that moves 4 pixels a frame (no two
// frames alike), a desktop with a window whose contents scroll, for samples a
// person looks at, or the frame's number as 12 vertical bars, white for a set
// bit, the lowest bit on the left, for tests that must tell which frame is
// shown (see frameNumberBarCount).
enum class MoviePicture { movingRamp, desktop, frameNumber };

inline constexpr int frameNumberBarCount = 12;

struct VideoTrackOptions {
    PixelSize pixelSize{320, 180};
    std::int64_t framesPerSecond = 30;
    MoviePicture picture = MoviePicture::movingRamp;
    // When not empty: one frame at each of these rising times, before the
    // movie's duration, instead of one every 1/fps. The track then counts in
    // nanoseconds, and a frame lasts until the next (the last until the
    // duration).
    std::vector<ProjectTime> frameTimes = {};
};

struct RecordingMovieOptions {
    // The time of the screen track: frames at 0, 1/fps, ... up to before this.
    ProjectTime duration = ProjectTime::fromSeconds(3);
    VideoTrackOptions screen;
    std::optional<VideoTrackOptions> webcam;
    std::optional<AudioTrackOptions> systemAudio = AudioTrackOptions{};
    std::optional<AudioTrackOptions> microphone = AudioTrackOptions{220, {}};
    // Fragmented like a live recording: the track descriptions come with the
    // first fragment and every keyframe opens a new fragment, so that a file
    // cut short still plays up to its last whole fragment; keyframes come
    // once a second. An unfragmented file has its track descriptions at the end.
    bool fragmented = true;
};

// Where each track landed, in the form the manifest records it.
struct RecordingMovieLayout {
    std::vector<MediaTrack> tracks;
    std::optional<WebcamMediaInfo> webcam;
    // "h264" when this FFmpeg has libx264, otherwise "mpeg4".
    std::string videoCodecName;
    ProjectTime duration;
    PixelSize screenPixelSize;
    std::int64_t screenFramesPerSecond = 30;

    // Sets the manifest's media tracks, webcam and microphone entries, options,
    // duration and encoded size to describe this movie.
    void applyTo(ProjectManifest& manifest) const;
};

// Writes the movie, replacing any file at the path. Throws MediaFixtureError
// when FFmpeg fails.
RecordingMovieLayout writeRecordingMovie(const std::filesystem::path& path,
                                         const RecordingMovieOptions& options = {});

} // namespace rilo::testing

#pragma once

// Real recorded media for tests: QuickTime movies written through FFmpeg with
// the track layout of a recording (screen video first, then the webcam, then
// system audio, then the microphone), with pictures and sounds that tests can
// recognise again after decoding.
//
// Every video frame carries its own number as a strip of 16 blocks across the
// top of the picture (most significant bit on the left, a light block for 1,
// a dark block for 0); below the strip, coloured bars move from frame to frame,
// sideways on the screen track and downwards on the webcam. Audio is a tone inside the audible ranges and
// silence (or a given noise) outside them.

#include "project/document/ProjectManifest.h"
#include "shared/Errors.h"
#include "shared/Geometry.h"
#include "shared/ProjectTime.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace rilo::testing {

class MediaFixtureError : public LocalizedError {
public:
    using LocalizedError::LocalizedError;
};

struct AudioTrackSpec {
    double frequencyHertz = 440;
    // Peak of the tone, 0...1 of full scale.
    double amplitude = 0.3;
    // Speech-like: the tone carries a second harmonic and its loudness swells
    // and fades a few times a second, never dropping below a third of the peak,
    // so an audible range stays audible throughout.
    bool speechLike = false;
    // Where the tone sounds; absent means throughout. Outside these ranges the
    // track holds only the noise below.
    std::optional<std::vector<ProjectTimeRange>> audibleRanges;
    // Peak of a deterministic white noise added everywhere, 0 for digital silence.
    double noiseAmplitude = 0;

    static AudioTrackSpec systemTone() { return {}; }
    static AudioTrackSpec speech(std::optional<std::vector<ProjectTimeRange>> audibleRanges = std::nullopt) {
        return {220, 0.4, true, std::move(audibleRanges), 0};
    }
};

struct VideoTrackSpec {
    PixelSize pixelSize{320, 180};
    std::int64_t framesPerSecond = 30;
};

struct RecordingMovieSpec {
    // The time of the screen track: frames at 0, 1/fps, ... up to before this.
    ProjectTime duration = ProjectTime::fromSeconds(3);
    VideoTrackSpec screen;
    std::optional<VideoTrackSpec> webcam;
    std::optional<AudioTrackSpec> systemAudio = AudioTrackSpec::systemTone();
    std::optional<AudioTrackSpec> microphone = AudioTrackSpec::speech();
    // Fragmented like a live recording: the track descriptions come with the
    // first fragment and every keyframe opens a new fragment, so that a file
    // cut short still plays up to its last whole fragment. An unfragmented
    // file has its track descriptions at the end.
    bool fragmented = true;
    // Also the distance between fragments of a fragmented file.
    ProjectTime keyframeInterval = ProjectTime::fromSeconds(1);
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
// when a spec is out of range or FFmpeg fails.
RecordingMovieLayout writeRecordingMovie(const std::filesystem::path& path,
                                         const RecordingMovieSpec& spec = {});

// The frame number that the strip at the top of a picture shows, read from its
// luma plane; nothing when the strip is not there.
std::optional<std::int64_t> frameNumberInPicture(const std::uint8_t* luma, int lineSize, int width,
                                                 int height);

// Decodes the video track at the position in the file and reads the frame
// number of every picture, in presentation order; -1 for a picture without one.
std::vector<std::int64_t> readFrameNumbers(const std::filesystem::path& path, int trackIndex);

// Decodes the audio track at the position in the file and gives the samples
// of its first channel from time 0 on, as floating point, at the track's rate.
std::vector<float> readAudioSamples(const std::filesystem::path& path, int trackIndex);

} // namespace rilo::testing

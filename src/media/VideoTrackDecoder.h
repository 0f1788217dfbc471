#pragma once

// Decoded pictures of one video track of a media file, asked for by time.
//
// A VideoTrackDecoder owns the demuxer and the decoder of one stream. It
// answers, for a source time, the last frame presented at or before that
// time: the first frame when the time lies before it, the last frame when the
// track has ended earlier. Times rising in small steps decode forward one
// frame after another; a time behind the current position, or more than a
// second ahead of it, seeks to the keyframe at or before the time and decodes
// forward from there, so that a cut skips the media in between instead of
// decoding through it.
//
// Source times are the file's own presentation times in nanoseconds, the
// time line on which MediaProbe reports each track's range.
//
// Pictures keep the decoder's own layout when it is planar or semi-planar
// 8-bit 4:2:0; anything else is converted to yuv420p.
//
// A damaged file (cut short, or with a packet the decoder refuses) ends
// where the damage starts: the last good frame stays the answer for every
// later time. A track that yields no frame at all is an error.
//
// One thread at a time. Throws VideoTrackDecoderError.

#include "shared/Errors.h"
#include "shared/ProjectTime.h"
#include "shared/VideoFramePlanes.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

struct AVFrame;

namespace rilo {

enum class VideoTrackDecoderErrorCase { cannotOpenTrack, noDecodableFrame };

class VideoTrackDecoderError : public CaseError<VideoTrackDecoderErrorCase> {
public:
    explicit VideoTrackDecoderError(Case errorCase)
        : CaseError(errorCase, messageFor(errorCase)) {}

private:
    static std::string messageFor(Case errorCase) {
        switch (errorCase) {
        case Case::cannotOpenTrack:
            return "无法读取项目媒体轨道。";
        case Case::noDecodableFrame:
            return "项目媒体轨道中没有可解码的视频帧。";
        }
        return "无法读取项目媒体轨道。";
    }
};

// One decoded picture and its presentation time. Owned by the decoder that
// made it.
class DecodedVideoFrame {
public:
    DecodedVideoFrame();
    ~DecodedVideoFrame();
    DecodedVideoFrame(const DecodedVideoFrame&) = delete;
    DecodedVideoFrame& operator=(const DecodedVideoFrame&) = delete;

    ProjectTime presentationTime() const noexcept { return presentationTime_; }
    // A view of the picture's planes, valid while the frame is unchanged.
    VideoFramePlanes planes() const noexcept;
    // A frame of its own that shares this one's picture buffers (no pixels
    // are copied) and stays valid whatever the decoder does next, for
    // handing a picture to another thread.
    std::shared_ptr<const DecodedVideoFrame> share() const;

private:
    friend class VideoTrackDecoder;

    struct FrameDeleter {
        void operator()(AVFrame* frame) const noexcept;
    };

    std::unique_ptr<AVFrame, FrameDeleter> frame_;
    ProjectTime presentationTime_;
};

class VideoTrackDecoder {
public:
    // Opens the stream at `streamIndex` (a position among all tracks of the
    // file) and decodes its first frame. Throws cannotOpenTrack when the file
    // cannot be read, the stream is missing or is not video, or it has no
    // decoder; noDecodableFrame when not a single frame decodes.
    VideoTrackDecoder(const std::filesystem::path& path, std::int64_t streamIndex);
    ~VideoTrackDecoder();
    VideoTrackDecoder(const VideoTrackDecoder&) = delete;
    VideoTrackDecoder& operator=(const VideoTrackDecoder&) = delete;

    // The last frame presented at or before `sourceTime` (see above). Never
    // null. The frame stays valid until the next call or the decoder's end.
    const DecodedVideoFrame* frameAt(ProjectTime sourceTime);

private:
    class State;
    std::unique_ptr<State> state_;
};

} // namespace rilo

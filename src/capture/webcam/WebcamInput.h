#pragma once

// One opened FFmpeg input (a V4L2 device, a lavfi graph or a media file) and
// the decoder of its video stream. Used by one thread at a time: opened by
// the factory, then read only by the source's delivery thread.

#include "media/FFmpegHandles.h"

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace rilo::webcam {

using ffmpeg::CodecContext;
using ffmpeg::Frame;
using ffmpeg::InputContext;
using ffmpeg::Packet;
using ffmpeg::Scaler;

// FFmpeg refused to open or read the input; `code` is its AVERROR.
class WebcamInputError : public std::runtime_error {
public:
    WebcamInputError(int code, const std::string& what);
    int code() const noexcept { return code_; }

private:
    int code_;
};

struct WebcamInputRequest {
    std::string formatName; // an FFmpeg input format; empty to let FFmpeg probe a file
    std::string url;
    std::vector<std::pair<std::string, std::string>> options;
    // Reads answer "not yet" instead of waiting for a live device.
    bool nonBlocking = false;
    // Reads ahead to learn the streams, which files need and devices don't.
    bool probesStreams = true;
};

class WebcamInput {
public:
    enum class ReadResult { picture, notYet, endOfStream };

    // Throws WebcamInputError when the input can't be opened, has no video
    // stream, or has no decoder for it.
    explicit WebcamInput(const WebcamInputRequest& request);

    WebcamInput(const WebcamInput&) = delete;
    WebcamInput& operator=(const WebcamInput&) = delete;

    // The picture size the stream declares.
    int width() const noexcept;
    int height() const noexcept;
    // Pictures a second as the input declares them; nothing when it doesn't.
    std::optional<double> framesPerSecond() const noexcept;

    // Decodes the next picture into `picture` (replacing what it held).
    // Pictures that fail to decode are skipped; a failing read throws
    // WebcamInputError.
    ReadResult read(AVFrame& picture);
    // The presentation time of a decoded picture, in nanoseconds of the
    // input's own clock.
    std::optional<std::int64_t> presentationNanoseconds(const AVFrame& picture) const noexcept;
    // Goes back to the first picture. Throws WebcamInputError.
    void rewind();

private:
    InputContext format_;
    CodecContext decoder_;
    Packet packet_;
    int streamIndex_ = -1;
    bool demuxerEnded_ = false;
};

} // namespace rilo::webcam

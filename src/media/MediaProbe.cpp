#include "media/MediaProbe.h"

#include "media/FFmpegHandles.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/avutil.h>
}

#include <algorithm>
#include <limits>
#include <memory>

namespace rilo {

namespace {

using ffmpeg::InputContext;

constexpr AVRational nanosecondTimeBase{1, 1'000'000'000};

// Times in a file are not to be trusted: a value that does not fit in
// nanoseconds counts as unknown.
std::optional<std::int64_t> nanoseconds(std::int64_t value, AVRational timeBase) {
    if (value == AV_NOPTS_VALUE || timeBase.num <= 0 || timeBase.den <= 0) {
        return std::nullopt;
    }
    const std::int64_t result =
        av_rescale_q_rnd(value, timeBase, nanosecondTimeBase,
                         static_cast<AVRounding>(AV_ROUND_NEAR_INF | AV_ROUND_PASS_MINMAX));
    if (result == AV_NOPTS_VALUE || result == std::numeric_limits<std::int64_t>::max()) {
        return std::nullopt;
    }
    return result;
}

MediaType mediaTypeOf(AVMediaType type) {
    switch (type) {
    case AVMEDIA_TYPE_VIDEO:
        return MediaType::video;
    case AVMEDIA_TYPE_AUDIO:
        return MediaType::audio;
    default:
        return MediaType::other;
    }
}

// The presented stretch of a stream: from its first presented time (never
// before 0) to the end of its last sample.
ProjectTimeRange presentedRange(const AVStream& stream) {
    const auto start = nanoseconds(stream.start_time, stream.time_base).value_or(0);
    const auto length = nanoseconds(stream.duration, stream.time_base);
    std::int64_t end = 0;
    if (!length || *length <= 0 || __builtin_add_overflow(start, *length, &end) || end <= 0) {
        return {};
    }
    const std::int64_t presentedStart = std::max<std::int64_t>(start, 0);
    return {ProjectTime{presentedStart}, ProjectTime{end - presentedStart}};
}

MediaTrackInfo describe(const AVStream& stream) {
    const AVCodecParameters& parameters = *stream.codecpar;
    MediaTrackInfo track;
    track.index = stream.index;
    track.mediaType = mediaTypeOf(parameters.codec_type);
    track.codecName = avcodec_get_name(parameters.codec_id);
    if (track.mediaType == MediaType::video && parameters.width > 0 && parameters.height > 0) {
        track.pixelSize = PixelSize::unnormalized(parameters.width, parameters.height);
    }
    if (track.mediaType == MediaType::audio) {
        if (parameters.sample_rate > 0) {
            track.sampleRate = parameters.sample_rate;
        }
        if (parameters.ch_layout.nb_channels > 0) {
            track.channelCount = parameters.ch_layout.nb_channels;
        }
    }
    track.timeRange = presentedRange(stream);
    return track;
}

} // namespace

std::string_view mediaTypeName(MediaType type) noexcept {
    switch (type) {
    case MediaType::video:
        return "video";
    case MediaType::audio:
        return "audio";
    case MediaType::other:
        return "other";
    }
    return "other";
}

bool MediaFileInfo::hasVideoTrack() const noexcept {
    return std::any_of(tracks.begin(), tracks.end(),
                       [](const MediaTrackInfo& track) { return track.mediaType == MediaType::video; });
}

MediaFileInfo probeMediaFile(const std::filesystem::path& path) {
    AVFormatContext* rawContext = nullptr;
    // On failure avformat_open_input frees the context itself.
    if (avformat_open_input(&rawContext, path.c_str(), nullptr, nullptr) < 0) {
        throw MediaProbeError::cannotOpen(path);
    }
    const InputContext context(rawContext);
    if (avformat_find_stream_info(context.get(), nullptr) < 0) {
        throw MediaProbeError::cannotReadTracks(path);
    }

    MediaFileInfo info;
    for (unsigned index = 0; index < context->nb_streams; ++index) {
        info.tracks.push_back(describe(*context->streams[index]));
        info.duration = std::max(info.duration, info.tracks.back().timeRange.end());
    }
    if (info.duration == ProjectTime::zero()) {
        // No stream tells its length; the container's own estimate is the
        // best there is.
        info.duration = ProjectTime{std::max<std::int64_t>(
            0, nanoseconds(context->duration, AVRational{1, AV_TIME_BASE}).value_or(0))};
    }
    return info;
}

} // namespace rilo

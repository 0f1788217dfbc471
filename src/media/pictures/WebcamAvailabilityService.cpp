#include "media/pictures/WebcamAvailabilityService.h"

#include "media/FFmpegHandles.h"
#include "media/TimelineTrackResolver.h"

extern "C" {
#include <libavformat/avformat.h>
}

#include <algorithm>
#include <filesystem>

namespace rilo {

namespace fs = std::filesystem;

namespace {

constexpr AVRational nanosecondTimeBase{1, 1'000'000'000};

// The packet times of one track, read from the container alone.
std::vector<WebcamFrameTiming> frameTimings(const fs::path& mediaURL, std::int64_t streamIndex) {
    AVFormatContext* rawInput = nullptr;
    if (const int opened = avformat_open_input(&rawInput, mediaURL.c_str(), nullptr, nullptr); opened < 0) {
        throw WebcamAvailabilityServiceError(ffmpeg::errorText(opened));
    }
    const ffmpeg::InputContext input(rawInput);
    if (streamIndex < 0 || streamIndex >= static_cast<std::int64_t>(input->nb_streams)) {
        throw WebcamAvailabilityServiceError(TimelineTrackResolverError::missingTrack(streamIndex).message());
    }
    // The demuxer passes over the packets of every other track.
    for (unsigned index = 0; index < input->nb_streams; ++index) {
        input->streams[index]->discard =
            static_cast<std::int64_t>(index) == streamIndex ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    }
    const AVRational timeBase = input->streams[streamIndex]->time_base;
    const ffmpeg::Packet packet(av_packet_alloc());
    if (!packet) {
        throw std::bad_alloc();
    }
    std::vector<WebcamFrameTiming> frames;
    // A file cut short (a recording that stopped uncleanly) ends where it
    // stops being readable, as it does for playback.
    while (av_read_frame(input.get(), packet.get()) >= 0) {
        const std::int64_t timestamp = packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts;
        if (packet->stream_index == streamIndex && timestamp != AV_NOPTS_VALUE) {
            frames.push_back({ProjectTime{av_rescale_q(timestamp, timeBase, nanosecondTimeBase)},
                              ProjectTime{av_rescale_q(std::max<std::int64_t>(packet->duration, 0), timeBase,
                                                       nanosecondTimeBase)}});
        }
        av_packet_unref(packet.get());
    }
    return frames;
}

} // namespace

std::vector<ProjectTimeRange>
WebcamAvailabilityService::rangesOfFrames(std::vector<WebcamFrameTiming> frames) {
    std::sort(frames.begin(), frames.end(), [](const WebcamFrameTiming& a, const WebcamFrameTiming& b) {
        return a.presentationTime < b.presentationTime;
    });
    // A frame before a gap stands alone; a longer stated duration would
    // bridge the gap.
    const auto endOf = [](const WebcamFrameTiming& frame) {
        const bool lasts =
            frame.duration.nanoseconds > 0 && frame.duration.nanoseconds <= maximumGapNanoseconds;
        return lasts ? frame.presentationTime + frame.duration : frame.presentationTime;
    };
    std::vector<ProjectTimeRange> ranges;
    for (std::size_t index = 0; index < frames.size(); ++index) {
        const WebcamFrameTiming& frame = frames[index];
        const bool continues =
            index > 0 && (frame.presentationTime - frames[index - 1].presentationTime).nanoseconds <=
                             maximumGapNanoseconds;
        if (continues) {
            ProjectTimeRange& range = ranges.back();
            range = ProjectTimeRange::fromStartEnd(range.start, std::max(range.end(), endOf(frame)));
        } else {
            ranges.push_back(ProjectTimeRange::fromStartEnd(frame.presentationTime, endOf(frame)));
        }
    }
    return ranges;
}

std::vector<ProjectTimeRange> WebcamAvailabilityService::availableRanges(const ProjectSnapshot& snapshot) {
    if (!snapshot.manifest.webcam) {
        return {};
    }
    const fs::path mediaURL = snapshot.mediaURL();
    std::int64_t streamIndex = 0;
    try {
        const ResolvedTimelineTracks tracks = TimelineTrackResolver::resolve(mediaURL, snapshot.manifest);
        if (!tracks.webcam) {
            return {};
        }
        streamIndex = tracks.webcam->index;
    } catch (const LocalizedError& error) {
        throw WebcamAvailabilityServiceError(error.message());
    }
    return rangesOfFrames(frameTimings(mediaURL, streamIndex));
}

} // namespace rilo

#include "media/CompositionAudioReader.h"

#include <algorithm>
#include <limits>

namespace rilo {

namespace {

// Frames mixed at a time: large enough that the per-block work is small,
// small enough that a block of every track fits in cache.
constexpr std::int64_t blockFrames = 4096;

// The track as heard from `start` on: inserts before it dropped, the one it
// falls in cut at its source position, and every sequence range moved so
// that `start` becomes 0.
TimelineCompositionTrack trackFrom(const TimelineCompositionTrack& track, ProjectTime start) {
    if (start <= ProjectTime{0}) {
        return track;
    }
    TimelineCompositionTrack shifted{track.source, {}};
    for (const auto& insert : track.inserts) {
        const ProjectTime sequenceEnd = insert.sequenceRange.end();
        if (sequenceEnd <= start) {
            continue;
        }
        TimelineCompositionInsert moved = insert;
        if (insert.sequenceRange.start < start) {
            const std::int64_t skipped = (start - insert.sequenceRange.start).nanoseconds;
            const ProjectTime sourceSkipped{skipped * insert.playbackRate.permille / 1000};
            moved.sourceRange = ProjectTimeRange::fromStartEnd(
                std::min(insert.sourceRange.start + sourceSkipped, insert.sourceRange.end()),
                insert.sourceRange.end());
            moved.sequenceRange = ProjectTimeRange::fromStartEnd(ProjectTime{0}, sequenceEnd - start);
        } else {
            moved.sequenceRange.start = insert.sequenceRange.start - start;
        }
        shifted.inserts.push_back(moved);
    }
    return shifted;
}

} // namespace

CompositionAudioReader::CompositionAudioReader(const TimelineCompositionPlan& plan,
                                               const std::filesystem::path& mediaPath)
    : CompositionAudioReader(plan, mediaPath, ProjectTime{0}) {}

CompositionAudioReader::CompositionAudioReader(const TimelineCompositionPlan& plan,
                                               const std::filesystem::path& mediaPath, ProjectTime start)
    : totalFrames_(std::max<std::int64_t>(0, CompositionAudioFrames::frameAt(plan.duration()) -
                                                 CompositionAudioFrames::frameAt(start)))
    , trackBlock_(static_cast<std::size_t>(blockFrames * channelCount)) {
    for (const auto& audio : plan.audio) {
        if (audio.linearVolume > 0 && !audio.track.inserts.empty()) {
            TimelineCompositionTrack track = trackFrom(audio.track, start);
            if (!track.inserts.empty()) {
                tracks_.push_back({CompositionAudioTrackStream(mediaPath, track), audio.linearVolume});
            }
        }
    }
}

std::size_t CompositionAudioReader::read(float* out, std::size_t maxFrames) {
    const std::int64_t frames = std::min<std::int64_t>(
        static_cast<std::int64_t>(std::min<std::size_t>(maxFrames, std::numeric_limits<std::int64_t>::max())),
        totalFrames_ - position_);
    for (std::int64_t done = 0; done < frames;) {
        const std::int64_t count = std::min(blockFrames, frames - done);
        float* const block = out + done * channelCount;
        const std::int64_t sampleCount = count * channelCount;
        std::fill_n(block, sampleCount, 0.0F);
        for (auto& track : tracks_) {
            track.stream.render(trackBlock_.data(), count);
            for (std::int64_t index = 0; index < sampleCount; ++index) {
                block[index] += track.volume * trackBlock_[static_cast<std::size_t>(index)];
            }
        }
        std::transform(block, block + sampleCount, block,
                       [](float sample) { return std::clamp(sample, -1.0F, 1.0F); });
        done += count;
    }
    position_ += frames;
    return static_cast<std::size_t>(frames);
}

} // namespace rilo

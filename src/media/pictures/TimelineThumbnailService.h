#pragma once

// The strip of frames above the timeline.
//
// For a visible stretch of the sequence, TimelineThumbnailService picks the
// times of TimelineThumbnailProfile, maps them to source time and gives, for
// each, the exact frame of the screen track presented at that source time
// (not the nearest keyframe), scaled to fit 88 x 44. Pictures are kept in a
// memory cache bounded in bytes, keyed by the package, the source time in
// milliseconds and the size; cached pictures come back without touching the
// media. The rest are made in source-time order by one decoder of the
// manifest's screen track (the generator), which is kept open between calls
// for the same media file and seeks to the keyframe before a time only when
// the time lies behind it, or more than a second ahead with a keyframe in
// between; otherwise it decodes forward.
//
// Any thread may call; calls that need the generator take its lock and run
// one after another, the cache's lock is held for lookups only. A request
// stopped through its token throws CancellationError between two frames.
// Other failures throw the error of the step that failed: the timeline's
// validation error, MediaProbeError or TimelineTrackResolverError for a
// media file without the promised screen track, VideoTrackDecoderError for
// one that does not decode, PictureScalingError.

#include "media/PngCodec.h"
#include "media/pictures/PictureMemoryCache.h"
#include "project/store/ProjectSnapshot.h"
#include "shared/ProjectTime.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <stop_token>
#include <vector>

namespace rilo {

struct TimelineThumbnail {
    ProjectTime sequenceTime;
    ProjectTime sourceTime;
    RgbaImage image;

    friend bool operator==(const TimelineThumbnail&, const TimelineThumbnail&) = default;
};

class TimelineThumbnailService {
public:
    explicit TimelineThumbnailService(std::size_t cacheCapacityBytes);
    ~TimelineThumbnailService();
    TimelineThumbnailService(const TimelineThumbnailService&) = delete;
    TimelineThumbnailService& operator=(const TimelineThumbnailService&) = delete;

    // The thumbnails of the sequence range, in sequence order.
    std::vector<TimelineThumbnail> thumbnails(const ProjectSnapshot& snapshot, double pixelsPerSecond,
                                              const ProjectTimeRange& visibleRange,
                                              std::stop_token stopToken);

    // Drops the cached pictures (when memory runs short).
    void emptyCache() { cache_.removeAll(); }

    // How many pictures the generator has made since the service began.
    std::int64_t generatedImageCount() const;

private:
    class Generator;

    static std::unique_ptr<Generator> openGenerator(const std::filesystem::path& mediaURL,
                                                    const ProjectManifest& manifest);

    PictureMemoryCache cache_;
    mutable std::mutex generatorMutex_;
    std::unique_ptr<Generator> generator_;
    std::int64_t generatedImageCount_ = 0;
};

} // namespace rilo

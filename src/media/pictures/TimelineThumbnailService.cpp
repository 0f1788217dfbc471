#include "media/pictures/TimelineThumbnailService.h"

#include "media/TimelineTrackResolver.h"
#include "media/VideoTrackDecoder.h"
#include "media/pictures/PictureScaling.h"
#include "media/pictures/TimelineThumbnailProfile.h"
#include "project/engine/TimelineMapper.h"
#include "shared/Errors.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>

namespace rilo {

namespace fs = std::filesystem;

namespace {

std::string cacheKey(const fs::path& packageURL, ProjectTime sourceTime) {
    return packageURL.string() + "|" + std::to_string(sourceTime.cliMilliseconds()) + "|" +
           std::to_string(TimelineThumbnailProfile::maximumSize.width) + "x" +
           std::to_string(TimelineThumbnailProfile::maximumSize.height);
}

} // namespace

// The decoder of one media file's screen track and its scaler.
class TimelineThumbnailService::Generator {
public:
    Generator(fs::path mediaURL, std::int64_t streamIndex)
        : mediaURL_(std::move(mediaURL))
        , decoder_(mediaURL_, streamIndex) {}

    const fs::path& mediaURL() const noexcept { return mediaURL_; }

    // The frame presented at the source time, fitted into the thumbnail box.
    RgbaImage imageAt(ProjectTime sourceTime) {
        const VideoFramePlanes planes = decoder_.frameAt(sourceTime)->planes();
        return scaler_.scale(
            planes, fittedPictureSize({planes.width, planes.height}, TimelineThumbnailProfile::maximumSize));
    }

private:
    fs::path mediaURL_;
    VideoTrackDecoder decoder_;
    VideoFrameScaler scaler_;
};

// The manifest's screen track (its first screen description). Reading the
// track list first would open the file a second time; a file without the
// track is looked at only when the decoder cannot open it, to say why as
// every reader of a project does.
std::unique_ptr<TimelineThumbnailService::Generator>
TimelineThumbnailService::openGenerator(const fs::path& mediaURL, const ProjectManifest& manifest) {
    const auto screen =
        std::find_if(manifest.media.tracks.begin(), manifest.media.tracks.end(),
                     [](const MediaTrack& track) { return track.kind == MediaTrackKind::screen; });
    if (screen == manifest.media.tracks.end()) {
        throw TimelineTrackResolverError::missingScreenDescription();
    }
    try {
        return std::make_unique<Generator>(mediaURL, screen->trackIndex);
    } catch (const VideoTrackDecoderError&) {
        TimelineTrackResolver::resolve(mediaURL, manifest);
        throw;
    }
}

TimelineThumbnailService::TimelineThumbnailService(std::size_t cacheCapacityBytes)
    : cache_(cacheCapacityBytes) {}

TimelineThumbnailService::~TimelineThumbnailService() = default;

std::int64_t TimelineThumbnailService::generatedImageCount() const {
    const std::lock_guard lock(generatorMutex_);
    return generatedImageCount_;
}

std::vector<TimelineThumbnail> TimelineThumbnailService::thumbnails(const ProjectSnapshot& snapshot,
                                                                    double pixelsPerSecond,
                                                                    const ProjectTimeRange& visibleRange,
                                                                    std::stop_token stopToken) {
    const TimelineMapper mapper(snapshot.timeline, snapshot.manifest.duration);
    struct Missing {
        std::size_t index;
        std::string key;
    };
    std::vector<TimelineThumbnail> thumbnails;
    std::vector<Missing> missing;
    for (const ProjectTime sequenceTime :
         TimelineThumbnailProfile::sequenceTimes(mapper, pixelsPerSecond, visibleRange)) {
        const std::optional<TimelineMappedTime> mapped = mapper.mappedTimeForSequenceTime(sequenceTime);
        if (!mapped) {
            continue;
        }
        std::string key = cacheKey(snapshot.packageURL, mapped->sourceTime);
        std::optional<RgbaImage> cached = cache_.find(key);
        if (!cached) {
            missing.push_back({thumbnails.size(), std::move(key)});
        }
        thumbnails.push_back({sequenceTime, mapped->sourceTime, cached ? std::move(*cached) : RgbaImage{}});
    }
    if (missing.empty()) {
        return thumbnails;
    }

    // In source order the decoder runs forward through the file, seeking
    // only across cuts and long stretches.
    std::stable_sort(missing.begin(), missing.end(), [&](const Missing& a, const Missing& b) {
        return thumbnails[a.index].sourceTime < thumbnails[b.index].sourceTime;
    });
    const std::lock_guard lock(generatorMutex_);
    const fs::path mediaURL = snapshot.mediaURL();
    try {
        for (const Missing& entry : missing) {
            if (stopToken.stop_requested()) {
                throw CancellationError();
            }
            TimelineThumbnail& thumbnail = thumbnails[entry.index];
            // Another time of this request (or another request) may have
            // made the same picture meanwhile.
            if (std::optional<RgbaImage> cached = cache_.find(entry.key)) {
                thumbnail.image = std::move(*cached);
                continue;
            }
            if (!generator_ || generator_->mediaURL() != mediaURL) {
                generator_.reset();
                generator_ = openGenerator(mediaURL, snapshot.manifest);
            }
            thumbnail.image = generator_->imageAt(thumbnail.sourceTime);
            ++generatedImageCount_;
            cache_.insert(entry.key, thumbnail.image);
        }
    } catch (const CancellationError&) {
        throw;
    } catch (...) {
        // A generator that failed part way is opened afresh next time.
        generator_.reset();
        throw;
    }
    return thumbnails;
}

} // namespace rilo

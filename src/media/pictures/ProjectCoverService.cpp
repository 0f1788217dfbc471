#include "media/pictures/ProjectCoverService.h"

#include "media/FFmpegHandles.h"
#include "media/ImageDecoding.h"
#include "media/JpegCodec.h"
#include "media/VideoTrackDecoder.h"
#include "shared/Files.h"
#include "shared/Sha256.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/display.h>
}

#include <cmath>
#include <optional>
#include <system_error>

namespace rilo {

namespace fs = std::filesystem;

namespace {

// A cover may come from a frame up to this long after time 0.
constexpr ProjectTime coverTolerance = ProjectTime{1'000'000'000};

struct CoverTrack {
    std::int64_t streamIndex = 0;
    // Clockwise quarter turns that show the picture upright.
    int quarterTurns = 0;
};

// The first video track of the file (not an attached picture) and how its
// display matrix turns it.
std::optional<CoverTrack> coverTrack(const fs::path& mediaURL) {
    AVFormatContext* rawInput = nullptr;
    if (avformat_open_input(&rawInput, mediaURL.c_str(), nullptr, nullptr) < 0) {
        return std::nullopt;
    }
    const ffmpeg::InputContext input(rawInput);
    for (unsigned index = 0; index < input->nb_streams; ++index) {
        const AVStream* stream = input->streams[index];
        if (stream->codecpar->codec_type != AVMEDIA_TYPE_VIDEO ||
            (stream->disposition & AV_DISPOSITION_ATTACHED_PIC) != 0) {
            continue;
        }
        CoverTrack track{static_cast<std::int64_t>(index), 0};
        const auto* matrix = reinterpret_cast<const std::int32_t*>(
            av_stream_get_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, nullptr));
        if (matrix != nullptr) {
            // The matrix turns anticlockwise by this angle.
            const double degrees = av_display_rotation_get(matrix);
            if (std::isfinite(degrees)) {
                track.quarterTurns = static_cast<int>(std::lround(-degrees / 90));
            }
        }
        return track;
    }
    return std::nullopt;
}

RgbaImage makeCover(const fs::path& mediaURL) {
    const std::optional<CoverTrack> track = coverTrack(mediaURL);
    if (!track) {
        throw ProjectCoverServiceError();
    }
    try {
        VideoTrackDecoder decoder(mediaURL, track->streamIndex);
        const DecodedVideoFrame* frame = decoder.frameAt(ProjectTime::zero());
        if (frame->presentationTime() > coverTolerance) {
            throw ProjectCoverServiceError();
        }
        const VideoFramePlanes planes = frame->planes();
        const bool turnsSideways = (track->quarterTurns % 2) != 0;
        const PictureSize upright = turnsSideways ? PictureSize{planes.height, planes.width}
                                                  : PictureSize{planes.width, planes.height};
        const PictureSize fitted = fittedPictureSize(upright, ProjectCoverService::maximumSize);
        VideoFrameScaler scaler;
        const RgbaImage scaled =
            scaler.scale(planes, turnsSideways ? PictureSize{fitted.height, fitted.width} : fitted);
        return rotatedImage(scaled, track->quarterTurns);
    } catch (const VideoTrackDecoderError&) {
        throw ProjectCoverServiceError();
    } catch (const PictureScalingError&) {
        throw ProjectCoverServiceError();
    }
}

std::optional<RgbaImage> readCacheFile(const fs::path& file) {
    std::error_code error;
    if (!fs::is_regular_file(file, error)) {
        return std::nullopt;
    }
    try {
        return decodeImage(readFileBytes(file));
    } catch (const LocalizedError&) {
        return std::nullopt;
    }
}

void writeCacheFile(const fs::path& file, const RgbaImage& image) {
    try {
        fs::create_directories(file.parent_path());
        writeFileAtomically(
            file, encodeJpeg(image.width, image.height, image.pixels, ProjectCoverService::jpegQuality));
    } catch (const LocalizedError&) {
        // The cover is made again next time.
    } catch (const fs::filesystem_error&) {
    }
}

} // namespace

ProjectCoverService::ProjectCoverService(fs::path cacheDirectory, std::size_t memoryCacheCapacityBytes)
    : cacheDirectory_(std::move(cacheDirectory))
    , cache_(memoryCacheCapacityBytes) {}

fs::path ProjectCoverService::cacheFile(const std::string& cacheKey) const {
    return cacheDirectory_ / (sha256Hex(cacheKey) + ".jpg");
}

RgbaImage ProjectCoverService::cover(const fs::path& mediaURL, const std::string& cacheKey) {
    if (std::optional<RgbaImage> cached = cache_.find(cacheKey)) {
        return std::move(*cached);
    }
    const fs::path file = cacheFile(cacheKey);
    std::optional<RgbaImage> image = readCacheFile(file);
    if (!image) {
        image = makeCover(mediaURL);
        writeCacheFile(file, *image);
    }
    cache_.insert(cacheKey, *image);
    return std::move(*image);
}

} // namespace rilo

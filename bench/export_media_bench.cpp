// Speed of the two media ends of an export at 1080p60: decoding a recording
// track through VideoTrackDecoder, and encoding through ExportMediaWriter.
//
// Writes a 10 s 1920x1080 60 fps recording with the media fixture of the test
// support, then:
// - decodes it frame by frame on the 60 fps grid;
// - encodes 600 frames of its pictures (yuv420p, as the renderer can hand
//   them back) with the given codec, and again from RGBA pictures, which the
//   writer converts.
// Each figure is frames a second of wall time.
//
// Usage: export_media_bench [h264|hevc] [frames]   (default h264, 600)

#include "export/ExportMediaWriter.h"
#include "media/VideoTrackDecoder.h"
#include "support/MediaFixture.h"
#include "support/TemporaryDirectory.h"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

using namespace rilo;
using Clock = std::chrono::steady_clock;

constexpr int width = 1920;
constexpr int height = 1080;
constexpr int framesPerSecond = 60;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// A picture kept in memory with the layout the writer takes.
struct OwnedPicture {
    std::vector<std::uint8_t> bytes;
    VideoFramePlanes planes;
};

OwnedPicture copyYuv(const VideoFramePlanes& source) {
    OwnedPicture picture;
    const std::size_t lumaSize = static_cast<std::size_t>(width) * height;
    picture.bytes.resize(lumaSize * 3 / 2);
    std::uint8_t* luma = picture.bytes.data();
    std::uint8_t* cb = luma + lumaSize;
    std::uint8_t* cr = cb + lumaSize / 4;
    for (int y = 0; y < height; ++y) {
        std::memcpy(luma + y * width, source.data[0] + y * source.strides[0], width);
    }
    for (int y = 0; y < height / 2; ++y) {
        std::memcpy(cb + y * width / 2, source.data[1] + y * source.strides[1], width / 2);
        std::memcpy(cr + y * width / 2, source.data[2] + y * source.strides[2], width / 2);
    }
    picture.planes = source;
    picture.planes.data = {luma, cb, cr};
    picture.planes.strides = {width, width / 2, width / 2};
    return picture;
}

// Grey levels from the luma: the same motion for the encoder to find.
OwnedPicture rgbaFrom(const OwnedPicture& yuv) {
    OwnedPicture picture;
    picture.bytes.resize(static_cast<std::size_t>(width) * height * 4);
    for (std::size_t index = 0; index < static_cast<std::size_t>(width) * height; ++index) {
        const std::uint8_t level = yuv.bytes[index];
        std::uint8_t* pixel = picture.bytes.data() + 4 * index;
        pixel[0] = level;
        pixel[1] = level;
        pixel[2] = level;
        pixel[3] = 255;
    }
    picture.planes.layout = VideoPixelLayout::rgba;
    picture.planes.fullRange = true;
    picture.planes.width = width;
    picture.planes.height = height;
    picture.planes.data = {picture.bytes.data(), nullptr, nullptr};
    picture.planes.strides = {width * 4, 0, 0};
    return picture;
}

double encode(const std::filesystem::path& path, ExportCodec codec, const std::vector<OwnedPicture>& pictures,
              int frameCount) {
    ResolvedExportConfiguration configuration;
    configuration.outputSize = PixelSize(width, height);
    configuration.framesPerSecond = framesPerSecond;
    configuration.codec = codec;
    configuration.bitRate = ExportConfiguration::bitRate(configuration.outputSize, framesPerSecond,
                                                         ExportQuality::standard, codec);
    const auto start = Clock::now();
    ExportMediaWriter writer(path, configuration, false);
    for (int index = 0; index < frameCount; ++index) {
        writer.appendVideo(pictures[static_cast<std::size_t>(index) % pictures.size()].planes, index);
    }
    writer.finish();
    return frameCount / secondsSince(start);
}

} // namespace

int main(int argc, char** argv) {
    const ExportCodec codec =
        argc > 1 && std::string(argv[1]) == "hevc" ? ExportCodec::hevc : ExportCodec::h264;
    const int frameCount = argc > 2 ? std::stoi(argv[2]) : 600;

    testing::TemporaryDirectory directory;
    const auto recording = directory / "recording.mov";
    testing::RecordingMovieOptions options;
    options.duration = ProjectTime::fromSeconds(10);
    options.screen = {PixelSize(width, height), framesPerSecond};
    options.microphone.reset();
    options.systemAudio.reset();
    auto start = Clock::now();
    const auto layout = testing::writeRecordingMovie(recording, options);
    std::printf("fixture: 10 s %dx%d %d fps %s written in %.1f s\n", width, height, framesPerSecond,
                layout.videoCodecName.c_str(), secondsSince(start));

    // Keeps the first pictures to encode from: both encodings loop over the
    // same content, so that their difference is the conversion from RGBA.
    std::vector<OwnedPicture> pictures;
    start = Clock::now();
    VideoTrackDecoder decoder(recording, 0);
    constexpr int decodedCount = 10 * framesPerSecond;
    constexpr int keptPictures = 12;
    double copySeconds = 0;
    for (int index = 0; index < decodedCount; ++index) {
        const DecodedVideoFrame* frame =
            decoder.frameAt(ProjectTime{std::int64_t{index} * 1'000'000'000 / framesPerSecond});
        if (index < keptPictures) {
            const auto copyStart = Clock::now();
            pictures.push_back(copyYuv(frame->planes()));
            copySeconds += secondsSince(copyStart);
        }
    }
    std::printf("decode: %d frames, %.1f frames/s\n", decodedCount,
                decodedCount / (secondsSince(start) - copySeconds));

    const char* codecName = codec == ExportCodec::hevc ? "hevc" : "h264";
    std::printf("encode %s yuv420p: %d frames, %.1f frames/s\n", codecName, frameCount,
                encode(directory / "yuv.mp4", codec, pictures, frameCount));
    std::vector<OwnedPicture> rgbaPictures;
    for (const OwnedPicture& picture : pictures) {
        rgbaPictures.push_back(rgbaFrom(picture));
    }
    pictures.clear();
    std::printf("encode %s rgba: %d frames, %.1f frames/s\n", codecName, frameCount,
                encode(directory / "rgba.mp4", codec, rgbaPictures, frameCount));
    return 0;
}

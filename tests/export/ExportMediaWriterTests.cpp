#include "export/ExportMediaWriter.h"
#include "media/VideoTrackDecoder.h"
#include "support/ProcessRunner.h"
#include "support/TemporaryDirectory.h"
#include "support/Thrown.h"

#include <cmath>
#include <fstream>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <numbers>
#include <vector>

namespace rilo {
namespace {

using nlohmann::json;

json ffprobe(const std::filesystem::path& path, const std::vector<std::string>& request) {
    std::vector<std::string> arguments{"-v", "error", "-print_format", "json"};
    arguments.insert(arguments.end(), request.begin(), request.end());
    arguments.push_back(path.string());
    const auto result = testing::runProcess("/usr/bin/ffprobe", arguments);
    EXPECT_EQ(result.exitCode, 0) << result.standardError;
    return json::parse(result.standardOutput);
}

// Indices of the keyframes among the video packets, in presentation order.
std::vector<int> keyframeIndices(const std::filesystem::path& path) {
    const json packets =
        ffprobe(path, {"-select_streams", "v:0", "-show_entries", "packet=flags"})["packets"];
    std::vector<int> keyframes;
    for (std::size_t index = 0; index < packets.size(); ++index) {
        if (packets[index]["flags"].get<std::string>().find('K') != std::string::npos) {
            keyframes.push_back(static_cast<int>(index));
        }
    }
    return keyframes;
}

void expectKeyframesAtMostApart(const std::vector<int>& keyframes, int frameCount, int interval) {
    ASSERT_GE(keyframes.size(), 2u);
    EXPECT_EQ(keyframes.front(), 0);
    for (std::size_t index = 1; index <= keyframes.size(); ++index) {
        const int next = index < keyframes.size() ? keyframes[index] : frameCount;
        EXPECT_LE(next - keyframes[index - 1], interval) << "after keyframe " << keyframes[index - 1];
    }
}

void expectBt709LimitedRange(const json& stream) {
    EXPECT_EQ(stream["pix_fmt"], "yuv420p");
    EXPECT_EQ(stream["color_space"], "bt709");
    EXPECT_EQ(stream["color_transfer"], "bt709");
    EXPECT_EQ(stream["color_primaries"], "bt709");
    EXPECT_EQ(stream["color_range"], "tv");
}

double seconds(const json& value) {
    return std::stod(value.get<std::string>());
}

// A yuv420p picture whose luma ramp moves with the frame number.
class MovingPicture {
public:
    MovingPicture(int width, int height)
        : width_(width)
        , height_(height)
        , luma_(static_cast<std::size_t>(width * height))
        , chroma_(static_cast<std::size_t>(width * height / 4), 128) {}

    VideoFramePlanes frame(std::int64_t number) {
        for (int y = 0; y < height_; ++y) {
            for (int x = 0; x < width_; ++x) {
                luma_[static_cast<std::size_t>(y * width_ + x)] =
                    static_cast<std::uint8_t>(16 + (x + y + 3 * number) % 200);
            }
        }
        VideoFramePlanes planes;
        planes.width = width_;
        planes.height = height_;
        planes.data = {luma_.data(), chroma_.data(), chroma_.data()};
        planes.strides = {width_, width_ / 2, width_ / 2};
        return planes;
    }

private:
    int width_;
    int height_;
    std::vector<std::uint8_t> luma_;
    std::vector<std::uint8_t> chroma_;
};

ResolvedExportConfiguration configuration(int width, int height, int framesPerSecond, ExportCodec codec) {
    ResolvedExportConfiguration result;
    result.outputSize = PixelSize::unnormalized(width, height);
    result.framesPerSecond = framesPerSecond;
    result.bitRate = 3'000'000;
    result.codec = codec;
    return result;
}

TEST(ExportMediaWriter, WritesH264HighWithTwoSecondKeyframesAndAacStereo) {
    testing::TemporaryDirectory directory;
    const auto path = directory / "export.mp4";
    constexpr int frameCount = 150; // 5 s at 30 fps
    {
        ExportMediaWriter writer(path, configuration(320, 180, 30, ExportCodec::h264), true);
        MovingPicture picture(320, 180);
        // Sound in pieces that do not line up with the encoder's frames.
        constexpr std::size_t piece = 1'000;
        std::vector<float> sound(2 * piece);
        std::size_t soundFrames = 0;
        for (int index = 0; index < frameCount; ++index) {
            while (soundFrames < static_cast<std::size_t>(index + 1) * 48'000 / 30) {
                for (std::size_t sample = 0; sample < piece; ++sample) {
                    const double time = static_cast<double>(soundFrames + sample) / 48'000;
                    sound[2 * sample] = static_cast<float>(0.3 * std::sin(2 * std::numbers::pi * 440 * time));
                    sound[2 * sample + 1] = sound[2 * sample];
                }
                const std::size_t count = std::min(piece, 5 * 48'000 - soundFrames);
                writer.appendAudio(sound.data(), count);
                soundFrames += count;
            }
            writer.appendVideo(picture.frame(index), index);
        }
        writer.finish();
    }

    const json info = ffprobe(path, {"-show_streams", "-show_format"});
    ASSERT_EQ(info["streams"].size(), 2u);
    const json& video = info["streams"][0];
    EXPECT_EQ(video["codec_name"], "h264");
    EXPECT_EQ(video["profile"], "High");
    EXPECT_EQ(video["width"], 320);
    EXPECT_EQ(video["height"], 180);
    EXPECT_EQ(video["has_b_frames"], 0);
    EXPECT_EQ(video["r_frame_rate"], "30/1");
    EXPECT_EQ(video["nb_frames"], std::to_string(frameCount));
    EXPECT_NEAR(seconds(video["duration"]), 5.0, 0.001);
    expectBt709LimitedRange(video);

    const json& audio = info["streams"][1];
    EXPECT_EQ(audio["codec_name"], "aac");
    EXPECT_EQ(audio["sample_rate"], "48000");
    EXPECT_EQ(audio["channels"], 2);
    EXPECT_NEAR(seconds(audio["duration"]), 5.0, 0.03);
    EXPECT_NEAR(seconds(info["format"]["duration"]), 5.0, 0.03);
    EXPECT_EQ(info["format"]["tags"]["major_brand"], "isom");

    expectKeyframesAtMostApart(keyframeIndices(path), frameCount, 60);
}

TEST(ExportMediaWriter, WritesHevcMainAtSixtyFramesASecond) {
    testing::TemporaryDirectory directory;
    const auto path = directory / "export.mp4";
    constexpr int frameCount = 150; // 2.5 s at 60 fps
    {
        ExportMediaWriter writer(path, configuration(320, 180, 60, ExportCodec::hevc), false);
        MovingPicture picture(320, 180);
        for (int index = 0; index < frameCount; ++index) {
            writer.appendVideo(picture.frame(index), index);
        }
        writer.finish();
    }

    const json info = ffprobe(path, {"-show_streams"});
    ASSERT_EQ(info["streams"].size(), 1u);
    const json& video = info["streams"][0];
    EXPECT_EQ(video["codec_name"], "hevc");
    EXPECT_EQ(video["profile"], "Main");
    EXPECT_EQ(video["codec_tag_string"], "hvc1");
    EXPECT_EQ(video["has_b_frames"], 0);
    EXPECT_EQ(video["r_frame_rate"], "60/1");
    EXPECT_EQ(video["nb_frames"], std::to_string(frameCount));
    EXPECT_NEAR(seconds(video["duration"]), 2.5, 0.001);
    expectBt709LimitedRange(video);
    expectKeyframesAtMostApart(keyframeIndices(path), frameCount, 120);
}

TEST(ExportMediaWriter, RgbaPicturesAreEncodedAsBt709LimitedRange) {
    testing::TemporaryDirectory directory;
    const auto path = directory / "export.mp4";
    constexpr int size = 64;
    {
        ExportMediaWriter writer(path, configuration(size, size, 30, ExportCodec::h264), false);
        std::vector<std::uint8_t> pixels(static_cast<std::size_t>(size * size * 4));
        for (std::size_t index = 0; index < pixels.size(); index += 4) {
            pixels[index] = 200;
            pixels[index + 1] = 60;
            pixels[index + 2] = 30;
            pixels[index + 3] = 255;
        }
        VideoFramePlanes picture;
        picture.layout = VideoPixelLayout::rgba;
        picture.fullRange = true;
        picture.width = size;
        picture.height = size;
        picture.data[0] = pixels.data();
        picture.strides[0] = size * 4;
        for (int index = 0; index < 3; ++index) {
            writer.appendVideo(picture, index);
        }
        writer.finish();
    }

    VideoTrackDecoder decoder(path, 0);
    const VideoFramePlanes planes = decoder.frameAt(ProjectTime::zero())->planes();
    EXPECT_EQ(planes.matrix, VideoColorMatrix::bt709);
    EXPECT_FALSE(planes.fullRange);
    ASSERT_EQ(planes.layout, VideoPixelLayout::yuv420p);
    const int middle = size / 2;
    // BT.709 limited range of (200, 60, 30); BT.601 would give Y 101.
    EXPECT_NEAR(planes.data[0][middle * planes.strides[0] + middle], 91, 2);
    EXPECT_NEAR(planes.data[1][middle / 2 * planes.strides[1] + middle / 2], 101, 2);
    EXPECT_NEAR(planes.data[2][middle / 2 * planes.strides[2] + middle / 2], 191, 2);
}

TEST(ExportMediaWriter, AWriterDroppedOrRefusedLeavesNoFile) {
    testing::TemporaryDirectory directory;
    const auto path = directory / "export.mp4";
    std::ofstream(path) << "an earlier export";
    {
        ExportMediaWriter writer(path, configuration(320, 180, 30, ExportCodec::h264), true);
        MovingPicture picture(320, 180);
        for (int index = 0; index < 10; ++index) {
            writer.appendVideo(picture.frame(index), index);
        }
        const auto wrongSize = testing::thrown<ProjectExporterError>(
            [&] { writer.appendVideo(MovingPicture(160, 90).frame(10), 10); });
        ASSERT_TRUE(wrongSize);
        EXPECT_EQ(wrongSize->message(), "导出帧写入失败：视频帧被拒绝");
    }
    EXPECT_FALSE(std::filesystem::exists(path));

    const auto noDirectory = testing::thrown<ProjectExporterError>([&] {
        ExportMediaWriter(directory / "missing" / "export.mp4",
                          configuration(320, 180, 30, ExportCodec::h264), false);
    });
    ASSERT_TRUE(noDirectory);
    EXPECT_EQ(noDirectory->errorCase(), ProjectExporterErrorCase::cannotStart);

    // 4:2:0 video has no odd measures, in either codec.
    for (const ExportCodec codec : {ExportCodec::h264, ExportCodec::hevc}) {
        const auto oddSize = testing::thrown<ProjectExporterError>(
            [&] { ExportMediaWriter(path, configuration(1001, 700, 30, codec), false); });
        ASSERT_TRUE(oddSize);
        EXPECT_EQ(oddSize->errorCase(), ProjectExporterErrorCase::unsupportedVideoSettings);
    }
    EXPECT_FALSE(std::filesystem::exists(path));
}

} // namespace
} // namespace rilo

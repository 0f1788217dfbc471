// Stills, previews and exports through the real executable, checked with
// ffprobe and by decoding the pictures: the files' form (codec, size, rate,
// colour tags, audio, duration), the order of the output checks, and that a
// failed or cancelled export leaves nothing behind.

#include "media/PngCodec.h"
#include "shared/Files.h"
#include "shared/Json.h"
#include "support/CliLibraryTest.h"
#include "support/RecordedPackage.h"

#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>

namespace rilo {
namespace {

using json::Json;

// The streams and the duration of a movie, as ffprobe reads them.
Json probe(const std::filesystem::path& movie) {
    const testing::ProcessResult result = testing::runProcess(
        "/usr/bin/ffprobe", {"-v", "error", "-show_streams", "-show_format", "-of", "json", movie.string()});
    EXPECT_EQ(result.exitCode, 0) << result.standardError;
    return json::parse(result.standardOutput);
}

class OutputEndToEnd : public testing::CliLibraryTest {
protected:
    testing::RecordedPackage recorded;
    std::string prefix;
    std::filesystem::path out = dataHome / "out";

    void SetUp() override {
        testing::RecordedPackageOptions options;
        options.movie.duration = ProjectTime::fromSeconds(3);
        recorded = testing::makeRecordedPackage(store, options);
        prefix = recorded.manifest.id.string().substr(0, 8);
        std::filesystem::create_directories(out);
    }

    void apply(const std::vector<std::string>& change) {
        std::vector<std::string> arguments = change;
        arguments.insert(arguments.end(), {"--apply", "--expect", digest()});
        succeed(arguments);
    }
    std::string digest() { return succeed({"describe", prefix})["timelineDigest"]; }
};

TEST_F(OutputEndToEnd, ExportWithACutAndADoubleSpeedSegment) {
    apply({"cut", prefix, "--range", "500,1000"});
    apply({"speed-set", prefix, "--range", "1500,2500", "--rate", "2"});
    const std::int64_t sequenceMilliseconds = succeed({"describe", prefix})["sequenceDurationMilliseconds"];
    EXPECT_EQ(sequenceMilliseconds, 2000);

    const auto movie = out / "x.mp4";
    const Json response = succeed({"export", prefix, "--preset", "compact", "--out", movie.string()});
    EXPECT_EQ(response["outputPath"], movie.string());
    EXPECT_EQ(response["projectID"], recorded.manifest.id.string());

    const Json probed = probe(movie);
    ASSERT_EQ(probed["streams"].size(), 2u);
    const Json& video = probed["streams"][0];
    EXPECT_EQ(video["codec_name"], "h264");
    EXPECT_EQ(video["profile"], "High");
    EXPECT_EQ(video["width"], 1280);
    EXPECT_EQ(video["height"], 720);
    EXPECT_EQ(video["r_frame_rate"], "30/1");
    EXPECT_EQ(video["has_b_frames"], 0);
    EXPECT_EQ(video["color_primaries"], "bt709");
    EXPECT_EQ(video["color_transfer"], "bt709");
    EXPECT_EQ(video["color_space"], "bt709");
    EXPECT_EQ(video["nb_frames"], "60");
    const Json& audio = probed["streams"][1];
    EXPECT_EQ(audio["codec_name"], "aac");
    EXPECT_EQ(audio["sample_rate"], "48000");
    EXPECT_EQ(audio["channels"], 2);
    const double seconds = std::stod(probed["format"]["duration"].get<std::string>());
    EXPECT_NEAR(seconds, sequenceMilliseconds / 1000.0, 1.0 / 30);
}

TEST_F(OutputEndToEnd, HevcAtSixtyAndAPortraitCanvas) {
    apply({"cut", prefix, "--range", "1000,3000"});
    apply({"set", prefix, "canvas.aspect=9:16"});
    const auto movie = out / "portrait.mp4";
    succeed({"export", prefix, "--preset", "compact", "--hevc", "--fps", "60", "--out", movie.string()});
    const Json video = probe(movie)["streams"][0];
    EXPECT_EQ(video["codec_name"], "hevc");
    EXPECT_EQ(video["r_frame_rate"], "60/1");
    EXPECT_EQ(video["width"], 720);
    EXPECT_EQ(video["height"], 1280);
}

TEST_F(OutputEndToEnd, FrameWritesAPictureOfTheAskedWidth) {
    const auto still = out / "f.png";
    succeed({"frame", prefix, "--ms", "1000", "--out", still.string(), "--width", "640"});
    const RgbaImage picture = decodePng(readFileBytes(still));
    EXPECT_EQ(picture.width, 640);
    EXPECT_EQ(picture.height, 360);
    // The preset's gradient: dark at the top corner, lighter violet at the bottom.
    const auto pixel = [&](int x, int y) {
        return &picture.pixels[static_cast<std::size_t>(y * 640 + x) * 4];
    };
    EXPECT_LT(pixel(2, 2)[0] + pixel(2, 2)[1] + pixel(2, 2)[2],
              pixel(2, 357)[0] + pixel(2, 357)[1] + pixel(2, 357)[2]);
    EXPECT_GT(pixel(2, 357)[2], pixel(2, 357)[1]);

    const auto jpeg = out / "f.JPG";
    succeed({"frame", prefix, "--ms", "999999", "--out", jpeg.string()});
    EXPECT_EQ(readFileBytes(jpeg).substr(0, 3), "\xFF\xD8\xFF");
}

TEST_F(OutputEndToEnd, OutputIsCheckedFirstAndFailuresLeaveNoFile) {
    const auto taken = out / "taken.mp4";
    writeFileAtomically(taken, "earlier");
    EXPECT_EQ(fail({"export", "ffffffff", "--out", taken.string()}, "execution", 5),
              "输出已存在，使用--replace才能覆盖：" + taken.string());
    EXPECT_EQ(readFileBytes(taken), "earlier");
    const auto nowhere = dataHome / "no/such/dir/x.mp4";
    EXPECT_EQ(fail({"preview", prefix, "--range", "0,1000", "--out", nowhere.string()}, "execution", 5),
              "输出目录不存在：" + nowhere.string());
    EXPECT_EQ(fail({"frame", prefix, "--ms", "0", "--out", (out / "a.mov").string()}, "invalid_arguments", 1),
              "参数无效：--out必须为jpg/jpeg/png");
    EXPECT_FALSE(std::filesystem::exists(out / "a.mov"));

    // A cancelled export leaves either the earlier file, when the signal came
    // before the export began, or nothing: never a partial movie.
    testing::ProcessOptions options;
    options.environment["XDG_DATA_HOME"] = dataHome.path().string();
    options.signalOnceBlocked = SIGINT;
    const auto cancelled = testing::runProcess(
        testing::riloExecutable(), {"cli", "export", prefix, "--out", taken.string(), "--replace"}, options);
    EXPECT_EQ(cancelled.exitCode, 130) << cancelled.standardError;
    EXPECT_TRUE(!std::filesystem::exists(taken) || readFileBytes(taken) == "earlier");
}

TEST_F(OutputEndToEnd, DamagedMediaEndsWithAnErrorNotACrash) {
    const auto media = recorded.package.mediaURL();
    const std::string bytes = readFileBytes(media);
    writeFileAtomically(media, bytes.substr(0, bytes.size() / 3));
    const auto movie = out / "damaged.mp4";
    const testing::ProcessResult result =
        cli({"export", prefix, "--preset", "compact", "--out", movie.string()});
    EXPECT_TRUE(result.exitCode == 0 || result.exitCode == 5) << result.standardError;
    if (result.exitCode != 0) {
        EXPECT_FALSE(std::filesystem::exists(movie));
    }
}

} // namespace
} // namespace rilo

// The recording writer through real FFmpeg: what its drop rules leave in the
// file, and what a failed or cancelled writer does.

#include "capture/writer/RecordingMediaWriter.h"
#include "shared/Json.h"
#include "support/ProcessRunner.h"
#include "support/TemporaryDirectory.h"

extern "C" {
#include <libavutil/pixfmt.h>
}

#include <csignal>
#include <gtest/gtest.h>
#include <random>
#include <sys/resource.h>
#include <thread>

namespace rilo {
namespace {

constexpr std::int64_t second = 1'000'000'000;

// A noisy picture, so that the encoder has something to spend bits on.
VideoSampleBuffer picture(std::int64_t nanoseconds, int width, int height, unsigned seed) {
    auto pixels = std::make_shared<std::vector<std::uint8_t>>(static_cast<std::size_t>(width) * height * 4);
    std::minstd_rand random(seed);
    for (auto& byte : *pixels) {
        byte = static_cast<std::uint8_t>(random());
    }
    auto image = std::make_shared<CapturedImage>();
    image->width = width;
    image->height = height;
    image->pixelFormat = AV_PIX_FMT_BGR0;
    image->planes[0] = pixels->data();
    image->bytesPerRow[0] = width * 4;
    image->owner = pixels;
    return {MediaTime::nanoseconds(nanoseconds), image, {}};
}

AudioSampleBuffer tone(std::int64_t nanoseconds, std::int64_t frames) {
    auto samples = std::make_shared<std::vector<float>>(static_cast<std::size_t>(frames) * 2, 0.25F);
    return {MediaTime::nanoseconds(nanoseconds), 48'000, 2, frames, samples};
}

json::Json probe(const std::filesystem::path& movie) {
    const testing::ProcessResult result =
        testing::runProcess("/usr/bin/ffprobe", {"-v", "error", "-count_packets", "-show_streams", "-of",
                                                 "json", movie.string()});
    EXPECT_EQ(result.exitCode, 0) << result.standardError;
    return json::parse(result.standardOutput)["streams"];
}

class RecordingMediaWriterTest : public ::testing::Test {
protected:
    testing::TemporaryDirectory directory;
    std::filesystem::path movie = directory / "recording.mov";
    RecordingOptions options;
    WebcamCaptureConfiguration webcam{"pattern", "pattern", PixelSize(320, 180), 30};
};

TEST_F(RecordingMediaWriterTest, TheFileBeginsAtTheFirstScreenFrameWithItsTracksInOrder) {
    options.capturesSystemAudio = true;
    options.capturesMicrophone = true;
    options.framesPerSecond = 30;
    RecordingMediaWriter writer(movie, PixelSize(320, 240), options, webcam);
    const std::int64_t start = 100 * second;

    writer.append(tone(start - second / 10, 4800), RecordingAudioTrack::systemAudio); // before the file
    writer.appendWebcam(picture(start - second / 10, 320, 180, 1));                   // dropped, counted
    for (int i = 0; i < 30; ++i) {
        const std::int64_t time = start + i * second / 30;
        writer.append(picture(time, 320, 240, static_cast<unsigned>(i)));
        writer.append(tone(time, 1600), RecordingAudioTrack::systemAudio);
        writer.append(tone(time, 1600), RecordingAudioTrack::systemAudio); // not after the last: ignored
        if (i == 3) {
            // The first webcam frame, a tenth of a second in, also covers the start.
            writer.appendWebcam(picture(time, 320, 180, 2));
            writer.appendWebcam(picture(time, 320, 180, 3)); // the same time again: dropped
        }
        // At the pace of a capture, so that the encoder keeps up.
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    const RecordingMediaWriterResult result = writer.finish();
    EXPECT_EQ(result.videoFrames, 30);
    EXPECT_EQ(result.duration, ProjectTime{29 * second / 30});
    EXPECT_EQ(result.systemAudioSamples, 30);
    EXPECT_EQ(result.microphoneSamples, 0);
    EXPECT_EQ(result.webcamFrames, 1);
    EXPECT_EQ(result.droppedWebcamFrames, 2);
    // Sound that kept its place against the screen has not drifted.
    EXPECT_LT(result.maximumAVDriftNanoseconds, second / 30);

    const json::Json streams = probe(movie);
    ASSERT_EQ(streams.size(), 4U);
    const std::vector<std::string> codecs{streams[0]["codec_name"], streams[1]["codec_name"],
                                          streams[2]["codec_name"], streams[3]["codec_name"]};
    EXPECT_EQ(codecs, (std::vector<std::string>{"h264", "h264", "aac", "aac"}));
    EXPECT_EQ(streams[0]["width"], 320);
    EXPECT_EQ(streams[0]["color_primaries"], "bt709");
    EXPECT_EQ(streams[1]["nb_read_packets"], "2");
    EXPECT_EQ(std::stod(streams[1]["start_time"].get<std::string>()), 0.0);
    EXPECT_NEAR(std::stod(streams[2]["duration"].get<std::string>()), 1.0, 0.05);
}

TEST_F(RecordingMediaWriterTest, AFailedWriteIsTerminalAndKeepsTheFragmentsWritten) {
    options.capturesSystemAudio = false;
    options.capturesMicrophone = false;
    // The file may not grow past 300 kB: the disk is full from there on.
    rlimit previous{};
    getrlimit(RLIMIT_FSIZE, &previous);
    const auto restore = [&] { setrlimit(RLIMIT_FSIZE, &previous); };
    const auto previousHandler = std::signal(SIGXFSZ, SIG_IGN);
    rlimit limited = previous;
    limited.rlim_cur = 300'000;
    setrlimit(RLIMIT_FSIZE, &limited);

    std::string message;
    {
        RecordingMediaWriter writer(movie, PixelSize(320, 240), options, std::nullopt);
        try {
            for (int i = 0; i < 600 && message.empty(); ++i) {
                writer.append(picture(i * second / 60, 320, 240, static_cast<unsigned>(i)));
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
            }
        } catch (const RecordingMediaWriterError& error) {
            message = error.what();
        }
        EXPECT_THROW(writer.append(picture(11 * second, 320, 240, 1)), RecordingMediaWriterError);
    }
    restore();
    std::signal(SIGXFSZ, previousHandler);
    EXPECT_TRUE(message.starts_with("录制数据写入失败：")) << message;
    const json::Json streams = probe(movie);
    ASSERT_EQ(streams.size(), 1U);
    EXPECT_GT(std::stod(streams[0]["duration"].get<std::string>()), 0.5);
}

TEST_F(RecordingMediaWriterTest, ACancelledWriterRefusesEverySample) {
    options.capturesSystemAudio = true;
    options.capturesMicrophone = false;
    RecordingMediaWriter writer(movie, PixelSize(320, 240), options, std::nullopt);
    writer.append(picture(0, 320, 240, 1));
    writer.cancel();
    EXPECT_THROW(writer.append(picture(second, 320, 240, 2)), RecordingMediaWriterError);
    EXPECT_THROW(writer.append(tone(second, 480), RecordingAudioTrack::systemAudio),
                 RecordingMediaWriterError);
}

} // namespace
} // namespace rilo

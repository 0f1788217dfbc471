// The thumbnail strip of a 60 s 1920x1080 60 fps recording shown whole in
// 1000 pixels of timeline (pixelsPerSecond = 1000 / 60: twelve thumbnails,
// 5.28 s apart, each between two keyframes), made by TimelineThumbnailService
// beside plain FFmpeg doing the same exact-frame extraction:
// - in process: one demuxer and decoder, for each time a seek to the
//   keyframe before it, decoding forward to the frame presented at that
//   time, and swscale to the same 78x44 RGBA;
// - the ffmpeg program, once per frame, with -ss before -i (an accurate seek:
//   it decodes from the keyframe before the time to the first frame at or
//   after it) and the same scaling.
// Each figure is the best and the median of several cold runs (a new
// service, a new decoder); the service's figure includes opening the file.
// The strip's pictures are compared with the in-process ones.
//
// Then it makes the cover of the project and writes it as a PNG file.
//
// Usage: thumbnail_bench [cover.png] [runs]   (default ./thumbnail_bench_cover.png, 5)

#include "BenchProcess.h"
#include "media/FFmpegHandles.h"
#include "media/pictures/ProjectCoverService.h"
#include "media/pictures/TimelineThumbnailProfile.h"
#include "media/pictures/TimelineThumbnailService.h"
#include "project/engine/TimelineMapper.h"
#include "shared/Files.h"
#include "support/MediaFixture.h"
#include "support/TemporaryDirectory.h"
#include "support/TimelineBuilders.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <sys/resource.h>
#include <vector>

namespace {

using namespace rilo;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr int width = 1920;
constexpr int height = 1080;
constexpr int framesPerSecond = 60;
constexpr ProjectTime duration = ProjectTime{60'000'000'000};
constexpr double pixelsPerSecond = 1000.0 / 60;

double millisecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

[[noreturn]] void fail(const std::string& what) {
    std::fprintf(stderr, "thumbnail_bench: %s\n", what.c_str());
    std::exit(1);
}

// Processor time of the whole process (every thread), which a machine busy
// with other work disturbs less than wall time.
double processorMilliseconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto milliseconds = [](const timeval& time) { return time.tv_sec * 1e3 + time.tv_usec / 1e3; };
    return milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime);
}

struct Figures {
    double best = 0;
    double median = 0;
};

Figures figuresOf(std::vector<double> milliseconds) {
    std::sort(milliseconds.begin(), milliseconds.end());
    return {milliseconds.front(), milliseconds[milliseconds.size() / 2]};
}

// Exact frames with libav alone: seek to the keyframe at or before each
// time, decode forward, keep the last frame presented at or before it.
std::vector<RgbaImage> plainFFmpegStrip(const fs::path& movie, const std::vector<ProjectTime>& times) {
    AVFormatContext* rawInput = nullptr;
    if (avformat_open_input(&rawInput, movie.c_str(), nullptr, nullptr) < 0) {
        fail("cannot open the movie");
    }
    const ffmpeg::InputContext input(rawInput);
    AVStream* stream = input->streams[0];
    const AVCodec* decoder = avcodec_find_decoder(stream->codecpar->codec_id);
    ffmpeg::CodecContext codec(avcodec_alloc_context3(decoder));
    avcodec_parameters_to_context(codec.get(), stream->codecpar);
    codec->pkt_timebase = stream->time_base;
    codec->thread_count = 0;
    codec->thread_type = FF_THREAD_FRAME | FF_THREAD_SLICE;
    if (avcodec_open2(codec.get(), decoder, nullptr) < 0) {
        fail("cannot open the decoder");
    }
    for (unsigned index = 1; index < input->nb_streams; ++index) {
        input->streams[index]->discard = AVDISCARD_ALL;
    }
    const ffmpeg::Packet packet(av_packet_alloc());
    const ffmpeg::Frame frame(av_frame_alloc());
    const ffmpeg::Frame kept(av_frame_alloc());
    ffmpeg::Scaler scaler;
    std::vector<RgbaImage> images;
    for (const ProjectTime time : times) {
        const std::int64_t target =
            av_rescale_q(time.nanoseconds, AVRational{1, 1'000'000'000}, stream->time_base);
        av_seek_frame(input.get(), 0, target, AVSEEK_FLAG_BACKWARD);
        avcodec_flush_buffers(codec.get());
        av_frame_unref(kept.get());
        bool done = false;
        bool draining = false;
        while (!done) {
            const int received = avcodec_receive_frame(codec.get(), frame.get());
            if (received == 0) {
                if (frame->best_effort_timestamp > target && kept->buf[0] != nullptr) {
                    done = true;
                } else {
                    av_frame_unref(kept.get());
                    av_frame_move_ref(kept.get(), frame.get());
                }
                av_frame_unref(frame.get());
                continue;
            }
            if (received != AVERROR(EAGAIN) || draining) {
                break;
            }
            if (av_read_frame(input.get(), packet.get()) < 0) {
                avcodec_send_packet(codec.get(), nullptr);
                draining = true;
                continue;
            }
            if (packet->stream_index == 0) {
                avcodec_send_packet(codec.get(), packet.get());
            }
            av_packet_unref(packet.get());
        }
        if (kept->buf[0] == nullptr) {
            fail("no frame decoded");
        }
        const PictureSize size =
            fittedPictureSize({kept->width, kept->height}, TimelineThumbnailProfile::maximumSize);
        scaler.reset(sws_getCachedContext(
            scaler.release(), kept->width, kept->height, static_cast<AVPixelFormat>(kept->format), size.width,
            size.height, AV_PIX_FMT_RGBA,
            SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP, nullptr, nullptr,
            nullptr));
        const int* coefficients = sws_getCoefficients(SWS_CS_ITU709);
        sws_setColorspaceDetails(scaler.get(), coefficients, 0, coefficients, 1, 0, 1 << 16, 1 << 16);
        RgbaImage image{size.width, size.height,
                        std::vector<std::uint8_t>(static_cast<std::size_t>(size.width) * size.height * 4)};
        std::uint8_t* destination[4] = {image.pixels.data(), nullptr, nullptr, nullptr};
        const int strides[4] = {size.width * 4, 0, 0, 0};
        sws_scale(scaler.get(), kept->data, kept->linesize, 0, kept->height, destination, strides);
        images.push_back(std::move(image));
        // Decoding restarts at a keyframe for the next time.
        avcodec_flush_buffers(codec.get());
    }
    return images;
}

double meanDifference(const RgbaImage& a, const RgbaImage& b) {
    if (a.pixels.size() != b.pixels.size() || a.pixels.empty()) {
        return INFINITY;
    }
    double total = 0;
    for (std::size_t index = 0; index < a.pixels.size(); ++index) {
        total += std::abs(static_cast<int>(a.pixels[index]) - static_cast<int>(b.pixels[index]));
    }
    return total / static_cast<double>(a.pixels.size());
}

} // namespace

int main(int argc, char** argv) {
    const fs::path coverOutput =
        fs::absolute(argc > 1 ? fs::path(argv[1]) : fs::path("thumbnail_bench_cover.png"));
    const int runs = argc > 2 ? std::max(1, std::atoi(argv[2])) : 5;

    testing::TemporaryDirectory directory;
    ProjectSnapshot snapshot;
    snapshot.packageURL = directory / "Bench.rilo";
    fs::create_directories(snapshot.mediaURL().parent_path());
    testing::RecordingMovieOptions options;
    options.duration = duration;
    options.screen = {PixelSize(width, height), framesPerSecond, testing::MoviePicture::desktop};
    options.systemAudio.reset();
    options.microphone.reset();
    auto start = Clock::now();
    const testing::RecordingMovieLayout layout = testing::writeRecordingMovie(snapshot.mediaURL(), options);
    layout.applyTo(snapshot.manifest);
    snapshot.timeline = testing::timelineOf({testing::segment(ProjectTime::zero(), duration)});
    std::printf("fixture: 60 s %dx%d %d fps %s, a keyframe a second, written in %.1f s\n", width, height,
                framesPerSecond, layout.videoCodecName.c_str(), millisecondsSince(start) / 1000);

    const ProjectTimeRange visible{ProjectTime::zero(), duration};
    const TimelineMapper mapper(snapshot.timeline, snapshot.manifest.duration);
    const std::vector<ProjectTime> times =
        TimelineThumbnailProfile::sequenceTimes(mapper, pixelsPerSecond, visible);
    std::printf("strip: %zu thumbnails, every %.2f s, 1000 px for 60 s\n", times.size(),
                TimelineThumbnailProfile::interval(pixelsPerSecond).seconds());

    // The two take turns, so that a busy machine slows both alike.
    std::vector<double> serviceRuns;
    std::vector<double> cachedRuns;
    std::vector<double> plainRuns;
    std::vector<double> serviceProcessor;
    std::vector<double> plainProcessor;
    std::vector<TimelineThumbnail> strip;
    std::vector<RgbaImage> plain;
    for (int run = 0; run < runs; ++run) {
        TimelineThumbnailService service(64 << 20);
        double processorStart = processorMilliseconds();
        start = Clock::now();
        strip = service.thumbnails(snapshot, pixelsPerSecond, visible, {});
        serviceRuns.push_back(millisecondsSince(start));
        serviceProcessor.push_back(processorMilliseconds() - processorStart);
        start = Clock::now();
        service.thumbnails(snapshot, pixelsPerSecond, visible, {});
        cachedRuns.push_back(millisecondsSince(start));

        processorStart = processorMilliseconds();
        start = Clock::now();
        plain = plainFFmpegStrip(snapshot.mediaURL(), times);
        plainRuns.push_back(millisecondsSince(start));
        plainProcessor.push_back(processorMilliseconds() - processorStart);
    }

    std::vector<double> programRuns;
    for (int run = 0; run < std::min(runs, 3); ++run) {
        double total = 0;
        for (const ProjectTime time : times) {
            const bench::RunFigures figures = bench::runProgram(
                "ffmpeg",
                {"-v", "error", "-nostdin", "-ss", std::to_string(time.seconds()), "-i",
                 snapshot.mediaURL().string(), "-frames:v", "1", "-vf", "scale=78:44:flags=bicubic",
                 "-pix_fmt", "rgba", "-f", "rawvideo", "-y", (directory / "frame.raw").string()},
                directory.path(), true);
            if (figures.exitCode != 0) {
                fail("the ffmpeg program failed");
            }
            total += figures.wallMilliseconds;
        }
        programRuns.push_back(total);
    }

    const Figures service = figuresOf(serviceRuns);
    const Figures cached = figuresOf(cachedRuns);
    const Figures inProcess = figuresOf(plainRuns);
    const Figures program = figuresOf(programRuns);
    std::printf("TimelineThumbnailService, cold:   best %7.1f ms, median %7.1f ms\n", service.best,
                service.median);
    std::printf("TimelineThumbnailService, cached: best %7.3f ms, median %7.3f ms\n", cached.best,
                cached.median);
    std::printf("plain libav, exact seeks:         best %7.1f ms, median %7.1f ms\n", inProcess.best,
                inProcess.median);
    std::printf("ffmpeg -ss T -i, one per frame:   best %7.1f ms, median %7.1f ms (%zu runs)\n", program.best,
                program.median, programRuns.size());
    const Figures serviceWork = figuresOf(serviceProcessor);
    const Figures plainWork = figuresOf(plainProcessor);
    std::printf("processor time, service:          best %7.1f ms, median %7.1f ms\n", serviceWork.best,
                serviceWork.median);
    std::printf("processor time, plain libav:      best %7.1f ms, median %7.1f ms\n", plainWork.best,
                plainWork.median);
    std::printf("service / plain libav (medians):  wall %.2f, processor %.2f\n",
                service.median / inProcess.median, serviceWork.median / plainWork.median);

    double largestDifference = 0;
    for (std::size_t index = 0; index < strip.size() && index < plain.size(); ++index) {
        largestDifference = std::max(largestDifference, meanDifference(strip[index].image, plain[index]));
    }
    std::printf("strip vs plain libav: %zu / %zu pictures, largest mean difference %.2f of 255\n",
                strip.size(), plain.size(), largestDifference);

    ProjectCoverService covers(directory / "Covers", 16 << 20);
    start = Clock::now();
    const RgbaImage cover = covers.cover(snapshot.mediaURL(), "bench");
    const double coverMilliseconds = millisecondsSince(start);
    writeFileAtomically(coverOutput, encodePng(cover.width, cover.height, cover.pixels));
    std::printf("cover: %dx%d in %.1f ms, written to %s\n", cover.width, cover.height, coverMilliseconds,
                coverOutput.c_str());
    return 0;
}

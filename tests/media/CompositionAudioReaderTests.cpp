// The mixed audio of a recorded package, read through a composition plan.
// The recording's system audio is a 440 Hz tone and its microphone a 220 Hz
// tone, both at amplitude 0.3.

#include "media/CompositionAudioReader.h"
#include "project/store/ProjectStore.h"
#include "support/BuildCatalog.h"
#include "support/ProcessRunner.h"
#include "support/RecordedPackage.h"
#include "support/TemporaryDirectory.h"
#include "support/TimelineBuilders.h"

#include <cmath>
#include <filesystem>
#include <gtest/gtest.h>
#include <numbers>

namespace rilo {
namespace {

using testing::between;
using testing::ms;
using testing::ns;
using testing::segment;
using testing::timelineOf;

constexpr double toneAmplitude = 0.3;
constexpr double sampleRate = CompositionAudioReader::sampleRate;

// Left channel of the frames between two sequence times.
struct Window {
    double startSeconds;
    double endSeconds;
};

class CompositionAudioReaderTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        directory_ = std::make_unique<testing::TemporaryDirectory>();
        ProjectStore store(*directory_ / "Projects", testing::buildCatalog);
        const auto recorded = testing::makeRecordedPackage(store);
        snapshot_ = store.loadSnapshot(recorded.package);
    }
    static void TearDownTestSuite() { directory_.reset(); }

    // Kept: 0-1 s, then after a cut 1.5-2 s, then 2 s to 2.9999 s at 2x:
    // 1.99995 s, which is 95997.6 frames.
    static EditTimeline cutAndDoubleSpeed() {
        return timelineOf({segment(ms(0), ms(1000)), segment(ms(1500), ms(2000)),
                           segment(ms(2000), ms(3000) - ns(100'000), 2000)});
    }

    static std::vector<float> mix(const ProjectSnapshot& snapshot) {
        const auto plan = TimelineCompositionBuilder::build(snapshot, std::stop_token{});
        CompositionAudioReader reader(plan, snapshot.mediaURL());
        std::vector<float> samples;
        // An odd read size, so that reads straddle every internal boundary.
        std::vector<float> chunk(1237 * CompositionAudioReader::channelCount);
        while (const std::size_t frames = reader.read(chunk.data(), 1237)) {
            samples.insert(samples.end(), chunk.begin(),
                           chunk.begin() +
                               static_cast<std::ptrdiff_t>(frames) * CompositionAudioReader::channelCount);
        }
        EXPECT_EQ(reader.framesRead(), reader.totalFrames());
        return samples;
    }

    static std::vector<float> left(const std::vector<float>& samples, Window window) {
        std::vector<float> channel;
        const auto first = static_cast<std::size_t>(window.startSeconds * sampleRate);
        const auto last = static_cast<std::size_t>(window.endSeconds * sampleRate);
        for (std::size_t frame = first; frame < last && 2 * frame < samples.size(); ++frame) {
            channel.push_back(samples[2 * frame]);
        }
        return channel;
    }

    static double crossingsPerSecond(const std::vector<float>& samples, Window window) {
        const auto channel = left(samples, window);
        int crossings = 0;
        for (std::size_t index = 1; index < channel.size(); ++index) {
            crossings += (channel[index - 1] < 0) != (channel[index] < 0) ? 1 : 0;
        }
        return crossings / (window.endSeconds - window.startSeconds);
    }

    static double rms(const std::vector<float>& samples, Window window) {
        const auto channel = left(samples, window);
        double sum = 0;
        for (const float sample : channel) {
            sum += static_cast<double>(sample) * sample;
        }
        return channel.empty() ? 0 : std::sqrt(sum / static_cast<double>(channel.size()));
    }

    static inline std::unique_ptr<testing::TemporaryDirectory> directory_;
    static inline ProjectSnapshot snapshot_;
};

constexpr Window normalSpeed{0.1, 0.9};
constexpr Window afterCut{1.05, 1.45};
constexpr Window doubleSpeed{1.55, 1.95};

TEST_F(CompositionAudioReaderTest, ACutAndDoubleSpeedKeepTheLengthExactAndThePitch) {
    ProjectSnapshot snapshot = snapshot_;
    snapshot.timeline = cutAndDoubleSpeed();
    snapshot.timeline.audioMix.systemAudio.isMuted = true;

    const auto samples = mix(snapshot);

    ASSERT_EQ(samples.size(), 95'998u * 2);
    const double expectedRms = toneAmplitude / std::numbers::sqrt2;
    for (const Window window : {normalSpeed, afterCut, doubleSpeed}) {
        // Twice 220 crossings a second, whatever the rate.
        EXPECT_NEAR(crossingsPerSecond(samples, window), 440, 440 * 0.03) << window.startSeconds;
        EXPECT_NEAR(rms(samples, window), expectedRms, expectedRms * 0.15) << window.startSeconds;
    }
    // The samples after the cut are those from 1.5 s on, in place.
    double largestError = 0;
    for (std::size_t frame = 48'000 + 2'400; frame < 48'000 + 21'600; ++frame) {
        const double sourceSeconds = 1.5 + static_cast<double>(frame - 48'000) / sampleRate;
        const double expected = toneAmplitude * std::sin(2 * std::numbers::pi * 220 * sourceSeconds);
        largestError = std::max(largestError, std::abs(samples[2 * frame] - expected));
    }
    EXPECT_LT(largestError, 0.05);
}

TEST_F(CompositionAudioReaderTest, VolumesScaleEachTrackAndMutedTracksAreSilent) {
    ProjectSnapshot snapshot = snapshot_;
    snapshot.timeline = cutAndDoubleSpeed();
    snapshot.timeline.audioMix.systemAudio.gainDecibels = 6;
    snapshot.timeline.audioMix.microphone.isMuted = true;

    const auto louder = mix(snapshot);
    const double expectedRms = std::pow(10.0, 6.0 / 20) * toneAmplitude / std::numbers::sqrt2;
    for (const Window window : {normalSpeed, doubleSpeed}) {
        EXPECT_NEAR(crossingsPerSecond(louder, window), 880, 880 * 0.03) << window.startSeconds;
        EXPECT_NEAR(rms(louder, window), expectedRms, expectedRms * 0.15) << window.startSeconds;
    }

    snapshot.timeline.audioMix.systemAudio.isMuted = true;
    const auto silent = mix(snapshot);
    ASSERT_EQ(silent.size(), 95'998u * 2);
    EXPECT_TRUE(std::all_of(silent.begin(), silent.end(), [](float sample) { return sample == 0; }));
}

TEST_F(CompositionAudioReaderTest, AStretchedInsertPlaysItsWholeSourceRangeThenSilence) {
    ProjectSnapshot snapshot = snapshot_;
    snapshot.timeline = timelineOf({segment(ms(0), ms(1000)), segment(ms(2000), ms(3000), 2000)});
    auto plan = TimelineCompositionBuilder::build(snapshot, std::stop_token{});
    // The second insert asks for a second of source from 2.5 s on; the
    // recording ends at 3 s, so at 2x its sound lasts 0.25 s of the 0.5 s.
    for (auto& audio : plan.audio) {
        audio.track.inserts[1].sourceRange = {ms(2500), ms(1000)};
    }

    CompositionAudioReader reader(plan, snapshot.mediaURL());
    std::vector<float> samples(72'000 * 2);
    EXPECT_EQ(reader.read(samples.data(), 72'000), 72'000u);
    EXPECT_EQ(reader.read(samples.data(), 72'000), 0u);

    EXPECT_GT(rms(samples, {1.02, 1.23}), 0.2);
    EXPECT_EQ(rms(samples, {1.3, 1.5}), 0);
}

TEST_F(CompositionAudioReaderTest, ADamagedTailLeavesSilenceAndTheFullLength) {
    const auto copy = *directory_ / "Damaged";
    std::filesystem::copy(snapshot_.packageURL, copy, std::filesystem::copy_options::recursive);
    ProjectSnapshot snapshot = snapshot_;
    snapshot.packageURL = copy;
    snapshot.timeline = timelineOf({segment(ms(0), ms(3000))});
    const auto plan = TimelineCompositionBuilder::build(snapshot, std::stop_token{});
    std::filesystem::resize_file(snapshot.mediaURL(), std::filesystem::file_size(snapshot.mediaURL()) / 2);

    CompositionAudioReader reader(plan, snapshot.mediaURL());
    std::vector<float> samples(static_cast<std::size_t>(reader.totalFrames()) * 2 + 2);
    EXPECT_EQ(reader.read(samples.data(), samples.size() / 2), 144'000u);
    EXPECT_EQ(reader.read(samples.data(), 1), 0u);
    samples.resize(144'000 * 2);

    EXPECT_GT(rms(samples, {0.1, 0.5}), 0.2);
    EXPECT_EQ(rms(samples, {2.5, 3.0}), 0);
}

// A mono microphone at 44.1 kHz whose data begins 0.5 s into the file,
// written with FFmpeg's own tools; the recorder never writes one, but a
// device that starts late leaves the same kind of file.
TEST_F(CompositionAudioReaderTest, ATrackThatStartsLateIsHeardWhereItsDataBegins) {
    const auto path = *directory_ / "late.mov";
    const auto written =
        testing::runProcess("/usr/bin/ffmpeg", {"-v", "error", "-itsoffset", "0.5", "-f", "lavfi", "-i",
                                                "sine=frequency=220:sample_rate=44100:duration=2", "-ac", "1",
                                                "-c:a", "aac", path.string()});
    ASSERT_EQ(written.exitCode, 0) << written.standardError;
    const MediaTrackInfo microphone = probeMediaFile(path).tracks.at(0);

    for (const std::int64_t permille : {1000, 2000}) {
        TimelineCompositionPlan plan;
        plan.mapper = TimelineMapper(timelineOf({segment(ms(0), ms(2000), permille)}), ms(3000));
        plan.audio.push_back(
            {MediaTrackKind::microphone,
             {microphone, {{between(ms(0), ms(2000)), {ms(0), plan.duration()}, {permille}}}},
             1});
        CompositionAudioReader reader(plan, path);
        std::vector<float> samples(static_cast<std::size_t>(reader.totalFrames()) * 2);
        ASSERT_EQ(reader.read(samples.data(), samples.size() / 2), samples.size() / 2);

        const auto audible = std::find_if(samples.begin(), samples.end(),
                                          [](float sample) { return std::abs(sample) > 0.01F; });
        const double audibleSeconds = static_cast<double>((audible - samples.begin()) / 2) / sampleRate;
        // The stretch blends over a few milliseconds around the onset.
        const double expectedSeconds = 0.5 * 1000 / static_cast<double>(permille);
        EXPECT_NEAR(audibleSeconds, expectedSeconds, 0.01) << permille;
        const Window heard{expectedSeconds + 0.1, plan.duration().seconds() - 0.1};
        EXPECT_NEAR(crossingsPerSecond(samples, heard), 440, 440 * 0.03) << permille;
        // Mono plays on both sides.
        const std::size_t middle = samples.size() / 4 * 2;
        EXPECT_EQ(samples[middle], samples[middle + 1]);
    }
}

} // namespace
} // namespace rilo

// The waveform of real recorded audio, and its cache in the package.

#include "media/analysis/AudioActivityAnalyzer.h"
#include "media/audio/WaveformCacheFile.h"
#include "media/audio/WaveformService.h"
#include "project/store/ProjectStore.h"
#include "shared/Files.h"
#include "support/BuildCatalog.h"
#include "support/RecordedPackage.h"
#include "support/TemporaryDirectory.h"
#include "support/Thrown.h"
#include "support/TimelineBuilders.h"

#include <cstring>
#include <gtest/gtest.h>

namespace rilo {
namespace {

namespace fs = std::filesystem;
using testing::ms;

class WaveformServiceTest : public ::testing::Test {
protected:
    void SetUp() override {
        testing::RecordedPackageOptions options;
        // The microphone is silent from 1 s to 2 s of its 3 s.
        options.movie.microphone->silentRanges = {testing::between(ms(1000), ms(2000))};
        recorded_ = testing::makeRecordedPackage(store_, options);
        snapshot_ = store_.loadSnapshot(recorded_.package);
    }

    fs::path cacheURL() const { return recorded_.package.waveformCacheDirectory() / "microphone.cswf"; }

    testing::TemporaryDirectory directory_;
    ProjectStore store_{directory_.path() / "Projects", testing::buildCatalog};
    testing::RecordedPackage recorded_;
    ProjectSnapshot snapshot_;
    WaveformService service_{std::stop_token{}};
};

template <class T>
T field(const std::string& bytes, std::size_t offset) {
    T value;
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
}

TEST_F(WaveformServiceTest, EnvelopeFollowsTheToneAndIsCachedInItsFileFormat) {
    const WaveformEnvelope envelope = service_.envelope(MediaTrackKind::microphone, snapshot_);
    EXPECT_EQ(envelope.kind, MediaTrackKind::microphone);
    // 3 s are 150 buckets; the codec may add a frame's worth at the end.
    ASSERT_GE(envelope.peaks.size(), 150u);
    ASSERT_LE(envelope.peaks.size(), 154u);
    for (const std::int64_t millisecond : {100, 500, 900, 2100, 2500, 2900}) {
        const double loudness = AudioActivityAnalyzer::peakDecibels(*envelope.peak(ms(millisecond)));
        EXPECT_NEAR(loudness, 20 * std::log10(0.3), 1.5) << millisecond;
    }
    // The codec's priming samples lie before time 0 and are not counted, so
    // the silence begins where it was written.
    EXPECT_LT(AudioActivityAnalyzer::peakDecibels(*envelope.peak(ms(1030))), -42);
    for (const std::int64_t millisecond : {1100, 1500, 1900}) {
        EXPECT_LT(AudioActivityAnalyzer::peakDecibels(*envelope.peak(ms(millisecond))), -60) << millisecond;
    }
    // A tone swings both ways within 20 ms.
    EXPECT_LT(envelope.peaks[10].minimum, -8000);
    EXPECT_GT(envelope.peaks[10].maximum, 8000);

    const std::string bytes = readFileBytes(cacheURL());
    ASSERT_EQ(bytes.size(), 40 + 4 * envelope.peaks.size());
    EXPECT_EQ(bytes.substr(0, 4), "CSWF");
    EXPECT_EQ(field<std::uint16_t>(bytes, 4), 1);
    const auto microphone =
        std::find_if(recorded_.manifest.media.tracks.begin(), recorded_.manifest.media.tracks.end(),
                     [](const MediaTrack& t) { return t.kind == MediaTrackKind::microphone; });
    EXPECT_EQ(field<std::uint16_t>(bytes, 6), microphone->trackIndex);
    EXPECT_EQ(field<std::uint64_t>(bytes, 8), fs::file_size(snapshot_.mediaURL()));
    EXPECT_EQ(field<std::int64_t>(bytes, 24), 20'000'000);
    EXPECT_EQ(field<std::int64_t>(bytes, 32), static_cast<std::int64_t>(envelope.peaks.size()));
    EXPECT_EQ(field<std::int16_t>(bytes, 40 + 40), envelope.peaks[10].minimum);
    EXPECT_EQ(field<std::int16_t>(bytes, 42 + 40), envelope.peaks[10].maximum);
    EXPECT_FALSE(fs::exists(recorded_.package.waveformCacheDirectory() / "systemAudio.cswf"));
}

TEST_F(WaveformServiceTest, TheCacheIsTrustedOnlyForTheSameMediaFileAndAWholeFile) {
    const WaveformEnvelope decoded = service_.envelope(MediaTrackKind::microphone, snapshot_);
    const std::string original = readFileBytes(cacheURL());

    // A cache whose peaks were changed but whose header still matches is
    // what the service answers with: it was read, not decoded.
    std::string forged = original;
    std::memset(forged.data() + 40, 0, forged.size() - 40);
    writeFileAtomically(cacheURL(), forged);
    const WaveformEnvelope cached = service_.envelope(MediaTrackKind::microphone, snapshot_);
    EXPECT_EQ(cached.peaks.size(), decoded.peaks.size());
    EXPECT_EQ(cached.peaks[10], (WaveformPeak{0, 0}));
    EXPECT_EQ(readFileBytes(cacheURL()), forged);

    // Truncated, foreign, or from another version: decoded again and rewritten.
    for (const std::string& damaged :
         {original.substr(0, original.size() - 2), original.substr(0, 39), std::string(original.size(), 'x'),
          original.substr(0, 4) + std::string("\x02\x00", 2) + original.substr(6)}) {
        writeFileAtomically(cacheURL(), damaged);
        EXPECT_EQ(service_.envelope(MediaTrackKind::microphone, snapshot_), decoded);
        EXPECT_EQ(readFileBytes(cacheURL()), original);
    }

    // Touching the media file changes its fingerprint: the forged peaks are
    // no longer trusted.
    writeFileAtomically(cacheURL(), forged);
    fs::last_write_time(snapshot_.mediaURL(),
                        fs::last_write_time(snapshot_.mediaURL()) + std::chrono::seconds(2));
    EXPECT_EQ(service_.envelope(MediaTrackKind::microphone, snapshot_), decoded);
    EXPECT_NE(readFileBytes(cacheURL()), forged);
}

TEST(WaveformCacheFile, BytesAreTrustedOnlyWhenTheyAreExactlyWhatTheWriterMakesForTheKey) {
    const WaveformCacheKey key{1, {48'213, 1'764'000'000'123'456'789}};
    const WaveformEnvelope envelope{MediaTrackKind::systemAudio, {{-5, 7}, {-32768, 32767}}};
    const std::string bytes = WaveformCacheFile::encode(key, envelope);
    EXPECT_EQ(WaveformCacheFile::decode(bytes, key, MediaTrackKind::systemAudio), envelope);

    const auto refused = [&](const std::string& candidate, const WaveformCacheKey& expected) {
        return testing::thrownCase<WaveformServiceError>([&] {
                   WaveformCacheFile::decode(candidate, expected, MediaTrackKind::systemAudio);
               }) == WaveformServiceError::Case::invalidCache;
    };
    EXPECT_TRUE(refused(bytes, {2, key.fingerprint}));
    EXPECT_TRUE(refused(bytes, {1, {48'213, 0}}));
    EXPECT_TRUE(refused(bytes + std::string(1, '\0'), key));
    // Peak counts that the file cannot hold: negative, one over the limit,
    // and the largest allowed over two peaks.
    for (const std::int64_t count :
         {std::int64_t{-1}, std::int64_t{2'147'483'648}, std::int64_t{2'147'483'647}}) {
        std::string claimed = bytes;
        std::memcpy(claimed.data() + 32, &count, sizeof count);
        EXPECT_TRUE(refused(claimed, key)) << count;
    }

    // The file reader reads what the header promises, and only then.
    testing::TemporaryDirectory directory;
    const fs::path file = directory.path() / "systemAudio.cswf";
    writeFileAtomically(file, bytes);
    EXPECT_EQ(WaveformCacheFile::read(file, key, MediaTrackKind::systemAudio), envelope);
    for (const std::string& damaged : {bytes.substr(0, bytes.size() - 1), bytes + "xxxx"}) {
        writeFileAtomically(file, damaged);
        EXPECT_EQ(testing::thrownCase<WaveformServiceError>(
                      [&] { WaveformCacheFile::read(file, key, MediaTrackKind::systemAudio); }),
                  WaveformServiceError::Case::invalidCache);
    }
}

TEST_F(WaveformServiceTest, TracksThatCannotGiveAWaveformFailWithTheirTexts) {
    EXPECT_EQ(testing::thrownMessage<WaveformServiceError>(
                  [&] { service_.envelope(MediaTrackKind::screen, snapshot_); }),
              "所选轨道不是可生成波形的音频轨道。");

    ProjectSnapshot withoutMicrophone = snapshot_;
    std::erase_if(withoutMicrophone.manifest.media.tracks,
                  [](const MediaTrack& t) { return t.kind == MediaTrackKind::microphone; });
    EXPECT_EQ(testing::thrownMessage<WaveformServiceError>(
                  [&] { service_.envelope(MediaTrackKind::microphone, withoutMicrophone); }),
              "无法读取音频轨道。");

    writeFileAtomically(snapshot_.mediaURL(), std::string(4096, 'x'));
    EXPECT_EQ(testing::thrownMessage<WaveformServiceError>(
                  [&] { service_.envelope(MediaTrackKind::microphone, snapshot_); }),
              "波形解码失败：Reader 无法启动");
    EXPECT_FALSE(fs::exists(cacheURL()));
}

TEST_F(WaveformServiceTest, ProgressEndsAtOneAndAStopRequestCancels) {
    std::vector<double> reported;
    service_.envelope(MediaTrackKind::systemAudio, snapshot_,
                      [&](double fraction) { reported.push_back(fraction); });
    ASSERT_FALSE(reported.empty());
    EXPECT_TRUE(std::is_sorted(reported.begin(), reported.end()));
    EXPECT_EQ(reported.back(), 1.0);

    std::stop_source stop;
    stop.request_stop();
    const WaveformService cancelled(stop.get_token());
    EXPECT_TRUE(testing::thrown<CancellationError>([&] {
                    cancelled.envelope(MediaTrackKind::microphone, snapshot_);
                }).has_value());
    EXPECT_FALSE(fs::exists(cacheURL()));
}

} // namespace
} // namespace rilo

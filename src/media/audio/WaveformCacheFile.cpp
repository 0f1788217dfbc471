#include "media/audio/WaveformCacheFile.h"

#include "media/audio/WaveformServiceError.h"
#include "shared/JsonNames.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <fstream>
#include <limits>
#include <sys/stat.h>

namespace rilo::WaveformCacheFile {

namespace {

static_assert(std::endian::native == std::endian::little,
              "the cache file is read and written without conversion");
static_assert(sizeof(WaveformPeak) == 4);

constexpr char magic[4] = {'C', 'S', 'W', 'F'};
constexpr std::int64_t distantPastNanoseconds = std::numeric_limits<std::int64_t>::min();
constexpr auto largestPeakCount = static_cast<std::int64_t>(std::numeric_limits<std::int32_t>::max());

std::uint16_t storedTrackIndex(std::int64_t trackIndex) noexcept {
    return static_cast<std::uint16_t>(std::clamp<std::int64_t>(trackIndex, 0, 65535));
}

template <class T>
void put(std::string& bytes, std::size_t offset, T value) noexcept {
    std::memcpy(bytes.data() + offset, &value, sizeof value);
}

template <class T>
T get(const char* bytes, std::size_t offset) noexcept {
    T value;
    std::memcpy(&value, bytes + offset, sizeof value);
    return value;
}

// The peak count of a header whose every field is what the key expects;
// invalidCache for anything shorter than a header or any other field.
std::int64_t checkedPeakCount(std::string_view bytes, const WaveformCacheKey& key) {
    if (bytes.size() < headerSize) {
        throw WaveformServiceError::invalidCache();
    }
    const char* header = bytes.data();
    const auto count = get<std::int64_t>(header, 32);
    if (std::memcmp(header, magic, sizeof magic) != 0 || get<std::uint16_t>(header, 4) != formatVersion ||
        get<std::uint16_t>(header, 6) != storedTrackIndex(key.trackIndex) ||
        get<std::uint64_t>(header, 8) != key.fingerprint.fileSizeBytes ||
        get<std::int64_t>(header, 16) != key.fingerprint.modificationNanoseconds ||
        get<std::int64_t>(header, 24) != waveformBucketDuration.nanoseconds || count < 0 ||
        count > largestPeakCount) {
        throw WaveformServiceError::invalidCache();
    }
    return count;
}

std::uintmax_t fileLength(std::int64_t peakCount) noexcept {
    return headerSize + static_cast<std::uintmax_t>(peakCount) * sizeof(WaveformPeak);
}

} // namespace

std::string fileName(MediaTrackKind kind) {
    return std::string(json::rawValue(kind)) + ".cswf";
}

WaveformMediaFingerprint fingerprint(const std::filesystem::path& mediaPath) {
    struct stat status {};
    if (::stat(mediaPath.c_str(), &status) != 0) {
        return {0, distantPastNanoseconds};
    }
    return {static_cast<std::uint64_t>(status.st_size),
            checkedAdd(checkedMultiply(status.st_mtim.tv_sec, 1'000'000'000), status.st_mtim.tv_nsec)};
}

std::string encode(const WaveformCacheKey& key, const WaveformEnvelope& envelope) {
    const auto count = static_cast<std::int64_t>(envelope.peaks.size());
    std::string bytes(headerSize + envelope.peaks.size() * sizeof(WaveformPeak), '\0');
    std::memcpy(bytes.data(), magic, sizeof magic);
    put<std::uint16_t>(bytes, 4, formatVersion);
    put<std::uint16_t>(bytes, 6, storedTrackIndex(key.trackIndex));
    put<std::uint64_t>(bytes, 8, key.fingerprint.fileSizeBytes);
    put<std::int64_t>(bytes, 16, key.fingerprint.modificationNanoseconds);
    put<std::int64_t>(bytes, 24, waveformBucketDuration.nanoseconds);
    put<std::int64_t>(bytes, 32, count);
    if (count > 0) {
        std::memcpy(bytes.data() + headerSize, envelope.peaks.data(),
                    envelope.peaks.size() * sizeof(WaveformPeak));
    }
    return bytes;
}

WaveformEnvelope decode(std::string_view bytes, const WaveformCacheKey& key, MediaTrackKind kind) {
    const std::int64_t count = checkedPeakCount(bytes, key);
    if (bytes.size() != fileLength(count)) {
        throw WaveformServiceError::invalidCache();
    }
    WaveformEnvelope envelope{kind, std::vector<WaveformPeak>(static_cast<std::size_t>(count))};
    if (count > 0) {
        std::memcpy(envelope.peaks.data(), bytes.data() + headerSize, bytes.size() - headerSize);
    }
    return envelope;
}

WaveformEnvelope read(const std::filesystem::path& cachePath, const WaveformCacheKey& key,
                      MediaTrackKind kind) {
    std::ifstream file(cachePath, std::ios::binary);
    std::string bytes(headerSize, '\0');
    if (!file || !file.read(bytes.data(), headerSize)) {
        throw WaveformServiceError::invalidCache();
    }
    // The header is checked before the file's length is trusted for a read.
    const std::uintmax_t length = fileLength(checkedPeakCount(bytes, key));
    std::error_code error;
    if (std::filesystem::file_size(cachePath, error) != length || error) {
        throw WaveformServiceError::invalidCache();
    }
    bytes.resize(length);
    const auto payloadBytes = static_cast<std::streamsize>(length - headerSize);
    if (!file.read(bytes.data() + headerSize, payloadBytes)) {
        throw WaveformServiceError::invalidCache();
    }
    return decode(bytes, key, kind);
}

} // namespace rilo::WaveformCacheFile

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

WaveformEnvelope read(const std::filesystem::path& cachePath, const WaveformCacheKey& key,
                      MediaTrackKind kind) {
    std::ifstream file(cachePath, std::ios::binary);
    char header[headerSize];
    if (!file || !file.read(header, headerSize)) {
        throw WaveformServiceError::invalidCache();
    }
    const auto count = get<std::int64_t>(header, 32);
    std::error_code error;
    const std::uintmax_t length = std::filesystem::file_size(cachePath, error);
    constexpr auto largestCount = static_cast<std::int64_t>(std::numeric_limits<std::int32_t>::max());
    if (error || std::memcmp(header, magic, sizeof magic) != 0 ||
        get<std::uint16_t>(header, 4) != formatVersion ||
        get<std::uint16_t>(header, 6) != storedTrackIndex(key.trackIndex) ||
        get<std::uint64_t>(header, 8) != key.fingerprint.fileSizeBytes ||
        get<std::int64_t>(header, 16) != key.fingerprint.modificationNanoseconds ||
        get<std::int64_t>(header, 24) != waveformBucketDuration.nanoseconds || count < 0 ||
        count > largestCount ||
        length != headerSize + static_cast<std::uintmax_t>(count) * sizeof(WaveformPeak)) {
        throw WaveformServiceError::invalidCache();
    }
    WaveformEnvelope envelope{kind, std::vector<WaveformPeak>(static_cast<std::size_t>(count))};
    const auto payloadBytes =
        static_cast<std::streamsize>(count * static_cast<std::int64_t>(sizeof(WaveformPeak)));
    if (!file.read(reinterpret_cast<char*>(envelope.peaks.data()), payloadBytes)) {
        throw WaveformServiceError::invalidCache();
    }
    return envelope;
}

} // namespace rilo::WaveformCacheFile

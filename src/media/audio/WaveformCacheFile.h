#pragma once

// The binary file in which a package keeps the envelope of one audio track,
// cache/waveforms/<kind>.cswf, guarded by the fingerprint of the media file.
// Little-endian throughout:
//
//   offset  size    field
//   0       4       magic "CSWF"
//   4       2       format version, 1 (unsigned)
//   6       2       track index in the movie, clamped to 0...65535 (unsigned)
//   8       8       media file size in bytes (unsigned)
//   16      8       media file modification time, ns since 1970 (signed)
//   24      8       bucket size in ns, 20000000 (signed)
//   32      8       peak count n (signed)
//   40      4 × n   minimum and maximum of each bucket (signed 16-bit pairs)
//
// A file is trusted only when every header field equals what is expected and
// its length is exactly 40 + 4 × n.

#include "media/analysis/WaveformEnvelope.h"
#include "project/document/MediaTrackKind.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace rilo {

// What identifies the media file an envelope was made from.
struct WaveformMediaFingerprint {
    std::uint64_t fileSizeBytes = 0;
    // Of the last modification; the distant past when the file has no date.
    std::int64_t modificationNanoseconds = 0;

    friend constexpr bool operator==(const WaveformMediaFingerprint&,
                                     const WaveformMediaFingerprint&) = default;
};

// The envelope's track and the media file it must match.
struct WaveformCacheKey {
    std::int64_t trackIndex = 0;
    WaveformMediaFingerprint fingerprint;

    friend constexpr bool operator==(const WaveformCacheKey&, const WaveformCacheKey&) = default;
};

namespace WaveformCacheFile {

inline constexpr std::size_t headerSize = 40;
inline constexpr std::uint16_t formatVersion = 1;

// "microphone.cswf" or "systemAudio.cswf".
std::string fileName(MediaTrackKind kind);

// The fingerprint of the file at the path: its size and modification time.
// A file that cannot be examined has size 0 and the distant past as its date.
WaveformMediaFingerprint fingerprint(const std::filesystem::path& mediaPath);

// The bytes of a cache file for the envelope.
std::string encode(const WaveformCacheKey& key, const WaveformEnvelope& envelope);

// The envelope in the bytes of a cache file, of the given kind. Throws
// WaveformServiceError::invalidCache when they are damaged, foreign, or made
// from another track or another media file.
WaveformEnvelope decode(std::string_view bytes, const WaveformCacheKey& key, MediaTrackKind kind);

// The envelope in the file, as decode reads its bytes; also invalidCache
// when the file is missing or unreadable. Reads no more than its header
// promises.
WaveformEnvelope read(const std::filesystem::path& cachePath, const WaveformCacheKey& key,
                      MediaTrackKind kind);

} // namespace WaveformCacheFile

} // namespace rilo

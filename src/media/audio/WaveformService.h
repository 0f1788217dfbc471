#pragma once

// Turns an audio track of a project's media file into its WaveformEnvelope,
// one minimum and maximum for every 20 ms. Decoding an hour of audio takes
// seconds, so each envelope is kept in the package's waveform cache
// (WaveformCacheFile), guarded by the media file's size and modification
// time: a changed media file, or a cache file that is damaged or foreign, is
// decoded again and the cache rewritten atomically.
//
// Decoding streams the track: memory stays at one decoded packet and the
// envelope (720 KB an hour), whatever the length. Requests run on the
// caller's thread, one at a time per service; the stop token is tested after
// every decoded packet and cancels with CancellationError. Failures throw
// WaveformServiceError and leave the cache as it was; failing to write the
// cache is not a failure.

#include "media/analysis/WaveformEnvelope.h"
#include "media/audio/WaveformServiceError.h"
#include "project/document/MediaTrackKind.h"
#include "project/store/ProjectSnapshot.h"

#include <filesystem>
#include <functional>
#include <stop_token>

namespace rilo {

class WaveformService {
public:
    // Told the share of the track decoded so far, from 0 to 1.
    using Progress = std::function<void(double fraction)>;

    explicit WaveformService(std::stop_token stopToken)
        : stopToken_(std::move(stopToken)) {}

    // The envelope of the snapshot's track of this kind. Throws
    // unsupportedTrack for the screen, cannotReadTrack when the manifest has
    // no such track, readerFailed when the media cannot be decoded.
    WaveformEnvelope envelope(MediaTrackKind kind, const ProjectSnapshot& snapshot) const;
    WaveformEnvelope envelope(MediaTrackKind kind, const ProjectSnapshot& snapshot,
                              const Progress& progress) const;

    // The envelope of the first track of an audio file outside any package,
    // such as the WAV handed to a transcriber; decoded each time, never
    // cached. Throws readerFailed when the file cannot be decoded and
    // unsupportedTrack when its first track is not audio.
    WaveformEnvelope fileEnvelope(MediaTrackKind kind, const std::filesystem::path& audioFile) const;

    // Where the envelope of a track of the package is kept.
    static std::filesystem::path cacheURL(const std::filesystem::path& packageURL, MediaTrackKind kind);

private:
    std::stop_token stopToken_;
};

} // namespace rilo

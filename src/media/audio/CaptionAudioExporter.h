#pragma once

// Writes one audio track of a project's media file as a small WAV for a
// transcriber outside the program: 16 kHz, one channel, signed 16-bit
// little-endian PCM. The whole track is written, cuts and all, because
// caption times are source times.
//
// The track streams through one decoded packet at a time, so memory does not
// grow with its length. Runs on the caller's thread; the stop token is tested
// after every packet and cancels with CancellationError. Failures throw
// CaptionAudioExporterError; a partial file may remain at the output path,
// which the caller treats as scratch.

#include "media/audio/CaptionAudioExporterError.h"
#include "project/document/MediaTrackKind.h"
#include "project/store/ProjectSnapshot.h"

#include <filesystem>
#include <stop_token>
#include <string>

namespace rilo::CaptionAudioExporter {

inline constexpr int sampleRate = 16'000;
inline constexpr int channelCount = 1;

// Replaces any file at `outputURL` with the WAV of the snapshot's track of
// this kind and returns the digest of the file's bytes. Throws missingTrack
// when the manifest has no such track, cannotRead when the media cannot be
// opened or decoded, cannotWrite when the WAV cannot be made or written, and
// cannotStart when decoding or writing cannot begin.
std::string exportTrack(const ProjectSnapshot& snapshot, MediaTrackKind track,
                        const std::filesystem::path& outputURL, const std::stop_token& stopToken);

} // namespace rilo::CaptionAudioExporter

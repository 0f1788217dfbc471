#pragma once

// Sound for the preview. An output plays the composition's mixed sound from
// a sequence position and tells the playback clock, as it goes, which
// position has been heard at which host time: the sound is the master clock
// of the preview, and the pictures follow it. It never resamples to keep in
// step; the pictures drop or repeat frames instead.
//
// start() and stop() are called from the main thread; the output feeds the
// sound server from a thread of its own. A stopped output can be started
// again from another position.

#include "media/CompositionAudioReader.h"
#include "playback/PlaybackClock.h"

#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>

namespace rilo {

class PlaybackAudioOutput {
public:
    virtual ~PlaybackAudioOutput() = default;

    // Plays what `reader` gives (its first frame sounds at sequence time
    // `start`), then silence, until stop(). Answers false when no sound can
    // be played (no server): the clock then runs on host time alone.
    virtual bool start(std::unique_ptr<CompositionAudioReader> reader, ProjectTime start,
                       PlaybackClock& clock) = 0;
    // Silences the output at once; what was queued is dropped.
    virtual void stop() = 0;
};

// Through PulseAudio (or PipeWire's PulseAudio server): a playback stream of
// 48 kHz float stereo with about 60 ms queued ahead. The clock follows the
// server's own account of the position the speaker plays, which stands
// still until the device has really started.
class PulseAudioPlaybackOutput final : public PlaybackAudioOutput {
public:
    // `server`: the server to reach, none for the one libpulse finds for this
    // session (PULSE_SERVER, client.conf, the user's runtime directory).
    explicit PulseAudioPlaybackOutput(std::optional<std::string> server);
    ~PulseAudioPlaybackOutput() override;

    bool start(std::unique_ptr<CompositionAudioReader> reader, ProjectTime start,
               PlaybackClock& clock) override;
    void stop() override;

private:
    struct Connection;

    std::optional<std::string> server_;
    std::shared_ptr<Connection> connection_;
    std::jthread feeder_;
};

} // namespace rilo

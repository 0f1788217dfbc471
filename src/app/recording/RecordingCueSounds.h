#pragma once

// The short sounds of a recording's launch ("countdown-tick",
// "recording-start"): WAV resources read with FFmpeg and played on the sound
// server's default output through PulseAudio.
//
// A sound is never an error. A resource that is missing or can't be decoded
// gives "提示音资源 <name>.wav 不可用，已静默继续。", an output that can't play
// gives "系统输出设备无法播放提示音 <name>.wav，已静默继续。", each time a sound is
// asked for; the caller goes on in silence.
//
// play() is called from one thread (the main thread) and returns at once;
// the sounds are played one after another on a thread of the player's own.
// The diagnostics handler is called on the caller's thread for a missing
// resource and on the player's thread for an output that fails. Destroying
// the player waits for the sound being played and drops those waiting.

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

namespace rilo {

class RecordingCueSounds {
public:
    using DiagnosticsHandler = std::function<void(const std::string& line)>;

    // Sound `name` is the file <directory>/<name>.wav.
    RecordingCueSounds(std::filesystem::path directory, DiagnosticsHandler diagnostics);
    ~RecordingCueSounds();
    RecordingCueSounds(const RecordingCueSounds&) = delete;
    RecordingCueSounds& operator=(const RecordingCueSounds&) = delete;

    // Plays at most the first `length` of the sound.
    void play(const std::string& name, std::chrono::milliseconds length);

    static std::string missingResourceNote(const std::string& name);
    static std::string outputFailureNote(const std::string& name);

private:
    // Interleaved signed 16-bit samples.
    struct Sound {
        int sampleRate = 0;
        int channelCount = 0;
        std::vector<std::int16_t> samples;
    };
    struct Request {
        std::string name;
        std::shared_ptr<const Sound> sound;
        std::size_t sampleCount = 0;
    };

    std::shared_ptr<const Sound> load(const std::string& name);
    void run(const std::stop_token& stop);
    void playNow(const Request& request) const;

    const std::filesystem::path directory_;
    const DiagnosticsHandler diagnostics_;
    // Caller's thread only; a failed read is not kept, so a resource put back is found.
    std::map<std::string, std::shared_ptr<const Sound>> loaded_;

    std::mutex lock_;
    std::condition_variable_any queued_;
    std::deque<Request> queue_;
    std::jthread player_;
};

} // namespace rilo

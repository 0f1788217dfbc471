#include "recorder/HeadlessRecorder.h"

#include "capture/CaptureContent.h"
#include "capture/ScreenRecordingSession.h"
#include "capture/pulse/PulseAudioDeviceService.h"
#include "capture/x11/X11CaptureContent.h"
#include "project/document/DeviceFrameCatalog.h"
#include "recorder/DesktopRecordingSession.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <mutex>
#include <thread>
#include <unistd.h>

namespace rilo::recorder {
namespace {

// "录制 00:05  帧 300  丢帧 0", redrawn in place on a terminal.
class StatusLine {
public:
    explicit StatusLine(int descriptor)
        : descriptor_(descriptor)
        , shown_(isatty(descriptor) == 1) {}
    ~StatusLine() { clear(); }
    StatusLine(const StatusLine&) = delete;
    StatusLine& operator=(const StatusLine&) = delete;

    void draw(ProjectTime elapsed, std::int64_t frames, std::int64_t dropped, bool paused) {
        if (!shown_) {
            return;
        }
        const std::int64_t seconds = elapsed.nanoseconds / 1'000'000'000;
        char text[160];
        const int length = std::snprintf(text, sizeof text, "\r\x1b[K%s %02lld:%02lld  帧 %lld  丢帧 %lld",
                                         paused ? "暂停" : "录制", static_cast<long long>(seconds / 60),
                                         static_cast<long long>(seconds % 60), static_cast<long long>(frames),
                                         static_cast<long long>(dropped));
        if (length > 0 && write(descriptor_, text, static_cast<std::size_t>(length)) > 0) {
            drawn_ = true;
        }
    }

    void clear() {
        if (drawn_ && write(descriptor_, "\r\x1b[K", 4) > 0) {
            drawn_ = false;
        }
    }

private:
    int descriptor_;
    bool shown_;
    bool drawn_ = false;
};

CaptureSourceDescriptor chooseSource(const x11::X11CaptureContent& content,
                                     const RecorderArguments& arguments) {
    const auto processID = static_cast<std::int32_t>(getpid());
    CaptureSourceDescriptor source;
    if (arguments.windowID) {
        source = content.window(*arguments.windowID, processID);
    } else if (arguments.area) {
        source = DisplayCaptureGeometry::croppedSource(content.display(std::nullopt), *arguments.area);
    } else {
        source = content.display(std::nullopt);
    }
    content.verifyOwnWindowsExcluded(source, processID);
    return source;
}

} // namespace

HeadlessRecordingResult recordDesktop(const RecorderArguments& arguments, std::stop_token stop,
                                      int statusDescriptor) {
    auto connection = std::make_shared<x11::X11Connection>(arguments.display);
    const x11::X11CaptureContent content(connection);
    const CaptureSourceDescriptor source = chooseSource(content, arguments);

    RecordingOptions options;
    options.capturesSystemAudio = arguments.capturesSystemAudio;
    options.capturesMicrophone = arguments.microphone.has_value();
    options.capturesWebcam = arguments.webcam.has_value();
    options.capturesMenuBar = true;
    options.framesPerSecond = arguments.framesPerSecond;
    options.webcamDeviceID = arguments.webcam;

    const PulseAudioDeviceService sound;
    std::optional<MicrophoneDeviceDescriptor> microphone;
    if (arguments.microphone) {
        microphone = sound.resolveMicrophone(*arguments.microphone == "default"
                                                 ? std::nullopt
                                                 : std::optional<std::string>(*arguments.microphone));
    }

    ProjectStore store(std::nullopt, DeviceFrameCatalog::bundled);
    std::mutex failureLock;
    std::optional<std::string> failure;
    std::stop_source failed;
    const std::unique_ptr<ScreenRecordingSession> recording =
        makeDesktopRecordingSession(store, connection, {source, options, microphone, WebcamOverlay{}}, sound,
                                    nullptr, [&](const std::string& message) {
                                        const std::lock_guard guard(failureLock);
                                        failure = message;
                                        failed.request_stop();
                                    });
    ScreenRecordingSession& session = *recording;
    try {
        session.start();
    } catch (...) {
        try {
            session.discard();
        } catch (...) {
            // The package is left to the library's cleanup.
        }
        throw;
    }

    StatusLine status(statusDescriptor);
    const auto deadline =
        arguments.seconds
            ? std::optional<ProjectTime>(ProjectTime{static_cast<std::int64_t>(*arguments.seconds * 1e9)})
            : std::nullopt;
    int round = 0;
    while (!stop.stop_requested() && !failed.stop_requested()) {
        const RecordingLiveStatus live = session.liveStatus();
        if (deadline && live.elapsed >= *deadline) {
            break;
        }
        if (++round % 10 == 0) {
            const RecordingMediaWriter::FrameCounts counts = session.liveFrameCounts();
            status.draw(live.elapsed, counts.written, counts.dropped, false);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    status.clear();

    if (failed.stop_requested()) {
        std::string message;
        {
            const std::lock_guard guard(failureLock);
            message = failure.value_or("");
        }
        session.fail(message);
        throw LocalizedError(message);
    }
    try {
        const RecordingSessionResult result = session.stop();
        return {result.snapshot.manifest.id, result.package.rootURL};
    } catch (const std::exception& error) {
        session.fail(error.what());
        throw;
    }
}

} // namespace rilo::recorder

#pragma once

// What a recording leaves behind about how it went: diagnostics/report.json.

#include "project/document/ProjectManifest.h"

#include <optional>
#include <string>
#include <vector>

namespace rilo {

struct DiagnosticReport {
    IsoDate generatedAt;
    Uuid projectID;
    std::string machine;
    std::string operatingSystem;
    std::optional<std::string> hostName;
    std::optional<std::string> microphoneDevice;
    std::optional<std::string> systemAudioOutputDevice;
    CaptureSourceDescriptor source;
    PixelSize encodedPixelSize;
    std::int64_t framesPerSecond = 60;
    std::optional<std::int64_t> queueDepth;
    std::optional<RecordingOptions> options;
    std::optional<ProjectTime> duration;
    RecordingMetrics metrics;
    std::optional<std::string> writerStatus; // "completed" after a normal end
    bool recovered = false;
    std::vector<std::string> notes;

    friend bool operator==(const DiagnosticReport&, const DiagnosticReport&) = default;

    // What the machine is, read when the report is made.
    struct MachineFacts {
        std::string machine;
        std::string operatingSystem;
        std::optional<std::string> hostName;
        std::optional<std::string> systemAudioOutputDevice;
    };

    // The report of a recording: the manifest's source, size, options,
    // duration and metrics (with its writer status), the microphone it
    // names, the machine's facts and the session's notes.
    static DiagnosticReport make(const ProjectManifest& manifest, bool recovered,
                                 std::vector<std::string> notes, const MachineFacts& facts,
                                 std::optional<std::int64_t> queueDepth);
};

} // namespace rilo

namespace rilo::json {

template <>
struct Codec<DiagnosticReport> {
    static DiagnosticReport decode(const Json& value, const std::string& path);
    static Json encode(const DiagnosticReport& report);
};

} // namespace rilo::json

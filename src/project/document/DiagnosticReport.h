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
};

} // namespace rilo

namespace rilo::json {

template <>
struct Codec<DiagnosticReport> {
    static DiagnosticReport decode(const Json& value, const std::string& path);
    static Json encode(const DiagnosticReport& report);
};

} // namespace rilo::json

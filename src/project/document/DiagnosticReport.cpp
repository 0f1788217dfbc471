#include "project/document/DiagnosticReport.h"

#include "shared/ValueCodecs.h"

namespace rilo {

DiagnosticReport DiagnosticReport::make(const ProjectManifest& manifest, bool recovered,
                                        std::vector<std::string> notes, const MachineFacts& facts,
                                        std::optional<std::int64_t> queueDepth) {
    DiagnosticReport report;
    report.generatedAt = IsoDate::now();
    report.projectID = manifest.id;
    report.machine = facts.machine;
    report.operatingSystem = facts.operatingSystem;
    report.hostName = facts.hostName;
    if (manifest.microphone) {
        report.microphoneDevice = manifest.microphone->deviceName;
    }
    if (manifest.options.capturesSystemAudio) {
        report.systemAudioOutputDevice = facts.systemAudioOutputDevice;
    }
    report.source = manifest.source;
    report.encodedPixelSize = manifest.encodedPixelSize;
    report.framesPerSecond = manifest.options.framesPerSecond;
    report.queueDepth = queueDepth;
    report.options = manifest.options;
    report.duration = manifest.duration;
    report.metrics = manifest.metrics;
    report.writerStatus = manifest.metrics.writerStatus;
    report.recovered = recovered;
    report.notes = std::move(notes);
    return report;
}

} // namespace rilo

namespace rilo::json {

DiagnosticReport Codec<DiagnosticReport>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    DiagnosticReport report;
    report.generatedAt = reader.required<IsoDate>("generatedAt");
    report.projectID = reader.required<Uuid>("projectID");
    report.machine = reader.required<std::string>("machine");
    report.operatingSystem = reader.required<std::string>("operatingSystem");
    report.hostName = reader.optional<std::string>("hostName");
    report.microphoneDevice = reader.optional<std::string>("microphoneDevice");
    report.systemAudioOutputDevice = reader.optional<std::string>("systemAudioOutputDevice");
    report.source = reader.required<CaptureSourceDescriptor>("source");
    report.encodedPixelSize = reader.required<PixelSize>("encodedPixelSize");
    report.framesPerSecond = reader.required<std::int64_t>("framesPerSecond");
    report.queueDepth = reader.optional<std::int64_t>("queueDepth");
    report.options = reader.optional<RecordingOptions>("options");
    report.duration = reader.optional<ProjectTime>("duration");
    report.metrics = reader.required<RecordingMetrics>("metrics");
    report.writerStatus = reader.optional<std::string>("writerStatus");
    report.recovered = reader.required<bool>("recovered");
    report.notes = reader.required<std::vector<std::string>>("notes");
    return report;
}

Json Codec<DiagnosticReport>::encode(const DiagnosticReport& report) {
    return ObjectBuilder()
        .set("generatedAt", report.generatedAt)
        .set("projectID", report.projectID)
        .set("machine", report.machine)
        .set("operatingSystem", report.operatingSystem)
        .setIfPresent("hostName", report.hostName)
        .setIfPresent("microphoneDevice", report.microphoneDevice)
        .setIfPresent("systemAudioOutputDevice", report.systemAudioOutputDevice)
        .set("source", report.source)
        .set("encodedPixelSize", report.encodedPixelSize)
        .set("framesPerSecond", report.framesPerSecond)
        .setIfPresent("queueDepth", report.queueDepth)
        .setIfPresent("options", report.options)
        .setIfPresent("duration", report.duration)
        .set("metrics", report.metrics)
        .setIfPresent("writerStatus", report.writerStatus)
        .set("recovered", report.recovered)
        .set("notes", report.notes)
        .build();
}

} // namespace rilo::json

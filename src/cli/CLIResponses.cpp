#include "cli/CLIResponses.h"

#include "shared/ValueCodecs.h"

namespace rilo::json {

Json Codec<cli::CLIValidationDetails>::encode(const cli::CLIValidationDetails& details) {
    return ObjectBuilder()
        .set("operation", details.operation)
        .set("requestedRange", details.requestedRange)
        .setIfPresent("zoomID", details.zoomID)
        .set("normalizedCuts", details.normalizedCuts)
        .build();
}

Json Codec<cli::CLIErrorResponse>::encode(const cli::CLIErrorResponse& response) {
    return ObjectBuilder()
        .set("protocolVersion", response.protocolVersion)
        .set("error", response.error)
        .set("message", response.message)
        .setIfPresent("details", response.details)
        .build();
}

Json Codec<cli::CLIProjectSummary>::encode(const cli::CLIProjectSummary& summary) {
    return ObjectBuilder()
        .set("id", summary.id)
        .set("title", summary.title)
        .set("packagePath", summary.packagePath)
        .set("durationMilliseconds", summary.durationMilliseconds)
        .set("hasWebcam", summary.hasWebcam)
        .set("updatedAt", summary.updatedAt)
        .build();
}

} // namespace rilo::json

#include "cli/RiloCLI.h"

#include "cli/CLIArgumentParser.h"
#include "cli/CLIIdleError.h"
#include "cli/ProjectCommandService.h"
#include "cli/ProjectOutputCommands.h"
#include "cli/SystemCapabilityInspector.h"
#include "cli/exchange/EditPlanError.h"
#include "project/document/TimelineEffectError.h"
#include "project/document/TimelineValidationError.h"
#include "project/engine/TimelineEditError.h"
#include "project/engine/TimelinePlanError.h"
#include "project/engine/TimelineSettingsError.h"
#include "project/engine/TimelineSpeedError.h"
#include "project/store/ProjectStore.h"

#include <cerrno>
#include <string_view>
#include <unistd.h>

namespace rilo::cli {

namespace {

// Writes everything, retrying short writes; a stream that cannot be written
// leaves the exit code as the only result.
void writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t n = ::write(fd, bytes.data(), bytes.size());
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            return;
        }
        bytes.remove_prefix(static_cast<std::size_t>(n));
    }
}

void writeText(std::string_view text) {
    std::string bytes(text);
    bytes.push_back('\n');
    writeAll(STDOUT_FILENO, bytes);
}

// Runs the handler of a parsed command. A command whose handler this build
// does not have fails as an execution error, after its arguments were
// accepted.
// Commands whose handlers are not in this build still resolve their project
// first, so that an unknown or ambiguous prefix reports as such.
struct Dispatcher {
    ProjectStore& store;
    ProjectCommandService& service;
    ProjectOutputCommands outputs;

    json::Json operator()(const command::List&) const { return json::encode(service.list()); }
    json::Json operator()(const command::Help&) const { return {}; }
    json::Json operator()(const command::SystemInfo&) const {
        return json::encode(SystemCapabilityInspector::inspect(store.projectsDirectoryURL()));
    }
    json::Json operator()(const command::Describe& c) const {
        return json::encode(service.describe(c.projectID));
    }
    json::Json operator()(const command::Idle& c) const {
        return json::encode(service.idle(c.projectID, c.minimumMilliseconds, c.silenceDecibels, c.track,
                                         c.keepTailMilliseconds, c.minimumRemovalMilliseconds));
    }
    json::Json operator()(const command::History& c) const {
        return json::encode(service.history(c.projectID));
    }
    json::Json operator()(const command::CaptionsRead& c) const {
        return json::encode(service.readCaptions(c.projectID));
    }
    json::Json operator()(const command::CaptionsPrepare& c) const {
        return json::encode(service.prepareCaptions(c.projectID, c.track));
    }
    json::Json operator()(const command::CaptionsImport& c) const {
        return json::encode(service.importCaptions(c.request));
    }
    json::Json operator()(const command::EditPlanPrepare& c) const {
        return json::encode(service.prepareEditPlan(c.projectID));
    }
    json::Json operator()(const command::EditPlan& c) const {
        return json::encode(service.executeEditPlan(c.request));
    }
    json::Json operator()(const command::Mutate& c) const { return json::encode(service.mutate(c.request)); }
    json::Json operator()(const command::Frame& c) const { return json::encode(outputs.frame(c)); }
    json::Json operator()(const command::Preview& c) const { return json::encode(outputs.preview(c)); }
    json::Json operator()(const command::Export& c) const { return json::encode(outputs.exportProject(c)); }

    [[noreturn]] json::Json unavailable(const std::string& projectID, const std::string& word) const {
        store.project(projectID);
        throw CLICommandUnavailableError(word);
    }
};

} // namespace

int RiloCLI::run(const std::vector<std::string>& arguments, std::stop_token stopToken) {
    try {
        const CLICommand command = CLIArgumentParser::parse(arguments);
        if (const auto* help = std::get_if<command::Help>(&command)) {
            writeText(help->topic ? AgentHelpCatalog::text(*help->topic) : AgentHelpCatalog::generalText());
            return 0;
        }
        ProjectStore store(std::nullopt, DeviceFrameCatalog::bundled);
        ProjectCommandService service(store, stopToken);
        const json::Json response =
            std::visit(Dispatcher{store, service, ProjectOutputCommands(service, store, stopToken)}, command);
        writeJSON(response);
        return 0;
    } catch (const CancellationError& cancelled) {
        writeError("cancelled", cancelled.message(), std::nullopt);
        return 130;
    } catch (const std::exception& error) {
        const CLIErrorClassification classification = classify(error);
        writeError(classification.code, error.what(), validationDetails(error));
        return classification.exitCode;
    }
}

void RiloCLI::writeJSON(const json::Json& response) {
    std::string bytes = json::write(response, json::JsonStyle::commandLine);
    bytes.push_back('\n');
    writeAll(STDOUT_FILENO, bytes);
}

void RiloCLI::writeError(const std::string& code, const std::string& message,
                         const std::optional<CLIValidationDetails>& details) {
    std::string bytes;
    try {
        bytes = json::encodeDocument(CLIErrorResponse{cliProtocolVersion, code, message, details});
    } catch (const std::exception&) {
        return;
    }
    bytes.push_back('\n');
    writeAll(STDERR_FILENO, bytes);
}

CLIErrorClassification RiloCLI::classify(const std::exception& error) {
    if (dynamic_cast<const CLIArgumentError*>(&error) != nullptr) {
        return {"invalid_arguments", 1};
    }
    if (const auto* store = dynamic_cast<const ProjectStoreError*>(&error)) {
        switch (store->errorCase()) {
        case ProjectStoreError::Case::projectNotFound:
        case ProjectStoreError::Case::ambiguousProjectPrefix:
            return {"project_not_found", 2};
        case ProjectStoreError::Case::timelineDigestConflict:
            return {"timeline_conflict", 3};
        case ProjectStoreError::Case::captionsDigestConflict:
            return {"captions_conflict", 3};
        case ProjectStoreError::Case::historyNotFound:
            return {"validation", 4};
        default:
            return {"project_store", 5};
        }
    }
    if (const auto* plan = dynamic_cast<const EditPlanValidationError*>(&error)) {
        return plan->isConflict() ? CLIErrorClassification{"edit_plan_conflict", 3}
                                  : CLIErrorClassification{"validation", 4};
    }
    if (dynamic_cast<const CLIIdleError*>(&error) != nullptr ||
        dynamic_cast<const TimelineEffectError*>(&error) != nullptr ||
        dynamic_cast<const TimelineSettingsError*>(&error) != nullptr ||
        dynamic_cast<const TimelineEditError*>(&error) != nullptr ||
        dynamic_cast<const TimelineSpeedError*>(&error) != nullptr ||
        dynamic_cast<const TimelineValidationError*>(&error) != nullptr ||
        dynamic_cast<const TimelinePlanError*>(&error) != nullptr) {
        return {"validation", 4};
    }
    return {"execution", 5};
}

std::optional<CLIValidationDetails> RiloCLI::validationDetails(const std::exception& error) {
    // Only a zoom outside the retained content of an edit plan carries details.
    const auto* plan = dynamic_cast<const TimelinePlanError*>(&error);
    if (plan == nullptr || plan->errorCase() != TimelinePlanError::Case::zoomOutsideRetainedContent ||
        !plan->range()) {
        return std::nullopt;
    }
    CLIValidationDetails details;
    details.operation = "zoom";
    details.requestedRange = CLIRange::from(*plan->range());
    if (plan->zoomID()) {
        details.zoomID = plan->zoomID()->string();
    }
    for (const ProjectTimeRange& cut : plan->normalizedCuts()) {
        details.normalizedCuts.push_back(CLIRange::from(cut));
    }
    return details;
}

} // namespace rilo::cli

#pragma once

// What one command line asks for, as parsed by CLIArgumentParser.

#include "cli/CLIRange.h"
#include "cli/agent/AgentHelpCatalog.h"
#include "export/ExportConfiguration.h"
#include "project/document/MediaTrackKind.h"
#include "shared/Geometry.h"
#include "shared/ProjectTime.h"
#include "shared/Uuid.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <variant>

namespace rilo::cli {

// Which clock a range on the command line is read on: the finished video's
// (the default) or the recording's.
enum class CLITimeDomain { sequence, source };

// One change to the timeline of a project, as asked for by a mutation command.
namespace mutation {
struct Cut {
    CLIRange range;
    CLITimeDomain domain = CLITimeDomain::sequence;
    friend bool operator==(const Cut&, const Cut&) = default;
};
struct Speed {
    CLIRange range;
    CLITimeDomain domain = CLITimeDomain::sequence;
    TimelinePlaybackRate rate;
    friend bool operator==(const Speed&, const Speed&) = default;
};
struct ZoomAdd {
    CLIRange range;
    CLITimeDomain domain = CLITimeDomain::sequence;
    double level = 1.8;
    std::optional<PointValue> focus;
    friend bool operator==(const ZoomAdd&, const ZoomAdd&) = default;
};
// Exactly one of the two: one zoom by its index, or all of them.
struct ZoomRemove {
    std::optional<std::int64_t> index;
    bool all = false;
    friend bool operator==(const ZoomRemove&, const ZoomRemove&) = default;
};
// Settings keys to their values as typed, applied by the settings engine.
struct Settings {
    std::map<std::string, std::string> values;
    friend bool operator==(const Settings&, const Settings&) = default;
};
struct RestoreHistory {
    std::int64_t index = 0;
    friend bool operator==(const RestoreHistory&, const RestoreHistory&) = default;
};
struct ZoomRegenerate {
    friend bool operator==(const ZoomRegenerate&, const ZoomRegenerate&) = default;
};
} // namespace mutation

using CLIMutation = std::variant<mutation::Cut, mutation::Speed, mutation::ZoomAdd, mutation::ZoomRemove,
                                 mutation::Settings, mutation::RestoreHistory, mutation::ZoomRegenerate>;

// A single timeline change: previewed unless `appliesChanges`, in which case
// `expectedDigest` is the timeline digest the preview answered with.
struct CLIMutationRequest {
    std::string projectID;
    CLIMutation mutation;
    bool appliesChanges = false;
    std::optional<std::string> expectedDigest;
    friend bool operator==(const CLIMutationRequest&, const CLIMutationRequest&) = default;
};

struct CLICaptionImportRequest {
    std::string projectID;
    Uuid jobID;
    bool alignsAudio = false;
    bool appliesChanges = false;
    std::optional<std::string> expectedTimelineDigest;
    std::optional<std::string> expectedCaptionsDigest;
    friend bool operator==(const CLICaptionImportRequest&, const CLICaptionImportRequest&) = default;
};

struct CLIEditPlanRequest {
    std::string projectID;
    Uuid jobID;
    bool appliesChanges = false;
    std::optional<std::string> expectedTimelineDigest;
    std::optional<std::string> expectedCaptionsDigest;
    std::optional<std::string> expectedPlanDigest;
    friend bool operator==(const CLIEditPlanRequest&, const CLIEditPlanRequest&) = default;
};

namespace command {
struct Help {
    std::optional<CLIAgentHelpTopic> topic;
    friend bool operator==(const Help&, const Help&) = default;
};
struct SystemInfo {
    friend bool operator==(const SystemInfo&, const SystemInfo&) = default;
};
struct List {
    friend bool operator==(const List&, const List&) = default;
};
// Commands that name one project by the start of its id, as typed.
struct Describe {
    std::string projectID;
    friend bool operator==(const Describe&, const Describe&) = default;
};
struct Idle {
    std::string projectID;
    std::int64_t minimumMilliseconds = 1500;
    double silenceDecibels = -42;
    std::optional<MediaTrackKind> track; // none: the analysis chooses
    std::int64_t keepTailMilliseconds = 500;
    std::int64_t minimumRemovalMilliseconds = 150;
    friend bool operator==(const Idle&, const Idle&) = default;
};
struct History {
    std::string projectID;
    friend bool operator==(const History&, const History&) = default;
};
struct CaptionsRead {
    std::string projectID;
    friend bool operator==(const CaptionsRead&, const CaptionsRead&) = default;
};
struct CaptionsPrepare {
    std::string projectID;
    MediaTrackKind track = MediaTrackKind::microphone;
    friend bool operator==(const CaptionsPrepare&, const CaptionsPrepare&) = default;
};
struct CaptionsImport {
    CLICaptionImportRequest request;
    friend bool operator==(const CaptionsImport&, const CaptionsImport&) = default;
};
struct EditPlanPrepare {
    std::string projectID;
    friend bool operator==(const EditPlanPrepare&, const EditPlanPrepare&) = default;
};
struct EditPlan {
    CLIEditPlanRequest request;
    friend bool operator==(const EditPlan&, const EditPlan&) = default;
};
struct Mutate {
    CLIMutationRequest request;
    friend bool operator==(const Mutate&, const Mutate&) = default;
};
// Output commands write to `outputURL`: an absolute path as typed, or a bare
// name under the default export directory.
struct Frame {
    std::string projectID;
    std::int64_t milliseconds = 0;
    std::filesystem::path outputURL;
    std::int64_t width = 1280;
    bool replace = false;
    friend bool operator==(const Frame&, const Frame&) = default;
};
struct Preview {
    std::string projectID;
    CLIRange range;
    std::filesystem::path outputURL;
    bool replace = false;
    friend bool operator==(const Preview&, const Preview&) = default;
};
struct Export {
    std::string projectID;
    ExportConfiguration configuration;
    std::filesystem::path outputURL;
    bool replace = false;
    friend bool operator==(const Export&, const Export&) = default;
};
} // namespace command

using CLICommand =
    std::variant<command::Help, command::SystemInfo, command::List, command::Describe, command::Idle,
                 command::History, command::CaptionsRead, command::CaptionsPrepare, command::CaptionsImport,
                 command::EditPlanPrepare, command::EditPlan, command::Mutate, command::Frame,
                 command::Preview, command::Export>;

// The word of the command line that names a mutation ("cut", "zoom-rm", ...).
std::string commandWord(const CLIMutation& mutation);

} // namespace rilo::cli

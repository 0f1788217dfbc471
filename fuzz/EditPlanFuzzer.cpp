// An agent's edit-plan.json as edit-plan-preview reads it
// (EditPlanExchange::decodeDocument), turned into the plan of the timeline
// engine with the manifest's source duration (domainPlan) and applied to the
// timeline of a project that was never edited and to one that was
// (TimelinePlanEngine::apply), with the clicks that decide a zoom's focus.
// The preview echoes the decoded operations, so the document must write and
// read back unchanged. Refusals are the errors that the plan and the engines
// it composes document.

#include "FuzzSupport.h"
#include "cli/exchange/EditPlanError.h"
#include "cli/exchange/EditPlanExchange.h"
#include "project/document/TimelineCodecs.h"
#include "project/document/TimelineEffectError.h"
#include "project/document/TimelineValidationError.h"
#include "project/engine/TimelineEditError.h"
#include "project/engine/TimelinePlanEngine.h"
#include "project/engine/TimelineSettingsError.h"
#include "project/engine/TimelineSpeedError.h"

#include <array>
#include <limits>
#include <optional>

namespace {

using namespace rilo;

// What a manifest may say about the recording: a short one with a webcam
// (the end-to-end tests' length), one that does not end on a whole
// millisecond, a day long, and the longest it can hold. The engines number
// the 60 fps frame grid of the recording, which ends a few years in: longer
// media can only be forged, and the engines stop on it, as on any overflow
// of time arithmetic. Plans for it are only converted.
struct Source {
    ProjectTime duration;
    bool hasWebcam = false;
    bool isApplied = true;
};
constexpr std::array sources{
    Source{ProjectTime::fromMilliseconds(12'000), true},
    Source{ProjectTime{10'000'999'999}, false},
    Source{ProjectTime::fromSeconds(86'400), true},
    Source{ProjectTime{std::numeric_limits<std::int64_t>::max()}, false, false},
};
const PixelSize sourceSize{1920, 1080};

MouseEvent click(std::int64_t milliseconds, double x, double y) {
    MouseEvent event;
    event.time = ProjectTime::fromMilliseconds(milliseconds);
    event.normalizedPoint = {x, y};
    event.button = MouseButton::left;
    event.phase = MousePhase::down;
    return event;
}

const std::vector<MouseEvent>& clicks() {
    static const std::vector<MouseEvent> events{click(2000, 0.3, 0.3), click(7000, 0.7, 0.6)};
    return events;
}

// Runs the plan; nothing when it is refused with an error the engine
// documents. Anything else escapes.
std::optional<TimelinePlanResult> applied(const TimelineEditPlan& plan, const EditTimeline& timeline,
                                          const Source& source) {
    try {
        return TimelinePlanEngine::apply(plan, timeline, source.duration, source.hasWebcam, sourceSize,
                                         clicks());
    } catch (const TimelinePlanError&) {
    } catch (const TimelineEditError&) {
    } catch (const TimelineSpeedError&) {
    } catch (const TimelineEffectError&) {
    } catch (const TimelineSettingsError&) {
    } catch (const TimelineValidationError&) {
    }
    return std::nullopt;
}

// The timelines a plan meets for the source: the whole recording as a
// fresh project has it, and one with a cut, a faster stretch and a zoom.
std::array<EditTimeline, 2> timelinesFor(const Source& source) {
    const EditTimeline fresh = EditTimeline{}.normalized(source.duration, source.hasWebcam);
    TimelineEditPlan edits;
    edits.cuts = {{ProjectTime::fromMilliseconds(1000), ProjectTime::fromMilliseconds(500)}};
    edits.speedChanges = {
        {{ProjectTime::fromMilliseconds(3000), ProjectTime::fromMilliseconds(1000)}, {2000}}};
    edits.zoomAdds = {
        {{ProjectTime::fromMilliseconds(5000), ProjectTime::fromMilliseconds(2000)}, 2, std::nullopt}};
    const std::optional<TimelinePlanResult> edited = applied(edits, fresh, source);
    if (!edited) {
        fuzz::finding("the plan that makes the edited timeline is refused");
    }
    return {fresh, edited->timeline};
}

const std::array<std::array<EditTimeline, 2>, sources.size()>& timelines() {
    static const auto all = [] {
        std::array<std::array<EditTimeline, 2>, sources.size()> result;
        for (std::size_t index = 0; index < sources.size(); ++index) {
            if (sources[index].isApplied) {
                result[index] = timelinesFor(sources[index]);
            }
        }
        return result;
    }();
    return all;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    cli::EditPlanExchangeDocument document;
    try {
        document = cli::EditPlanExchange::decodeDocument(fuzz::inputText(data, size));
    } catch (const cli::EditPlanValidationError&) {
        return 0;
    }
    fuzz::requireRoundTrip(document, "edit plan");
    for (std::size_t index = 0; index < sources.size(); ++index) {
        const Source& source = sources[index];
        TimelineEditPlan plan;
        try {
            plan = document.domainPlan(source.duration);
        } catch (const cli::EditPlanValidationError&) {
            continue;
        } catch (const TimelinePlanError&) {
            continue;
        }
        if (!source.isApplied) {
            continue;
        }
        for (const EditTimeline& timeline : timelines()[index]) {
            if (const auto result = applied(plan, timeline, source)) {
                fuzz::requireRoundTrip(result->timeline, "timeline of an applied edit plan");
            }
        }
    }
    return 0;
}

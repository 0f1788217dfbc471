#pragma once

#include "shared/Errors.h"
#include "shared/ProjectTime.h"
#include "shared/Uuid.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace rilo {

// The cases of TimelinePlanError.
enum class TimelinePlanErrorCase {
    zoomOutsideRetainedContent,
    empty,
    tooManyOperations,
    cutOutsideRetainedContent,
};

// Failures of an edit plan as a whole. A zoom outside the retained content
// carries what the command line reports about it: the offending source range,
// the id of the zoom when it is an existing one, and the plan's merged cuts.
class TimelinePlanError : public CaseError<TimelinePlanErrorCase> {
public:
    static TimelinePlanError zoomOutsideRetainedContent(const ProjectTimeRange& range,
                                                        const std::optional<Uuid>& zoomID,
                                                        std::vector<ProjectTimeRange> normalizedCuts) {
        TimelinePlanError error(Case::zoomOutsideRetainedContent);
        error.range_ = range;
        error.zoomID_ = zoomID;
        error.normalizedCuts_ = std::move(normalizedCuts);
        return error;
    }

    // The source range of zoomOutsideRetainedContent; none for the other cases.
    const std::optional<ProjectTimeRange>& range() const noexcept { return range_; }
    // The existing zoom concerned; none for a planned zoom and the other cases.
    const std::optional<Uuid>& zoomID() const noexcept { return zoomID_; }
    // The plan's merged cuts, in order; empty for the other cases.
    const std::vector<ProjectTimeRange>& normalizedCuts() const noexcept { return normalizedCuts_; }

public:
    explicit TimelinePlanError(Case errorCase)
        : CaseError(errorCase, messageFor(errorCase)) {}

private:
    static std::string messageFor(Case errorCase) {
        switch (errorCase) {
        case Case::zoomOutsideRetainedContent:
            return "镜头区间必须完整位于剪切后保留的内容中。";
        case Case::empty:
            return "剪辑计划至少需要一项操作。";
        case Case::tooManyOperations:
            return "剪辑计划操作数量超过500项。";
        case Case::cutOutsideRetainedContent:
            return "剪切区间没有覆盖当前保留内容。";
        }
        return "剪辑计划至少需要一项操作。";
    }

    std::optional<ProjectTimeRange> range_;
    std::optional<Uuid> zoomID_;
    std::vector<ProjectTimeRange> normalizedCuts_;
};

} // namespace rilo

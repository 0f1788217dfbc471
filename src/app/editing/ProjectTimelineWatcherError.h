#pragma once

#include "shared/Errors.h"

#include <string>

namespace rilo {

// The cases of ProjectTimelineWatcherError.
enum class ProjectTimelineWatcherErrorCase {
    cannotOpenDirectory,
};

// The watcher of a package directory could not start.
class ProjectTimelineWatcherError : public CaseError<ProjectTimelineWatcherErrorCase> {
public:
    explicit ProjectTimelineWatcherError(Case errorCase)
        : CaseError(errorCase, messageFor(errorCase)) {}

private:
    static std::string messageFor(Case errorCase) {
        switch (errorCase) {
        case Case::cannotOpenDirectory:
            return "无法监听项目目录的变化。";
        }
        return "无法监听项目目录的变化。";
    }
};

} // namespace rilo

#pragma once

// What the parts of AppModel share inside the model: the hop to the store
// thread and back, and the results that cross it.

#include "app/model/AppModel.h"

#include <exception>
#include <string>

namespace rilo {

// The text a person sees for a failure.
inline std::string describeFailure(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const std::exception& error) {
        return error.what();
    } catch (...) {
        return "未知错误";
    }
}

template <class Failure>
bool failureIs(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const Failure&) {
        return true;
    } catch (...) {
        return false;
    }
}

inline bool isDigestConflict(const std::exception_ptr& failure, ProjectStoreErrorCase conflict) {
    try {
        std::rethrow_exception(failure);
    } catch (const ProjectStoreError& error) {
        return error.errorCase() == conflict;
    } catch (...) {
        return false;
    }
}

// A project as the editor opens it: the snapshot with the digests of the
// documents it was read with.
struct AppModel::OpenedProject {
    ProjectSnapshot snapshot;
    std::optional<DiagnosticReport> report;
    std::string timelineDigest;
    std::string captionsDigest;
};

struct AppModel::BootstrapOutcome {
    std::optional<std::string> cleanupFailure;
    std::vector<std::string> recoveryFailures;
    std::int64_t recoverableCount = 0;
    std::vector<RecentProject> recentProjects;
    // The latest project recovered, to be shown.
    std::optional<OpenedProject> latestRecovered;
};

template <class Result>
void AppModel::onStore(std::function<Result(ProjectStore&)> work,
                       std::function<void(std::optional<Result>, std::exception_ptr)> done) {
    if (!projectStore_) {
        return;
    }
    std::weak_ptr<AppModel*> weak = alive_;
    storeQueue_.async([store = projectStore_, work = std::move(work), done = std::move(done), weak,
                       &loop = mainRunLoop_]() mutable {
        auto result = std::make_shared<std::optional<Result>>();
        std::exception_ptr failure;
        try {
            result->emplace(work(*store));
        } catch (...) {
            failure = std::current_exception();
        }
        loop.post([weak, done = std::move(done), result, failure]() {
            if (weak.lock()) {
                done(std::move(*result), failure);
            }
        });
    });
}

} // namespace rilo

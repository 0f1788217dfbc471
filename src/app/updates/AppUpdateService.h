#pragma once

// Speaks to the update endpoint. `feedURL` is the location of the metadata
// of the newest version, a setting of the deployment (empty: this build
// does not look for updates); the catalog of release notes is
// "release-notes.json" beside it. Nothing is ever downloaded or installed:
// the result names the download, which the person opens in a browser.
//
// checkForUpdate() blocks on the calling thread. startCheck() runs the same
// check on a worker thread that the service owns and hands the outcome to
// `completion` through the main-thread poster; one check runs at a time, and
// a new start cancels the one under way (its outcome is dropped). The
// destructor cancels the check under way and waits for its thread (at most
// about a second: libcurl looks at the stop request once a second while
// idle); a completion already posted still runs, so it must hold only what
// outlives the service or check that it does.

#include "app/updates/AppUpdateHttp.h"
#include "app/updates/AppUpdateModels.h"
#include "app/updates/AppVersion.h"
#include "shared/MainThreadPoster.h"

#include <exception>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>

namespace rilo::app {

// What a check found: a newer version, none (`availableUpdate` empty), or a
// failure (AppUpdateError, AppUpdateConnectionError or CancellationError).
struct AppUpdateCheckOutcome {
    std::optional<AvailableAppUpdate> availableUpdate;
    std::exception_ptr failure;
};

class AppUpdateService {
public:
    using Completion = std::function<void(AppUpdateCheckOutcome)>;

    AppUpdateService(std::string feedURL, AppUpdateTransportLimits limits, MainThreadPoster poster);
    ~AppUpdateService();
    AppUpdateService(const AppUpdateService&) = delete;
    AppUpdateService& operator=(const AppUpdateService&) = delete;

    bool isConfigured() const noexcept { return !feedURL_.empty(); }
    const std::string& feedURL() const noexcept { return feedURL_; }

    // The newest version if it is newer than `current`, with its note when
    // the catalog has one (a catalog that cannot be fetched or read only
    // leaves the note out). Throws AppUpdateError::httpStatus for a status
    // other than 2xx, invalidResponse for an answer that is not JSON,
    // invalidMetadata for JSON that is not metadata (or whose version or
    // download cannot be read), AppUpdateConnectionError when the endpoint
    // cannot be reached, and CancellationError on a stop.
    std::optional<AvailableAppUpdate> checkForUpdate(const AppVersion& current,
                                                     std::stop_token stopToken) const;

    void startCheck(AppVersion current, Completion completion);
    void cancel();

private:
    std::optional<ReleaseNote> fetchReleaseNote(const std::string& version, std::stop_token stopToken) const;

    std::string feedURL_;
    AppUpdateTransportLimits limits_;
    MainThreadPoster poster_;
    std::string userAgent_;
    std::jthread worker_;
};

} // namespace rilo::app

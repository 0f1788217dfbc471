#pragma once

// The state of the update check that the interface shows: the newer version
// on offer, whether a check is under way, the notice after a manual check,
// and the message when the download could not be opened. It lives on the
// main thread; every method is called there and the observer is called
// there after any change of what the accessors return. The transport runs
// on the service's worker thread and its outcome comes back through the
// main-thread poster; an outcome that arrives after the controller is gone
// is dropped.
//
// `currentVersion` is the running program's version; when it is empty or
// not a version, a manual check ends at once with a notice and an automatic
// one does nothing. With an empty `feedURL` this build does not look for
// updates: both checks do nothing.
//
// Only a manual check tells about its end: "已是最新版本", or "无法检查更新"
// with the failure. An automatic check runs once per start of the program,
// at most once in 86400 seconds ("updates.lastAutomaticCheckAt" in the
// user defaults), and is silent except for publishing a newer version.
//
// openDownload() hands the download's URL to `openURL`, which throws
// AppUpdateError::cannotOpenBrowser when it cannot; the message is then in
// openErrorMessage(). Nothing is ever installed.

#include "app/settings/UserDefaults.h"
#include "app/updates/AppUpdateModels.h"
#include "app/updates/AppUpdateService.h"
#include "shared/IsoDate.h"
#include "shared/MainThreadPoster.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace rilo::app {

class AppUpdateController {
public:
    enum class Activity {
        idle,
        checking,
    };

    using URLOpener = std::function<void(const std::string& url)>;

    static constexpr std::int64_t automaticCheckIntervalSeconds = 86400;

    AppUpdateController(UserDefaults& defaults, std::string feedURL, std::string currentVersion,
                        AppUpdateTransportLimits limits, MainThreadPoster poster, URLOpener openURL);
    ~AppUpdateController();
    AppUpdateController(const AppUpdateController&) = delete;
    AppUpdateController& operator=(const AppUpdateController&) = delete;

    const std::optional<AvailableAppUpdate>& availableUpdate() const noexcept { return availableUpdate_; }
    Activity activity() const noexcept { return activity_; }
    const std::optional<std::string>& openErrorMessage() const noexcept { return openErrorMessage_; }
    const std::optional<AppUpdateNotice>& notice() const noexcept { return notice_; }
    bool requestedAutomaticCheck() const noexcept { return requestedAutomaticCheck_; }
    bool isConfigured() const noexcept { return service_.isConfigured(); }

    void setObserver(std::function<void()> observer) { observer_ = std::move(observer); }

    // The check the person starts. While an automatic check is under way it
    // becomes this one, and tells about its end.
    void checkForUpdates();
    // The check at start: the first call of a run only, and only when the
    // last automatic check is 86400 seconds or more before `now` (or in the
    // future of `now`, after a change of the clock).
    void checkAutomatically(IsoDate now);
    // Opens the download of the available update in the browser.
    void openDownload();

    void dismissNotice();
    void dismissOpenErrorMessage();

private:
    void start(bool isManual);
    void finish(AppUpdateCheckOutcome outcome);
    void publishNotice(std::string title, std::string message);
    void changed() const;

    UserDefaults& defaults_;
    std::string currentVersion_;
    URLOpener openURL_;
    AppUpdateService service_;

    std::optional<AvailableAppUpdate> availableUpdate_;
    Activity activity_ = Activity::idle;
    std::optional<std::string> openErrorMessage_;
    std::optional<AppUpdateNotice> notice_;
    bool requestedAutomaticCheck_ = false;
    bool checkIsManual_ = false;
    std::uint64_t nextNoticeID_ = 1;
    std::function<void()> observer_;
    // Outcomes posted to the main thread hold a weak reference to this, so
    // that one arriving after the controller is gone does nothing.
    std::shared_ptr<AppUpdateController*> lifetime_;
};

} // namespace rilo::app

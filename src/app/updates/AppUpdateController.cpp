#include "app/updates/AppUpdateController.h"

#include "app/updates/AppUpdateError.h"

namespace rilo::app {
namespace {

constexpr const char* lastAutomaticCheckKey = "updates.lastAutomaticCheckAt";

} // namespace

AppUpdateController::AppUpdateController(UserDefaults& defaults, std::string feedURL,
                                         std::string currentVersion, AppUpdateTransportLimits limits,
                                         MainThreadPoster poster, URLOpener openURL)
    : defaults_(defaults)
    , currentVersion_(std::move(currentVersion))
    , openURL_(std::move(openURL))
    , service_(std::move(feedURL), limits, std::move(poster))
    , lifetime_(std::make_shared<AppUpdateController*>(this)) {}

AppUpdateController::~AppUpdateController() {
    lifetime_.reset();
    service_.cancel();
}

void AppUpdateController::checkForUpdates() {
    if (!service_.isConfigured()) {
        return;
    }
    if (activity_ == Activity::checking) {
        checkIsManual_ = true;
        return;
    }
    start(true);
}

void AppUpdateController::checkAutomatically(IsoDate now) {
    if (requestedAutomaticCheck_ || !service_.isConfigured()) {
        return;
    }
    requestedAutomaticCheck_ = true;
    if (const auto last = defaults_.date(lastAutomaticCheckKey)) {
        const std::int64_t elapsedSeconds = now.secondsSinceEpoch - last->secondsSinceEpoch;
        if (elapsedSeconds >= 0 && elapsedSeconds < automaticCheckIntervalSeconds) {
            return;
        }
    }
    if (activity_ == Activity::checking || !AppVersion::parse(currentVersion_)) {
        return;
    }
    try {
        defaults_.setDate(lastAutomaticCheckKey, now);
    } catch (const FileError&) {
        // Unable to remember the check only means the next start checks again.
    }
    start(false);
}

void AppUpdateController::start(bool isManual) {
    const auto current = currentVersion_.empty() ? std::nullopt : AppVersion::parse(currentVersion_);
    if (!current) {
        if (isManual) {
            publishNotice("无法检查更新", currentVersion_.empty()
                                              ? "无法读取当前应用版本。"
                                              : AppUpdateError::invalidCurrentVersion().message());
            changed();
        }
        return;
    }
    checkIsManual_ = isManual;
    activity_ = Activity::checking;
    std::weak_ptr<AppUpdateController*> weakLifetime = lifetime_;
    service_.startCheck(*current, [weakLifetime](AppUpdateCheckOutcome outcome) {
        if (const auto lifetime = weakLifetime.lock()) {
            (*lifetime)->finish(std::move(outcome));
        }
    });
    changed();
}

void AppUpdateController::finish(AppUpdateCheckOutcome outcome) {
    activity_ = Activity::idle;
    if (outcome.failure) {
        try {
            std::rethrow_exception(outcome.failure);
        } catch (const CancellationError&) {
        } catch (const LocalizedError& error) {
            if (checkIsManual_) {
                publishNotice("无法检查更新", error.message());
            }
        } catch (const std::exception& error) {
            if (checkIsManual_) {
                publishNotice("无法检查更新", error.what());
            }
        }
    } else if (outcome.availableUpdate) {
        availableUpdate_ = std::move(outcome.availableUpdate);
    } else {
        availableUpdate_.reset();
        if (checkIsManual_) {
            publishNotice("已是最新版本", "当前安装的 Rilo " + currentVersion_ + " 已是最新版本。");
        }
    }
    checkIsManual_ = false;
    changed();
}

void AppUpdateController::openDownload() {
    if (!availableUpdate_) {
        return;
    }
    try {
        openURL_(availableUpdate_->downloadURL);
        openErrorMessage_.reset();
    } catch (const AppUpdateError& error) {
        openErrorMessage_ = error.message();
    }
    changed();
}

void AppUpdateController::dismissNotice() {
    notice_.reset();
    changed();
}

void AppUpdateController::dismissOpenErrorMessage() {
    openErrorMessage_.reset();
    changed();
}

void AppUpdateController::publishNotice(std::string title, std::string message) {
    notice_ =
        AppUpdateNotice{.id = nextNoticeID_++, .title = std::move(title), .message = std::move(message)};
}

void AppUpdateController::changed() const {
    if (observer_) {
        observer_();
    }
}

} // namespace rilo::app

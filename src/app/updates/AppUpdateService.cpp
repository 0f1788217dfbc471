#include "app/updates/AppUpdateService.h"

#include "app/updates/AppUpdateError.h"
#include "shared/Json.h"
#include "shared/ValueCodecs.h"

namespace rilo::app {
namespace {

constexpr const char* releaseNotesCatalogName = "release-notes.json";

HttpAnswer fetch(const std::string& url, const AppUpdateTransportLimits& limits, std::size_t maximumBodyBytes,
                 const std::string& userAgent, std::stop_token stopToken) {
    return httpGet(url, limits.connectTimeout, limits.totalTimeout, maximumBodyBytes, userAgent,
                   std::move(stopToken));
}

bool isSuccess(long statusCode) {
    return statusCode >= 200 && statusCode < 300;
}

} // namespace

AppUpdateService::AppUpdateService(std::string feedURL, AppUpdateTransportLimits limits,
                                   MainThreadPoster poster)
    : feedURL_(std::move(feedURL))
    , limits_(limits)
    , poster_(std::move(poster))
    , userAgent_("Rilo-UpdateCheck") {}

AppUpdateService::~AppUpdateService() {
    cancel();
}

std::optional<AvailableAppUpdate> AppUpdateService::checkForUpdate(const AppVersion& current,
                                                                   std::stop_token stopToken) const {
    const HttpAnswer answer = fetch(feedURL_, limits_, limits_.maximumMetadataBytes, userAgent_, stopToken);
    if (!isSuccess(answer.statusCode)) {
        throw AppUpdateError::httpStatus(answer.statusCode);
    }
    json::Json document;
    try {
        document = json::parse(answer.body);
    } catch (const json::DecodingError&) {
        throw AppUpdateError::invalidResponse();
    }
    AppUpdateMetadata metadata;
    try {
        metadata = json::decode<AppUpdateMetadata>(document);
    } catch (const json::DecodingError&) {
        throw AppUpdateError::invalidMetadata();
    }
    const auto remoteVersion = AppVersion::parse(metadata.version);
    if (!remoteVersion) {
        throw AppUpdateError::invalidMetadata();
    }
    if (!(*remoteVersion > current)) {
        return std::nullopt;
    }
    const auto downloadURL = resolveHttpURL(feedURL_, metadata.key);
    if (!downloadURL) {
        throw AppUpdateError::invalidMetadata();
    }
    auto releaseNote = fetchReleaseNote(metadata.version, stopToken);
    return AvailableAppUpdate{
        .metadata = std::move(metadata), .releaseNote = std::move(releaseNote), .downloadURL = *downloadURL};
}

std::optional<ReleaseNote> AppUpdateService::fetchReleaseNote(const std::string& version,
                                                              std::stop_token stopToken) const {
    const auto catalogURL = resolveHttpURL(feedURL_, releaseNotesCatalogName);
    if (!catalogURL) {
        return std::nullopt;
    }
    try {
        const HttpAnswer answer =
            fetch(*catalogURL, limits_, limits_.maximumReleaseNotesBytes, userAgent_, std::move(stopToken));
        if (!isSuccess(answer.statusCode)) {
            return std::nullopt;
        }
        return json::decodeDocument<ReleaseNotesCatalog>(answer.body).note(version);
    } catch (const CancellationError&) {
        throw;
    } catch (const LocalizedError&) {
        // The notes are a courtesy: without them the update is still offered.
        return std::nullopt;
    }
}

void AppUpdateService::startCheck(AppVersion current, Completion completion) {
    cancel();
    worker_ = std::jthread([this, current = std::move(current),
                            completion = std::move(completion)](std::stop_token stopToken) mutable {
        AppUpdateCheckOutcome outcome;
        try {
            outcome.availableUpdate = checkForUpdate(current, stopToken);
        } catch (...) {
            outcome.failure = std::current_exception();
        }
        if (stopToken.stop_requested()) {
            return;
        }
        poster_([completion = std::move(completion), outcome = std::move(outcome)]() mutable {
            completion(std::move(outcome));
        });
    });
}

void AppUpdateService::cancel() {
    if (worker_.joinable()) {
        worker_.request_stop();
        worker_.join();
    }
}

} // namespace rilo::app

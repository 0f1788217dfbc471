#include "app/updates/ReleaseNotesPresentation.h"

#include "app/updates/AppVersion.h"

namespace rilo::app {
namespace {

constexpr const char* highestLaunchedKey = "releaseNotes.highestLaunchedMarketingVersion";
constexpr const char* lastPresentedKey = "releaseNotes.lastPresentedMarketingVersion";

} // namespace

std::optional<ReleaseNote>
ReleaseNotesPresentation::noteToPresentAtLaunch(UserDefaults& defaults, const std::string& runningVersion,
                                                const ReleaseNotesCatalog& catalog) {
    const auto running = AppVersion::parse(runningVersion);
    if (!running) {
        return std::nullopt;
    }
    const auto highestText = defaults.string(highestLaunchedKey);
    if (!highestText) {
        // A fresh installation: this version's notes count as seen.
        defaults.set(highestLaunchedKey, runningVersion);
        defaults.set(lastPresentedKey, runningVersion);
        return std::nullopt;
    }
    const auto highest = AppVersion::parse(*highestText);
    if (highest && *running < *highest) {
        return std::nullopt;
    }
    if (!highest || *running > *highest) {
        defaults.set(highestLaunchedKey, runningVersion);
    }
    const auto lastPresented = defaults.string(lastPresentedKey);
    const auto lastPresentedVersion = lastPresented ? AppVersion::parse(*lastPresented) : std::nullopt;
    if (lastPresentedVersion == running) {
        return std::nullopt;
    }
    auto note = catalog.note(runningVersion);
    if (note) {
        defaults.set(lastPresentedKey, runningVersion);
    }
    return note;
}

} // namespace rilo::app

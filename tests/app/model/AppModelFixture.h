#pragma once

// An application model over a library in a temporary data directory, turned
// by a manual run loop on the test's thread, with players made without sound
// and the user defaults in the data directory. It records the desktop of
// `desktop` when a test gives one; without, it never connects to a display.

#include "app/model/AppModel.h"
#include "capture/RecordingMachineFacts.h"
#include "shared/Files.h"
#include "shared/Uuid.h"
#include "support/BuildCatalog.h"
#include "support/CliLibraryTest.h"
#include "support/RecordedPackage.h"
#include "support/TestPaths.h"

#include <chrono>
#include <gtest/gtest.h>
#include <memory>
#include <ostream>

namespace rilo {

// Phases as test failures show them: "countingDown(2)", "failed(…)".
inline void PrintTo(const AppModelPhase& phase, std::ostream* out) {
    static constexpr const char* names[] = {"loading",      "idle",      "openingProject", "validating",
                                            "countingDown", "preparing", "recording",      "finalizing",
                                            "ready",        "failed"};
    *out << names[static_cast<int>(phase.kind)];
    if (phase.kind == AppModelPhase::Kind::countingDown) {
        *out << '(' << phase.countdownSecondsLeft << ')';
    } else if (phase.kind == AppModelPhase::Kind::failed) {
        *out << '(' << phase.failureMessage << ')';
    }
}

} // namespace rilo

namespace rilo::testing {

using namespace std::chrono_literals;

class AppModelTest : public CliLibraryTest {
protected:
    static constexpr std::chrono::milliseconds patience = 60s;

    ManualRunLoop loop;
    TemporaryDirectory coverCache;
    std::shared_ptr<UserDefaults> userDefaults = std::make_shared<UserDefaults>(dataHome / "settings.json");
    std::shared_ptr<x11::X11Connection> desktop;
    std::unique_ptr<AppModel> model;

    // How the players are made; a test may wrap it.
    AppModelEnvironment::PlayerFactory makePlayer = [this](const ProjectSnapshot& snapshot) {
        return ProjectPlayer::make(snapshot, std::nullopt, std::nullopt, {loop.poster(), nullptr});
    };

    void TearDown() override { model.reset(); }

    AppModelEnvironment environment() {
        AppModelEnvironment environment;
        environment.libraryDirectory = library;
        environment.deviceFrameCatalog = buildCatalog;
        environment.deviceFrameResourceDirectory = buildDirectory();
        environment.coverCacheDirectory = coverCache.path();
        environment.makePlayer = [this](const ProjectSnapshot& snapshot) { return makePlayer(snapshot); };
        environment.machineFacts = [] { return currentMachineFacts(std::nullopt); };
        environment.desktop = desktop;
        environment.soundsDirectory = buildDirectory() / "sounds";
        environment.userDefaults = userDefaults;
        return environment;
    }

    // Makes the model as the desktop does at start: bootstrapping on its own.
    void startModel() {
        model = std::make_unique<AppModel>(loop, environment(), false, true);
        ASSERT_TRUE(waitFor([&] { return model->phase().kind != AppModelPhase::Kind::loading; }));
    }

    // What a crash during a discard leaves: a package still being removed.
    std::filesystem::path makeDiscardedRecording() const {
        const std::filesystem::path discarded = library / (Uuid::random().string() + ".rilo.discarding");
        std::filesystem::create_directories(discarded / "media");
        writeFileAtomically(discarded / "media/recording.mov", "left over");
        return discarded;
    }

    // What a crash during a recording leaves: a package never finished.
    RecordedPackage makeInterruptedRecording() {
        RecordedPackageOptions options;
        options.finished = false;
        return makeRecordedPackage(store, options);
    }

    template <class Condition>
    bool waitFor(Condition condition, std::chrono::milliseconds limit = patience) {
        return loop.runUntil(condition, limit);
    }

    // Turns the loop for a while, whatever happens.
    void settle(std::chrono::milliseconds duration) {
        loop.runUntil([] { return false; }, duration);
    }

    bool isReady() const {
        return model->phase().kind == AppModelPhase::Kind::ready && model->timelineSession() &&
               model->player() && !model->isRebuildingTimeline();
    }

    // Waveforms, thumbnails and the webcam's stretches have arrived.
    bool mediaLoaded() const {
        return !model->waveformProgress() && !model->timelineWaveforms().empty() &&
               !model->timelineThumbnails().empty() && model->webcamAvailability().has_value();
    }

    // Opens the project through the library, as a click in the list does.
    void open(const ProjectPackage& package) {
        ASSERT_TRUE(waitFor([&] { return listed(package).has_value(); }));
        model->openProject(*listed(package));
        ASSERT_TRUE(waitFor([&] { return isReady(); }));
    }

    std::optional<RecentProject> listed(const ProjectPackage& package) const {
        for (const RecentProject& project : model->recentProjects()) {
            if (project.packageURL == package.rootURL) {
                return project;
            }
        }
        return std::nullopt;
    }

    EditTimeline timelineOnDisk(const ProjectPackage& package) const {
        const ProjectManifest manifest = store.readManifest(package);
        return store.readTimeline(package, manifest.duration, manifest.webcam.has_value());
    }

    // Leaves the editor; answers what finishEditingAndReturnToRecentProjects answered.
    std::optional<bool> finishEditing() {
        std::optional<bool> answer;
        model->finishEditingAndReturnToRecentProjects([&](bool left) { answer = left; });
        EXPECT_TRUE(waitFor([&] { return answer.has_value(); }));
        return answer;
    }
};

} // namespace rilo::testing

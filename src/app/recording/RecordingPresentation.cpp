#include "app/recording/RecordingPresentation.h"

namespace rilo::RecordingPresentation {

std::optional<RecordingPresentationMode> mode(const RecordingPhase& phase, bool showsProject) noexcept {
    switch (phase.kind) {
    case RecordingPhase::Kind::countingDown:
        return RecordingPresentationMode::countdown;
    case RecordingPhase::Kind::validating:
    case RecordingPhase::Kind::preparing:
        return std::nullopt;
    case RecordingPhase::Kind::recording:
        return RecordingPresentationMode::hud;
    case RecordingPhase::Kind::finalizing:
    case RecordingPhase::Kind::failed:
        return RecordingPresentationMode::mainWindow;
    case RecordingPhase::Kind::idle:
        break;
    }
    // The panel goes; the editor keeps the main window as it was.
    return showsProject ? RecordingPresentationMode::editorWindow : RecordingPresentationMode::mainWindow;
}

} // namespace rilo::RecordingPresentation

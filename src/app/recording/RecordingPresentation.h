#pragma once

// Which windows a phase of the recording wants: the decisions only; the
// windows themselves belong to the interface. While a recording runs the
// main window gives way to a small control panel (the HUD), during the
// countdown to the countdown panel; the editor takes over once a project is
// shown.
//
// The interface raises RecordingPresentationError when it can't find the
// main window or a screen for a panel; the flow ends the recording (or the
// countdown) with its text (RecordingFlow::handleRecordingPresentationFailure).

#include "app/recording/RecordingPhase.h"
#include "shared/Errors.h"

#include <optional>

namespace rilo {

enum class RecordingPresentationMode { mainWindow, editorWindow, countdown, hud };

enum class RecordingPresentationErrorCase { mainWindowUnavailable, targetScreenUnavailable };

class RecordingPresentationError : public CaseError<RecordingPresentationErrorCase> {
public:
    static RecordingPresentationError mainWindowUnavailable() {
        return {Case::mainWindowUnavailable, "无法取得 Rilo 主窗口，已停止录制。"};
    }
    static RecordingPresentationError targetScreenUnavailable() {
        return {Case::targetScreenUnavailable, "无法确定录制控制台所在屏幕，已停止录制。"};
    }

private:
    using CaseError::CaseError;
};

namespace RecordingPresentation {

// The arrangement for the phase, or nothing where the windows stay as they
// are (while validating and preparing). `showsProject` is true once the
// application shows a project in the editor.
std::optional<RecordingPresentationMode> mode(const RecordingPhase& phase, bool showsProject) noexcept;

} // namespace RecordingPresentation

} // namespace rilo

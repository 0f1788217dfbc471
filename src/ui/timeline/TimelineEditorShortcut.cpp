#include "ui/timeline/TimelineEditorShortcut.h"

namespace rilo {

std::optional<TimelineEditorShortcut>
TimelineEditorShortcuts::resolve(TimelineKey key, std::string_view charactersIgnoringModifiers,
                                 TimelineKeyModifiers modifiers, bool textFieldHasFocus) noexcept {
    if (textFieldHasFocus || modifiers.option) {
        return std::nullopt;
    }
    const bool isZ = charactersIgnoringModifiers == "z" || charactersIgnoringModifiers == "Z";
    if (modifiers.command) {
        if (key == TimelineKey::other && isZ) {
            return modifiers.shift ? TimelineEditorShortcut::redo : TimelineEditorShortcut::undo;
        }
        return std::nullopt;
    }
    switch (key) {
    case TimelineKey::space:
        return TimelineEditorShortcut::togglePlayback;
    case TimelineKey::leftArrow:
        return TimelineEditorShortcut::backward;
    case TimelineKey::rightArrow:
        return TimelineEditorShortcut::forward;
    case TimelineKey::deleteBackward:
    case TimelineKey::deleteForward:
        return TimelineEditorShortcut::deleteSelection;
    case TimelineKey::other:
        break;
    }
    if (charactersIgnoringModifiers == "b" && !modifiers.shift) {
        return TimelineEditorShortcut::split;
    }
    return std::nullopt;
}

} // namespace rilo

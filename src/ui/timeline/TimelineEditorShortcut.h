#pragma once

// The keyboard shortcuts of the timeline editor, resolved from a key press
// described without toolkit types. The view translates its key event into a
// TimelineKey, the text of the key without modifiers, and the modifiers;
// `command` is the platform's command modifier (Ctrl on Linux).

#include <optional>
#include <string_view>

namespace rilo {

enum class TimelineKey { space, leftArrow, rightArrow, deleteBackward, deleteForward, other };

struct TimelineKeyModifiers {
    bool command = false;
    bool shift = false;
    bool option = false;

    friend bool operator==(const TimelineKeyModifiers&, const TimelineKeyModifiers&) = default;
};

enum class TimelineEditorShortcut { togglePlayback, backward, forward, split, deleteSelection, undo, redo };

namespace TimelineEditorShortcuts {

// Space plays or pauses, the arrows step back and forward, both delete keys
// delete the selection, "b" splits, command-z undoes and command-shift-z
// redoes. The plain keys do nothing with command or option held, and no key
// is a shortcut while a text field has focus (it is typing).
std::optional<TimelineEditorShortcut> resolve(TimelineKey key, std::string_view charactersIgnoringModifiers,
                                              TimelineKeyModifiers modifiers,
                                              bool textFieldHasFocus) noexcept;

} // namespace TimelineEditorShortcuts

} // namespace rilo

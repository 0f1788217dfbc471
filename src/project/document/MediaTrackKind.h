#pragma once

// The kinds of track a recording's media file may hold.

#include "shared/JsonNames.h"

#include <array>
#include <string_view>
#include <utility>

namespace rilo {

enum class MediaTrackKind {
    screen,
    systemAudio,
    microphone,
};

} // namespace rilo

namespace rilo::json {

template <>
struct EnumNames<MediaTrackKind> {
    static constexpr std::array<std::pair<MediaTrackKind, std::string_view>, 3> entries{{
        {MediaTrackKind::screen, "screen"},
        {MediaTrackKind::systemAudio, "systemAudio"},
        {MediaTrackKind::microphone, "microphone"},
    }};
};

} // namespace rilo::json

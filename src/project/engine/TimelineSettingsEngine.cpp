#include "project/engine/TimelineSettingsEngine.h"

#include "project/document/TimelineEffects.h"
#include "project/engine/TimelineEffectEngine.h"
#include "shared/Json.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <locale.h>
#include <string_view>

namespace rilo::TimelineSettingsEngine {

namespace {

// ---- Value readers ----

bool readBoolean(const std::string& key, const std::string& text) {
    std::string lowered = text;
    std::transform(lowered.begin(), lowered.end(), lowered.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    if (lowered == "true" || lowered == "on" || lowered == "1") {
        return true;
    }
    if (lowered == "false" || lowered == "off" || lowered == "0") {
        return false;
    }
    throw TimelineSettingsError::invalidValue(key);
}

locale_t cLocale() {
    static const locale_t locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
    return locale;
}

bool isCBlank(char c) noexcept {
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

double readNumber(const std::string& key, const std::string& text) {
    // strtod would skip leading blanks; they are refused instead.
    if (text.empty() || isCBlank(text.front())) {
        throw TimelineSettingsError::invalidValue(key);
    }
    char* end = nullptr;
    const double number = strtod_l(text.c_str(), &end, cLocale());
    // An embedded NUL also ends the parse early and is refused here.
    if (end != text.c_str() + text.size() || !std::isfinite(number)) {
        throw TimelineSettingsError::invalidValue(key);
    }
    return number;
}

double readClampedNumber(const std::string& key, const std::string& text, ValueLimits limits) {
    return limits.clamped(readNumber(key, text));
}

template <json::NamedEnum E>
E readWord(const std::string& key, const std::string& text) {
    if (const std::optional<E> parsed = json::enumFromRaw<E>(text)) {
        return *parsed;
    }
    throw TimelineSettingsError::invalidValue(key);
}

ClickEffectStyle readClickEffectStyle(const std::string& key, const std::string& text) {
    // The older word for the same style.
    if (text == "soft-glow") {
        return ClickEffectStyle::solidPulse;
    }
    return readWord<ClickEffectStyle>(key, text);
}

// ---- The key table ----

using TimelineSetter = void (*)(EditTimeline&, const std::string& key, const std::string& text);

struct TimelineKey {
    std::string_view key;
    TimelineSetter apply;
};

// Keys outside the webcam, in ascending order.
constexpr std::array<TimelineKey, 12> timelineKeys{{
    {"audio.microphone.gain-db",
     [](EditTimeline& t, const std::string& k, const std::string& v) {
         t.audioMix.microphone.gainDecibels = readClampedNumber(k, v, AudioTrackEdit::gainDecibelLimits);
     }},
    {"audio.microphone.muted",
     [](EditTimeline& t, const std::string& k, const std::string& v) {
         t.audioMix.microphone.isMuted = readBoolean(k, v);
     }},
    {"audio.system.gain-db",
     [](EditTimeline& t, const std::string& k, const std::string& v) {
         t.audioMix.systemAudio.gainDecibels = readClampedNumber(k, v, AudioTrackEdit::gainDecibelLimits);
     }},
    {"audio.system.muted", [](EditTimeline& t, const std::string& k,
                              const std::string& v) { t.audioMix.systemAudio.isMuted = readBoolean(k, v); }},
    {"canvas.aspect", [](EditTimeline& t, const std::string& k,
                         const std::string& v) { t.canvas.aspectRatio = readWord<CanvasAspectRatio>(k, v); }},
    {"canvas.background",
     [](EditTimeline& t, const std::string& k, const std::string& v) {
         t.canvas.background = readWord<CanvasBackground>(k, v);
     }},
    {"canvas.padding",
     [](EditTimeline& t, const std::string& k, const std::string& v) {
         t.canvas.padding = readClampedNumber(k, v, CanvasEdit::paddingLimits);
     }},
    {"canvas.radius",
     [](EditTimeline& t, const std::string& k, const std::string& v) {
         t.canvas.cornerRadius = CanvasCornerRadiusRules::snapped(readNumber(k, v));
     }},
    {"cursor.click-ripple", [](EditTimeline& t, const std::string& k,
                               const std::string& v) { t.cursor.showsClickEffect = readBoolean(k, v); }},
    {"cursor.click-style",
     [](EditTimeline& t, const std::string& k, const std::string& v) {
         t.cursor.clickEffectStyle = readClickEffectStyle(k, v);
     }},
    {"cursor.scale",
     [](EditTimeline& t, const std::string& k, const std::string& v) {
         t.cursor.scale = readClampedNumber(k, v, CursorEdit::scaleLimits);
     }},
    {"cursor.show", [](EditTimeline& t, const std::string& k,
                       const std::string& v) { t.cursor.isVisible = readBoolean(k, v); }},
}};

using WebcamSetter = void (*)(WebcamOverlay&, const std::string& key, const std::string& text);

struct WebcamKey {
    std::string_view key;
    WebcamSetter apply;
    // Whether the center is kept on the canvas afterwards.
    bool constrains;
};

constexpr std::string_view webcamPrefix = "webcam.";

// The webcam keys, in ascending order.
constexpr std::array<WebcamKey, 11> webcamKeys{{
    {"webcam.aspect-ratio",
     [](WebcamOverlay& w, const std::string& k, const std::string& v) {
         w.aspectRatio = readWord<WebcamAspectRatio>(k, v);
     },
     true},
    {"webcam.border",
     [](WebcamOverlay& w, const std::string& k, const std::string& v) { w.showsBorder = readBoolean(k, v); },
     false},
    {"webcam.border-width",
     [](WebcamOverlay& w, const std::string& k, const std::string& v) {
         w.borderWidthAt1080p = readClampedNumber(k, v, WebcamOverlay::borderWidthLimits);
     },
     false},
    {"webcam.corner-radius",
     [](WebcamOverlay& w, const std::string& k, const std::string& v) {
         w.cornerRadius = readClampedNumber(k, v, {0, 1});
     },
     false},
    {"webcam.diameter",
     [](WebcamOverlay& w, const std::string& k, const std::string& v) {
         w.diameter = readClampedNumber(k, v, WebcamOverlay::diameterLimits);
     },
     true},
    {"webcam.mirror",
     [](WebcamOverlay& w, const std::string& k, const std::string& v) { w.isMirrored = readBoolean(k, v); },
     false},
    {"webcam.shadow",
     [](WebcamOverlay& w, const std::string& k, const std::string& v) { w.showsShadow = readBoolean(k, v); },
     false},
    {"webcam.shape",
     [](WebcamOverlay& w, const std::string& k, const std::string& v) {
         // The older shape words: both are square pictures, told apart by
         // their rounding.
         if (v == "circle") {
             w.cornerRadius = 1.0;
         } else if (v == "rounded-rectangle") {
             w.cornerRadius = 0.6;
         } else {
             throw TimelineSettingsError::invalidValue(k);
         }
         w.aspectRatio = WebcamAspectRatio::square;
     },
     true},
    {"webcam.show",
     [](WebcamOverlay& w, const std::string& k, const std::string& v) { w.isVisible = readBoolean(k, v); },
     false},
    {"webcam.x",
     [](WebcamOverlay& w, const std::string& k, const std::string& v) {
         w.center.x = readClampedNumber(k, v, {0, 1});
     },
     true},
    {"webcam.y",
     [](WebcamOverlay& w, const std::string& k, const std::string& v) {
         w.center.y = readClampedNumber(k, v, {0, 1});
     },
     true},
}};

template <typename Entry, std::size_t count>
const Entry* entryFor(const std::array<Entry, count>& table, const std::string& key) {
    const auto found =
        std::find_if(table.begin(), table.end(), [&](const Entry& entry) { return entry.key == key; });
    return found == table.end() ? nullptr : &*found;
}

void applyWebcamSetting(EditTimeline& working, const std::string& key, const std::string& text,
                        bool hasWebcam, PixelSize sourceSize) {
    if (!hasWebcam) {
        throw TimelineSettingsError::webcamUnavailable();
    }
    const WebcamKey* entry = entryFor(webcamKeys, key);
    if (entry == nullptr) {
        throw TimelineSettingsError::unknownKey(key);
    }
    WebcamOverlay overlay = working.webcamOverlay.value_or(WebcamOverlay::defaultValue());
    entry->apply(overlay, key, text);
    if (entry->constrains) {
        overlay = constrainWebcam(overlay, outputAspectRatio(working.canvas.aspectRatio, sourceSize));
    }
    working.webcamOverlay = overlay;
}

} // namespace

EditTimeline applying(const std::map<std::string, std::string>& settings, const EditTimeline& timeline,
                      bool hasWebcam, PixelSize sourceSize) {
    EditTimeline working = timeline;
    // A std::map walks its keys in ascending order.
    for (const auto& [key, text] : settings) {
        if (key.starts_with(webcamPrefix)) {
            applyWebcamSetting(working, key, text, hasWebcam, sourceSize);
            continue;
        }
        const TimelineKey* entry = entryFor(timelineKeys, key);
        if (entry == nullptr) {
            throw TimelineSettingsError::unknownKey(key);
        }
        entry->apply(working, key, text);
    }
    return working;
}

double outputAspectRatio(CanvasAspectRatio aspectRatio, PixelSize sourceSize) noexcept {
    return value(aspectRatio,
                 SizeValue{static_cast<double>(sourceSize.width), static_cast<double>(sourceSize.height)});
}

WebcamOverlay constrainWebcam(WebcamOverlay overlay, double outputAspectRatio) noexcept {
    overlay.center = TimelineEffectEngine::constrainedWebcamCenter(
        overlay.center, overlay.diameter, outputAspectRatio, value(overlay.aspectRatio));
    return overlay;
}

} // namespace rilo::TimelineSettingsEngine

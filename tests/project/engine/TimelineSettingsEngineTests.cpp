#include "project/engine/TimelineEffectEngine.h"
#include "project/engine/TimelineSettingsEngine.h"
#include "support/Thrown.h"

#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace rilo {
namespace {

using Case = TimelineSettingsError::Case;
using Settings = std::map<std::string, std::string>;

const PixelSize fullHD{1920, 1080};

EditTimeline apply(const Settings& settings, const EditTimeline& timeline = {}, bool hasWebcam = true,
                   PixelSize sourceSize = fullHD) {
    return TimelineSettingsEngine::applying(settings, timeline, hasWebcam, sourceSize);
}

std::optional<TimelineSettingsError> failureOf(const Settings& settings, const EditTimeline& timeline = {},
                                               bool hasWebcam = true) {
    return testing::thrown<TimelineSettingsError>([&] { apply(settings, timeline, hasWebcam); });
}

// A timeline whose appearance differs from the defaults in every member that
// a setting can reach, so that a setting shows whichever way it goes.
EditTimeline unusualTimeline() {
    EditTimeline timeline;
    timeline.audioMix.microphone = {true, 5};
    timeline.audioMix.systemAudio = {true, -5};
    timeline.canvas.aspectRatio = CanvasAspectRatio::portrait4x5;
    timeline.canvas.background = CanvasBackground::solid;
    timeline.canvas.padding = 0.1;
    timeline.canvas.cornerRadius = 0.05;
    timeline.cursor = {false, 2, false, ClickEffectStyle::ring};
    timeline.webcamOverlay =
        WebcamOverlay(false, {0.3, 0.4}, 0.3, false, WebcamAspectRatio::source, 0.3, false, 4, false);
    return timeline;
}

TimelineEffectEngine::WebcamHalfExtents radiiOf(const EditTimeline& timeline) {
    const WebcamOverlay& overlay = *timeline.webcamOverlay;
    return TimelineEffectEngine::webcamRadii(
        overlay.diameter, TimelineSettingsEngine::outputAspectRatio(timeline.canvas.aspectRatio, fullHD),
        value(overlay.aspectRatio));
}

struct AcceptedSetting {
    std::string key;
    std::string value;
    std::function<void(const EditTimeline&)> expect;
};

// The check that a member read by `member` equals `expected`.
template <typename Member>
std::function<void(const EditTimeline&)> is(Member member,
                                            decltype(std::declval<Member>()(EditTimeline{})) expected) {
    return [member, expected](const EditTimeline& t) { EXPECT_EQ(member(t), expected); };
}

TEST(TimelineSettingsKeys, EveryKeyAcceptsItsValues) {
    const auto micGain = [](const EditTimeline& t) { return t.audioMix.microphone.gainDecibels; };
    const auto micMuted = [](const EditTimeline& t) { return t.audioMix.microphone.isMuted; };
    const auto systemGain = [](const EditTimeline& t) { return t.audioMix.systemAudio.gainDecibels; };
    const auto aspect = [](const EditTimeline& t) { return t.canvas.aspectRatio; };
    const auto background = [](const EditTimeline& t) { return t.canvas.background; };
    const auto padding = [](const EditTimeline& t) { return t.canvas.padding; };
    const auto radius = [](const EditTimeline& t) { return t.canvas.cornerRadius; };
    const auto clickStyle = [](const EditTimeline& t) { return t.cursor.clickEffectStyle; };
    const auto cursorScale = [](const EditTimeline& t) { return t.cursor.scale; };
    const auto borderWidth = [](const EditTimeline& t) { return t.webcamOverlay->borderWidthAt1080p; };
    const auto cornerRadius = [](const EditTimeline& t) { return t.webcamOverlay->cornerRadius; };
    const auto diameter = [](const EditTimeline& t) { return t.webcamOverlay->diameter; };
    const auto centerX = [](const EditTimeline& t) { return t.webcamOverlay->center.x; };
    const auto shape = [](WebcamAspectRatio ratio, double corner) {
        return [ratio, corner](const EditTimeline& t) {
            EXPECT_EQ(t.webcamOverlay->aspectRatio, ratio);
            EXPECT_EQ(t.webcamOverlay->cornerRadius, corner);
        };
    };

    // One row per value form, and each clamp at the end it can reach.
    const std::vector<AcceptedSetting> examples = {
        {"audio.microphone.gain-db", "+3", is(micGain, 3)},
        {"audio.microphone.gain-db", "-100", is(micGain, -60)},
        {"audio.microphone.gain-db", "40", is(micGain, 12)},
        {"audio.microphone.muted", "ON", is(micMuted, true)},
        {"audio.microphone.muted", "1", is(micMuted, true)},
        {"audio.microphone.muted", "False", is(micMuted, false)},
        {"audio.microphone.muted", "0", is(micMuted, false)},
        {"audio.system.gain-db", "-61", is(systemGain, -60)},
        {"audio.system.muted", "TRUE",
         [](const EditTimeline& t) { EXPECT_TRUE(t.audioMix.systemAudio.isMuted); }},
        {"canvas.aspect", "source", is(aspect, CanvasAspectRatio::source)},
        {"canvas.aspect", "16:9", is(aspect, CanvasAspectRatio::landscape16x9)},
        {"canvas.background", "gradient", is(background, CanvasBackground::gradient)},
        {"canvas.padding", "-1", is(padding, 0)},
        {"canvas.padding", "0.5", is(padding, 0.18)},
        {"canvas.radius", "0.0304", is(radius, 0.03)},
        {"canvas.radius", "1", is(radius, 0.08)},
        {"cursor.click-ripple", "on", [](const EditTimeline& t) { EXPECT_TRUE(t.cursor.showsClickEffect); }},
        {"cursor.click-style", "soft-glow", is(clickStyle, ClickEffectStyle::solidPulse)},
        {"cursor.click-style", "ring-and-press", is(clickStyle, ClickEffectStyle::ringAndPress)},
        {"cursor.scale", "9", is(cursorScale, 3.0)},
        {"cursor.scale", "0.1", is(cursorScale, 0.5)},
        {"cursor.show", "True", [](const EditTimeline& t) { EXPECT_TRUE(t.cursor.isVisible); }},
        {"webcam.aspect-ratio", "square",
         [](const EditTimeline& t) { EXPECT_EQ(t.webcamOverlay->aspectRatio, WebcamAspectRatio::square); }},
        {"webcam.border", "1", [](const EditTimeline& t) { EXPECT_TRUE(t.webcamOverlay->showsBorder); }},
        {"webcam.border-width", "100", is(borderWidth, 20)},
        {"webcam.border-width", "0", is(borderWidth, 2)},
        {"webcam.corner-radius", "3", is(cornerRadius, 1)},
        {"webcam.diameter", "0", is(diameter, 0.1)},
        {"webcam.mirror", "on", [](const EditTimeline& t) { EXPECT_TRUE(t.webcamOverlay->isMirrored); }},
        {"webcam.shadow", "off", [](const EditTimeline& t) { EXPECT_FALSE(t.webcamOverlay->showsShadow); }},
        {"webcam.shape", "circle", shape(WebcamAspectRatio::square, 1.0)},
        {"webcam.shape", "rounded-rectangle", shape(WebcamAspectRatio::square, 0.6)},
        {"webcam.show", "1", [](const EditTimeline& t) { EXPECT_TRUE(t.webcamOverlay->isVisible); }},
        {"webcam.x", "0.5", is(centerX, 0.5)},
        // Out of range, then kept on the canvas for the overlay's size.
        {"webcam.y", "7",
         [](const EditTimeline& t) { EXPECT_DOUBLE_EQ(t.webcamOverlay->center.y, 1 - radiiOf(t).vertical); }},
    };
    // Both from the defaults (and no overlay yet) and from a timeline that
    // differs everywhere.
    for (const EditTimeline& base : {EditTimeline{}, unusualTimeline()}) {
        for (const AcceptedSetting& example : examples) {
            SCOPED_TRACE(example.key + "=" + example.value);
            example.expect(apply({{example.key, example.value}}, base));
        }
    }
}

TEST(TimelineSettingsKeys, UnreadableValuesAreRefusedNamingTheKey) {
    // Number, switch and word parsing each in full on one key, then one
    // unreadable value for every other key.
    const std::vector<std::pair<std::string, std::vector<std::string>>> examples = {
        {"audio.microphone.gain-db", {"", " 1", "1 ", "1,5", "nan", "inf", "1e999"}},
        {"audio.microphone.muted", {"yes", "2", " true", "truee"}},
        {"audio.system.gain-db", {std::string("1\0", 2)}},
        {"canvas.aspect", {"16:10", "SOURCE"}},
        {"cursor.click-style", {"Ring"}},
        {"webcam.shape", {"square"}},
        {"webcam.y", {"0.5.5"}},
    };
    for (const auto& [key, values] : examples) {
        for (const std::string& value : values) {
            SCOPED_TRACE(key + "=" + value);
            const std::optional<TimelineSettingsError> error = failureOf({{key, value}}, unusualTimeline());
            ASSERT_TRUE(error.has_value());
            EXPECT_EQ(error->errorCase(), Case::invalidValue);
            EXPECT_EQ(error->key(), key);
            EXPECT_EQ(error->message(), "设置项取值无效：" + key);
        }
    }
}

TEST(TimelineSettingsKeys, UnknownAndWebcamKeysWithoutMediaAreRefusedAndTheFirstFailureInKeyOrderWins) {
    for (const std::string key : {"canvas.preset", "Canvas.aspect"}) {
        SCOPED_TRACE(key);
        const std::optional<TimelineSettingsError> error = failureOf({{key, "1"}});
        ASSERT_TRUE(error.has_value());
        EXPECT_EQ(error->errorCase(), Case::unknownKey);
        EXPECT_EQ(error->key(), key);
        EXPECT_EQ(error->message(), "不支持设置项：" + key);
    }

    for (const auto& [key, value] : Settings{{"webcam.x", "abc"}, {"webcam.unknown", "1"}}) {
        SCOPED_TRACE(key);
        const std::optional<TimelineSettingsError> error = failureOf({{key, value}}, {}, false);
        ASSERT_TRUE(error.has_value());
        EXPECT_EQ(error->errorCase(), Case::webcamUnavailable);
        EXPECT_EQ(error->message(), "当前项目没有摄像头轨道。");
    }
    // Keys of other members do not care.
    EXPECT_EQ(apply({{"cursor.scale", "2"}}, {}, false).cursor.scale, 2);

    // Keys apply in ascending order and the first failure wins.
    const std::optional<TimelineSettingsError> error =
        failureOf({{"webcam.x", "bad"}, {"cursor.show", "maybe"}, {"canvas.aspect", "16:9"}});
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->key(), "cursor.show");

    // A later failure discards the earlier keys along with it.
    const EditTimeline timeline = unusualTimeline();
    EXPECT_TRUE(
        failureOf({{"audio.system.muted", "false"}, {"canvas.padding", "0"}, {"zoom.level", "2"}}, timeline)
            .has_value());

    const EditTimeline several =
        apply({{"cursor.scale", "2.5"}, {"canvas.padding", "0.05"}, {"audio.system.muted", "on"}});
    EXPECT_EQ(several.cursor.scale, 2.5);
    EXPECT_EQ(several.canvas.padding, 0.05);
    EXPECT_TRUE(several.audioMix.systemAudio.isMuted);
    EXPECT_EQ(apply({}, timeline), timeline);
}

TEST(TimelineSettingsWebcam, APlacementIsKeptOnTheCanvasAndOnlyPlacementKeysMoveIt) {
    // The default overlay at the left edge of a 16:9 canvas: half its width.
    const EditTimeline left = apply({{"webcam.x", "0"}});
    EXPECT_DOUBLE_EQ(left.webcamOverlay->center.x, 9.0 / 16.0 * 0.22 / 2);
    EXPECT_EQ(left.webcamOverlay->center.y, WebcamOverlay::defaultValue().center.y);

    // The same call's canvas aspect counts, as canvas keys come first.
    const EditTimeline portrait = apply({{"canvas.aspect", "9:16"}, {"webcam.x", "1"}});
    EXPECT_DOUBLE_EQ(portrait.webcamOverlay->center.x, 1 - 0.11);

    // `source` follows the recording's pixel size.
    const EditTimeline tallSource =
        apply({{"canvas.aspect", "source"}, {"webcam.x", "0"}}, {}, true, PixelSize{1000, 2000});
    EXPECT_DOUBLE_EQ(tallSource.webcamOverlay->center.x, 0.11);

    // A larger webcam is pulled in from the edge.
    EditTimeline atEdge;
    atEdge.webcamOverlay = WebcamOverlay::defaultValue();
    atEdge.webcamOverlay->center = {0.99, 0.99};
    const EditTimeline grown = apply({{"webcam.diameter", "0.4"}}, atEdge);
    EXPECT_DOUBLE_EQ(grown.webcamOverlay->center.x, 1 - 9.0 / 16.0 * 0.2);
    EXPECT_DOUBLE_EQ(grown.webcamOverlay->center.y, 0.8);

    // Other keys leave the same placement where it is.
    EXPECT_EQ(apply({{"canvas.aspect", "9:16"}}, atEdge).webcamOverlay, atEdge.webcamOverlay);
    for (const auto& [key, value] : Settings{{"webcam.border-width", "12"}, {"webcam.show", "off"}}) {
        SCOPED_TRACE(key);
        EXPECT_EQ(apply({{key, value}}, atEdge).webcamOverlay->center, (PointValue{0.99, 0.99}));
    }
    // Without an overlay yet, the default one is the start.
    const EditTimeline shown = apply({{"webcam.border", "false"}});
    WebcamOverlay expected = WebcamOverlay::defaultValue();
    expected.showsBorder = false;
    EXPECT_EQ(shown.webcamOverlay, expected);
}

} // namespace
} // namespace rilo

#include "project/document/TimelineCodecs.h"
#include "support/Thrown.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace rilo {
namespace {

using json::DecodingError;

EditTimeline decodeTimeline(const std::string& text) {
    return json::decodeDocument<EditTimeline>(text);
}

WebcamOverlay decodeOverlay(const std::string& members) {
    return json::decodeDocument<WebcamOverlay>(
        R"({"isVisible": true, "center": {"x": 0.5, "y": 0.5}, "diameter": 0.3, "isMirrored": false)" +
        members + "}");
}

Uuid uuid(const char* text) {
    return *Uuid::parse(text);
}

// A document with every member and every optional present.
EditTimeline fullTimeline() {
    EditTimeline timeline;
    timeline.segments = {
        {uuid("0B7F2C1E-8D3A-4C5B-9E6F-112233445566"), {ProjectTime{0}, ProjectTime{2'500'000'000}}, {1000}},
        {uuid("A1B2C3D4-E5F6-4711-8899-AABBCCDDEEFF"),
         {ProjectTime{3'000'000'000}, ProjectTime{1'000'000'000}},
         {1250}},
    };
    timeline.deviceFrame = DeviceFrameEdit{true, "iphone-15-pro/black"};
    timeline.motionBlurAmount = 0.35;
    timeline.canvas.aspectRatio = CanvasAspectRatio::portrait9x16;
    timeline.canvas.background = CanvasBackground::solid;
    timeline.canvas.preset = CanvasBackgroundPreset::sand;
    timeline.canvas.image = CanvasBackgroundImage{"landscape-3", "backgrounds/landscape-3.jpg",
                                                  PixelSize::unnormalized(2560, 1441),
                                                  CanvasBackgroundImageSource::bundledLandscape, "picker-7"};
    timeline.canvas.padding = 0.1;
    timeline.canvas.cornerRadius = 0.021;
    timeline.cursor = {false, 1.75, false, ClickEffectStyle::ringAndPress};
    timeline.webcamOverlay = WebcamOverlay::newRecording();
    timeline.webcamKeyframes = {
        {uuid("11111111-2222-4333-8444-555555555555"), ProjectTime{400'000'000}, PointValue{0.2, 0.3}, 0.25}};
    timeline.webcamFullscreenSegments = {{uuid("21111111-2222-4333-8444-555555555555"),
                                          ProjectTime{1'000'000'000}, ProjectTime{1'500'000'000}}};
    timeline.audioMix = {{true, -3.5}, {false, 4}};
    timeline.zooms = {{uuid("31111111-2222-4333-8444-555555555555"), ProjectTime{100}, ProjectTime{200},
                       ProjectTime{300}, ProjectTime{400}, PointValue{0.25, 0.75}, 2.0}};
    auto arrow =
        AnnotationElement::defaultAnnotation(AnnotationKind::arrow, ProjectTime{0}, ProjectTime{10}, 2, 1.5);
    auto box =
        AnnotationElement::defaultAnnotation(AnnotationKind::mosaic, ProjectTime{5}, ProjectTime{10}, 1, 1.5);
    timeline.annotations = {arrow, box};
    return timeline;
}

// A document without a schema is of the first one; a stored canvas without a
// radius predates the smaller default.
TEST(EditTimelineCoding, MissingKeysTakeDefaultsOldWordsAreReadAndOffStepRatesFail) {
    const std::string text = R"({
        "canvas": {"background": "solid"},
        "cursor": {"scale": 2},
        "segments": [{"id": "0b7f2c1e-8d3a-4c5b-9e6f-112233445566",
                      "sourceRange": {"start": {"nanoseconds": 0}, "duration": {"nanoseconds": 5}}}],
        "webcamFullscreenSegments": [
            {"startTime": {"nanoseconds": 0}, "endTime": {"nanoseconds": 9}},
            {"startTime": {"nanoseconds": 10}, "endTime": {"nanoseconds": 19}}]
    })";
    const EditTimeline timeline = decodeTimeline(text);
    EXPECT_EQ(timeline.schemaVersion, 1);
    EXPECT_EQ(timeline.canvas.cornerRadius, 0.035);
    EXPECT_EQ(timeline.canvas.preset, CanvasBackgroundPreset::midnight);
    EXPECT_TRUE(timeline.cursor.isVisible);
    ASSERT_EQ(timeline.segments.size(), 1U);
    EXPECT_EQ(timeline.segments[0].playbackRate, TimelinePlaybackRate::normal());
    EXPECT_EQ(timeline.segments[0].id.string(), "0B7F2C1E-8D3A-4C5B-9E6F-112233445566");

    const EditTimeline again = decodeTimeline(text);
    EXPECT_NE(timeline.webcamFullscreenSegments[0].id, timeline.webcamFullscreenSegments[1].id);
    EXPECT_NE(timeline.webcamFullscreenSegments[0].id, again.webcamFullscreenSegments[0].id);

    // The older click word is read but not written.
    CursorEdit cursor;
    cursor.clickEffectStyle =
        decodeTimeline(R"({"cursor": {"clickEffectStyle": "soft-glow"}})").cursor.clickEffectStyle;
    EXPECT_EQ(cursor.clickEffectStyle, ClickEffectStyle::solidPulse);
    EXPECT_EQ(json::encode(cursor)["clickEffectStyle"], "solid-pulse");
    EXPECT_EQ(testing::thrownMessage<DecodingError>(
                  [] { decodeTimeline(R"({"cursor": {"clickEffectStyle": "sparkle"}})"); }),
              "Unsupported click effect style: sparkle");
    EXPECT_EQ(testing::thrownMessage<DecodingError>([] {
                  decodeTimeline(R"({"segments": [{"id": "0B7F2C1E-8D3A-4C5B-9E6F-112233445566",
            "sourceRange": {"start": {"nanoseconds": 0}, "duration": {"nanoseconds": 5}},
            "playbackRate": 1.005}]})");
              }),
              json::invalidPlaybackRateMessage);
}

TEST(EditTimelineCoding, LegacyWebcamShapeDecidesRadiusWhenAspectRatioIsMissing) {
    const WebcamOverlay rounded = decodeOverlay(R"(, "shape": "rounded-rectangle", "cornerRadius": 0.2)");
    EXPECT_EQ(rounded.aspectRatio, WebcamAspectRatio::square);
    EXPECT_EQ(rounded.cornerRadius, 0.6);
    EXPECT_FALSE(json::encode(rounded).contains("shape"));
    EXPECT_EQ(decodeOverlay(R"(, "shape": "circle", "cornerRadius": 0.2)").cornerRadius, 1.0);
    EXPECT_EQ(decodeOverlay("").cornerRadius, 1.0);
    EXPECT_THROW(decodeOverlay(R"(, "shape": "hexagon")"), DecodingError);

    // With an aspect ratio the shape is ignored and the radius is read, within its limits.
    const WebcamOverlay current =
        decodeOverlay(R"(, "aspectRatio": "source", "shape": "circle", "cornerRadius": 0.3)");
    EXPECT_EQ(current.aspectRatio, WebcamAspectRatio::source);
    EXPECT_EQ(current.cornerRadius, 0.3);
    EXPECT_EQ(decodeOverlay(R"(, "aspectRatio": "square")").cornerRadius, 0.6);
    EXPECT_EQ(decodeOverlay(R"(, "aspectRatio": "square", "cornerRadius": -0.5)").cornerRadius, 0);
    EXPECT_EQ(decodeOverlay(R"(, "aspectRatio": "square", "borderWidthAt1080p": 100)").borderWidthAt1080p,
              20);
}

TEST(EditTimelineCoding, EncodingIsStableLeavesOutEmptyOptionalsAndKeepsNewerSchemas) {
    const EditTimeline full = fullTimeline();
    const std::string bytes = json::encodeDocument(full);
    const EditTimeline decoded = decodeTimeline(bytes);
    EXPECT_EQ(decoded, full);
    EXPECT_EQ(json::encodeDocument(decoded), bytes);

    const json::Json empty = json::encode(EditTimeline::empty());
    for (const char* key : {"deviceFrame", "webcamOverlay"}) {
        EXPECT_FALSE(empty.contains(key)) << key;
    }
    EXPECT_FALSE(empty["canvas"].contains("image"));
    EXPECT_FALSE(json::encode(full.annotations[0]).contains("bounds"));
    CanvasBackgroundImage image = *full.canvas.image;
    image.selectionID.reset();
    EXPECT_FALSE(json::encode(image).contains("selectionID"));

    const EditTimeline timeline = decodeTimeline(R"({"schemaVersion": 42, "deviceFrame":
        {"isEnabled": false, "assetID": "ipad"}})");
    EXPECT_EQ(timeline.schemaVersion, 42);
    EXPECT_EQ(timeline.deviceFrame, (DeviceFrameEdit{false, "ipad"}));
}

TEST(EditTimelineCoding, MissingRequiredKeysAndUnknownWordsFail) {
    const std::string time = R"({"nanoseconds": 0})";
    const std::string point = R"({"x": 0, "y": 0})";
    const std::vector<std::string> documents = {
        R"({"segments": [{"sourceRange": {"start": )" + time + R"(, "duration": )" + time + "}}]}",
        R"({"deviceFrame": {"isEnabled": true}})",
        R"({"webcamOverlay": {"isVisible": true, "center": )" + point + R"(, "isMirrored": true}})",
        R"({"webcamKeyframes": [{"center": )" + point + R"(, "diameter": 0.2}]})",
        R"({"webcamFullscreenSegments": [{"startTime": )" + time + "}]}",
        R"({"audioMix": {"systemAudio": {"isMuted": false}, "microphone": {"isMuted": false, "gainDecibels": 0}}})",
        R"({"zooms": [{"startTime": )" + time + R"(, "focusTime": )" + time + R"(, "holdEndTime": )" + time +
            R"(, "endTime": )" + time + R"(, "focusPoint": )" + point + "}]}",
        R"({"canvas": {"image": {"id": "a", "relativePath": "b", "source": "uploaded"}}})",
        R"({"annotations": [{"id": "0B7F2C1E-8D3A-4C5B-9E6F-112233445566", "startTime": )" + time +
            R"(, "endTime": )" + time +
            R"(, "kind": "arrow", "color": {"red": 1, "green": 0}, "lineWidth": 0.01, "zIndex": 0}]})",
        R"({"canvas": {"aspectRatio": "21:9"}})",
        // Raw strings are case sensitive.
        R"({"canvas": {"background": "Solid"}})",
        R"({"webcamOverlay": {"isVisible": true, "center": )" + point +
            R"(, "diameter": 0.2, "isMirrored": true, "aspectRatio": "wide"}})",
    };
    for (const auto& document : documents) {
        EXPECT_THROW(decodeTimeline(document), DecodingError) << document;
    }
}

} // namespace
} // namespace rilo

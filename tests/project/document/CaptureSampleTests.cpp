#include "project/document/CaptureSamples.h"

#include <gtest/gtest.h>
#include <set>
#include <string>

namespace rilo {
namespace {

MouseEvent sampleClick() {
    MouseEvent event;
    event.rawTimestampNanoseconds = 18'446'744'073'709'551'000ULL; // beyond the signed range
    event.time = ProjectTime{1'250'000'000};
    event.globalPoint = {812.5, 400};
    event.localPoint = {112.5, 300};
    event.normalizedPoint = {0.25, 0.5};
    event.geometryRevision = 4'000'000'000U;
    event.button = MouseButton::left;
    event.phase = MousePhase::down;
    event.isInsideSource = true;
    return event;
}

GeometrySample sampleGeometry() {
    GeometrySample sample;
    sample.time = ProjectTime{33'333'333};
    sample.revision = 2;
    sample.globalWindowFrame = {100, 50, 800, 600};
    sample.sourceContentSize = {800, 600};
    sample.encodedPixelSize = PixelSize(1600, 1200);
    sample.contentRectInEncodedFrame = {0, 0, 1600, 1200};
    sample.scaleFactor = 2;
    return sample;
}

template <class T>
T decodedFromChunk(const json::Json& value) {
    return json::decodeDocument<T>(json::write(value, json::JsonStyle::chunk));
}

std::set<std::string> keysOf(const json::Json& object) {
    std::set<std::string> keys;
    for (const auto& [key, member] : object.items()) {
        keys.insert(key);
    }
    return keys;
}

TEST(CaptureSampleCoding, MouseEventsAndCursorShapesRoundTripInCompactSortedForm) {
    const MouseEvent event = sampleClick();
    const std::string bytes = json::encodeDocument(event, json::JsonStyle::chunk);
    EXPECT_EQ(bytes, "{\"button\":\"left\",\"geometryRevision\":4000000000,"
                     "\"globalPoint\":{\"x\":812.5,\"y\":400},\"isInsideSource\":true,"
                     "\"localPoint\":{\"x\":112.5,\"y\":300},\"normalizedPoint\":{\"x\":0.25,\"y\":0.5},"
                     "\"phase\":\"down\",\"rawTimestampNanoseconds\":18446744073709551000,"
                     "\"time\":{\"nanoseconds\":1250000000}}");
    EXPECT_EQ(json::decodeDocument<MouseEvent>(bytes), event);

    const CursorShapeSample shape{ProjectTime{5}, "arrow/1"};
    const std::string shapeBytes = json::encodeDocument(shape, json::JsonStyle::chunk);
    EXPECT_EQ(shapeBytes, "{\"assetID\":\"arrow\\/1\",\"time\":{\"nanoseconds\":5}}");
    EXPECT_EQ(json::decodeDocument<CursorShapeSample>(shapeBytes), shape);
    EXPECT_THROW(json::decodeDocument<CursorShapeSample>("{\"time\":{\"nanoseconds\":5}}"),
                 json::DecodingError);
}

// The inside flag alone may be missing: it is then left out and counts as
// visible. Every other key is required and the enumerations are closed.
TEST(MouseEventCoding, OnlyTheInsideFlagIsOptionalAndEnumerationsAreClosed) {
    MouseEvent event = sampleClick();
    event.isInsideSource.reset();
    const json::Json encoded = json::encode(event);
    EXPECT_FALSE(encoded.contains("isInsideSource"));
    const MouseEvent decoded = decodedFromChunk<MouseEvent>(encoded);
    EXPECT_FALSE(decoded.isInsideSource.has_value());
    EXPECT_TRUE(decoded.isVisibleInsideSource());
    event.isInsideSource = false;
    EXPECT_FALSE(decodedFromChunk<MouseEvent>(json::encode(event)).isVisibleInsideSource());

    const json::Json complete = json::encode(sampleClick());
    for (const auto& key : keysOf(complete)) {
        if (key == "isInsideSource") {
            continue;
        }
        json::Json broken = complete;
        broken.erase(key);
        EXPECT_THROW(decodedFromChunk<MouseEvent>(broken), json::DecodingError) << key;
    }
    for (const auto& [key, raw] : {std::pair{"button", "middle"}, std::pair{"phase", "scrolled"}}) {
        json::Json broken = complete;
        broken[key] = raw;
        EXPECT_THROW(decodedFromChunk<MouseEvent>(broken), json::DecodingError) << key << " " << raw;
    }
}

TEST(GeometrySample, KeysRoundTripAllAreRequiredAndPointsFollowTheFrame) {
    GeometrySample sample = sampleGeometry();
    const json::Json encoded = json::encode(sample);
    EXPECT_EQ(keysOf(encoded),
              (std::set<std::string>{"contentRectInEncodedFrame", "encodedPixelSize", "globalWindowFrame",
                                     "revision", "scaleFactor", "sourceContentSize", "time"}));
    EXPECT_EQ(encoded["encodedPixelSize"], (json::Json{{"width", 1600}, {"height", 1200}}));
    EXPECT_EQ(decodedFromChunk<GeometrySample>(encoded), sample);
    for (const auto& key : keysOf(encoded)) {
        json::Json broken = encoded;
        broken.erase(key);
        EXPECT_THROW(decodedFromChunk<GeometrySample>(broken), json::DecodingError) << key;
    }

    // Local points follow the frame and normalized ones stay inside.
    EXPECT_EQ(sample.localPoint({40, 700}), (PointValue{-60, 650}));
    EXPECT_EQ(sample.normalizedPoint({300, 200}), (PointValue{0.25, 0.25}));
    // Outside the source a point lands on the nearest edge, never beyond it.
    EXPECT_EQ(sample.normalizedPoint({1500, 350}), (PointValue{1, 0.5}));
    EXPECT_EQ(sample.normalizedPoint({-20, -3000}), (PointValue{0, 0}));
    // An empty frame normalizes every point to the origin.
    sample.globalWindowFrame = {100, 50, 800, -600};
    EXPECT_EQ(sample.normalizedPoint({300, 200}), (PointValue{0, 0}));
}

} // namespace
} // namespace rilo

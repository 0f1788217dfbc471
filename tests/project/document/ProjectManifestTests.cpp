#include "project/document/ProjectManifest.h"
#include "project/document/ProjectPackage.h"
#include "support/PackageFixtures.h"

#include <gtest/gtest.h>
#include <limits>

namespace rilo {
namespace {

const Uuid projectID = *Uuid::parse("0f3c2a4e-1b2d-4c5e-8f70-123456789abc");

ProjectManifest decodedFrom(const json::Json& document) {
    return json::decodeDocument<ProjectManifest>(json::write(document, json::JsonStyle::document));
}

TEST(ProjectManifest, RoundTripsByteForByteAndNewManifestsHaveTheirShape) {
    const ProjectManifest manifest = testing::sampleManifest(projectID, IsoDate{1'772'439'330});
    const std::string first = json::encodeDocument(manifest);
    const ProjectManifest decoded = json::decodeDocument<ProjectManifest>(first);
    EXPECT_EQ(decoded, manifest);
    EXPECT_EQ(json::encodeDocument(decoded), first);
    // The package conventions: upper-case id, second-precision dates, escaped slashes.
    EXPECT_NE(first.find("\"id\" : \"0F3C2A4E-1B2D-4C5E-8F70-123456789ABC\""), std::string::npos);
    EXPECT_NE(first.find("\"updatedAt\" : \"2026-03-02T08:15:30Z\""), std::string::npos);
    EXPECT_NE(first.find("\"relativePath\" : \"media\\/recording.mov\""), std::string::npos);

    ProjectManifest fresh;
    fresh.id = projectID;
    const std::string bytes = json::encodeDocument(fresh);
    EXPECT_NE(bytes.find("\"version\" : 4"), std::string::npos);
    EXPECT_NE(bytes.find("\"state\" : \"recording\""), std::string::npos);
    // Optional members are left out rather than written as null.
    EXPECT_EQ(bytes.find("null"), std::string::npos);
    EXPECT_EQ(bytes.find("failureReason"), std::string::npos);
}

TEST(ProjectManifest, OptionalMembersMayBeMissingButRequiredOnesAndKnownWordsMayNot) {
    const json::Json sample = json::encode(testing::sampleManifest(projectID, IsoDate{0}));
    json::Json document = sample;
    document.erase("cursorAssets");
    document.erase("microphone");
    document.erase("webcam");
    const ProjectManifest decoded = decodedFrom(document);
    EXPECT_FALSE(decoded.cursorAssets.has_value());
    EXPECT_FALSE(decoded.webcam.has_value());

    for (const char* key : {"metrics", "version", "id", "state", "source", "media", "duration"}) {
        json::Json broken = sample;
        broken.erase(key);
        EXPECT_THROW(decodedFrom(broken), json::DecodingError) << key;
    }
    json::Json brokenMetrics = sample;
    brokenMetrics["metrics"].erase("mouseEvents");
    EXPECT_THROW(decodedFrom(brokenMetrics), json::DecodingError);

    json::Json unknownKind = sample;
    unknownKind["source"]["kind"] = "Display"; // raw strings only, case matters
    EXPECT_THROW(decodedFrom(unknownKind), json::DecodingError);
    json::Json unknownTrack = sample;
    unknownTrack["media"]["tracks"][0]["kind"] = "webcam";
    EXPECT_THROW(decodedFrom(unknownTrack), json::DecodingError);

    // Recording options missing keys take their defaults.
    const auto partial = json::decodeDocument<RecordingOptions>(R"({"capturesWebcam": true})");
    EXPECT_TRUE(partial.capturesWebcam);
    EXPECT_TRUE(partial.capturesSystemAudio);
    EXPECT_EQ(partial.framesPerSecond, 60);
}

TEST(ProjectManifest, PathsOutsideThePackageAndImpossibleDurationsAreRefused) {
    const json::Json sample = json::encode(testing::sampleManifest(projectID, IsoDate{0}));
    for (const char* bad : {"/etc/passwd", "../other.rilo/media/recording.mov", "media/../../x.mov", ""}) {
        json::Json media = sample;
        media["media"]["relativePath"] = bad;
        EXPECT_THROW(decodedFrom(media), json::DecodingError) << bad;
        json::Json cursor = sample;
        cursor["cursorAssets"] =
            json::Json::array({json::Json::object({{"id", "a"},
                                                   {"relativePath", bad},
                                                   {"logicalSize", {{"width", 1}, {"height", 1}}},
                                                   {"hotSpot", {{"x", 0}, {"y", 0}}}})});
        EXPECT_THROW(decodedFrom(cursor), json::DecodingError) << bad;
    }
    // A damaged length near the largest integer would overflow the frame
    // grid's arithmetic later on.
    for (const std::int64_t nanoseconds : {std::int64_t{-1}, ProjectManifest::longestDuration.nanoseconds + 1,
                                           std::numeric_limits<std::int64_t>::max()}) {
        json::Json length = sample;
        length["duration"] = {{"nanoseconds", nanoseconds}};
        EXPECT_THROW(decodedFrom(length), json::DecodingError) << nanoseconds;
    }
    json::Json longest = sample;
    longest["duration"] = {{"nanoseconds", ProjectManifest::longestDuration.nanoseconds}};
    EXPECT_EQ(decodedFrom(longest).duration, ProjectManifest::longestDuration);
}

TEST(CaptureSourceAndPackage, SourcesHaveTheirIdsAndPackagesTheirPaths) {
    CaptureSourceDescriptor window;
    window.kind = CaptureSourceKind::window;
    window.nativeID = 7;
    EXPECT_EQ(window.id(), "window-7");

    const auto device = CaptureSourceDescriptor::device("X", "Phone", PixelSize(1179, 2556));
    EXPECT_EQ(device.id(), "device-X");
    EXPECT_EQ(device.globalFrame, (RectValue{0, 0, 1178, 2556}));
    CaptureSourceDescriptor anonymous = device;
    anonymous.deviceUniqueID.reset();
    EXPECT_EQ(anonymous.id(), "device");

    const ProjectPackage package{"/nowhere/ABC.rilo"};
    EXPECT_EQ(package.mediaURL(), "/nowhere/ABC.rilo/media/recording.mov");
    EXPECT_EQ(package.preSchema5TimelineBackupURL(), "/nowhere/ABC.rilo/edits/timeline.pre-schema5.json");
    const auto directories = package.creationDirectories();
    ASSERT_EQ(directories.size(), 9u);
    EXPECT_EQ(directories.front(), package.rootURL);
    EXPECT_EQ(directories.back(), package.waveformCacheDirectory());
}

} // namespace
} // namespace rilo

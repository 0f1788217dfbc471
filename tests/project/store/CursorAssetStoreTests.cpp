#include "project/document/ProjectPackage.h"
#include "project/store/CursorAssetStore.h"
#include "shared/Errors.h"
#include "shared/Files.h"
#include "shared/Json.h"
#include "shared/Sha256.h"
#include "support/FileTree.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <set>
#include <vector>

namespace rilo {
namespace {

namespace fs = std::filesystem;
using testing::entryNames;

const std::string arrowPng = std::string("\x89PNG\r\n\x1a\n", 8) + std::string("arrow pixels\0\x01\xff", 15);
const std::string beamPng = std::string("\x89PNG\r\n\x1a\n", 8) + "i-beam pixels";

// The id as the package format defines it, built here byte by byte.
std::string expectedID(const std::string& png, SizeValue size, PointValue hotSpot) {
    static_assert(std::endian::native == std::endian::little, "the expected bytes are copied from memory");
    std::string bytes = png;
    for (const double value : {size.width, size.height, hotSpot.x, hotSpot.y}) {
        char raw[sizeof(double)];
        std::memcpy(raw, &value, sizeof raw);
        bytes.append(raw, sizeof raw);
    }
    return sha256Hex(bytes);
}

TEST(CursorAssetStore, StoresImageAndDescriptorUnderContentID) {
    testing::TemporaryDirectory temporary;
    const ProjectPackage package{temporary.path() / "project.rilo.tmp"};
    CursorAssetStore store(package.cursorAssetsDirectory());
    ASSERT_TRUE(fs::is_directory(package.cursorAssetsDirectory()));

    const SizeValue size{17.5, 24};
    const PointValue hotSpot{0.1, -3.25};
    const CursorAssetDescriptor descriptor = store.store(arrowPng, size, hotSpot);

    const std::string id = expectedID(arrowPng, size, hotSpot);
    EXPECT_EQ(descriptor.id, id);
    EXPECT_EQ(descriptor.relativePath, "cursor/assets/" + id + ".png");
    EXPECT_EQ(descriptor.logicalSize, size);
    EXPECT_EQ(descriptor.hotSpot, hotSpot);
    EXPECT_EQ(entryNames(package.cursorAssetsDirectory()),
              (std::vector<std::string>{id + ".json", id + ".png"}));
    EXPECT_EQ(readFileBytes(package.rootURL / descriptor.relativePath), arrowPng);
    const std::string descriptorBytes = readFileBytes(package.cursorAssetsDirectory() / (id + ".json"));
    EXPECT_EQ(descriptorBytes, json::encodeDocument(descriptor));

    // Payloads are read from the package, leaving out those whose image is missing.
    const auto beam = store.store(beamPng, {8, 20}, {4, 10});
    CursorAssetDescriptor missing = descriptor;
    missing.id = "missing";
    missing.relativePath = "cursor/assets/missing.png";
    const auto payloads = CursorAssetStore::readPayloads(package.rootURL, {beam, missing, descriptor});
    EXPECT_EQ(payloads, (std::vector<CursorAssetPayload>{{beam, beamPng}, {descriptor, arrowPng}}));
}

TEST(CursorAssetStore, SizeOrHotSpotMakesAnotherAsset) {
    testing::TemporaryDirectory temporary;
    CursorAssetStore store(temporary.path());
    const auto base = store.store(arrowPng, {16, 16}, {1, 2});
    const auto otherHotSpot = store.store(arrowPng, {16, 16}, {2, 1});
    const auto otherSize = store.store(arrowPng, {16, 32}, {1, 2});
    // A negative zero has another bit pattern, so it is another asset.
    const auto negativeZero = store.store(arrowPng, {16, 16}, {1, -0.0});
    const auto positiveZero = store.store(arrowPng, {16, 16}, {1, 0.0});

    const std::set<std::string> ids{base.id, otherHotSpot.id, otherSize.id, negativeZero.id, positiveZero.id};
    EXPECT_EQ(ids.size(), 5u);
    EXPECT_EQ(store.descriptors().size(), 5u);
    EXPECT_EQ(entryNames(temporary.path()).size(), 10u);
}

// A reopened store knows what was stored, skips descriptors it cannot decode
// and never writes a known image again.
TEST(CursorAssetStore, ReopeningReadsWhatDecodesAndNeverRewritesAKnownImage) {
    testing::TemporaryDirectory temporary;
    const fs::path directory = temporary / "cursor" / "assets";
    std::vector<CursorAssetDescriptor> stored;
    {
        CursorAssetStore store(directory);
        stored.push_back(store.store(arrowPng, {16, 16}, {1, 1}));
        stored.push_back(store.store(beamPng, {8, 20}, {4, 10}));
    }
    const CursorAssetDescriptor beam = stored.back();
    std::sort(stored.begin(), stored.end(), [](const auto& a, const auto& b) { return a.id < b.id; });
    writeFileAtomically(directory / "broken.json", "{\"id\" : ");
    writeFileAtomically(directory / "partial.json", "{\"id\" : \"x\", \"relativePath\" : \"y\"}");

    EXPECT_EQ(CursorAssetStore::readDescriptors(directory), stored);
    EXPECT_TRUE(CursorAssetStore::readDescriptors(temporary / "missing").empty());
    CursorAssetStore reopened(directory);
    EXPECT_EQ(reopened.descriptors(), stored);
    // Mark the stored image and see it survive a second store.
    writeFileAtomically(directory / (beam.id + ".png"), "marked");
    EXPECT_EQ(reopened.store(beamPng, {8, 20}, {4, 10}), beam);
    EXPECT_EQ(readFileBytes(directory / (beam.id + ".png")), "marked");
    EXPECT_EQ(entryNames(directory).size(), 6u);
}

TEST(CursorAssetStore, FailedWriteIsNotRecordedAndIsRetried) {
    testing::TemporaryDirectory temporary;
    CursorAssetStore store(temporary.path());
    const std::string id = expectedID(arrowPng, {16, 16}, {1, 1});
    // A directory where the image belongs makes the write fail.
    fs::create_directory(temporary / (id + ".png"));
    EXPECT_THROW(store.store(arrowPng, {16, 16}, {1, 1}), FileError);
    EXPECT_TRUE(store.descriptors().empty());
    EXPECT_FALSE(fs::exists(temporary / (id + ".json")));

    fs::remove(temporary / (id + ".png"));
    const CursorAssetDescriptor descriptor = store.store(arrowPng, {16, 16}, {1, 1});
    EXPECT_EQ(descriptor.id, id);
    EXPECT_EQ(readFileBytes(temporary / (id + ".png")), arrowPng);

    // A file where the directory belongs fails the opening.
    writeFileAtomically(temporary / "cursor", "a file, not a directory");
    EXPECT_THROW(CursorAssetStore(temporary / "cursor" / "assets"), FileError);
}

} // namespace
} // namespace rilo

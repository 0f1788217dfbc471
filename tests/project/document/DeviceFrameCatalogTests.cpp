#include "project/document/DeviceFrameCatalog.h"
#include "shared/Files.h"
#include "support/TemporaryDirectory.h"
#include "support/TestPaths.h"
#include "support/Thrown.h"

#include <cmath>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace rilo {
namespace {

using Case = DeviceFrameCatalogError::Case;
namespace fs = std::filesystem;

std::string sourceCatalogBytes() {
    return readFileBytes(testing::sourceDirectory() / "resources/DeviceFrames/catalog.json");
}

DeviceFrameCatalog shippedCatalog() {
    return DeviceFrameCatalog::decode(sourceCatalogBytes());
}

std::vector<std::string> compatibleIDs(const DeviceFrameCatalog& catalog, PixelSize size) {
    std::vector<std::string> ids;
    for (const auto& device : catalog.compatibleDevices(size)) {
        ids.push_back(device.id);
    }
    return ids;
}

// A device whose screen fills a picture of that size, with one black variant.
DeviceFrameDescriptor device(std::string id, std::int64_t priority, std::int64_t width, std::int64_t height) {
    return {id,
            id,
            priority,
            PixelSize::unnormalized(width, height),
            RectValue{0, 0, 1, 1},
            0.1,
            {DeviceFrameVariant{id + "-black", "黑色", id + "-black.png", true}}};
}

std::optional<Case> caseOfLoading(const fs::path& directory) {
    return testing::thrownCase<DeviceFrameCatalogError>([&] { DeviceFrameCatalog::load(directory); });
}

TEST(DeviceFrameCatalogTests, CompatibilityEndsHalfAThousandthAwayFromTheNearestNeighbour) {
    DeviceFrameCatalog catalog;
    catalog.devices = {device("half", 1, 1000, 2000)};
    // Candidates for a short side s over 10000 are (s - 1, s, s + 1) / 10000.
    EXPECT_EQ(compatibleIDs(catalog, PixelSize::unnormalized(4996, 10000)), std::vector<std::string>{"half"});
    EXPECT_EQ(compatibleIDs(catalog, PixelSize::unnormalized(5004, 10000)), std::vector<std::string>{"half"});
    EXPECT_TRUE(compatibleIDs(catalog, PixelSize::unnormalized(4993, 10000)).empty());
    EXPECT_TRUE(compatibleIDs(catalog, PixelSize::unnormalized(5007, 10000)).empty());
    // Without its neighbours 1000 by 1999 would miss by 0.00025; a short side
    // of 1 leaves out the candidate 0 / long.
    EXPECT_EQ(compatibleIDs(catalog, PixelSize::unnormalized(1999, 1000)), std::vector<std::string>{"half"});
    EXPECT_TRUE(compatibleIDs(catalog, PixelSize::unnormalized(1, 2)).size() == 1);
    EXPECT_TRUE(compatibleIDs(catalog, PixelSize::unnormalized(0, 0)).empty());
}

TEST(DeviceFrameCatalogTests, BetterFitsComeFirstAndEqualFitsFollowPriorityThenID) {
    DeviceFrameCatalog catalog;
    catalog.devices = {
        device("near", 1, 1003, 2000),   // 0.0015 away from 1:2
        device("exact-b", 5, 500, 1000), // exact, priority 5
        device("closer", 9, 1001, 2000), // 0.0005 away
        device("exact-a", 5, 1000, 2000), device("exact-first", 2, 2000, 4000),
        device("square", 0, 1000, 1000),
    };
    // The same ratio through a screen rectangle: 1231 * (1000 / 1231) is
    // 999.9999999999999, a fit that differs from exact in its last bits only.
    catalog.devices.push_back(device("exact-scaled", 3, 1231, 2000));
    catalog.devices.back().screenRect = RectValue{0, 0, 1000.0 / 1231.0, 1};
    ASSERT_NE(catalog.devices.back().screenAspectRatio(), 0.5);
    EXPECT_EQ(compatibleIDs(catalog, PixelSize::unnormalized(2000, 4000)),
              (std::vector<std::string>{"exact-first", "exact-scaled", "exact-a", "exact-b", "closer"}));
    EXPECT_EQ(catalog.defaultAssetID(PixelSize(4000, 2000)), "exact-first-black");
}

TEST(DeviceFrameCatalogTests, TheBuiltCatalogGivesCommonSizesTheirDefaultAssetAndResolvesAssetIDs) {
    const auto catalog = shippedCatalog();
    // The resource directory of this build, where the pictures are drawn,
    // holds the shipped catalog with every picture.
    const fs::path buildResources = testing::buildDirectory();
    ASSERT_FALSE(buildResources.empty()) << "RILO_BUILD_DIR is not set";
    EXPECT_EQ(DeviceFrameCatalog::load(buildResources), catalog);
    // Encoded sizes are even, so 1179 arrives as 1178: the neighbouring ratios
    // still find the device.
    EXPECT_EQ(catalog.defaultAssetID(PixelSize(1179, 2556)), "phone-6-1-black");
    EXPECT_EQ(catalog.defaultAssetID(PixelSize(1920, 1080)), "phone-5-5-16x9-black");
    EXPECT_EQ(catalog.defaultAssetID(PixelSize(2388, 1668)), "tablet-11-gray");
    EXPECT_EQ(catalog.defaultAssetID(PixelSize(1080, 1080)), std::nullopt);
    const auto blue = catalog.descriptor("phone-6-1-blue");
    ASSERT_TRUE(blue.has_value());
    EXPECT_EQ(blue->descriptor.id, "phone-6-1");
    EXPECT_FALSE(catalog.descriptor("phone-6-1").has_value()) << "a device id is not an asset id";
    EXPECT_FALSE(catalog.descriptor("PHONE-6-1-BLUE").has_value());
}

TEST(DeviceFrameCatalogTests, ValidationRefusesMalformedCatalogs) {
    const auto valid = shippedCatalog();
    ASSERT_NO_THROW(valid.validate());

    const std::vector<std::pair<std::string, std::function<void(DeviceFrameCatalog&)>>> faults{
        {"schema 2", [](auto& c) { c.schemaVersion = 2; }},
        {"23 devices", [](auto& c) { c.devices.pop_back(); }},
        {"25 devices", [](auto& c) { c.devices.push_back(c.devices.front()); }},
        {"no default variant", [](auto& c) { c.devices[3].variants[0].isDefault = false; }},
        {"no variants", [](auto& c) { c.devices[3].variants.clear(); }},
        {"zero width", [](auto& c) { c.devices[5].outerPixelSize.width = 0; }},
        {"negative x", [](auto& c) { c.devices[7].screenRect.x = -0.01; }},
        {"zero width", [](auto& c) { c.devices[7].screenRect.width = 0; }},
        {"past the right", [](auto& c) { c.devices[7].screenRect.width = 1.01 - c.devices[7].screenRect.x; }},
        {"NaN rectangle", [](auto& c) { c.devices[7].screenRect.x = std::nan(""); }},
        {"negative radius", [](auto& c) { c.devices[9].screenCornerRadius = -0.01; }},
        {"infinite radius", [](auto& c) { c.devices[9].screenCornerRadius = INFINITY; }},
    };
    for (const auto& [name, fault] : faults) {
        SCOPED_TRACE(name);
        auto catalog = valid;
        fault(catalog);
        EXPECT_EQ(testing::thrownCase<DeviceFrameCatalogError>([&] { catalog.validate(); }),
                  Case::invalidCatalog);
    }

    // The edges themselves are allowed: a screen filling the picture, square corners.
    auto edges = valid;
    edges.devices[0].screenRect = RectValue{0, 0, 1, 1};
    edges.devices[0].screenCornerRadius = 0;
    EXPECT_NO_THROW(edges.validate());
}

class DeviceFrameCatalogLoadingTests : public ::testing::Test {
protected:
    testing::TemporaryDirectory resources;

    void writeCatalog(const fs::path& relativePath, const std::string& bytes) {
        fs::create_directories((resources.path() / relativePath).parent_path());
        writeFileAtomically(resources.path() / relativePath, bytes);
    }

    // Empty stand-ins: loading only needs each picture to exist.
    void writePictures(const DeviceFrameCatalog& catalog, const fs::path& subdirectory) {
        const auto directory = subdirectory.empty() ? resources.path() : resources.path() / subdirectory;
        fs::create_directories(directory);
        for (const auto& device : catalog.devices) {
            for (const auto& variant : device.variants) {
                std::ofstream(directory / variant.file).put('\0');
            }
        }
    }
};

TEST_F(DeviceFrameCatalogLoadingTests, MissingUndecodableOrInvalidCatalogsAreReportedAsSuch) {
    EXPECT_EQ(caseOfLoading(resources.path()), Case::missingCatalog);
    // A directory of that name is not a catalog.
    fs::create_directories(resources.path() / "DeviceFrames/catalog.json");
    EXPECT_EQ(caseOfLoading(resources.path()), Case::missingCatalog);
    fs::remove(resources.path() / "DeviceFrames/catalog.json");

    for (const std::string bytes : {"not json", R"({"schemaVersion": 1})"}) {
        SCOPED_TRACE(bytes);
        writeCatalog("DeviceFrames/catalog.json", bytes);
        EXPECT_EQ(caseOfLoading(resources.path()), Case::invalidCatalog);
    }

    // A device without its corner radius.
    auto document = json::parse(sourceCatalogBytes());
    document["devices"][4].erase("screenCornerRadius");
    writeCatalog("DeviceFrames/catalog.json", document.dump());
    EXPECT_EQ(caseOfLoading(resources.path()), Case::invalidCatalog);

    auto catalog = shippedCatalog();
    catalog.devices[2].screenRect.height = 1.5;
    writePictures(catalog, "DeviceFrames");
    writeCatalog("DeviceFrames/catalog.json", json::encodeDocument(catalog));
    EXPECT_EQ(caseOfLoading(resources.path()), Case::invalidCatalog);
}

TEST_F(DeviceFrameCatalogLoadingTests, PicturesAreLookedForInDeviceFramesThenAtTheTop) {
    const auto catalog = shippedCatalog();
    writeCatalog("DeviceFrames/catalog.json", sourceCatalogBytes());
    writePictures(catalog, "DeviceFrames");
    EXPECT_EQ(DeviceFrameCatalog::load(resources.path()), catalog);

    const auto& variant = catalog.devices[10].variants.back();
    fs::remove(resources.path() / "DeviceFrames" / variant.file);
    const auto error =
        testing::thrown<DeviceFrameCatalogError>([&] { DeviceFrameCatalog::load(resources.path()); });
    ASSERT_TRUE(error) << "loaded";
    EXPECT_EQ(error->errorCase(), Case::missingAsset);
    EXPECT_EQ(error->assetName(), variant.file);
    EXPECT_EQ(error->message(), "设备边框资源不存在：" + variant.file);
    EXPECT_FALSE(DeviceFrameCatalog::resourceURL(variant, resources.path()).has_value());
    // Without a resource directory the pictures are not looked for.
    EXPECT_NO_THROW(catalog.validate());

    // A picture at the top of the directory is found too, after DeviceFrames.
    writePictures(catalog, "");
    EXPECT_EQ(DeviceFrameCatalog::resourceURL(variant, resources.path()), resources.path() / variant.file);
    EXPECT_EQ(DeviceFrameCatalog::resourceURL(catalog.devices[0].variants[0], resources.path()),
              resources.path() / "DeviceFrames" / catalog.devices[0].variants[0].file);
}

} // namespace
} // namespace rilo

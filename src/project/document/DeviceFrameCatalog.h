#pragma once

// The device pictures that ship with the application. A phone or tablet
// recording can be shown inside one of them; the timeline keeps only the id of
// a colour variant, and everything else about the picture comes from here.
//
// The catalog is the read-only resource DeviceFrames/catalog.json in the
// application's resource directory, with the pictures beside it. The values
// are immutable once loaded and safe to share between threads.

#include "shared/Errors.h"
#include "shared/Geometry.h"
#include "shared/Json.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace rilo {

class DeviceFrameCatalogError : public LocalizedError {
public:
    enum class Case {
        missingCatalog,
        invalidCatalog,
        missingAsset,
    };

    static DeviceFrameCatalogError missingCatalog() {
        return DeviceFrameCatalogError(Case::missingCatalog, {});
    }
    static DeviceFrameCatalogError invalidCatalog() {
        return DeviceFrameCatalogError(Case::invalidCatalog, {});
    }
    static DeviceFrameCatalogError missingAsset(std::string name) {
        return DeviceFrameCatalogError(Case::missingAsset, std::move(name));
    }

    Case errorCase() const noexcept { return case_; }
    // The picture's file name for missingAsset; empty otherwise.
    const std::string& assetName() const noexcept { return assetName_; }

private:
    DeviceFrameCatalogError(Case errorCase, std::string assetName);

    Case case_;
    std::string assetName_;
};

// One colour of a device. Its id is the asset id stored in a timeline.
struct DeviceFrameVariant {
    std::string id;
    std::string name;
    std::string file;
    bool isDefault = false;

    friend bool operator==(const DeviceFrameVariant&, const DeviceFrameVariant&) = default;
};

struct DeviceFrameDescriptor {
    std::string id;
    std::string name;
    // Rank among devices whose screens fit a recording equally well; the lower
    // number comes first.
    std::int64_t priority = 0;
    // Size of the picture, portrait.
    PixelSize outerPixelSize;
    // Where the screen lies in the picture, normalised 0...1 from the top left.
    RectValue screenRect;
    // Corner radius of the screen as a fraction of the screen's shorter side.
    double screenCornerRadius = 0;
    std::vector<DeviceFrameVariant> variants;

    // Width over height of the screen in picture pixels.
    double screenAspectRatio() const noexcept;
    // The first variant marked as default.
    std::optional<DeviceFrameVariant> defaultVariant() const;

    friend bool operator==(const DeviceFrameDescriptor&, const DeviceFrameDescriptor&) = default;
};

// A variant together with the device it belongs to.
struct DeviceFrameAsset {
    DeviceFrameDescriptor descriptor;
    DeviceFrameVariant variant;

    friend bool operator==(const DeviceFrameAsset&, const DeviceFrameAsset&) = default;
};

struct DeviceFrameCatalog {
    // The catalog and the code ship together: any other version or count is a
    // packaging fault.
    static constexpr std::int64_t currentSchemaVersion = 1;
    static constexpr std::size_t deviceCount = 24;

    std::int64_t schemaVersion = currentSchemaVersion;
    std::vector<DeviceFrameDescriptor> devices;

    // The directory holding the running executable, where the build places
    // the resources.
    static std::filesystem::path applicationResourceDirectory();

    // The catalog of the application's resource directory, validated together
    // with its pictures. It is loaded on the first call and the outcome is
    // kept: later calls return the same catalog, or throw the same error.
    static const DeviceFrameCatalog& bundled();

    // Loads and validates the catalog of a resource directory, without caching.
    // Looks for DeviceFrames/catalog.json, then catalog.json at the top.
    // Throws missingCatalog when neither exists, invalidCatalog when the file
    // can't be read or decoded or fails validation, missingAsset for a picture
    // that isn't there.
    static DeviceFrameCatalog load(const std::filesystem::path& resourceDirectory);

    // Decodes catalog JSON without validating it; throws invalidCatalog.
    static DeviceFrameCatalog decode(std::string_view bytes);

    // Throws invalidCatalog for a wrong version or count, a device without a
    // default variant, a non-positive picture size, a screen rectangle outside
    // the picture or empty, or a negative or non-finite corner radius; with a
    // resource directory, missingAsset for the first picture not found there.
    void validate(const std::optional<std::filesystem::path>& resourceDirectory = std::nullopt) const;

    // The device and variant that carry this asset id.
    std::optional<DeviceFrameAsset> descriptor(std::string_view assetID) const;

    // The devices whose screen has the aspect ratio of a recording of this
    // size, in either orientation, best fit first. The ratios one pixel either
    // side of the short edge count too, which absorbs the rounding of encoded
    // sizes to even numbers; a device fits when its ratio lies within 0.0005 of
    // one of them. Equal fits (to within a billionth, since the ratios come
    // from products of doubles) are ordered by priority, lower first, then id.
    std::vector<DeviceFrameDescriptor> compatibleDevices(PixelSize pixelSize) const;

    // The default variant of the best fitting device.
    std::optional<std::string> defaultAssetID(PixelSize pixelSize) const;

    // The variant's picture: DeviceFrames/<file>, then <file> at the top of
    // the resource directory; none when neither is a file.
    static std::optional<std::filesystem::path> resourceURL(const DeviceFrameVariant& variant,
                                                            const std::filesystem::path& resourceDirectory);

    friend bool operator==(const DeviceFrameCatalog&, const DeviceFrameCatalog&) = default;
};

namespace json {

template <>
struct Codec<DeviceFrameVariant> {
    static DeviceFrameVariant decode(const Json& value, const std::string& path);
    static Json encode(const DeviceFrameVariant& value);
};

template <>
struct Codec<DeviceFrameDescriptor> {
    static DeviceFrameDescriptor decode(const Json& value, const std::string& path);
    static Json encode(const DeviceFrameDescriptor& value);
};

template <>
struct Codec<DeviceFrameCatalog> {
    static DeviceFrameCatalog decode(const Json& value, const std::string& path);
    static Json encode(const DeviceFrameCatalog& value);
};

} // namespace json

} // namespace rilo

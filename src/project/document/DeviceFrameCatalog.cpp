#include "project/document/DeviceFrameCatalog.h"

#include "shared/Files.h"
#include "shared/ValueCodecs.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <system_error>
#include <tuple>

namespace rilo {

namespace {

constexpr std::string_view resourceSubdirectory = "DeviceFrames";
constexpr std::string_view catalogFileName = "catalog.json";
// A device fits when round(score / step) is 0, that is within half a step.
constexpr double compatibilityStep = 0.001;
// Scores closer than this are the same fit: equal ratios reached through
// different products of doubles differ in their last bits only.
constexpr double scoreResolution = 1e-9;

std::string messageFor(DeviceFrameCatalogError::Case errorCase, const std::string& assetName) {
    switch (errorCase) {
    case DeviceFrameCatalogError::Case::missingCatalog:
        return "设备边框目录不存在。";
    case DeviceFrameCatalogError::Case::invalidCatalog:
        return "设备边框目录无效。";
    case DeviceFrameCatalogError::Case::missingAsset:
        return "设备边框资源不存在：" + assetName;
    }
    return "设备边框目录无效。";
}

bool isRegularFile(const std::filesystem::path& path) {
    std::error_code error;
    return std::filesystem::is_regular_file(path, error);
}

// The file in DeviceFrames/, else at the top of the resource directory.
std::optional<std::filesystem::path> findResource(const std::filesystem::path& resourceDirectory,
                                                  const std::filesystem::path& fileName) {
    if (resourceDirectory.empty() || fileName.empty()) {
        return std::nullopt;
    }
    for (const auto& candidate :
         {resourceDirectory / resourceSubdirectory / fileName, resourceDirectory / fileName}) {
        if (isRegularFile(candidate)) {
            return candidate;
        }
    }
    return std::nullopt;
}

bool isInsideUnitSquare(const RectValue& rect) {
    // Written so that a NaN anywhere fails.
    return rect.x >= 0 && rect.y >= 0 && rect.width > 0 && rect.height > 0 && rect.maxX() <= 1 &&
           rect.maxY() <= 1;
}

bool isStructurallyValid(const DeviceFrameDescriptor& device) {
    return device.defaultVariant().has_value() && device.outerPixelSize.width > 0 &&
           device.outerPixelSize.height > 0 && isInsideUnitSquare(device.screenRect) &&
           std::isfinite(device.screenCornerRadius) && device.screenCornerRadius >= 0;
}

} // namespace

DeviceFrameCatalogError::DeviceFrameCatalogError(Case errorCase, std::string assetName)
    : LocalizedError(messageFor(errorCase, assetName))
    , case_(errorCase)
    , assetName_(std::move(assetName)) {}

double DeviceFrameDescriptor::screenAspectRatio() const noexcept {
    const double width = screenRect.width * static_cast<double>(outerPixelSize.width);
    const double height = screenRect.height * static_cast<double>(outerPixelSize.height);
    return width / std::max(1.0, height);
}

std::optional<DeviceFrameVariant> DeviceFrameDescriptor::defaultVariant() const {
    const auto found =
        std::find_if(variants.begin(), variants.end(), [](const auto& variant) { return variant.isDefault; });
    if (found == variants.end()) {
        return std::nullopt;
    }
    return *found;
}

std::filesystem::path DeviceFrameCatalog::applicationResourceDirectory() {
    std::error_code error;
    const auto executable = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) {
        return {};
    }
    return executable.parent_path();
}

const DeviceFrameCatalog& DeviceFrameCatalog::bundled() {
    // The outcome of the one load, success or failure, is kept for the life of
    // the process: the resources don't change under a running program.
    struct Outcome {
        std::optional<DeviceFrameCatalog> catalog;
        std::optional<DeviceFrameCatalogError> error;
    };
    static const Outcome outcome = [] {
        try {
            return Outcome{load(applicationResourceDirectory()), std::nullopt};
        } catch (const DeviceFrameCatalogError& error) {
            return Outcome{std::nullopt, error};
        }
    }();
    if (outcome.error) {
        throw *outcome.error;
    }
    return *outcome.catalog;
}

DeviceFrameCatalog DeviceFrameCatalog::load(const std::filesystem::path& resourceDirectory) {
    const auto location = findResource(resourceDirectory, catalogFileName);
    if (!location) {
        throw DeviceFrameCatalogError::missingCatalog();
    }
    std::string bytes;
    try {
        bytes = readFileBytes(*location);
    } catch (const FileError&) {
        throw DeviceFrameCatalogError::invalidCatalog();
    }
    auto catalog = decode(bytes);
    catalog.validate(resourceDirectory);
    return catalog;
}

DeviceFrameCatalog DeviceFrameCatalog::decode(std::string_view bytes) {
    try {
        return json::decodeDocument<DeviceFrameCatalog>(bytes);
    } catch (const json::DecodingError&) {
        throw DeviceFrameCatalogError::invalidCatalog();
    } catch (const json::Json::exception&) {
        throw DeviceFrameCatalogError::invalidCatalog();
    }
}

void DeviceFrameCatalog::validate(const std::optional<std::filesystem::path>& resourceDirectory) const {
    if (schemaVersion != currentSchemaVersion || devices.size() != deviceCount) {
        throw DeviceFrameCatalogError::invalidCatalog();
    }
    if (!std::all_of(devices.begin(), devices.end(), isStructurallyValid)) {
        throw DeviceFrameCatalogError::invalidCatalog();
    }
    if (!resourceDirectory) {
        return;
    }
    for (const auto& device : devices) {
        for (const auto& variant : device.variants) {
            if (!resourceURL(variant, *resourceDirectory)) {
                throw DeviceFrameCatalogError::missingAsset(variant.file);
            }
        }
    }
}

std::optional<DeviceFrameAsset> DeviceFrameCatalog::descriptor(std::string_view assetID) const {
    for (const auto& device : devices) {
        for (const auto& variant : device.variants) {
            if (variant.id == assetID) {
                return DeviceFrameAsset{device, variant};
            }
        }
    }
    return std::nullopt;
}

std::vector<DeviceFrameDescriptor> DeviceFrameCatalog::compatibleDevices(PixelSize pixelSize) const {
    // The picture can be rotated, so only the short side over the long side matters.
    const auto shortSide = static_cast<double>(std::min(pixelSize.width, pixelSize.height));
    const auto longSide = static_cast<double>(std::max(pixelSize.width, pixelSize.height));
    if (longSide < 1) {
        return {};
    }
    std::vector<double> candidates;
    for (const double numerator : {shortSide - 1, shortSide, shortSide + 1}) {
        if (numerator >= 1) {
            candidates.push_back(numerator / longSide);
        }
    }

    struct Match {
        double score;
        const DeviceFrameDescriptor* device;
    };
    std::vector<Match> matches;
    for (const auto& device : devices) {
        const double aspect = device.screenAspectRatio();
        if (!(aspect > 0) || !std::isfinite(aspect)) {
            continue;
        }
        const double ratio = aspect <= 1 ? aspect : 1 / aspect;
        double score = std::numeric_limits<double>::infinity();
        for (const double candidate : candidates) {
            score = std::min(score, std::abs(candidate - ratio));
        }
        if (std::isfinite(score) && std::round(score / compatibilityStep) == 0) {
            matches.push_back({score, &device});
        }
    }

    const auto sortKey = [](const Match& match) {
        return std::make_tuple(std::llround(match.score / scoreResolution), match.device->priority,
                               std::string_view(match.device->id));
    };
    std::sort(matches.begin(), matches.end(),
              [&](const Match& a, const Match& b) { return sortKey(a) < sortKey(b); });

    std::vector<DeviceFrameDescriptor> result;
    result.reserve(matches.size());
    for (const auto& match : matches) {
        result.push_back(*match.device);
    }
    return result;
}

std::optional<std::string> DeviceFrameCatalog::defaultAssetID(PixelSize pixelSize) const {
    const auto compatible = compatibleDevices(pixelSize);
    if (compatible.empty()) {
        return std::nullopt;
    }
    if (const auto variant = compatible.front().defaultVariant()) {
        return variant->id;
    }
    return std::nullopt;
}

std::optional<std::filesystem::path>
DeviceFrameCatalog::resourceURL(const DeviceFrameVariant& variant,
                                const std::filesystem::path& resourceDirectory) {
    return findResource(resourceDirectory, variant.file);
}

namespace json {

DeviceFrameVariant Codec<DeviceFrameVariant>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    return {reader.required<std::string>("id"), reader.required<std::string>("name"),
            reader.required<std::string>("file"), reader.required<bool>("isDefault")};
}

Json Codec<DeviceFrameVariant>::encode(const DeviceFrameVariant& value) {
    return ObjectBuilder()
        .set("id", value.id)
        .set("name", value.name)
        .set("file", value.file)
        .set("isDefault", value.isDefault)
        .build();
}

DeviceFrameDescriptor Codec<DeviceFrameDescriptor>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    return {reader.required<std::string>("id"),
            reader.required<std::string>("name"),
            reader.required<std::int64_t>("priority"),
            reader.required<PixelSize>("outerPixelSize"),
            reader.required<RectValue>("screenRect"),
            reader.required<double>("screenCornerRadius"),
            reader.required<std::vector<DeviceFrameVariant>>("variants")};
}

Json Codec<DeviceFrameDescriptor>::encode(const DeviceFrameDescriptor& value) {
    return ObjectBuilder()
        .set("id", value.id)
        .set("name", value.name)
        .set("priority", value.priority)
        .set("outerPixelSize", value.outerPixelSize)
        .set("screenRect", value.screenRect)
        .set("screenCornerRadius", value.screenCornerRadius)
        .set("variants", value.variants)
        .build();
}

DeviceFrameCatalog Codec<DeviceFrameCatalog>::decode(const Json& value, const std::string& path) {
    const ObjectReader reader(value, path);
    return {reader.required<std::int64_t>("schemaVersion"),
            reader.required<std::vector<DeviceFrameDescriptor>>("devices")};
}

Json Codec<DeviceFrameCatalog>::encode(const DeviceFrameCatalog& value) {
    return ObjectBuilder().set("schemaVersion", value.schemaVersion).set("devices", value.devices).build();
}

} // namespace json

} // namespace rilo

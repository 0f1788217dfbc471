#include "project/store/CursorAssetStore.h"

#include "shared/Errors.h"
#include "shared/Files.h"
#include "shared/Json.h"
#include "shared/Sha256.h"
#include "shared/ValueCodecs.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <system_error>

namespace rilo {

namespace {

// Where the store's files lie relative to the package root.
constexpr std::string_view relativeAssetsDirectory = "cursor/assets/";

std::array<char, 8> littleEndianBytes(double value) noexcept {
    const auto bits = std::bit_cast<std::uint64_t>(value);
    std::array<char, 8> bytes{};
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<char>((bits >> (8 * i)) & 0xFF);
    }
    return bytes;
}

void sortByID(std::vector<CursorAssetDescriptor>& descriptors) {
    std::sort(descriptors.begin(), descriptors.end(),
              [](const CursorAssetDescriptor& a, const CursorAssetDescriptor& b) { return a.id < b.id; });
}

} // namespace

CursorAssetStore::CursorAssetStore(std::filesystem::path assetsDirectory)
    : assetsDirectory_(std::move(assetsDirectory)) {
    std::error_code error;
    std::filesystem::create_directories(assetsDirectory_, error);
    if (error || !std::filesystem::is_directory(assetsDirectory_)) {
        throw FileError("无法创建光标资源目录：" + assetsDirectory_.string());
    }
    for (auto& descriptor : readDescriptors(assetsDirectory_)) {
        std::string id = descriptor.id;
        descriptorsByID_.emplace(std::move(id), std::move(descriptor));
    }
}

std::string CursorAssetStore::assetID(std::string_view pngData, SizeValue logicalSize, PointValue hotSpot) {
    const auto width = littleEndianBytes(logicalSize.width);
    const auto height = littleEndianBytes(logicalSize.height);
    const auto x = littleEndianBytes(hotSpot.x);
    const auto y = littleEndianBytes(hotSpot.y);
    const std::array<std::string_view, 5> parts{
        pngData,
        {width.data(), width.size()},
        {height.data(), height.size()},
        {x.data(), x.size()},
        {y.data(), y.size()},
    };
    return sha256Hex(parts);
}

CursorAssetDescriptor CursorAssetStore::store(std::string_view pngData, SizeValue logicalSize,
                                              PointValue hotSpot) {
    const std::string id = assetID(pngData, logicalSize, hotSpot);

    // Held across the writes on purpose: a second thread with the same image
    // must find it recorded rather than write it again.
    const std::scoped_lock guard(lock_);
    if (const auto found = descriptorsByID_.find(id); found != descriptorsByID_.end()) {
        return found->second;
    }
    writeFileAtomically(assetsDirectory_ / (id + ".png"), pngData);
    CursorAssetDescriptor descriptor{id, std::string(relativeAssetsDirectory) + id + ".png", logicalSize,
                                     hotSpot};
    writeFileAtomically(assetsDirectory_ / (id + ".json"), json::encodeDocument(descriptor));
    descriptorsByID_.emplace(id, descriptor);
    return descriptor;
}

std::vector<CursorAssetDescriptor> CursorAssetStore::descriptors() const {
    std::vector<CursorAssetDescriptor> result;
    {
        const std::scoped_lock guard(lock_);
        result.reserve(descriptorsByID_.size());
        for (const auto& [id, descriptor] : descriptorsByID_) {
            result.push_back(descriptor);
        }
    }
    sortByID(result);
    return result;
}

std::vector<CursorAssetDescriptor> CursorAssetStore::readDescriptors(const std::filesystem::path& directory) {
    std::vector<CursorAssetDescriptor> result;
    std::error_code error;
    std::filesystem::directory_iterator entries(directory, error);
    if (error) {
        return result;
    }
    for (const auto& entry : entries) {
        const std::filesystem::path& path = entry.path();
        if (path.extension() != ".json") {
            continue;
        }
        try {
            result.push_back(json::decodeDocument<CursorAssetDescriptor>(readFileBytes(path)));
        } catch (const LocalizedError&) {
            continue;
        }
    }
    sortByID(result);
    return result;
}

std::vector<CursorAssetPayload>
CursorAssetStore::readPayloads(const std::filesystem::path& packageRoot,
                               const std::vector<CursorAssetDescriptor>& descriptors) {
    std::vector<CursorAssetPayload> payloads;
    payloads.reserve(descriptors.size());
    for (const auto& descriptor : descriptors) {
        try {
            payloads.push_back({descriptor, readFileBytes(packageRoot / descriptor.relativePath)});
        } catch (const FileError&) {
            continue;
        }
    }
    return payloads;
}

} // namespace rilo

#pragma once

// The cursor images of one package, in cursor/assets. Each distinct image is
// stored once, as <id>.png beside its descriptor <id>.json, where the id is a
// digest of the PNG bytes together with the logical size and the hot spot:
// the same picture with another hot spot is another asset.
//
// store() is called from the capture path and from background threads. One
// lock covers the whole check-and-write, so two threads storing the same image
// write it once. A write failure is thrown and the asset is not recorded, so
// the next call retries. The descriptor is written after its image: a crash in
// between leaves an image that nothing refers to, which does no harm.

#include "project/document/ProjectManifest.h"
#include "project/store/CursorAssetPayload.h"
#include "shared/Geometry.h"

#include <filesystem>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace rilo {

class CursorAssetStore {
public:
    // Creates the directory with its parents (FileError on failure) and loads
    // the descriptors already there.
    explicit CursorAssetStore(std::filesystem::path assetsDirectory);

    CursorAssetStore(const CursorAssetStore&) = delete;
    CursorAssetStore& operator=(const CursorAssetStore&) = delete;

    const std::filesystem::path& assetsDirectory() const noexcept { return assetsDirectory_; }

    // The descriptor of the image; an image already stored is returned as it
    // is and nothing is written. Throws FileError when a file cannot be written.
    CursorAssetDescriptor store(std::string_view pngData, SizeValue logicalSize, PointValue hotSpot);

    // Everything stored, sorted by id.
    std::vector<CursorAssetDescriptor> descriptors() const;

    // The content id: SHA-256, in lower-case hexadecimal, of the PNG bytes
    // followed by the little-endian bit patterns of logicalSize.width,
    // logicalSize.height, hotSpot.x and hotSpot.y as 64-bit doubles.
    static std::string assetID(std::string_view pngData, SizeValue logicalSize, PointValue hotSpot);

    // The descriptors of a directory, sorted by id. A directory that cannot be
    // listed gives none; a .json file that cannot be read or decoded is left out.
    static std::vector<CursorAssetDescriptor> readDescriptors(const std::filesystem::path& directory);

    // The PNG bytes of each descriptor, read from its relativePath under the
    // package root, in the order given. A file that cannot be read is left out.
    static std::vector<CursorAssetPayload>
    readPayloads(const std::filesystem::path& packageRoot,
                 const std::vector<CursorAssetDescriptor>& descriptors);

private:
    std::filesystem::path assetsDirectory_;
    mutable std::mutex lock_;
    std::map<std::string, CursorAssetDescriptor> descriptorsByID_; // guarded by lock_
};

} // namespace rilo

#pragma once

// Pictures kept in memory by a string key, up to a number of bytes of
// pixels: adding beyond that drops the pictures used least recently. Any
// thread may call; the lock is held for the bookkeeping only. The owner may
// empty it at any time (when memory runs short), and callers then make the
// pictures again.

#include "media/PngCodec.h"

#include <cstddef>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>

namespace rilo {

class PictureMemoryCache {
public:
    explicit PictureMemoryCache(std::size_t capacityBytes)
        : capacityBytes_(capacityBytes) {}
    PictureMemoryCache(const PictureMemoryCache&) = delete;
    PictureMemoryCache& operator=(const PictureMemoryCache&) = delete;

    // The picture under the key, which becomes the most recently used.
    std::optional<RgbaImage> find(const std::string& key) {
        const std::lock_guard lock(mutex_);
        const auto found = index_.find(key);
        if (found == index_.end()) {
            return std::nullopt;
        }
        entries_.splice(entries_.begin(), entries_, found->second);
        return found->second->second;
    }

    // Keeps the picture under the key (replacing what was there), then drops
    // the least recently used pictures until the total fits. A picture larger
    // than the whole capacity is not kept.
    void insert(const std::string& key, RgbaImage image) {
        const std::size_t cost = image.pixels.size();
        const std::lock_guard lock(mutex_);
        if (const auto found = index_.find(key); found != index_.end()) {
            sizeBytes_ -= found->second->second.pixels.size();
            entries_.erase(found->second);
            index_.erase(found);
        }
        if (cost > capacityBytes_) {
            return;
        }
        entries_.emplace_front(key, std::move(image));
        index_.emplace(key, entries_.begin());
        sizeBytes_ += cost;
        while (sizeBytes_ > capacityBytes_) {
            sizeBytes_ -= entries_.back().second.pixels.size();
            index_.erase(entries_.back().first);
            entries_.pop_back();
        }
    }

    void removeAll() {
        const std::lock_guard lock(mutex_);
        entries_.clear();
        index_.clear();
        sizeBytes_ = 0;
    }

    // Bytes of pixels now kept.
    std::size_t sizeBytes() const {
        const std::lock_guard lock(mutex_);
        return sizeBytes_;
    }

private:
    using Entry = std::pair<std::string, RgbaImage>;

    const std::size_t capacityBytes_;
    mutable std::mutex mutex_;
    // Most recently used first.
    std::list<Entry> entries_;
    std::unordered_map<std::string, std::list<Entry>::iterator> index_;
    std::size_t sizeBytes_ = 0;
};

} // namespace rilo

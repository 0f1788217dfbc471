#pragma once

// ChunkStore<T> keeps the samples of one kind that a recording observes
// (mouse events, geometry, cursor shapes) as a numbered series of small,
// compact JSON files in one directory: 000000.json, 000001.json, ...
//
// Contract:
// - append and flushIfDue are called from capture threads at high rates. They
//   only touch the in-memory buffer under a short lock; encoding and every
//   file operation run on the store's own serial I/O thread, so the capture
//   path never waits for the disk. Any thread may call any member.
// - A chunk is handed to the I/O thread when it holds maximumCount samples or
//   when its samples span maximumSpanNanoseconds. It is written to
//   `active.tmp` and then renamed to its number, so a numbered file is always
//   complete; after a crash the directory holds whole chunks and perhaps an
//   `active.tmp`, which readers ignore. Samples still in the buffer are lost.
// - The first failure of a background write is remembered; from then on
//   append, flushIfDue and flush throw it, and the samples of the failed
//   chunk are gone.
// - A store opened on a directory with chunks continues after the highest
//   number and overwrites nothing.
// - Destruction waits for the chunks already handed to the I/O thread and
//   drops what is still in the buffer: call flush() first to keep it.

#include "project/store/ChunkDecoding.h"
#include "shared/Json.h"
#include "shared/ProjectTime.h"
#include "shared/SerialQueue.h"

#include <concepts>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace rilo {

// What the recording sessions use for each of their stores.
inline constexpr std::int64_t recordingChunkMaximumCount = 500;
inline constexpr std::int64_t recordingChunkMaximumSpanNanoseconds = 2'000'000'000;

// The file work of the chunk series, apart from the sample type.
namespace ChunkFiles {

// The file a chunk is written to before it gets its number.
inline constexpr std::string_view activeFileName = "active.tmp";
// The label of the I/O thread of every store.
inline constexpr std::string_view ioQueueLabel = "Rilo.ChunkStore.IO";

// "000042.json": the index in at least six digits with leading zeros.
std::string chunkFileName(std::int64_t index);

// The chunk files of a directory, sorted by name: visible regular files whose
// name ends in ".json". Empty when the directory does not exist; throws
// FileError when it cannot be listed.
std::vector<std::filesystem::path> list(const std::filesystem::path& directory);

// Creates the directory with its parents and answers the number after the
// highest numbered chunk in it (0 when there is none). Throws FileError.
std::int64_t prepareDirectory(const std::filesystem::path& directory);

// Writes the bytes to `active.tmp` and renames that to the chunk's name.
// Throws FileError.
void write(const std::filesystem::path& directory, std::int64_t index, std::string_view bytes);

} // namespace ChunkFiles

// Samples are records: their keys are spelled once, for the writer and the reader.
template <class T>
concept ChunkSample = std::movable<T> && std::copy_constructible<T> && json::Record<T>;

template <ChunkSample T>
class ChunkStore {
public:
    using TimeProvider = std::function<ProjectTime(const T&)>;

    // Creates the directory and finds the next chunk number. Throws FileError.
    ChunkStore(std::filesystem::path directory, std::int64_t maximumCount,
               std::int64_t maximumSpanNanoseconds, TimeProvider timeProvider)
        : directory_(std::move(directory))
        , maximumCount_(maximumCount)
        , maximumSpanNanoseconds_(maximumSpanNanoseconds)
        , timeProvider_(std::move(timeProvider))
        , nextIndex_(ChunkFiles::prepareDirectory(directory_))
        , ioQueue_(ChunkFiles::ioQueueLabel) {}

    ChunkStore(const ChunkStore&) = delete;
    ChunkStore& operator=(const ChunkStore&) = delete;

    const std::filesystem::path& directory() const noexcept { return directory_; }

    // Takes the sample, and hands the buffer over when it is full or spans
    // the maximum. Throws the remembered write error, and then the sample is
    // not taken.
    void append(T sample) {
        const std::lock_guard guard(lock_);
        throwWriteErrorLocked();
        const ProjectTime time = timeProvider_(sample);
        if (!firstTime_) {
            firstTime_ = time;
        }
        buffer_.push_back(std::move(sample));
        if (static_cast<std::int64_t>(buffer_.size()) >= maximumCount_ ||
            (time - *firstTime_).nanoseconds >= maximumSpanNanoseconds_) {
            scheduleCommitLocked();
        }
    }

    // Hands the buffer over when the span has passed by `time`, even without
    // new samples, so that a quiet input still reaches the disk. Throws the
    // remembered write error.
    void flushIfDue(ProjectTime time) {
        const std::lock_guard guard(lock_);
        throwWriteErrorLocked();
        if (firstTime_ && (time - *firstTime_).nanoseconds >= maximumSpanNanoseconds_) {
            scheduleCommitLocked();
        }
    }

    // Hands the buffer over and returns once everything is on disk. Throws
    // the remembered write error, also one of a write that this call waited for.
    void flush() {
        {
            const std::lock_guard guard(lock_);
            throwWriteErrorLocked();
            scheduleCommitLocked();
        }
        ioQueue_.sync();
        const std::lock_guard guard(lock_);
        throwWriteErrorLocked();
    }

    // Samples in the buffer, not yet handed to the I/O thread.
    std::size_t pendingCount() const {
        const std::lock_guard guard(lock_);
        return buffer_.size();
    }

    // Every sample of the directory's chunk files, in the order of their
    // names. Empty when the directory does not exist. A file that cannot be
    // read or decoded as an array of samples fails the whole read (FileError
    // or json::DecodingError naming the file).
    static std::vector<T> readAll(const std::filesystem::path& directory) {
        return ChunkDecoding::readAll<T>(ChunkFiles::list(directory));
    }

private:
    void throwWriteErrorLocked() const {
        if (writeError_) {
            std::rethrow_exception(writeError_);
        }
    }

    void scheduleCommitLocked() {
        if (buffer_.empty()) {
            return;
        }
        std::vector<T> samples;
        samples.swap(buffer_);
        const std::int64_t index = nextIndex_++;
        firstTime_.reset();
        ioQueue_.async([this, samples = std::move(samples), index]() { writeChunk(samples, index); });
    }

    // On the I/O thread.
    void writeChunk(const std::vector<T>& samples, std::int64_t index) noexcept {
        try {
            const std::string bytes = json::write(json::encode(samples), json::JsonStyle::chunk);
            ChunkFiles::write(directory_, index, bytes);
        } catch (...) {
            const std::lock_guard guard(lock_);
            if (!writeError_) {
                writeError_ = std::current_exception();
            }
        }
    }

    mutable std::mutex lock_;
    const std::filesystem::path directory_;
    const std::int64_t maximumCount_;
    const std::int64_t maximumSpanNanoseconds_;
    const TimeProvider timeProvider_;
    std::vector<T> buffer_;
    std::optional<ProjectTime> firstTime_;
    std::int64_t nextIndex_;
    std::exception_ptr writeError_;
    // Last: destroyed first, so that queued writes finish while the fields
    // they use are still alive.
    SerialQueue ioQueue_;
};

} // namespace rilo

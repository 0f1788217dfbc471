#include "project/document/CaptureSamples.h"
#include "project/store/ChunkStore.h"
#include "shared/Errors.h"
#include "shared/Files.h"
#include "support/FileTree.h"
#include "support/TemporaryDirectory.h"
#include "support/Thrown.h"

#include <chrono>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace rilo {
namespace {

namespace fs = std::filesystem;
using CursorStore = ChunkStore<CursorShapeSample>;
using testing::entryNames;

constexpr std::int64_t noSpanLimit = 3'600'000'000'000;

CursorShapeSample cursorSample(std::int64_t number) {
    return {ProjectTime{number * 1'000'000}, "asset-" + std::to_string(number)};
}

std::vector<CursorShapeSample> cursorSamples(std::int64_t count) {
    std::vector<CursorShapeSample> samples;
    for (std::int64_t i = 0; i < count; ++i) {
        samples.push_back(cursorSample(i));
    }
    return samples;
}

CursorStore cursorStore(const fs::path& directory, std::int64_t maximumCount,
                        std::int64_t maximumSpanNanoseconds = noSpanLimit) {
    return CursorStore(directory, maximumCount, maximumSpanNanoseconds,
                       [](const CursorShapeSample& sample) { return sample.time; });
}

std::string chunkOf(const std::vector<CursorShapeSample>& samples) {
    return json::write(json::encode(samples), json::JsonStyle::chunk);
}

// The message of the decoding failure that reading the directory gives.
std::string readFailure(const fs::path& directory) {
    return testing::thrownMessage<json::DecodingError>([&] { CursorStore::readAll(directory); }).value_or("");
}

TEST(ChunkStore, SamplesRoundTripThroughSeveralCompactChunks) {
    const testing::TemporaryDirectory temporary;
    const fs::path directory = temporary / "nested/events";
    const auto samples = cursorSamples(10);
    {
        CursorStore store = cursorStore(directory, 3);
        for (std::size_t i = 0; i < samples.size(); ++i) {
            store.append(samples[i]);
            EXPECT_EQ(store.pendingCount(), (i + 1) % 3);
        }
        store.flush();
    }
    EXPECT_EQ(entryNames(directory),
              (std::vector<std::string>{"000000.json", "000001.json", "000002.json", "000003.json"}));
    const std::string first = readFileBytes(directory / "000000.json");
    EXPECT_EQ(first, chunkOf({samples[0], samples[1], samples[2]}));
    EXPECT_EQ(first.find_first_of(" \n"), std::string::npos);
    EXPECT_EQ(CursorStore::readAll(directory), samples);
}

TEST(ChunkStore, BufferIsHandedOverWhenFullOrPastItsSpanAndDroppedOnDestruction) {
    const testing::TemporaryDirectory temporary;
    const auto samples = cursorSamples(501);
    {
        CursorStore store = cursorStore(temporary / "full", recordingChunkMaximumCount);
        store.flush();
        EXPECT_TRUE(entryNames(temporary / "full").empty());
        for (std::size_t i = 0; i < 499; ++i) {
            store.append(samples[i]);
        }
        EXPECT_EQ(store.pendingCount(), 499U);
        store.append(samples[499]);
        EXPECT_EQ(store.pendingCount(), 0U);
        // Nothing left to hand over, yet the flush waits for the chunk under way.
        store.flush();
        EXPECT_EQ(json::parse(readFileBytes(temporary / "full/000000.json")).size(), 500U);
        // The last sample is still buffered when the store goes.
        store.append(samples[500]);
    }
    EXPECT_EQ(CursorStore::readAll(temporary / "full"),
              std::vector<CursorShapeSample>(samples.begin(), samples.begin() + 500));

    CursorStore store = cursorStore(temporary / "span", 500, recordingChunkMaximumSpanNanoseconds);
    store.append({ProjectTime{10'000'000'000}, "a"});
    store.append({ProjectTime{11'999'999'999}, "b"});
    EXPECT_EQ(store.pendingCount(), 2U);
    store.append({ProjectTime{12'000'000'000}, "c"});
    EXPECT_EQ(store.pendingCount(), 0U);
    // A quiet buffer goes once the span has passed, without a new sample.
    store.append({ProjectTime{20'000'000'000}, "f"});
    store.flushIfDue(ProjectTime{21'999'999'999});
    EXPECT_EQ(store.pendingCount(), 1U);
    store.flushIfDue(ProjectTime{22'000'000'000});
    EXPECT_EQ(store.pendingCount(), 0U);
}

TEST(ChunkStore, ReopenedStoreContinuesAfterTheHighestNumber) {
    const testing::TemporaryDirectory temporary;
    const fs::path directory = temporary.path();
    writeFileAtomically(directory / "000000.json", chunkOf({cursorSample(0)}));
    writeFileAtomically(directory / "000007.json", chunkOf({cursorSample(7)}));
    // Neither numbers nor visible chunks: they do not move the next number.
    writeFileAtomically(directory / ".000050.json", "[]");
    {
        CursorStore store = cursorStore(directory, 10);
        store.append(cursorSample(8));
        store.flush();
    }
    EXPECT_EQ(CursorStore::readAll(directory),
              (std::vector<CursorShapeSample>{cursorSample(0), cursorSample(7), cursorSample(8)}));
    EXPECT_TRUE(fs::exists(directory / "000008.json"));
}

TEST(ChunkStoreReadAll, ReadsJsonFilesInNameOrderAndFailsNamingADamagedOne) {
    const testing::TemporaryDirectory temporary;
    const fs::path directory = temporary.path();
    EXPECT_TRUE(CursorStore::readAll(directory / "missing").empty());

    writeFileAtomically(directory / "000001.json", chunkOf({cursorSample(3), cursorSample(4)}));
    writeFileAtomically(directory / "000000.json", chunkOf({cursorSample(1)}));
    writeFileAtomically(directory / "active.tmp", "[{\"time\":");
    writeFileAtomically(directory / ".hidden.json", "not json at all");
    fs::create_directory(directory / "folder.json");
    // A foreign .json file is read in name order like any chunk.
    writeFileAtomically(directory / "x.json", chunkOf({cursorSample(9)}));
    EXPECT_EQ(
        CursorStore::readAll(directory),
        (std::vector<CursorShapeSample>{cursorSample(1), cursorSample(3), cursorSample(4), cursorSample(9)}));

    const std::string whole = chunkOf(cursorSamples(4));
    writeFileAtomically(directory / "000001.json", whole.substr(0, whole.size() / 2));
    EXPECT_NE(readFailure(directory).find("000001.json"), std::string::npos);
    json::Json missingKey = json::encode(cursorSamples(2));
    missingKey[1].erase("assetID");
    writeFileAtomically(directory / "000001.json", json::write(missingKey, json::JsonStyle::chunk));
    EXPECT_NE(readFailure(directory).find("000001.json[1].assetID"), std::string::npos);
}

TEST(ChunkStoreFailures, WriteErrorIsRememberedAndRefusesNewSamples) {
    const testing::TemporaryDirectory temporary;
    writeFileAtomically(temporary / "occupied", "a file");
    EXPECT_THROW(cursorStore(temporary / "occupied/events", 10), FileError);

    const fs::path directory = temporary / "events";
    CursorStore store = cursorStore(directory, 2, recordingChunkMaximumSpanNanoseconds);
    fs::remove_all(directory);
    store.append(cursorSample(2));
    store.append(cursorSample(3)); // handed over; its write fails
    EXPECT_THROW(store.flush(), FileError);
    // The failure stays even once the disk would take writes again.
    fs::create_directories(directory);
    EXPECT_THROW(store.append(cursorSample(4)), FileError);
    EXPECT_THROW(store.flushIfDue(ProjectTime{60'000'000'000}), FileError);
    EXPECT_THROW(store.flush(), FileError);
    EXPECT_EQ(store.pendingCount(), 0U);
    EXPECT_TRUE(entryNames(directory).empty());
}

TEST(ChunkStoreConcurrency, AppendsFromSeveralThreadsKeepEachThreadsOrder) {
    const testing::TemporaryDirectory temporary;
    constexpr int threadCount = 4;
    constexpr int perThread = 1500;
    {
        CursorStore store = cursorStore(temporary.path(), 40);
        std::vector<std::jthread> writers;
        for (int t = 0; t < threadCount; ++t) {
            writers.emplace_back([&store, t] {
                for (int i = 0; i < perThread; ++i) {
                    store.append({ProjectTime{i}, std::to_string(t)});
                }
            });
        }
        writers.clear();
        store.flush();
    }
    // Each thread's samples come back whole and in its order.
    std::vector<std::int64_t> nextOfThread(threadCount, 0);
    for (const auto& sample : CursorStore::readAll(temporary.path())) {
        EXPECT_EQ(sample.time.nanoseconds, nextOfThread[std::stoi(sample.assetID)]++) << sample.assetID;
    }
    EXPECT_EQ(nextOfThread, std::vector<std::int64_t>(threadCount, perThread));
}

// A child records through a store, reporting each flush through a pipe, and
// is killed with SIGKILL at a random moment once enough is known to be on disk.
TEST(ChunkStoreCrash, KillWhileWritingLeavesOnlyWholeChunks) {
    constexpr std::int64_t chunkSize = 5;
    for (int attempt = 0; attempt < 6; ++attempt) {
        const testing::TemporaryDirectory temporary;
        const fs::path directory = temporary / "events";
        int reports[2];
        ASSERT_EQ(::pipe(reports), 0);
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            try {
                CursorStore store = cursorStore(directory, chunkSize);
                for (std::int64_t i = 0;; ++i) {
                    store.append(cursorSample(i));
                    if ((i + 1) % 100 == 0) {
                        store.flush();
                        const std::int64_t flushed = i + 1;
                        if (::write(reports[1], &flushed, sizeof flushed) != sizeof flushed) {
                            ::_exit(4);
                        }
                    }
                }
            } catch (...) {
                ::_exit(3);
            }
        }
        ::close(reports[1]);
        std::int64_t flushed = 0;
        while (flushed < 100 * (attempt + 1)) {
            // Reports are written whole; the pause below only picks the moment.
            ASSERT_EQ(::read(reports[0], &flushed, sizeof flushed), static_cast<ssize_t>(sizeof flushed));
        }
        std::this_thread::sleep_for(std::chrono::microseconds(3'000 * attempt));
        ::kill(child, SIGKILL);
        int status = 0;
        ::waitpid(child, &status, 0);
        ::close(reports[0]);
        ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);

        // Only whole chunks, numbered without gaps, besides the one being written.
        auto numbered = entryNames(directory);
        std::erase_if(numbered, [](const std::string& name) {
            return name == ChunkFiles::activeFileName || name.starts_with(".active.tmp.");
        });
        for (std::size_t i = 0; i < numbered.size(); ++i) {
            EXPECT_EQ(numbered[i], ChunkFiles::chunkFileName(static_cast<std::int64_t>(i)));
        }
        const auto samples = CursorStore::readAll(directory);
        EXPECT_GE(static_cast<std::int64_t>(samples.size()), flushed);
        EXPECT_EQ(samples, cursorSamples(static_cast<std::int64_t>(numbered.size()) * chunkSize));
    }
}

} // namespace
} // namespace rilo

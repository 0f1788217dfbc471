#include "project/document/CaptureSamples.h"
#include "project/store/ChunkStore.h"
#include "shared/Errors.h"
#include "shared/Files.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace rilo {
namespace {

namespace fs = std::filesystem;
using CursorStore = ChunkStore<CursorShapeSample>;

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

ProjectTime cursorTime(const CursorShapeSample& sample) {
    return sample.time;
}

CursorStore cursorStore(const fs::path& directory, std::int64_t maximumCount,
                        std::int64_t maximumSpanNanoseconds = noSpanLimit) {
    return CursorStore(directory, maximumCount, maximumSpanNanoseconds, cursorTime);
}

// Every name in the directory, hidden ones included, sorted.
std::vector<std::string> entryNames(const fs::path& directory) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(directory)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

void writeText(const fs::path& file, const std::string& text) {
    writeFileAtomically(file, text);
}

std::string chunkOf(const std::vector<CursorShapeSample>& samples) {
    return json::write(json::encode(samples), json::JsonStyle::chunk);
}

// The message of the decoding failure that reading the directory gives.
std::string readFailure(const fs::path& directory) {
    try {
        CursorStore::readAll(directory);
    } catch (const json::DecodingError& error) {
        return error.message();
    }
    ADD_FAILURE() << "the read succeeded";
    return {};
}

TEST(ChunkStore, SamplesRoundTripThroughSeveralCompactChunks) {
    const testing::TemporaryDirectory temporary;
    const fs::path directory = temporary / "nested/events";
    std::vector<MouseEvent> events(10);
    for (int i = 0; i < 10; ++i) {
        events[i].time = ProjectTime{i * 8'000'000};
        events[i].globalPoint = {10.5 * i, 20};
        events[i].phase = i % 2 == 0 ? MousePhase::down : MousePhase::up;
    }
    events[3].isInsideSource = false;
    {
        ChunkStore<MouseEvent> store(directory, 3, noSpanLimit, [](const MouseEvent& e) { return e.time; });
        for (std::size_t i = 0; i < events.size(); ++i) {
            store.append(events[i]);
            EXPECT_EQ(store.pendingCount(), (i + 1) % 3);
        }
        store.flush();
        EXPECT_EQ(store.pendingCount(), 0U);
    }
    EXPECT_EQ(entryNames(directory),
              (std::vector<std::string>{"000000.json", "000001.json", "000002.json", "000003.json"}));
    const std::string first = readFileBytes(directory / "000000.json");
    EXPECT_EQ(first, json::write(json::encode(std::vector<MouseEvent>(events.begin(), events.begin() + 3)),
                                 json::JsonStyle::chunk));
    EXPECT_EQ(first.find_first_of(" \n"), std::string::npos);
    EXPECT_EQ(ChunkStore<MouseEvent>::readAll(directory), events);
}

TEST(ChunkStore, FullBufferIsHandedOverAtOnceAndAnEmptyFlushStillWaits) {
    const testing::TemporaryDirectory temporary;
    CursorStore store = cursorStore(temporary.path(), recordingChunkMaximumCount);
    store.flush();
    EXPECT_TRUE(entryNames(temporary.path()).empty());

    const auto samples = cursorSamples(501);
    for (std::size_t i = 0; i < 499; ++i) {
        store.append(samples[i]);
    }
    EXPECT_EQ(store.pendingCount(), 499U);
    store.append(samples[499]);
    ASSERT_EQ(store.pendingCount(), 0U);
    // Nothing left to hand over, yet the flush waits for the chunk under way.
    store.flush();
    EXPECT_EQ(entryNames(temporary.path()), (std::vector<std::string>{"000000.json"}));
    EXPECT_EQ(json::parse(readFileBytes(temporary / "000000.json")).size(), 500U);

    store.append(samples[500]);
    EXPECT_EQ(store.pendingCount(), 1U);
    store.flush();
    EXPECT_EQ(CursorStore::readAll(temporary.path()), samples);
}

TEST(ChunkStore, SpanHandsOverTheBufferEvenAtItsSecondSampleOrWhenQuiet) {
    const testing::TemporaryDirectory temporary;
    CursorStore store = cursorStore(temporary.path(), 500, recordingChunkMaximumSpanNanoseconds);
    store.append({ProjectTime{10'000'000'000}, "a"});
    store.append({ProjectTime{11'999'999'999}, "b"});
    EXPECT_EQ(store.pendingCount(), 2U);
    store.append({ProjectTime{12'000'000'000}, "c"});
    EXPECT_EQ(store.pendingCount(), 0U);

    // The span counts from the first sample of the new buffer.
    store.append({ProjectTime{13'000'000'000}, "d"});
    store.append({ProjectTime{15'000'000'000}, "e"});
    EXPECT_EQ(store.pendingCount(), 0U);

    // A quiet buffer goes once the span has passed, without a new sample.
    store.flushIfDue(ProjectTime{50'000'000'000}); // nothing buffered: nothing to do
    store.append({ProjectTime{20'000'000'000}, "f"});
    store.flushIfDue(ProjectTime{21'999'999'999});
    EXPECT_EQ(store.pendingCount(), 1U);
    store.flushIfDue(ProjectTime{22'000'000'000});
    EXPECT_EQ(store.pendingCount(), 0U);
    store.flush();
    EXPECT_EQ(entryNames(temporary.path()),
              (std::vector<std::string>{"000000.json", "000001.json", "000002.json"}));
    EXPECT_EQ(json::parse(readFileBytes(temporary / "000000.json")).size(), 3U);
}

TEST(ChunkStore, DestructionFinishesHandedOverChunksAndDropsTheBuffer) {
    const testing::TemporaryDirectory temporary;
    const auto samples = cursorSamples(7);
    {
        CursorStore store = cursorStore(temporary.path(), 3);
        for (const auto& sample : samples) {
            store.append(sample);
        }
    }
    EXPECT_EQ(entryNames(temporary.path()), (std::vector<std::string>{"000000.json", "000001.json"}));
    EXPECT_EQ(CursorStore::readAll(temporary.path()),
              std::vector<CursorShapeSample>(samples.begin(), samples.begin() + 6));
}

TEST(ChunkStore, ReopenedStoreContinuesAfterTheHighestNumber) {
    const testing::TemporaryDirectory temporary;
    const fs::path directory = temporary.path();
    writeText(directory / "000000.json", chunkOf({cursorSample(0)}));
    writeText(directory / "000007.json", chunkOf({cursorSample(7)}));
    // Neither numbers nor visible chunks: they do not move the next number.
    writeText(directory / "notes.json", "[]");
    writeText(directory / "000099.txt", "");
    writeText(directory / ".000050.json", "[]");
    {
        CursorStore store = cursorStore(directory, 10);
        store.append(cursorSample(8));
        store.flush();
    }
    EXPECT_TRUE(fs::exists(directory / "000008.json"));
    {
        CursorStore store = cursorStore(directory, 10);
        store.append(cursorSample(9));
        store.flush();
    }
    EXPECT_TRUE(fs::exists(directory / "000009.json"));
    EXPECT_EQ(readFileBytes(directory / "000007.json"), chunkOf({cursorSample(7)}));
    EXPECT_EQ(
        CursorStore::readAll(directory),
        (std::vector<CursorShapeSample>{cursorSample(0), cursorSample(7), cursorSample(8), cursorSample(9)}));
}

TEST(ChunkStoreReadAll, ReadsNumberedAndOtherJsonFilesButIgnoresTheRest) {
    const testing::TemporaryDirectory temporary;
    const fs::path directory = temporary.path();
    EXPECT_TRUE(CursorStore::readAll(directory / "missing").empty());

    writeText(directory / "000001.json", chunkOf({cursorSample(3), cursorSample(4)}));
    writeText(directory / "000000.json", chunkOf({cursorSample(1)}));
    writeText(directory / "active.tmp", "[{\"time\":");
    writeText(directory / "notes.txt", "not json at all");
    writeText(directory / ".hidden.json", "not json at all");
    fs::create_directory(directory / "folder.json");
    EXPECT_EQ(CursorStore::readAll(directory),
              (std::vector<CursorShapeSample>{cursorSample(1), cursorSample(3), cursorSample(4)}));

    // A foreign .json file is read in name order like any chunk...
    writeText(directory / "x.json", chunkOf({cursorSample(9)}));
    EXPECT_EQ(CursorStore::readAll(directory).back(), cursorSample(9));
    // ... and fails the whole read when it is no array of samples.
    writeText(directory / "x.json", "{\"time\":{\"nanoseconds\":1},\"assetID\":\"a\"}");
    EXPECT_NE(readFailure(directory).find("x.json"), std::string::npos);
}

TEST(ChunkStoreReadAll, DamagedChunkFailsTheReadNamingTheFile) {
    const testing::TemporaryDirectory temporary;
    const fs::path directory = temporary.path();
    const std::string whole = chunkOf(cursorSamples(4));
    writeText(directory / "000000.json", whole);
    writeText(directory / "000001.json", whole.substr(0, whole.size() / 2));
    EXPECT_NE(readFailure(directory).find("000001.json"), std::string::npos);

    json::Json missingKey = json::encode(cursorSamples(2));
    missingKey[1].erase("assetID");
    writeText(directory / "000001.json", json::write(missingKey, json::JsonStyle::chunk));
    EXPECT_NE(readFailure(directory).find("000001.json[1].assetID"), std::string::npos);
}

TEST(ChunkStoreFailures, DirectoryThatCannotBeMadeFailsTheStore) {
    const testing::TemporaryDirectory temporary;
    writeText(temporary / "occupied", "a file");
    EXPECT_THROW(cursorStore(temporary / "occupied", 10), FileError);
    EXPECT_THROW(cursorStore(temporary / "occupied/events", 10), FileError);
}

TEST(ChunkStoreFailures, WriteErrorIsRememberedAndRefusesNewSamples) {
    const testing::TemporaryDirectory temporary;
    const fs::path directory = temporary / "events";
    CursorStore store = cursorStore(directory, 2, recordingChunkMaximumSpanNanoseconds);
    store.append(cursorSample(0));
    store.append(cursorSample(1));
    store.flush();

    fs::remove_all(directory);
    store.append(cursorSample(2));
    store.append(cursorSample(3)); // handed over; its write fails
    EXPECT_THROW(store.flush(), FileError);

    EXPECT_THROW(store.append(cursorSample(4)), FileError);
    EXPECT_EQ(store.pendingCount(), 0U);
    EXPECT_THROW(store.flushIfDue(ProjectTime{60'000'000'000}), FileError);
    // The failure stays even once the disk would take writes again.
    fs::create_directories(directory);
    EXPECT_THROW(store.append(cursorSample(5)), FileError);
    EXPECT_THROW(store.flush(), FileError);
    EXPECT_EQ(store.pendingCount(), 0U);
    EXPECT_TRUE(entryNames(directory).empty());

    // A file where the directory was fails the write the same way.
    CursorStore blocked = cursorStore(temporary / "geometry", 500);
    blocked.append(cursorSample(0));
    fs::remove_all(temporary / "geometry");
    writeText(temporary / "geometry", "in the way");
    EXPECT_THROW(blocked.flush(), FileError);
    EXPECT_EQ(readFileBytes(temporary / "geometry"), "in the way");
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
                    store.append({ProjectTime{i}, std::to_string(t) + ":" + std::to_string(i)});
                    if (i % 100 == 0) {
                        store.flushIfDue(ProjectTime{i});
                    }
                }
            });
        }
        writers.clear();
        store.flush();
    }
    const auto samples = CursorStore::readAll(temporary.path());
    ASSERT_EQ(samples.size(), static_cast<std::size_t>(threadCount * perThread));
    std::vector<int> nextOfThread(threadCount, 0);
    for (const auto& sample : samples) {
        const auto colon = sample.assetID.find(':');
        const int thread = std::stoi(sample.assetID.substr(0, colon));
        EXPECT_EQ(std::stoi(sample.assetID.substr(colon + 1)), nextOfThread[thread]) << sample.assetID;
        nextOfThread[thread] += 1;
    }
    for (const auto& file : ChunkFiles::list(temporary.path())) {
        EXPECT_LE(json::parse(readFileBytes(file)).size(), 40U) << file;
    }
}

// A child process that records through a store and is killed with SIGKILL.
class KilledRecorder {
public:
    // `record` runs in the child and reports progress through the pipe.
    template <class Record>
    explicit KilledRecorder(Record record) {
        int pipeEnds[2];
        if (::pipe(pipeEnds) != 0) {
            throw std::runtime_error("pipe");
        }
        child_ = ::fork();
        if (child_ < 0) {
            throw std::runtime_error("fork");
        }
        if (child_ == 0) {
            ::close(pipeEnds[0]);
            try {
                record(pipeEnds[1]);
            } catch (...) {
                ::_exit(3);
            }
            ::_exit(0);
        }
        ::close(pipeEnds[1]);
        reports_ = pipeEnds[0];
    }
    ~KilledRecorder() {
        kill();
        ::close(reports_);
    }
    KilledRecorder(const KilledRecorder&) = delete;
    KilledRecorder& operator=(const KilledRecorder&) = delete;

    // The next number the child reported; nothing when it ended without one.
    std::optional<std::int64_t> nextReport() {
        std::int64_t value = 0;
        ssize_t received = 0;
        do {
            received = ::read(reports_, &value, sizeof value); // reports are written whole
        } while (received < 0 && errno == EINTR);
        return received == static_cast<ssize_t>(sizeof value) ? std::optional(value) : std::nullopt;
    }

    // Kills the child and answers whether SIGKILL is what ended it.
    bool kill() {
        if (child_ <= 0) {
            return false;
        }
        ::kill(child_, SIGKILL);
        int status = 0;
        while (::waitpid(child_, &status, 0) < 0 && errno == EINTR) {
        }
        child_ = -1;
        return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
    }

    static void report(int pipe, std::int64_t value) {
        if (::write(pipe, &value, sizeof value) != static_cast<ssize_t>(sizeof value)) {
            ::_exit(4);
        }
    }

private:
    pid_t child_ = -1;
    int reports_ = -1;
};

// The directory after a crash without the chunk that was being written.
std::vector<std::string> namesAfterCrash(const fs::path& directory) {
    auto names = entryNames(directory);
    std::erase_if(names, [](const std::string& name) {
        return name == ChunkFiles::activeFileName || name.starts_with(".active.tmp.");
    });
    return names;
}

TEST(ChunkStoreCrash, KillWhileWritingLeavesOnlyWholeChunks) {
    constexpr std::int64_t chunkSize = 5;
    std::mt19937 random(std::random_device{}());
    std::uniform_int_distribution<int> killDelay(0, 20'000);
    for (int attempt = 0; attempt < 6; ++attempt) {
        const testing::TemporaryDirectory temporary;
        const fs::path directory = temporary / "events";
        KilledRecorder recorder([&directory](int pipe) {
            CursorStore store = cursorStore(directory, chunkSize);
            for (std::int64_t i = 0;; ++i) {
                store.append(cursorSample(i));
                if ((i + 1) % 100 == 0) {
                    store.flush();
                    KilledRecorder::report(pipe, i + 1);
                }
            }
        });
        // Once some chunks are known to be on disk, kill at a random moment
        // while the child goes on handing over and writing chunks. The pause
        // only picks the moment; nothing below relies on its length.
        std::int64_t flushed = 0;
        while (flushed < 100 * (attempt + 1)) {
            const auto report = recorder.nextReport();
            ASSERT_TRUE(report.has_value()) << "the recorder ended early";
            flushed = *report;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(killDelay(random)));
        ASSERT_TRUE(recorder.kill());

        // Only whole chunks, numbered without gaps.
        const auto numbered = namesAfterCrash(directory);
        for (std::size_t i = 0; i < numbered.size(); ++i) {
            EXPECT_EQ(numbered[i], ChunkFiles::chunkFileName(static_cast<std::int64_t>(i)));
            EXPECT_EQ(json::parse(readFileBytes(directory / numbered[i])).size(), std::size_t{chunkSize});
        }
        const auto samples = CursorStore::readAll(directory);
        EXPECT_GE(static_cast<std::int64_t>(samples.size()), flushed);
        EXPECT_EQ(samples, cursorSamples(static_cast<std::int64_t>(numbered.size()) * chunkSize));
    }
}

} // namespace
} // namespace rilo

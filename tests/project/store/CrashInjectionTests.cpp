// Every writer of a package, killed at many moments: what is left must read
// back as the package before the write or after it (or at a stage in between
// that the writer allows and that readers handle), never as a half-written
// document, and the library listing must still show the package.

#include "CommitFixtures.h"
#include "CrashInjection.h"
#include "project/document/CaptureSamples.h"
#include "project/store/ChunkStore.h"
#include "project/store/CursorAssetStore.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace rilo {
namespace {

namespace fs = std::filesystem;
using testing::CrashOutcome;
using testing::CrashScenario;
using testing::killDuringWrite;

constexpr int killPointsPerWriter = 200;

bool isHidden(const fs::path& relative) {
    return std::any_of(relative.begin(), relative.end(),
                       [](const fs::path& part) { return part.string().starts_with("."); });
}

// The visible files under a directory, by relative path, with their bytes.
std::map<fs::path, std::string> visibleFiles(const fs::path& root, const fs::path& leftOut = {}) {
    std::map<fs::path, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        const fs::path relative = entry.path().lexically_relative(root);
        if (entry.is_regular_file() && !isHidden(relative) && relative != leftOut) {
            files[relative] = readFileBytes(entry.path());
        }
    }
    return files;
}

// The visible .json names of a directory, sorted; none when it is missing.
std::vector<std::string> jsonNames(const fs::path& directory) {
    std::vector<std::string> names;
    if (!fs::exists(directory)) {
        return names;
    }
    for (const auto& entry : fs::directory_iterator(directory)) {
        const std::string name = entry.path().filename().string();
        if (!name.starts_with(".") && entry.path().extension() == ".json") {
            names.push_back(name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

// Dates of the second a write happened differ from run to run.
std::vector<RecentProject> undated(std::vector<RecentProject> rows) {
    for (auto& row : rows) {
        row.updatedAt = {};
    }
    return rows;
}

ProjectManifest undated(ProjectManifest manifest) {
    manifest.updatedAt = {};
    return manifest;
}

// A document replaced by a commit that keeps the replaced bytes as a history
// entry before it writes the document, and trims the history afterwards.
CrashOutcome judgeDocumentWithHistory(const fs::path& document, const fs::path& history,
                                      const std::string& oldBytes, const std::string& newBytes,
                                      const std::vector<std::string>& historyBefore) {
    const std::string bytes = readFileBytes(document);
    const bool replaced = bytes == newBytes;
    EXPECT_TRUE(replaced || bytes == oldBytes) << "half-written " << document;
    const auto names = jsonNames(history);
    std::vector<std::string> added;
    std::vector<std::string> removed;
    std::set_difference(names.begin(), names.end(), historyBefore.begin(), historyBefore.end(),
                        std::back_inserter(added));
    std::set_difference(historyBefore.begin(), historyBefore.end(), names.begin(), names.end(),
                        std::back_inserter(removed));
    EXPECT_LE(added.size(), 1u);
    for (const auto& name : added) {
        EXPECT_EQ(readFileBytes(history / name), oldBytes) << "history entry " << name;
    }
    if (!replaced) {
        EXPECT_TRUE(removed.empty()) << "history trimmed before the document was replaced";
        return added.empty() ? CrashOutcome::before : CrashOutcome::between;
    }
    EXPECT_EQ(added.size(), 1u) << "document replaced without its history entry";
    EXPECT_TRUE(removed.empty() || removed == std::vector<std::string>{historyBefore.front()});
    return removed.empty() ? CrashOutcome::between : CrashOutcome::after;
}

// A killed process loses nothing that it had handed to the kernel, so what
// is tested does not depend on the disk; a file system in memory makes each
// trial's flushes cheap where there is one.
fs::path memoryBackedTemporaryDirectory() {
    std::error_code error;
    return fs::is_directory("/dev/shm", error) ? fs::path("/dev/shm") : fs::temp_directory_path();
}

class CrashInjection : public ::testing::Test {
protected:
    testing::TemporaryDirectory root{memoryBackedTemporaryDirectory()};
    fs::path pristine = root / "Pristine";
    fs::path library = root / "Library";
    ProjectStore pristineStore{pristine, testing::buildCatalog};
    ProjectStore store{library, testing::buildCatalog};
    Uuid id = Uuid::random();

    // Lays the library out again as it was built under `pristine`.
    void restore() {
        fs::remove_all(library);
        fs::copy(pristine, library, fs::copy_options::recursive);
    }

    ProjectPackage inLibrary(const ProjectPackage& package) const {
        return {library / package.rootURL.filename()};
    }

    // A finished package with a timeline and a full history of 20 entries, as
    // the library will hold it.
    ProjectPackage finishedPackageWithHistory() {
        const ProjectPackage built =
            testing::writePackage(pristine, testing::sampleManifest(id, IsoDate{1'700'000'000}));
        writeFileAtomically(built.timelineURL(), testing::handWrittenTimeline(8, 5'000'000'000));
        fs::create_directories(built.timelineHistoryDirectory());
        for (int n = 0; n < 20; ++n) {
            char stamp[32];
            std::snprintf(stamp, sizeof stamp, "2020-01-01T00-00-%02d.000Z-", n);
            writeFileAtomically(built.timelineHistoryDirectory() /
                                    (stamp + testing::numberedID(n).string() + ".json"),
                                testing::handWrittenTimeline(8, 1'000'000'000 + n));
        }
        return inLibrary(built);
    }
};

TEST_F(CrashInjection, ManifestRewriteLeavesTheOldOrTheNewDocument) {
    const ProjectPackage package =
        inLibrary(testing::writePackage(pristine, testing::sampleManifest(id, IsoDate{1'700'000'000})));
    restore();
    const std::string oldBytes = readFileBytes(package.manifestURL());
    const auto rowsBefore = store.recentProjects();
    const auto namesBefore = visibleFiles(package.rootURL);
    ProjectManifest changed = store.readManifest(package);
    // A document larger than a page.
    changed.source.title = std::string(64 * 1024, 'x');
    changed.updatedAt = IsoDate{1'700'000'600};
    store.updateManifest(changed, package);
    const std::string newBytes = readFileBytes(package.manifestURL());
    const auto rowsAfter = store.recentProjects();
    ASSERT_NE(rowsAfter, rowsBefore);

    killDuringWrite({[&] { restore(); }, [&] { store.updateManifest(changed, package); },
                     [&] {
                         const std::string bytes = readFileBytes(package.manifestURL());
                         EXPECT_EQ(visibleFiles(package.rootURL, "manifest.json").size(),
                                   namesBefore.size() - 1);
                         if (bytes == newBytes) {
                             EXPECT_EQ(store.recentProjects(), rowsAfter);
                             return CrashOutcome::after;
                         }
                         EXPECT_EQ(bytes, oldBytes) << "half-written manifest";
                         EXPECT_EQ(store.recentProjects(), rowsBefore);
                         return CrashOutcome::before;
                     }},
                    killPointsPerWriter, 1);
}

TEST_F(CrashInjection, TimelineCommitKeepsTheOldOrTheNewTimelineWithItsHistory) {
    const ProjectPackage package = finishedPackageWithHistory();
    restore();
    const std::string oldBytes = readFileBytes(package.timelineURL());
    const std::string digest = store.timelineDigest(package);
    const auto historyBefore = jsonNames(package.timelineHistoryDirectory());
    const auto rows = store.recentProjects();
    const EditTimeline next = testing::numberedTimeline(1);
    const auto commit = [&] { store.commitTimeline(next, digest, testing::digestOfNoBytes, package); };
    commit();
    const std::string newBytes = readFileBytes(package.timelineURL());
    const ProjectTime duration = store.readManifest(package).duration;

    killDuringWrite({[&] { restore(); }, commit,
                     [&] {
                         const auto outcome = judgeDocumentWithHistory(package.timelineURL(),
                                                                       package.timelineHistoryDirectory(),
                                                                       oldBytes, newBytes, historyBefore);
                         EXPECT_NO_THROW(store.readTimelineState(package, duration, true));
                         EXPECT_EQ(store.timelineHistory(package).size(),
                                   jsonNames(package.timelineHistoryDirectory()).size());
                         EXPECT_EQ(store.recentProjects(), rows);
                         return outcome;
                     }},
                    killPointsPerWriter, 2);

    // A killed commit holds no lock: the next one goes through.
    const std::string current = store.timelineDigest(package);
    EXPECT_NO_THROW(store.commitTimeline(testing::numberedTimeline(2), current, std::nullopt, package));
}

TEST_F(CrashInjection, CaptionCommitKeepsTheOldOrTheNewCaptionsWithTheirHistory) {
    const ProjectPackage package = finishedPackageWithHistory();
    const ProjectPackage built{pristine / package.rootURL.filename()};
    pristineStore.commitCaptions(testing::numberedCaptions(0), testing::digestOfNoBytes,
                                 pristineStore.timelineDigest(built), built);
    for (int n = 0; n < 20; ++n) {
        char stamp[32];
        std::snprintf(stamp, sizeof stamp, "2020-01-01T00-00-%02d.000Z-", n);
        writeFileAtomically(built.captionsHistoryDirectory() /
                                (stamp + testing::numberedID(n).string() + ".json"),
                            readFileBytes(built.captionsURL()) + std::string(n, ' '));
    }
    restore();
    const std::string oldBytes = readFileBytes(package.captionsURL());
    const std::string captionsDigest = store.captionsDigest(package);
    const std::string timelineDigest = store.timelineDigest(package);
    const auto historyBefore = jsonNames(package.captionsHistoryDirectory());
    const auto rows = store.recentProjects();
    const auto commit = [&] {
        store.commitCaptions(testing::numberedCaptions(1), captionsDigest, timelineDigest, package);
    };
    commit();
    const std::string newBytes = readFileBytes(package.captionsURL());

    killDuringWrite({[&] { restore(); }, commit,
                     [&] {
                         const auto outcome = judgeDocumentWithHistory(package.captionsURL(),
                                                                       package.captionsHistoryDirectory(),
                                                                       oldBytes, newBytes, historyBefore);
                         const auto state = store.captionsState(package);
                         EXPECT_TRUE(state.document.has_value());
                         EXPECT_EQ(store.timelineDigest(package), timelineDigest);
                         EXPECT_EQ(store.recentProjects(), rows);
                         return outcome;
                     }},
                    killPointsPerWriter, 3);
}

CursorShapeSample cursorSample(std::int64_t number) {
    return {ProjectTime{number * 1'000'000}, "asset-" + std::to_string(number)};
}

TEST_F(CrashInjection, ChunkAppendAndFlushLeaveOnlyWholeChunksInOrder) {
    using CursorStore = ChunkStore<CursorShapeSample>;
    constexpr std::int64_t chunkSize = 10;
    constexpr std::int64_t chunksBefore = 3;
    constexpr std::int64_t chunksWritten = 5;
    const auto timeOf = [](const CursorShapeSample& sample) { return sample.time; };
    std::vector<CursorShapeSample> samples;
    for (std::int64_t n = 0; n < (chunksBefore + chunksWritten) * chunkSize; ++n) {
        samples.push_back(cursorSample(n));
    }
    const ProjectPackage built =
        testing::writePackage(pristine, testing::sampleManifest(id, IsoDate{1'700'000'000}));
    {
        CursorStore chunks(built.cursorEventsDirectory(), chunkSize, recordingChunkMaximumSpanNanoseconds,
                           timeOf);
        for (std::int64_t n = 0; n < chunksBefore * chunkSize; ++n) {
            chunks.append(samples[static_cast<std::size_t>(n)]);
        }
        chunks.flush();
    }
    const ProjectPackage package = inLibrary(built);
    restore();
    const auto rows = store.recentProjects();

    killDuringWrite(
        {[&] { restore(); },
         [&] {
             CursorStore chunks(package.cursorEventsDirectory(), chunkSize,
                                recordingChunkMaximumSpanNanoseconds, timeOf);
             for (std::size_t n = chunksBefore * chunkSize; n < samples.size(); ++n) {
                 chunks.append(samples[n]);
             }
             chunks.flush();
         },
         [&] {
             const auto names = jsonNames(package.cursorEventsDirectory());
             for (std::size_t n = 0; n < names.size(); ++n) {
                 EXPECT_EQ(names[n], ChunkFiles::chunkFileName(static_cast<std::int64_t>(n)));
             }
             const auto chunks = static_cast<std::int64_t>(names.size());
             EXPECT_GE(chunks, chunksBefore);
             EXPECT_LE(chunks, chunksBefore + chunksWritten);
             EXPECT_EQ(CursorStore::readAll(package.cursorEventsDirectory()),
                       std::vector<CursorShapeSample>(samples.begin(), samples.begin() + chunks * chunkSize));
             EXPECT_EQ(store.recentProjects(), rows);
             return chunks == chunksBefore                   ? CrashOutcome::before
                    : chunks == chunksBefore + chunksWritten ? CrashOutcome::after
                                                             : CrashOutcome::between;
         }},
        killPointsPerWriter, 4);
}

TEST_F(CrashInjection, CursorAssetStoreNeverDescribesAnImageItDoesNotHold) {
    const ProjectPackage built =
        testing::writePackage(pristine, testing::sampleManifest(id, IsoDate{1'700'000'000}));
    std::vector<std::string> images;
    for (int n = 0; n < 4; ++n) {
        images.push_back(std::string(64 * 1024, static_cast<char>('a' + n)));
    }
    const SizeValue size{32, 32};
    const PointValue hotSpot{4, 2};
    std::map<std::string, std::string> imagesByID;
    for (const auto& image : images) {
        imagesByID[CursorAssetStore::assetID(image, size, hotSpot)] = image;
    }
    CursorAssetStore(built.cursorAssetsDirectory()).store(images[0], size, hotSpot);
    const ProjectPackage package = inLibrary(built);
    restore();
    const auto rows = store.recentProjects();

    killDuringWrite(
        {[&] { restore(); },
         [&] {
             CursorAssetStore assets(package.cursorAssetsDirectory());
             for (const auto& image : images) {
                 assets.store(image, size, hotSpot);
             }
         },
         [&] {
             const auto descriptors = CursorAssetStore::readDescriptors(package.cursorAssetsDirectory());
             const auto payloads = CursorAssetStore::readPayloads(package.rootURL, descriptors);
             EXPECT_EQ(payloads.size(), descriptors.size()) << "a descriptor without its image";
             for (const auto& payload : payloads) {
                 EXPECT_EQ(payload.pngData, imagesByID.at(payload.descriptor.id));
             }
             for (const auto& [relative, bytes] : visibleFiles(package.cursorAssetsDirectory())) {
                 if (relative.extension() == ".png") {
                     EXPECT_EQ(bytes, imagesByID.at(relative.stem().string())) << "half-written image";
                 }
             }
             EXPECT_EQ(CursorAssetStore(package.cursorAssetsDirectory()).descriptors(), descriptors);
             EXPECT_EQ(store.recentProjects(), rows);
             return descriptors.size() == 1               ? CrashOutcome::before
                    : descriptors.size() == images.size() ? CrashOutcome::after
                                                          : CrashOutcome::between;
         }},
        killPointsPerWriter, 5);
}

// A package that moves from <UUID>.rilo.tmp to <UUID>.rilo, perhaps over an
// older <UUID>.rilo: the unfinished package stays whole (its manifest old or
// new) until the finished one stands in its place, an older finished package
// is listed whole or not at all, and no mixture is ever listed.
class PackageMoveTest : public CrashInjection {
protected:
    ProjectPackage unfinished;
    fs::path finalRoot;
    fs::path discardingRoot;
    std::map<fs::path, std::string> unfinishedFiles;
    ProjectManifest unfinishedManifest;
    std::optional<std::map<fs::path, std::string>> olderFiles;
    std::optional<ProjectManifest> olderManifest;
    ProjectManifest movedManifest;
    std::vector<RecentProject> rowsBefore;
    std::vector<RecentProject> rowsAfter;

    // Call with the layout built under `pristine`; runs the move once to learn its result.
    void learn(const ProjectPackage& builtUnfinished, const std::function<void()>& move) {
        unfinished = inLibrary(builtUnfinished);
        finalRoot = library / (id.string() + ".rilo");
        discardingRoot = library / (id.string() + ".rilo.discarding");
        restore();
        unfinishedFiles = visibleFiles(unfinished.rootURL, "manifest.json");
        unfinishedManifest = undated(store.readManifest(unfinished));
        if (fs::exists(finalRoot)) {
            olderFiles = visibleFiles(finalRoot, "manifest.json");
            olderManifest = undated(store.readManifest(ProjectPackage{finalRoot}));
        }
        rowsBefore = undated(store.recentProjects());
        move();
        movedManifest = undated(store.readManifest(ProjectPackage{finalRoot}));
        rowsAfter = undated(store.recentProjects());
    }

    bool holdsOlder(const fs::path& root) const {
        return olderFiles && visibleFiles(root, "manifest.json") == *olderFiles &&
               undated(store.readManifest(ProjectPackage{root})) == *olderManifest;
    }

    CrashOutcome judge() const {
        const auto rows = undated(store.recentProjects());
        if (!fs::exists(unfinished.rootURL)) {
            EXPECT_EQ(visibleFiles(finalRoot, "manifest.json"), unfinishedFiles);
            EXPECT_EQ(undated(store.readManifest(ProjectPackage{finalRoot})), movedManifest);
            EXPECT_EQ(rows, rowsAfter);
            return fs::exists(discardingRoot) ? CrashOutcome::between : CrashOutcome::after;
        }
        EXPECT_EQ(visibleFiles(unfinished.rootURL, "manifest.json"), unfinishedFiles);
        const ProjectManifest manifest = undated(store.readManifest(unfinished));
        EXPECT_TRUE(manifest == unfinishedManifest || manifest == movedManifest) << "half-written manifest";
        const bool olderInPlace = fs::exists(finalRoot);
        if (olderInPlace) {
            EXPECT_TRUE(holdsOlder(finalRoot)) << "a partly removed package under the final name";
            EXPECT_EQ(rows, rowsBefore);
        } else {
            EXPECT_TRUE(rows.empty());
        }
        return olderInPlace == olderFiles.has_value() && manifest == unfinishedManifest &&
                       !fs::exists(discardingRoot)
                   ? CrashOutcome::before
                   : CrashOutcome::between;
    }
};

TEST_F(PackageMoveTest, FinishMovesAWholePackageOrNone) {
    const ProjectPackage built = testing::writePackage(
        pristine, testing::sampleManifest(id, IsoDate{1'700'000'000}, ProjectState::finalizing),
        {".rilo.tmp"});
    writeFileAtomically(built.timelineURL(), testing::handWrittenTimeline(8, 5'000'000'000));
    const ProjectManifest manifest = pristineStore.readManifest(built);
    const auto finish = [&] { store.finish(unfinished, manifest); };
    learn(built, finish);
    killDuringWrite({[&] { restore(); }, finish, [&] { return judge(); }}, killPointsPerWriter, 6);
}

TEST_F(PackageMoveTest, RecoveryOverAnOlderFinishedPackageNeverListsAMixture) {
    const ProjectPackage older =
        testing::writePackage(pristine, testing::sampleManifest(id, IsoDate{1'600'000'000}));
    writeFileAtomically(older.timelineURL(), testing::handWrittenTimeline(8, 2'000'000'000));
    fs::create_directories(older.timelineHistoryDirectory());
    for (int n = 0; n < 20; ++n) {
        writeFileAtomically(older.timelineHistoryDirectory() / (std::to_string(n) + ".json"),
                            testing::handWrittenTimeline(8, 1'000'000'000 + n));
    }
    const ProjectPackage built = testing::writePackage(
        pristine, testing::sampleManifest(id, IsoDate{1'700'000'000}, ProjectState::recording),
        {".rilo.tmp"});
    writeFileAtomically(built.timelineURL(), testing::handWrittenTimeline(8, 5'000'000'000));
    const auto recover = [&] { store.markRecovered(unfinished, ProjectTime::fromSeconds(3)); };
    learn(built, recover);
    killDuringWrite({[&] { restore(); }, recover, [&] { return judge(); }}, killPointsPerWriter, 7);
}

} // namespace
} // namespace rilo

#include "project/caption/CaptionValidationError.h"
#include "project/document/TimelineValidator.h"
#include "project/store/CommitFixtures.h"
#include "project/store/DocumentHistory.h"
#include "support/BuildCatalog.h"

#include <regex>

namespace rilo {
namespace {

using testing::CommitTest;
using testing::digestOfNoBytes;
using testing::handWrittenTimeline;
using testing::numberedCaptions;
using testing::numberedTimeline;
using testing::thrown;
using testing::thrownCase;
using testing::thrownMessage;
using testing::timelineKeeping;

// Timeline and caption documents are written under the same protocol: the
// caller names the digest of the bytes it prepared against, the write runs
// under a lock, a refusal leaves the file and its history as they were, and a
// commit keeps the replaced bytes as a history entry (twenty at most).
class GuardedCommitTest : public CommitTest, public ::testing::WithParamInterface<std::string> {
protected:
    // A document number that stands for one that fails validation: longer than
    // the 12.3 s recording.
    static constexpr int invalid = -1;

    void SetUp() override {
        CommitTest::SetUp();
        if (!isTimeline()) {
            store.writeCaptions(numberedCaptions(0), digestOfNoBytes, package);
            // The editor's caption write takes no timeline lock.
            EXPECT_FALSE(std::filesystem::exists(package.timelineLockURL()));
        }
    }

    bool isTimeline() const { return GetParam() == "timeline"; }

    std::filesystem::path documentURL() const {
        return isTimeline() ? package.timelineURL() : package.captionsURL();
    }
    std::filesystem::path historyDirectory() const {
        return isTimeline() ? package.timelineHistoryDirectory() : package.captionsHistoryDirectory();
    }
    std::filesystem::path lockURL() const {
        return isTimeline() ? package.timelineLockURL() : package.captionsLockURL();
    }
    std::string digest() const {
        return isTimeline() ? store.timelineDigest(package) : store.captionsDigest(package);
    }
    std::string bytes() const { return readFileBytes(documentURL()); }

    // The entries' contents, oldest first.
    std::vector<std::string> history() const {
        std::vector<std::string> contents;
        for (const auto& entry : DocumentHistory::entries(historyDirectory())) {
            contents.push_back(readFileBytes(entry));
        }
        return contents;
    }

    static EditTimeline timeline(int n) {
        return n == invalid ? timelineKeeping(ProjectTime::fromSeconds(13)) : numberedTimeline(n);
    }
    static CaptionDocument captions(int n) {
        return n == invalid ? numberedCaptions(1, ProjectTime::fromSeconds(13)) : numberedCaptions(n);
    }

    // The bytes that the n-th document is stored as.
    std::string encoded(int n) const {
        return isTimeline() ? json::encodeDocument(timeline(n))
                            : json::encodeDocument(captions(n).validated(sourceDuration));
    }

    // Commits the n-th document as the command line does; gives the new digest.
    std::string commit(int n, const std::string& expected) {
        if (isTimeline()) {
            return store.commitTimeline(timeline(n), expected, std::nullopt, package).digest;
        }
        return store.commitCaptions(captions(n), expected, store.timelineDigest(package), package);
    }

    // Writes the n-th document as the editor does, without history.
    std::string write(int n, const std::string& expected) {
        if (isTimeline()) {
            return store.writeTimeline(timeline(n), expected, package);
        }
        return store.writeCaptions(captions(n), expected, package);
    }

    // Whether the body failed the validation of this kind of document.
    template <typename Body>
    bool failsValidation(Body body) {
        return isTimeline() ? thrown<TimelineValidationError>(body).has_value()
                            : thrown<CaptionValidationError>(body).has_value();
    }

    ProjectStoreError::Case conflictCase() const {
        return isTimeline() ? ProjectStoreError::Case::timelineDigestConflict
                            : ProjectStoreError::Case::captionsDigestConflict;
    }
};

INSTANTIATE_TEST_SUITE_P(Documents, GuardedCommitTest, ::testing::Values("timeline", "captions"),
                         [](const auto& info) { return info.param; });

TEST_P(GuardedCommitTest, CommitKeepsTheReplacedBytesInHistory) {
    const std::string original = bytes();
    const std::string result = commit(1, digest());

    EXPECT_EQ(result, digest());
    EXPECT_EQ(bytes(), encoded(1));
    const auto entries = DocumentHistory::entries(historyDirectory());
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_TRUE(std::regex_match(
        entries[0].filename().string(),
        std::regex(R"(\d{4}-\d{2}-\d{2}T\d{2}-\d{2}-\d{2}\.\d{3}Z-[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-)"
                   R"([0-9A-F]{4}-[0-9A-F]{12}\.json)")));
    EXPECT_TRUE(std::filesystem::exists(lockURL()));

    // Saving the same document again still makes an entry.
    waitPastMillisecond();
    EXPECT_EQ(commit(1, result), result);
    EXPECT_EQ(history(), (std::vector<std::string>{original, encoded(1)}));
}

TEST_P(GuardedCommitTest, StaleDigestChangesNothing) {
    const std::string original = digest();
    commit(1, original);
    const std::string current = bytes();
    const auto kept = history();

    const auto conflict = thrown<ProjectStoreError>([&] { commit(2, original); });
    ASSERT_TRUE(conflict);
    EXPECT_EQ(conflict->errorCase(), conflictCase());
    EXPECT_EQ(conflict->actualDigest(), sha256Hex(current));
    EXPECT_EQ(conflict->message(),
              isTimeline() ? "Timeline已被其他进程修改，请重新预演。" : "字幕已被其他进程修改，请重新预演。");

    EXPECT_EQ(thrownCase<ProjectStoreError>([&] { write(3, original); }), conflictCase());

    EXPECT_EQ(bytes(), current);
    EXPECT_EQ(history(), kept);
}

TEST_P(GuardedCommitTest, InvalidDocumentIsRefusedAndNeverWritten) {
    const std::string original = bytes();
    EXPECT_TRUE(failsValidation([&] { commit(invalid, digest()); }));
    EXPECT_TRUE(failsValidation([&] { write(invalid, digest()); }));
    EXPECT_EQ(bytes(), original);
    EXPECT_TRUE(history().empty());

    // The editor's write is guarded too, but keeps no history.
    const std::string written = write(4, digest());
    EXPECT_EQ(written, digest());
    EXPECT_EQ(bytes(), encoded(4));
    EXPECT_TRUE(history().empty());
}

TEST_P(GuardedCommitTest, TwentyFirstEntryRemovesTheOldest) {
    // An entry from long ago, and a file that is no entry.
    std::filesystem::create_directories(historyDirectory());
    const auto ancient =
        historyDirectory() / "2001-01-01T00-00-00.000Z-00000000-0000-4000-8000-000000000000.json";
    writeFileAtomically(ancient, "ancient");
    writeFileAtomically(historyDirectory() / "0000-notes.txt", "x");

    // The states before each commit, oldest first.
    std::vector<std::string> replaced;
    std::string current = digest();
    for (int n = 1; n <= 21; ++n) {
        waitPastMillisecond();
        replaced.push_back(bytes());
        current = commit(n, current);
    }
    EXPECT_EQ(history(), std::vector<std::string>(replaced.begin() + 1, replaced.end()));
    EXPECT_FALSE(std::filesystem::exists(ancient));
    EXPECT_TRUE(std::filesystem::exists(historyDirectory() / "0000-notes.txt"));
}

TEST_P(GuardedCommitTest, LockThatCannotBeTakenFailsTheWrite) {
    const std::string before = bytes();
    std::filesystem::remove(lockURL());
    std::filesystem::create_directories(lockURL());
    for (const bool editor : {false, true}) {
        EXPECT_EQ(thrownCase<ProjectStoreError>([&] { editor ? write(1, digest()) : commit(1, digest()); }),
                  ProjectStoreError::Case::timelineLockUnavailable)
            << editor;
    }
    EXPECT_EQ(bytes(), before);
    EXPECT_TRUE(history().empty());
}

TEST_F(CommitTest, TimelineIsReadThroughNormalisationAndValidatedWithAKnownDuration) {
    const auto state = store.readTimelineState(package, sourceDuration, true);
    EXPECT_EQ(state.digest, store.timelineDigest(package));
    ASSERT_EQ(state.timeline.segments.size(), 1u);
    EXPECT_EQ(state.timeline.segments[0].sourceRange.duration, ProjectTime::fromSeconds(5));
    // The package has a webcam.
    EXPECT_TRUE(state.timeline.webcamOverlay.has_value());

    // Keeps 20 s of a 12.3 s recording.
    writeFileAtomically(package.timelineURL(), handWrittenTimeline(8, 20'000'000'000));
    EXPECT_THROW(store.readTimelineState(package, sourceDuration, true), TimelineValidationError);
    EXPECT_EQ(store.readTimeline(package, ProjectTime::zero(), false).segments[0].sourceRange.duration,
              ProjectTime::fromSeconds(20));

    // Like captions, a missing timeline has the digest of no bytes.
    std::filesystem::remove(package.timelineURL());
    EXPECT_EQ(store.timelineDigest(package), testing::digestOfNoBytes);
}

TEST_F(CommitTest, DeviceFrameIsCheckedAgainstTheStoresCatalog) {
    EditTimeline framed = numberedTimeline(5);
    framed.deviceFrame = DeviceFrameEdit{true, testing::buildCatalog().devices.front().defaultVariant()->id};
    const std::string digest = store.writeTimeline(framed, store.timelineDigest(package), package);
    // The framed document, now on disk, is read back and kept in history.
    store.commitTimeline(numberedTimeline(6), digest, std::nullopt, package);
    EXPECT_EQ(store.historyTimeline(0, package, sourceDuration, true).deviceFrame, framed.deviceFrame);

    framed.deviceFrame->assetID = "no-such-device";
    EXPECT_EQ(thrownCase<TimelineValidationError>([&] {
                  store.commitTimeline(framed, store.timelineDigest(package), std::nullopt, package);
              }),
              TimelineValidationError::Case::invalidDeviceFrame);
}

// A history directory whose oldest entry cannot be removed: a timeline commit
// warns, a caption commit fails.
TEST_F(CommitTest, FailedTrimmingWarnsOnTimelinesAndFailsCaptions) {
    for (const auto& directory : {package.timelineHistoryDirectory(), package.captionsHistoryDirectory()}) {
        std::filesystem::create_directories(directory / "0000-stuck.json");
        writeFileAtomically(directory / "0000-stuck.json" / "inside", "x");
    }
    TimelineCommitResult result;
    for (int n = 1; n <= 20; ++n) {
        result =
            store.commitTimeline(numberedTimeline(n), store.timelineDigest(package), std::nullopt, package);
        store.commitCaptions(numberedCaptions(n), store.captionsDigest(package),
                             store.timelineDigest(package), package);
    }
    ASSERT_EQ(result.warnings.size(), 1u);
    EXPECT_TRUE(result.warnings[0].starts_with("历史清理失败：")) << result.warnings[0];
    EXPECT_EQ(timelineBytes(), json::encodeDocument(numberedTimeline(20)));
    EXPECT_THROW(store.commitCaptions(numberedCaptions(21), store.captionsDigest(package),
                                      store.timelineDigest(package), package),
                 FileError);
}

TEST_F(CommitTest, OlderSchemasAreBackedUpOnceWhenReplaced) {
    const std::string schema7 = handWrittenTimeline(7, 4'000'000'000);
    writeFileAtomically(package.timelineURL(), schema7);
    const auto first =
        store.commitTimeline(numberedTimeline(1), store.timelineDigest(package), std::nullopt, package);
    EXPECT_EQ(readFileBytes(package.preSchema8TimelineBackupURL()), schema7);
    EXPECT_FALSE(std::filesystem::exists(package.preSchemaTimelineBackupURL(7)));

    // Rewriting schema 8 again leaves the backup alone, even when an older
    // file turns up once more.
    store.commitTimeline(numberedTimeline(2), first.digest, std::nullopt, package);
    writeFileAtomically(package.timelineURL(), handWrittenTimeline(7, 3'000'000'000));
    store.writeTimeline(numberedTimeline(3), store.timelineDigest(package), package);
    EXPECT_EQ(readFileBytes(package.preSchema8TimelineBackupURL()), schema7);

    // An unguarded write backs up every schema step it crosses.
    const std::string schema2 = handWrittenTimeline(2, 4'000'000'000);
    writeFileAtomically(package.timelineURL(), schema2);
    store.writeTimeline(numberedTimeline(1), package);
    EXPECT_EQ(timelineBytes(), json::encodeDocument(numberedTimeline(1)));
    for (int version = 3; version <= 7; ++version) {
        EXPECT_EQ(readFileBytes(package.preSchemaTimelineBackupURL(version)), schema2) << version;
    }
}

TEST_F(CommitTest, FileThatIsNoTimelineIsNeverOverwritten) {
    writeFileAtomically(package.timelineURL(), "{ not a timeline");
    EXPECT_THROW(store.writeTimeline(numberedTimeline(1), package), json::DecodingError);
    EXPECT_THROW(
        store.commitTimeline(numberedTimeline(1), store.timelineDigest(package), std::nullopt, package),
        json::DecodingError);
    EXPECT_EQ(timelineBytes(), "{ not a timeline");
    EXPECT_FALSE(std::filesystem::exists(package.timelineHistoryDirectory()));
}

TEST_F(CommitTest, HistoryListsNewestFirstAndRestoresAsANewCommit) {
    EXPECT_TRUE(store.timelineHistory(package).empty());
    const EditTimeline original = store.readTimeline(package, sourceDuration, true);
    const EditTimeline first = numberedTimeline(1);
    const EditTimeline second = numberedTimeline(2);
    std::string digest =
        store.commitTimeline(first, store.timelineDigest(package), std::nullopt, package).digest;
    testing::CommitTest::waitPastMillisecond();
    digest = store.commitTimeline(second, digest, std::nullopt, package).digest;

    const auto history = store.timelineHistory(package);
    ASSERT_EQ(history.size(), 2u);
    EXPECT_EQ(history[0].digest, sha256Hex(json::encodeDocument(first)));
    EXPECT_EQ(store.historyTimeline(1, package, sourceDuration, true), original);
    EXPECT_EQ(
        thrownMessage<ProjectStoreError>([&] { store.historyTimeline(2, package, sourceDuration, true); }),
        "找不到历史版本：2");

    // A restore prepared against an older digest is refused.
    EXPECT_THROW(store.restoreTimeline(1, history[0].digest, package, sourceDuration, true),
                 ProjectStoreError);
    testing::CommitTest::waitPastMillisecond();
    const auto restored = store.restoreTimeline(1, digest, package, sourceDuration, true);
    EXPECT_EQ(restored.digest, store.timelineDigest(package));
    EXPECT_EQ(store.readTimeline(package, sourceDuration, true), original);
    // The restore is itself in the history, so it can be undone.
    const auto after = store.timelineHistory(package);
    ASSERT_EQ(after.size(), 3u);
    EXPECT_EQ(store.historyTimeline(0, package, sourceDuration, true),
              second.normalized(sourceDuration, true));

    // An entry that fails validation is not restored.
    writeFileAtomically(after[0].fileURL, handWrittenTimeline(8, 20'000'000'000));
    const std::string before = timelineBytes();
    EXPECT_THROW(store.restoreTimeline(0, store.timelineDigest(package), package, sourceDuration, true),
                 TimelineValidationError);
    EXPECT_EQ(timelineBytes(), before);
}

TEST_F(CommitTest, FirstCaptionCommitIsGuardedByTheTimelineAndTakesBothLocks) {
    const CaptionsState missing = store.captionsState(package);
    EXPECT_FALSE(missing.document.has_value());
    EXPECT_EQ(missing.digest, digestOfNoBytes);

    const std::string timeline = timelineBytes();
    const std::string digest =
        store.commitCaptions(numberedCaptions(1), digestOfNoBytes, store.timelineDigest(package), package);
    const CaptionsState state = store.captionsState(package);
    ASSERT_TRUE(state.document.has_value());
    EXPECT_EQ(state.document->cues[0].text, "第1句字幕");
    EXPECT_EQ(state.digest, digest);
    EXPECT_TRUE(std::filesystem::exists(package.timelineLockURL()));
    EXPECT_EQ(timelineBytes(), timeline);
    EXPECT_TRUE(store.timelineHistory(package).empty());

    EXPECT_EQ(thrownCase<ProjectStoreError>(
                  [&] { store.commitCaptions(numberedCaptions(2), digest, digestOfNoBytes, package); }),
              ProjectStoreError::Case::timelineDigestConflict);
    EXPECT_EQ(store.captionsDigest(package), digest);
}

TEST_F(CommitTest, TimelineCommitGuardedByCaptionsTakesTheirLock) {
    const std::string digest = store.timelineDigest(package);
    const auto conflict = thrown<ProjectStoreError>(
        [&] { store.commitTimeline(numberedTimeline(1), digest, std::string(64, 'a'), package); });
    ASSERT_TRUE(conflict);
    EXPECT_EQ(conflict->errorCase(), ProjectStoreError::Case::captionsDigestConflict);
    EXPECT_EQ(conflict->actualDigest(), digestOfNoBytes);
    EXPECT_EQ(store.timelineDigest(package), digest);

    const auto result =
        store.commitTimeline(numberedTimeline(1), digest, std::string(digestOfNoBytes), package);
    EXPECT_EQ(result.digest, store.timelineDigest(package));
    EXPECT_TRUE(std::filesystem::exists(package.captionsLockURL()));

    std::filesystem::remove(package.captionsLockURL());
    std::filesystem::create_directories(package.captionsLockURL());
    EXPECT_EQ(thrownCase<ProjectStoreError>([&] {
                  store.commitTimeline(numberedTimeline(2), result.digest, std::string(digestOfNoBytes),
                                       package);
              }),
              ProjectStoreError::Case::timelineLockUnavailable);
    EXPECT_EQ(store.timelineDigest(package), result.digest);
    std::filesystem::remove(package.captionsLockURL());

    // A caption file that is not a caption document can't be checked against.
    writeFileAtomically(package.captionsURL(), "[]");
    EXPECT_THROW(store.commitTimeline(numberedTimeline(2), result.digest, sha256Hex("[]"), package),
                 json::DecodingError);
    EXPECT_THROW(store.captionsState(package), json::DecodingError);
    EXPECT_EQ(store.timelineDigest(package), result.digest);
}

TEST(DocumentHistoryTest, StampsAreUtcWithMillisecondsAndNoColons) {
    using namespace std::chrono;
    const sys_days day = year{2026} / March / 2;
    const auto moment = day + hours{8} + minutes{15} + seconds{30} + milliseconds{123} + microseconds{999};
    EXPECT_EQ(DocumentHistory::stamp(moment), "2026-03-02T08-15-30.123Z");
    EXPECT_NE(DocumentHistory::newEntryName(), DocumentHistory::newEntryName());
}

} // namespace
} // namespace rilo

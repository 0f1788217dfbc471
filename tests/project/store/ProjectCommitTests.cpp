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
using testing::numberedTimeline;
using testing::timelineKeeping;

template <typename Error, typename Body>
std::optional<Error> thrown(Body body) {
    try {
        body();
    } catch (const Error& error) {
        return error;
    }
    return std::nullopt;
}

TEST_F(CommitTest, DigestsAreOfTheBytesOnDisk) {
    const std::string compact =
        R"({"schemaVersion":8,"segments":[{"id":"0B7F2C1E-8D3A-4C5B-9E6F-112233445566",)"
        R"("sourceRange":{"start":{"nanoseconds":0},"duration":{"nanoseconds":5000000000}}}]})";
    writeFileAtomically(package.timelineURL(), compact);
    const std::string compactDigest = store.timelineDigest(package);
    EXPECT_EQ(compactDigest, sha256Hex(compact));
    EXPECT_EQ(compactDigest.size(), 64u);

    // The same document with other white space is another file.
    writeFileAtomically(package.timelineURL(), compact + "\n");
    EXPECT_NE(store.timelineDigest(package), compactDigest);

    const auto state = store.readTimelineState(package, sourceDuration, true);
    EXPECT_EQ(state.digest, store.timelineDigest(package));
    EXPECT_EQ(state.timeline, store.readTimeline(package, sourceDuration, true));
    ASSERT_EQ(state.timeline.segments.size(), 1u);
    EXPECT_EQ(state.timeline.segments[0].sourceRange.duration, ProjectTime::fromSeconds(5));
    // Read through normalisation: the package has a webcam.
    EXPECT_TRUE(state.timeline.webcamOverlay.has_value());

    EXPECT_EQ(store.captionsDigest(package), digestOfNoBytes);
    std::filesystem::remove(package.timelineURL());
    // Like captions, a missing timeline has the digest of no bytes.
    EXPECT_EQ(store.timelineDigest(package), digestOfNoBytes);
}

TEST_F(CommitTest, ReadingValidatesOnlyWithAKnownDuration) {
    // Keeps 20 s of a 12.3 s recording.
    writeFileAtomically(package.timelineURL(), handWrittenTimeline(8, 20'000'000'000));
    EXPECT_THROW(store.readTimeline(package, sourceDuration, true), TimelineValidationError);
    EXPECT_THROW(store.readTimelineState(package, sourceDuration, true), TimelineValidationError);
    EXPECT_EQ(store.readTimeline(package, ProjectTime::zero(), false).segments[0].sourceRange.duration,
              ProjectTime::fromSeconds(20));
}

TEST_F(CommitTest, CommitKeepsTheReplacedBytesInHistory) {
    const std::string original = timelineBytes();
    const std::string before = store.timelineDigest(package);
    const EditTimeline next = numberedTimeline(1);

    const auto result = store.commitTimeline(next, before, std::nullopt, package);

    EXPECT_TRUE(result.warnings.empty());
    EXPECT_EQ(result.digest, store.timelineDigest(package));
    EXPECT_EQ(timelineBytes(), json::encodeDocument(next));
    const auto history = store.timelineHistory(package);
    ASSERT_EQ(history.size(), 1u);
    EXPECT_EQ(readFileBytes(history[0].fileURL), original);
    EXPECT_EQ(history[0].digest, before);
    EXPECT_TRUE(std::regex_match(
        history[0].fileURL.filename().string(),
        std::regex(R"(\d{4}-\d{2}-\d{2}T\d{2}-\d{2}-\d{2}\.\d{3}Z-[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-)"
                   R"([0-9A-F]{4}-[0-9A-F]{12}\.json)")));
    EXPECT_EQ(history[0].fileURL.parent_path(), package.timelineHistoryDirectory());
    EXPECT_TRUE(std::filesystem::exists(package.timelineLockURL()));
    // No captions were involved, so their lock was never made.
    EXPECT_FALSE(std::filesystem::exists(package.captionsLockURL()));

    // Saving the same document again still makes an entry.
    testing::CommitTest::waitPastMillisecond();
    const auto again = store.commitTimeline(next, result.digest, std::nullopt, package);
    EXPECT_EQ(again.digest, result.digest);
    ASSERT_EQ(store.timelineHistory(package).size(), 2u);
    EXPECT_EQ(store.timelineHistory(package)[0].digest, result.digest);
}

TEST_F(CommitTest, StaleDigestChangesNothing) {
    const std::string original = store.timelineDigest(package);
    store.commitTimeline(numberedTimeline(1), original, std::nullopt, package);
    const std::string current = timelineBytes();
    const auto history = historyBytes();

    const auto conflict = thrown<ProjectStoreError>(
        [&] { store.commitTimeline(numberedTimeline(2), original, std::nullopt, package); });
    ASSERT_TRUE(conflict);
    EXPECT_EQ(conflict->errorCase(), ProjectStoreError::Case::timelineDigestConflict);
    EXPECT_EQ(conflict->expectedDigest(), original);
    EXPECT_EQ(conflict->actualDigest(), sha256Hex(current));
    EXPECT_STREQ(conflict->what(), "Timeline已被其他进程修改，请重新预演。");

    const auto editorConflict =
        thrown<ProjectStoreError>([&] { store.writeTimeline(numberedTimeline(3), original, package); });
    ASSERT_TRUE(editorConflict);
    EXPECT_EQ(editorConflict->errorCase(), ProjectStoreError::Case::timelineDigestConflict);

    EXPECT_EQ(timelineBytes(), current);
    EXPECT_EQ(historyBytes(), history);
}

TEST_F(CommitTest, EditorWriteIsGuardedButKeepsNoHistory) {
    const EditTimeline next = numberedTimeline(4);
    const std::string digest = store.writeTimeline(next, store.timelineDigest(package), package);
    EXPECT_EQ(digest, store.timelineDigest(package));
    EXPECT_EQ(timelineBytes(), json::encodeDocument(next));
    EXPECT_TRUE(store.timelineHistory(package).empty());
    EXPECT_FALSE(std::filesystem::exists(package.timelineHistoryDirectory()));
}

TEST_F(CommitTest, InvalidTimelineIsRefusedAndNeverWritten) {
    const std::string original = timelineBytes();
    const std::string digest = store.timelineDigest(package);
    // Longer than the 12.3 s recording.
    const EditTimeline tooLong = timelineKeeping(ProjectTime::fromSeconds(13));
    EditTimeline empty = EditTimeline::empty();

    const auto outside = thrown<TimelineValidationError>(
        [&] { store.commitTimeline(tooLong, digest, std::nullopt, package); });
    ASSERT_TRUE(outside);
    EXPECT_EQ(outside->errorCase(), TimelineValidationError::Case::rangeOutsideSource);
    const auto noSegments =
        thrown<TimelineValidationError>([&] { store.writeTimeline(empty, digest, package); });
    ASSERT_TRUE(noSegments);
    EXPECT_EQ(noSegments->errorCase(), TimelineValidationError::Case::empty);

    EXPECT_EQ(timelineBytes(), original);
    EXPECT_FALSE(std::filesystem::exists(package.timelineHistoryDirectory()));
}

// Commits ask the store's own catalog about a device frame: this test program
// does not live next to the program's catalog, so any other would refuse it.
TEST_F(CommitTest, DeviceFrameIsCheckedAgainstTheStoresCatalog) {
    EditTimeline framed = numberedTimeline(5);
    framed.deviceFrame = DeviceFrameEdit{true, testing::buildCatalog().devices.front().defaultVariant()->id};
    const std::string digest = store.writeTimeline(framed, store.timelineDigest(package), package);
    // The framed document, now on disk, is read back and kept in history.
    store.commitTimeline(numberedTimeline(6), digest, std::nullopt, package);
    EXPECT_EQ(store.historyTimeline(0, package, sourceDuration, true).deviceFrame, framed.deviceFrame);

    framed.deviceFrame->assetID = "no-such-device";
    const auto unknown = thrown<TimelineValidationError>(
        [&] { store.commitTimeline(framed, store.timelineDigest(package), std::nullopt, package); });
    ASSERT_TRUE(unknown);
    EXPECT_EQ(unknown->errorCase(), TimelineValidationError::Case::invalidDeviceFrame);
}

TEST_F(CommitTest, TwentyFirstCommitRemovesTheOldestEntry) {
    // An entry from long ago, and files that are not entries.
    std::filesystem::create_directories(package.timelineHistoryDirectory());
    const auto ancient = package.timelineHistoryDirectory() /
                         "2001-01-01T00-00-00.000Z-00000000-0000-4000-8000-000000000000.json";
    writeFileAtomically(ancient, handWrittenTimeline(8, 1'000'000'000));
    writeFileAtomically(package.timelineHistoryDirectory() / ".hidden.json", "x");
    writeFileAtomically(package.timelineHistoryDirectory() / "0000-notes.txt", "x");

    std::vector<std::string> committed{timelineBytes()};
    std::string digest = store.timelineDigest(package);
    for (int n = 1; n <= 20; ++n) {
        testing::CommitTest::waitPastMillisecond();
        const EditTimeline next = numberedTimeline(n);
        digest = store.commitTimeline(next, digest, std::nullopt, package).digest;
        committed.push_back(json::encodeDocument(next));
        if (n == 19) {
            // With the ancient entry, 20 are kept: nothing removed yet.
            EXPECT_TRUE(std::filesystem::exists(ancient));
        }
    }
    // The 21st entry pushed out the oldest by name.
    EXPECT_FALSE(std::filesystem::exists(ancient));
    EXPECT_EQ(historyBytes().size(), 20u);

    testing::CommitTest::waitPastMillisecond();
    const auto result = store.commitTimeline(numberedTimeline(21), digest, std::nullopt, package);
    EXPECT_TRUE(result.warnings.empty());
    const auto history = historyBytes();
    ASSERT_EQ(history.size(), 20u);
    // Newest first: the states before commits 21 down to 2. The state before
    // the first commit is gone.
    for (std::size_t i = 0; i < history.size(); ++i) {
        EXPECT_EQ(history[i], committed[20 - i]) << "entry " << i;
    }
    EXPECT_TRUE(std::filesystem::exists(package.timelineHistoryDirectory() / ".hidden.json"));
    EXPECT_TRUE(std::filesystem::exists(package.timelineHistoryDirectory() / "0000-notes.txt"));
}

TEST_F(CommitTest, FailedTrimmingIsAWarningNotAFailure) {
    // The oldest entry by name is a directory that cannot be removed.
    const auto stuck = package.timelineHistoryDirectory() / "0000-stuck.json";
    std::filesystem::create_directories(stuck);
    writeFileAtomically(stuck / "inside", "x");

    std::string digest = store.timelineDigest(package);
    TimelineCommitResult result;
    for (int n = 1; n <= 20; ++n) {
        result = store.commitTimeline(numberedTimeline(n), digest, std::nullopt, package);
        digest = result.digest;
    }
    ASSERT_EQ(result.warnings.size(), 1u);
    EXPECT_TRUE(result.warnings[0].starts_with("历史清理失败：")) << result.warnings[0];
    EXPECT_EQ(timelineBytes(), json::encodeDocument(numberedTimeline(20)));
    EXPECT_EQ(result.digest, store.timelineDigest(package));
    EXPECT_TRUE(std::filesystem::exists(stuck));
}

TEST_F(CommitTest, OlderSchemaIsBackedUpOnceWhenFirstReplaced) {
    const std::string schema7 = handWrittenTimeline(7, 4'000'000'000);
    writeFileAtomically(package.timelineURL(), schema7);

    const auto first =
        store.commitTimeline(numberedTimeline(1), store.timelineDigest(package), std::nullopt, package);
    EXPECT_EQ(readFileBytes(package.preSchema8TimelineBackupURL()), schema7);
    for (int version = 3; version <= 7; ++version) {
        EXPECT_FALSE(std::filesystem::exists(package.preSchemaTimelineBackupURL(version))) << version;
    }

    // Rewriting schema 8 again leaves the backup alone, even when an older
    // file turns up once more.
    store.commitTimeline(numberedTimeline(2), first.digest, std::nullopt, package);
    writeFileAtomically(package.timelineURL(), handWrittenTimeline(7, 3'000'000'000));
    store.writeTimeline(numberedTimeline(3), store.timelineDigest(package), package);
    EXPECT_EQ(readFileBytes(package.preSchema8TimelineBackupURL()), schema7);
}

TEST_F(CommitTest, UnguardedWriteBacksUpEverySchemaStepCrossed) {
    const std::string schema2 = handWrittenTimeline(2, 4'000'000'000);
    writeFileAtomically(package.timelineURL(), schema2);

    const EditTimeline next = numberedTimeline(1);
    store.writeTimeline(next, package);

    EXPECT_EQ(timelineBytes(), json::encodeDocument(next));
    for (int version = 3; version <= 8; ++version) {
        EXPECT_EQ(readFileBytes(package.preSchemaTimelineBackupURL(version)), schema2) << version;
    }
    EXPECT_FALSE(std::filesystem::exists(package.timelineHistoryDirectory()));
    EXPECT_FALSE(std::filesystem::exists(package.timelineLockURL()));

    // Without a file there is nothing to back up.
    std::filesystem::remove(package.timelineURL());
    store.writeTimeline(next, package);
    EXPECT_EQ(timelineBytes(), json::encodeDocument(next));
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
    EXPECT_EQ(store.historyTimeline(0, package, sourceDuration, true),
              first.normalized(sourceDuration, true));
    EXPECT_EQ(store.historyTimeline(1, package, sourceDuration, true), original);
    for (const std::int64_t missing : {std::int64_t{-1}, std::int64_t{2}}) {
        const auto error =
            thrown<ProjectStoreError>([&] { store.historyTimeline(missing, package, sourceDuration, true); });
        ASSERT_TRUE(error);
        EXPECT_EQ(error->errorCase(), ProjectStoreError::Case::historyNotFound);
        EXPECT_EQ(error->message(), "找不到历史版本：" + std::to_string(missing));
    }

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
    EXPECT_EQ(after[0].digest, digest);
    EXPECT_EQ(store.historyTimeline(0, package, sourceDuration, true),
              second.normalized(sourceDuration, true));
}

TEST_F(CommitTest, HistoryEntryThatFailsValidationIsNotRestored) {
    std::filesystem::create_directories(package.timelineHistoryDirectory());
    writeFileAtomically(package.timelineHistoryDirectory() / "2001-01-01T00-00-00.000Z-X.json",
                        handWrittenTimeline(8, 20'000'000'000));
    const std::string before = timelineBytes();
    EXPECT_THROW(store.restoreTimeline(0, store.timelineDigest(package), package, sourceDuration, true),
                 TimelineValidationError);
    EXPECT_EQ(timelineBytes(), before);
    EXPECT_EQ(store.timelineHistory(package).size(), 1u);
    // Without a known duration the entry is only normalised.
    EXPECT_EQ(store.historyTimeline(0, package, ProjectTime::zero(), false).segments.size(), 1u);
}

TEST_F(CommitTest, CaptionGuardedCommitExpectsTheDigestOfNoBytesWithoutCaptions) {
    const std::string digest = store.timelineDigest(package);
    const auto conflict = thrown<ProjectStoreError>(
        [&] { store.commitTimeline(numberedTimeline(1), digest, std::string(64, 'a'), package); });
    ASSERT_TRUE(conflict);
    EXPECT_EQ(conflict->errorCase(), ProjectStoreError::Case::captionsDigestConflict);
    EXPECT_EQ(conflict->actualDigest(), digestOfNoBytes);
    EXPECT_STREQ(conflict->what(), "字幕已被其他进程修改，请重新预演。");
    EXPECT_EQ(store.timelineDigest(package), digest);

    const auto result =
        store.commitTimeline(numberedTimeline(1), digest, std::string(digestOfNoBytes), package);
    EXPECT_EQ(result.digest, store.timelineDigest(package));
    EXPECT_TRUE(std::filesystem::exists(package.captionsLockURL()));
}

TEST_F(CommitTest, LockThatCannotBeTakenFailsTheCommit) {
    const std::string before = timelineBytes();
    std::filesystem::create_directories(package.captionsLockURL());
    const auto captionLock = thrown<ProjectStoreError>([&] {
        store.commitTimeline(numberedTimeline(1), store.timelineDigest(package), std::string(digestOfNoBytes),
                             package);
    });
    ASSERT_TRUE(captionLock);
    EXPECT_EQ(captionLock->errorCase(), ProjectStoreError::Case::timelineLockUnavailable);
    EXPECT_STREQ(captionLock->what(), "无法锁定Timeline提交。");

    std::filesystem::remove(package.timelineLockURL());
    std::filesystem::create_directories(package.timelineLockURL());
    const auto timelineLock = thrown<ProjectStoreError>(
        [&] { store.writeTimeline(numberedTimeline(1), store.timelineDigest(package), package); });
    ASSERT_TRUE(timelineLock);
    EXPECT_EQ(timelineLock->errorCase(), ProjectStoreError::Case::timelineLockUnavailable);
    EXPECT_EQ(timelineBytes(), before);
}

TEST(DocumentHistoryTest, StampsAreUtcWithMillisecondsAndNoColons) {
    using namespace std::chrono;
    const sys_days day = year{2026} / March / 2;
    const auto moment = day + hours{8} + minutes{15} + seconds{30} + milliseconds{123} + microseconds{999};
    EXPECT_EQ(DocumentHistory::stamp(moment), "2026-03-02T08-15-30.123Z");
    EXPECT_EQ(DocumentHistory::stamp(sys_days{year{1999} / December / 31}), "1999-12-31T00-00-00.000Z");
    EXPECT_NE(DocumentHistory::newEntryName(), DocumentHistory::newEntryName());
}

} // namespace
} // namespace rilo

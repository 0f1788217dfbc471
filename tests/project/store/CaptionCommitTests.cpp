#include "project/caption/CaptionCodecs.h"
#include "project/store/CommitFixtures.h"
#include "project/store/DocumentHistory.h"

#include <cstdio>

namespace rilo {
namespace {

using testing::CommitTest;
using testing::digestOfNoBytes;

// The n-th of a series of distinct caption documents, with one cue whose text
// has blanks and a line break around it.
CaptionDocument numberedCaptions(int n, ProjectTime cueEnd = ProjectTime::fromSeconds(2)) {
    char id[40];
    std::snprintf(id, sizeof id, "00000000-0000-4000-8000-%012d", n);
    CaptionDocument document;
    document.sourceTrack = MediaTrackKind::microphone;
    document.sourceAudioDigest = std::string(64, 'a');
    document.basedOnTimelineDigest = std::string(64, 'b');
    document.language = "zh-Hans";
    document.cues = {{*Uuid::parse(id),
                      ProjectTime::fromSeconds(1),
                      cueEnd,
                      "  第" + std::to_string(n) + "句字幕\n",
                      {},
                      {}}};
    return document;
}

std::vector<std::string> directoryContents(const std::filesystem::path& directory) {
    std::vector<std::string> contents;
    for (const auto& entry : DocumentHistory::entries(directory)) {
        contents.push_back(readFileBytes(entry));
    }
    return contents;
}

class CaptionCommitTest : public CommitTest {
protected:
    std::string captionsBytes() const { return readFileBytes(package.captionsURL()); }
    std::vector<std::string> captionHistory() const {
        return directoryContents(package.captionsHistoryDirectory());
    }
    std::string commit(const CaptionDocument& document) {
        return store.commitCaptions(document, store.captionsDigest(package), store.timelineDigest(package),
                                    package);
    }
};

TEST_F(CaptionCommitTest, MissingCaptionsHaveTheDigestOfNoBytes) {
    const CaptionsState state = store.captionsState(package);
    EXPECT_FALSE(state.document.has_value());
    EXPECT_EQ(state.digest, digestOfNoBytes);
    EXPECT_EQ(store.captionsDigest(package), digestOfNoBytes);
}

TEST_F(CaptionCommitTest, CommitWritesTheValidatedDocumentAndKeepsTheOldOne) {
    const std::string timeline = timelineBytes();
    const CaptionDocument first = numberedCaptions(1);
    const std::string firstDigest =
        store.commitCaptions(first, digestOfNoBytes, store.timelineDigest(package), package);

    EXPECT_EQ(firstDigest, store.captionsDigest(package));
    EXPECT_EQ(firstDigest, sha256Hex(captionsBytes()));
    const CaptionsState state = store.captionsState(package);
    ASSERT_TRUE(state.document.has_value());
    EXPECT_EQ(*state.document, first.validated(sourceDuration));
    EXPECT_EQ(state.document->cues[0].text, "第1句字幕");
    EXPECT_EQ(state.digest, firstDigest);
    // There was nothing to keep yet.
    EXPECT_TRUE(std::filesystem::is_directory(package.captionsHistoryDirectory()));
    EXPECT_TRUE(captionHistory().empty());
    EXPECT_TRUE(std::filesystem::exists(package.timelineLockURL()));
    EXPECT_TRUE(std::filesystem::exists(package.captionsLockURL()));

    const std::string firstBytes = captionsBytes();
    const std::string secondDigest =
        store.commitCaptions(numberedCaptions(2), firstDigest, store.timelineDigest(package), package);
    EXPECT_NE(secondDigest, firstDigest);
    EXPECT_EQ(captionHistory(), std::vector<std::string>{firstBytes});
    EXPECT_EQ(timelineBytes(), timeline);
    EXPECT_TRUE(store.timelineHistory(package).empty());
}

TEST_F(CaptionCommitTest, StaleDigestsChangeNothing) {
    const std::string first = commit(numberedCaptions(1));
    commit(numberedCaptions(2));
    const std::string bytes = captionsBytes();
    const auto history = captionHistory();

    try {
        store.commitCaptions(numberedCaptions(3), first, store.timelineDigest(package), package);
        ADD_FAILURE() << "stale caption digest accepted";
    } catch (const ProjectStoreError& error) {
        EXPECT_EQ(error.errorCase(), ProjectStoreError::Case::captionsDigestConflict);
        EXPECT_EQ(error.expectedDigest(), first);
        EXPECT_EQ(error.actualDigest(), sha256Hex(bytes));
    }
    try {
        store.commitCaptions(numberedCaptions(3), sha256Hex(bytes), digestOfNoBytes, package);
        ADD_FAILURE() << "stale timeline digest accepted";
    } catch (const ProjectStoreError& error) {
        EXPECT_EQ(error.errorCase(), ProjectStoreError::Case::timelineDigestConflict);
    }
    try {
        store.writeCaptions(numberedCaptions(3), first, package);
        ADD_FAILURE() << "stale caption digest accepted by the editor write";
    } catch (const ProjectStoreError& error) {
        EXPECT_EQ(error.errorCase(), ProjectStoreError::Case::captionsDigestConflict);
    }
    EXPECT_EQ(captionsBytes(), bytes);
    EXPECT_EQ(captionHistory(), history);
}

TEST_F(CaptionCommitTest, InvalidDocumentIsRefusedBeforeAnythingIsWritten) {
    // The cue ends after the 12.3 s recording.
    const CaptionDocument outside = numberedCaptions(1, ProjectTime::fromSeconds(13));
    EXPECT_THROW(store.commitCaptions(outside, digestOfNoBytes, store.timelineDigest(package), package),
                 CaptionValidationError);
    EXPECT_FALSE(std::filesystem::exists(package.captionsURL()));

    commit(numberedCaptions(1));
    const std::string bytes = captionsBytes();
    EXPECT_THROW(store.writeCaptions(outside, store.captionsDigest(package), package),
                 CaptionValidationError);
    EXPECT_THROW(commit(outside), CaptionValidationError);
    EXPECT_EQ(captionsBytes(), bytes);
    EXPECT_TRUE(captionHistory().empty());
}

TEST_F(CaptionCommitTest, EditorWriteKeepsNoHistory) {
    const std::string first = store.writeCaptions(numberedCaptions(1), digestOfNoBytes, package);
    const std::string second = store.writeCaptions(numberedCaptions(2), first, package);
    EXPECT_EQ(second, store.captionsDigest(package));
    EXPECT_EQ(store.captionsState(package).document, numberedCaptions(2).validated(sourceDuration));
    EXPECT_FALSE(std::filesystem::exists(package.captionsHistoryDirectory()));
    // The editor's caption write needs no timeline lock.
    EXPECT_FALSE(std::filesystem::exists(package.timelineLockURL()));
}

TEST_F(CaptionCommitTest, HistoryKeepsTheTwentyNewest) {
    std::vector<std::string> written;
    for (int n = 1; n <= 22; ++n) {
        testing::CommitTest::waitPastMillisecond();
        commit(numberedCaptions(n));
        written.push_back(captionsBytes());
    }
    // 21 replaced documents, of which the first is gone.
    const auto history = captionHistory();
    ASSERT_EQ(history.size(), 20u);
    for (std::size_t i = 0; i < history.size(); ++i) {
        EXPECT_EQ(history[i], written[i + 1]) << "entry " << i;
    }
}

TEST_F(CaptionCommitTest, FailedTrimmingFailsTheCaptionCommit) {
    const auto stuck = package.captionsHistoryDirectory() / "0000-stuck.json";
    std::filesystem::create_directories(stuck);
    writeFileAtomically(stuck / "inside", "x");
    for (int n = 1; n <= 20; ++n) {
        commit(numberedCaptions(n));
    }
    EXPECT_THROW(commit(numberedCaptions(21)), FileError);
}

TEST_F(CaptionCommitTest, TimelineCommitGuardedByCaptions) {
    const std::string captions = commit(numberedCaptions(1));
    const std::string timeline = store.timelineDigest(package);

    EXPECT_THROW(
        store.commitTimeline(testing::numberedTimeline(1), timeline, std::string(digestOfNoBytes), package),
        ProjectStoreError);
    EXPECT_EQ(store.timelineDigest(package), timeline);
    const auto result = store.commitTimeline(testing::numberedTimeline(1), timeline, captions, package);
    EXPECT_EQ(result.digest, store.timelineDigest(package));

    // A caption file that is not a caption document can't be checked against.
    writeFileAtomically(package.captionsURL(), "[]");
    const std::string broken = store.captionsDigest(package);
    EXPECT_EQ(broken, sha256Hex("[]"));
    EXPECT_THROW(store.commitTimeline(testing::numberedTimeline(2), result.digest, broken, package),
                 json::DecodingError);
    EXPECT_THROW(store.commitCaptions(numberedCaptions(2), broken, result.digest, package),
                 json::DecodingError);
    EXPECT_THROW(store.captionsState(package), json::DecodingError);
    EXPECT_EQ(store.timelineDigest(package), result.digest);
}

} // namespace
} // namespace rilo

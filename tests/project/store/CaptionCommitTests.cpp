// What caption commits do beyond the protocol they share with timeline
// commits (see ProjectCommitTests.cpp).

#include "project/store/CommitFixtures.h"
#include "project/store/DocumentHistory.h"

namespace rilo {
namespace {

using testing::CommitTest;
using testing::digestOfNoBytes;
using testing::numberedCaptions;
using testing::numberedTimeline;

TEST_F(CommitTest, FirstCaptionCommitStoresTheValidatedDocumentUnderBothLocks) {
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
    // There was nothing to keep yet.
    EXPECT_TRUE(std::filesystem::is_directory(package.captionsHistoryDirectory()));
    EXPECT_TRUE(DocumentHistory::entries(package.captionsHistoryDirectory()).empty());
    EXPECT_TRUE(std::filesystem::exists(package.timelineLockURL()));
    EXPECT_EQ(timelineBytes(), timeline);
    EXPECT_TRUE(store.timelineHistory(package).empty());

    // The commit is also guarded by the timeline it was prepared against.
    try {
        store.commitCaptions(numberedCaptions(2), digest, digestOfNoBytes, package);
        ADD_FAILURE() << "stale timeline digest accepted";
    } catch (const ProjectStoreError& error) {
        EXPECT_EQ(error.errorCase(), ProjectStoreError::Case::timelineDigestConflict);
    }
    EXPECT_EQ(store.captionsDigest(package), digest);
}

TEST_F(CommitTest, EditorCaptionWriteNeedsNoTimelineLock) {
    store.writeCaptions(numberedCaptions(1), digestOfNoBytes, package);
    EXPECT_FALSE(std::filesystem::exists(package.timelineLockURL()));
}

TEST_F(CommitTest, FailedTrimmingFailsTheCaptionCommit) {
    const auto stuck = package.captionsHistoryDirectory() / "0000-stuck.json";
    std::filesystem::create_directories(stuck);
    writeFileAtomically(stuck / "inside", "x");
    for (int n = 1; n <= 20; ++n) {
        store.commitCaptions(numberedCaptions(n), store.captionsDigest(package),
                             store.timelineDigest(package), package);
    }
    EXPECT_THROW(store.commitCaptions(numberedCaptions(21), store.captionsDigest(package),
                                      store.timelineDigest(package), package),
                 FileError);
}

TEST_F(CommitTest, TimelineCommitGuardedByCaptions) {
    const std::string captions =
        store.commitCaptions(numberedCaptions(1), digestOfNoBytes, store.timelineDigest(package), package);
    const std::string timeline = store.timelineDigest(package);

    EXPECT_THROW(store.commitTimeline(numberedTimeline(1), timeline, std::string(digestOfNoBytes), package),
                 ProjectStoreError);
    EXPECT_EQ(store.timelineDigest(package), timeline);
    const auto result = store.commitTimeline(numberedTimeline(1), timeline, captions, package);
    EXPECT_EQ(result.digest, store.timelineDigest(package));

    // A caption file that is not a caption document can't be checked against.
    writeFileAtomically(package.captionsURL(), "[]");
    const std::string broken = store.captionsDigest(package);
    EXPECT_EQ(broken, sha256Hex("[]"));
    EXPECT_THROW(store.commitTimeline(numberedTimeline(2), result.digest, broken, package),
                 json::DecodingError);
    EXPECT_THROW(store.commitCaptions(numberedCaptions(2), broken, result.digest, package),
                 json::DecodingError);
    EXPECT_THROW(store.captionsState(package), json::DecodingError);
    EXPECT_EQ(store.timelineDigest(package), result.digest);
}

} // namespace
} // namespace rilo

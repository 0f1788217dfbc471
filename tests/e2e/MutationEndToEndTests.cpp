// One agent edit through the real executable: describe, preview, confirm with
// the digest the preview returned, read the history and restore; plus the
// failures that must leave the package as it was.

#include "shared/Json.h"
#include "support/CliLibraryTest.h"
#include "support/FileTree.h"
#include "support/RecordedPackage.h"

#include <gtest/gtest.h>

namespace rilo {
namespace {

using json::Json;
using testing::fileTreeState;

class MutationEndToEnd : public testing::CliLibraryTest {
protected:
    testing::RecordedPackage recorded;
    std::string prefix;

    void SetUp() override {
        testing::RecordedPackageOptions spec;
        spec.movie.duration = ProjectTime::fromSeconds(12);
        spec.clicks = {{ProjectTime::fromMilliseconds(2000), {0.3, 0.3}},
                       {ProjectTime::fromMilliseconds(7000), {0.7, 0.6}}};
        recorded = testing::makeRecordedPackage(store, spec);
        prefix = recorded.manifest.id.string().substr(0, 6);
    }
};

TEST_F(MutationEndToEnd, PreviewConfirmHistoryAndRestore) {
    const Json described = succeed({"describe", prefix});
    const std::string digest = described["timelineDigest"];
    EXPECT_EQ(described["sequenceDurationMilliseconds"], 12000);

    const auto untouched = fileTreeState(recorded.package.rootURL);
    const Json preview = succeed({"cut", prefix, "--range", "5000,9000"});
    EXPECT_EQ(fileTreeState(recorded.package.rootURL), untouched);
    EXPECT_EQ(preview["applied"], false);
    EXPECT_EQ(preview["projectID"], recorded.manifest.id.string());
    EXPECT_EQ(preview["timelineDigest"], digest);
    EXPECT_FALSE(preview.contains("resultingDigest"));
    EXPECT_TRUE(preview.contains("before"));
    EXPECT_EQ(preview["after"]["sequenceDurationMilliseconds"], 8000);
    EXPECT_TRUE(preview.contains("normalizedCuts"));
    EXPECT_EQ(preview["warnings"], Json::array());
    const Json applied = succeed(preview["confirmationArguments"].get<std::vector<std::string>>());
    EXPECT_EQ(applied["applied"], true);
    EXPECT_FALSE(applied.contains("confirmationArguments"));
    const std::string newDigest = applied["resultingDigest"];
    EXPECT_NE(newDigest, digest);

    const Json after = succeed({"describe", prefix});
    EXPECT_EQ(after["timelineDigest"], newDigest);
    EXPECT_EQ(after["sequenceDurationMilliseconds"], 8000);
    // The one entry is the state before; restoring it is the second.
    EXPECT_EQ(succeed({"history", prefix})["entries"][0]["timelineDigest"], digest);

    const Json restored = succeed({"restore", prefix, "--index", "0", "--apply", "--expect", newDigest});
    EXPECT_EQ(restored["after"]["sequenceDurationMilliseconds"], 12000);
    EXPECT_EQ(succeed({"describe", prefix})["sequenceDurationMilliseconds"], 12000);
    EXPECT_EQ(succeed({"history", prefix})["entries"].size(), 2u);
}

TEST_F(MutationEndToEnd, AStaleDigestConflictsAndZoomsComeFromClicks) {
    const std::string digest = succeed({"describe", prefix})["timelineDigest"];
    const auto confirmation =
        succeed({"speed-set", prefix, "--range", "0,2000", "--rate", "2"})["confirmationArguments"]
            .get<std::vector<std::string>>();
    // Someone else commits in between.
    succeed({"set", prefix, "cursor.scale=1.5", "--apply", "--expect", digest});
    const auto before = fileTreeState(recorded.package.rootURL);
    EXPECT_EQ(fail(confirmation, "timeline_conflict", 3), "Timeline已被其他进程修改，请重新预演。");
    EXPECT_EQ(fileTreeState(recorded.package.rootURL), before);

    // Zooms made from the clicks, then added and removed.
    succeed({"zoom-regen", prefix, "--apply", "--expect", succeed({"describe", prefix})["timelineDigest"]});
    const std::size_t zooms = succeed({"describe", prefix})["zooms"].size();
    EXPECT_GE(zooms, 1u);
    EXPECT_EQ(succeed({"zoom-add", prefix, "--range", "10000,11500"})["after"]["zoomCount"], zooms + 1);
    EXPECT_EQ(succeed({"zoom-rm", prefix, "--all"})["after"]["zoomCount"], 0);
}

TEST_F(MutationEndToEnd, InvalidEditsFailWithTheirOwnMessageAndChangeNothing) {
    const std::string digest = succeed({"describe", prefix})["timelineDigest"];
    fail({"cut", prefix, "--range", "0,20000", "--apply", "--expect", digest}, "validation", 4);
    EXPECT_EQ(fail({"zoom-rm", prefix, "--index", "3"}, "validation", 4), "自动镜头编号无效。");
    // A sequence range across a cut cannot hold one zoom.
    succeed({"cut", prefix, "--range", "4000,5000", "--apply", "--expect", digest});
    const auto afterCut = fileTreeState(recorded.package.rootURL);
    EXPECT_EQ(fail({"zoom-add", prefix, "--range", "3000,6000"}, "validation", 4),
              "自动镜头区间至少需要一帧，且必须位于原始媒体内。");
    EXPECT_EQ(fail({"restore", prefix, "--index", "1"}, "validation", 4), "找不到历史版本：1");
    fail({"set", prefix, "canvas.aspect=2:1"}, "validation", 4);
    EXPECT_EQ(fileTreeState(recorded.package.rootURL), afterCut);
}

} // namespace
} // namespace rilo

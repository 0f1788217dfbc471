#include "app/updates/ReleaseNotesPresentation.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

namespace rilo::app {
namespace {

ReleaseNote note(const std::string& version) {
    return ReleaseNote{.version = version,
                       .title = "版本 " + version,
                       .publishedAt = IsoDate{1'772'438'400},
                       .sections = {{.title = "新功能", .items = {"更快的导出"}}}};
}

class ReleaseNotesPresentationTest : public ::testing::Test {
protected:
    rilo::testing::TemporaryDirectory directory;
    UserDefaults defaults{directory.path() / "settings.json"};
    ReleaseNotesCatalog catalog{.schemaVersion = 1,
                                .releases = {note("1.1.0"), note("1.2.0"), note("1.3.0")}};

    std::optional<ReleaseNote> launch(const std::string& version) {
        return ReleaseNotesPresentation::noteToPresentAtLaunch(defaults, version, catalog);
    }
};

TEST_F(ReleaseNotesPresentationTest, ANewVersionShowsItsNotesOnceButAFreshInstallationShowsNone) {
    EXPECT_FALSE(launch("1.1.0"));
    EXPECT_FALSE(launch("1.1.0"));

    const auto shown = launch("1.2.0");
    ASSERT_TRUE(shown);
    EXPECT_EQ(shown->title, "版本 1.2.0");
    EXPECT_FALSE(launch("1.2.0"));

    // Going back to an older version and forward again shows nothing more.
    EXPECT_FALSE(launch("1.1.0"));
    EXPECT_FALSE(launch("1.2.0"));
    EXPECT_EQ(defaults.string("releaseNotes.highestLaunchedMarketingVersion"), "1.2.0");

    // A version without a note shows nothing, but still counts as launched.
    EXPECT_FALSE(launch("1.2.5"));
    EXPECT_EQ(defaults.string("releaseNotes.highestLaunchedMarketingVersion"), "1.2.5");
    ASSERT_TRUE(launch("1.3.0"));
    EXPECT_EQ(defaults.string("releaseNotes.lastPresentedMarketingVersion"), "1.3.0");
}

TEST_F(ReleaseNotesPresentationTest, NotesNotYetShownAfterAnUpdateAreShownAtTheNextLaunch) {
    EXPECT_FALSE(launch("1.1.0"));
    catalog.releases.pop_back();
    EXPECT_FALSE(launch("1.3.0"));
    // The catalog of a later start has the note that was missing.
    catalog.releases.push_back(note("1.3.0"));
    EXPECT_TRUE(launch("1.3.0"));
    EXPECT_FALSE(launch("1.3.0"));
}

} // namespace
} // namespace rilo::app

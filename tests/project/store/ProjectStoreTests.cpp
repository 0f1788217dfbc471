#include "project/store/ProjectStore.h"
#include "shared/Files.h"
#include "support/BuildCatalog.h"
#include "support/PackageFixtures.h"
#include "support/TemporaryDirectory.h"
#include "support/Thrown.h"

#include <gtest/gtest.h>

namespace rilo {
namespace {

using testing::PackageOptions;
using testing::sampleManifest;
using testing::writePackage;

class ProjectStoreTest : public ::testing::Test {
protected:
    testing::TemporaryDirectory root;
    std::filesystem::path library = root / "Library";
    ProjectStore store{library, testing::buildCatalog};

    ProjectPackage add(const char* id, std::int64_t updatedAt, ProjectState state = ProjectState::completed,
                       PackageOptions options = {}) {
        return writePackage(library, sampleManifest(*Uuid::parse(id), IsoDate{updatedAt}, state), options);
    }
};

TEST_F(ProjectStoreTest, CreatesItsLibraryAndListsFinishedProjectsNewestFirstThenByName) {
    EXPECT_TRUE(std::filesystem::is_directory(library));
    EXPECT_TRUE(store.recentProjects().empty());
    add("BBBBBBBB-0000-4000-8000-000000000002", 200);
    add("AAAAAAAA-0000-4000-8000-000000000001", 200);
    add("CCCCCCCC-0000-4000-8000-000000000003", 300, ProjectState::recovered);
    add("DDDDDDDD-0000-4000-8000-000000000004", 100);

    const auto projects = store.recentProjects();
    ASSERT_EQ(projects.size(), 4u);
    EXPECT_EQ(projects[0].packageURL.filename(), "CCCCCCCC-0000-4000-8000-000000000003.rilo");
    EXPECT_EQ(projects[1].packageURL.filename(), "AAAAAAAA-0000-4000-8000-000000000001.rilo");
    EXPECT_EQ(projects[2].packageURL.filename(), "BBBBBBBB-0000-4000-8000-000000000002.rilo");
    EXPECT_EQ(projects[3].packageURL.filename(), "DDDDDDDD-0000-4000-8000-000000000004.rilo");
    EXPECT_EQ(projects[0].state, ProjectState::recovered);
    EXPECT_EQ(projects[0].sourceTitle, "内建显示器 / Built-in");
    EXPECT_TRUE(projects[0].hasWebcam);
}

TEST_F(ProjectStoreTest, SkipsUnfinishedFailedMedialessAndUnreadablePackages) {
    add("10000000-0000-4000-8000-000000000001", 100);
    add("20000000-0000-4000-8000-000000000002", 100, ProjectState::recording);
    add("30000000-0000-4000-8000-000000000003", 100, ProjectState::finalizing);
    add("40000000-0000-4000-8000-000000000004", 100, ProjectState::failed);
    add("50000000-0000-4000-8000-000000000005", 100, ProjectState::completed, {.suffix = ".rilo.tmp"});
    add("60000000-0000-4000-8000-000000000006", 100, ProjectState::completed, {.withMedia = false});
    add("70000000-0000-4000-8000-000000000007", 100, ProjectState::completed, {.suffix = ".rilo.discarding"});
    const auto broken = add("80000000-0000-4000-8000-000000000008", 100);
    writeFileAtomically(broken.manifestURL(), "{ not json");
    const auto missingKey = add("90000000-0000-4000-8000-000000000009", 100);
    writeFileAtomically(missingKey.manifestURL(), R"({"version": 4})");
    std::filesystem::create_directories(library / ".hidden.rilo" / "media");

    const auto projects = store.recentProjects();
    ASSERT_EQ(projects.size(), 1u);
    EXPECT_EQ(projects[0].packageURL.filename(), "10000000-0000-4000-8000-000000000001.rilo");
    // Listing changes nothing on disk.
    EXPECT_EQ(readFileBytes(broken.manifestURL()), "{ not json");
}

TEST_F(ProjectStoreTest, FindsProjectsByCaseInsensitiveIDPrefix) {
    const auto first = add("1A2B3C4D-0000-4000-8000-000000000001", 100);
    const auto second = add("1A2B9999-0000-4000-8000-000000000002", 100);
    add("FFFFFFFF-0000-4000-8000-000000000003", 100, ProjectState::failed);

    EXPECT_EQ(store.project("1a2b3c"), first);
    EXPECT_EQ(store.project("1A2B99"), second);
    EXPECT_EQ(store.project("1a2b3c4d-0000-4000-8000-000000000001"), first);

    const auto expectError = [&](const std::string& prefix, ProjectStoreError::Case expected,
                                 const std::string& message) {
        const auto error = testing::thrown<ProjectStoreError>([&] { store.project(prefix); });
        ASSERT_TRUE(error) << "prefix " << prefix << " matched";
        EXPECT_EQ(error->errorCase(), expected);
        EXPECT_EQ(error->message(), message);
    };
    expectError("1a2b", ProjectStoreError::Case::ambiguousProjectPrefix, "项目ID前缀不唯一：1a2b");
    expectError("", ProjectStoreError::Case::ambiguousProjectPrefix, "项目ID前缀不唯一：");
    // Failed recordings have no id on the command line.
    expectError("ffff", ProjectStoreError::Case::projectNotFound, "找不到项目：ffff");
}

} // namespace
} // namespace rilo

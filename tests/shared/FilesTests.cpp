#include "shared/AppDirectories.h"
#include "shared/Errors.h"
#include "shared/Files.h"
#include "shared/Sha256.h"
#include "support/FileTree.h"
#include "support/TemporaryDirectory.h"
#include "support/Thrown.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <sys/resource.h>
#include <vector>

namespace rilo {
namespace {

namespace fs = std::filesystem;

using testing::TemporaryDirectory;

// Sets (or unsets) an environment variable for the length of a test.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, const char* value)
        : name_(name) {
        if (const char* old = std::getenv(name)) {
            old_ = old;
        }
        if (value != nullptr) {
            ::setenv(name, value, 1);
        } else {
            ::unsetenv(name);
        }
    }
    ~ScopedEnvironment() {
        if (old_) {
            ::setenv(name_.c_str(), old_->c_str(), 1);
        } else {
            ::unsetenv(name_.c_str());
        }
    }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    std::string name_;
    std::optional<std::string> old_;
};

// Files

TEST(FilesTest, WriteCreatesAndReplacesWithExactBytesLeavingNothingElseBehind) {
    const TemporaryDirectory directory;
    const fs::path target = directory.path() / "timeline.json";
    writeFileAtomically(target, "a longer first version");
    std::string bytes;
    for (int i = 0; i < (1 << 20) + 17; ++i) {
        bytes.push_back(static_cast<char>(i * 31 % 256));
    }
    writeFileAtomically(target, bytes);
    EXPECT_EQ(readFileBytes(target), bytes);
    writeFileAtomically(target, "");
    EXPECT_EQ(readFileBytes(target), "");
    EXPECT_EQ(testing::entryNames(directory.path()), std::vector<std::string>{"timeline.json"});
}

TEST(FilesTest, AFailedWriteLeavesTheOldFileIntact) {
    const TemporaryDirectory directory;
    const fs::path target = directory.path() / "manifest.json";
    writeFileAtomically(target, "old");

    // Cap the file size this process may write, so that writing the new bytes fails part way.
    rlimit previous{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &previous), 0);
    const auto previousHandler = std::signal(SIGXFSZ, SIG_IGN);
    rlimit capped = previous;
    capped.rlim_cur = 1024;
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &capped), 0);
    const bool threw = testing::thrown<FileError>([&] {
                           writeFileAtomically(target, std::string(64 * 1024, 'n'));
                       }).has_value();
    ::setrlimit(RLIMIT_FSIZE, &previous);
    std::signal(SIGXFSZ, previousHandler);

    EXPECT_TRUE(threw);
    EXPECT_EQ(readFileBytes(target), "old");
    EXPECT_EQ(testing::entryNames(directory.path()), std::vector<std::string>{"manifest.json"});
}

TEST(FilesTest, ReadingWhatIsNotAReadableFileFails) {
    const TemporaryDirectory directory;
    const fs::path missing = directory.path() / "missing.json";
    const auto message = testing::thrownMessage<FileError>([&] { readFileBytes(missing); });
    EXPECT_NE(message.value_or("").find(missing.string()), std::string::npos) << message.value_or("none");
    EXPECT_THROW(readFileBytes(directory.path()), FileError);
}

// Digests

TEST(Sha256Test, MatchesTheStandardVectorsForTextAndFiles) {
    EXPECT_EQ(sha256Hex(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(sha256Hex("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");

    const TemporaryDirectory directory;
    const fs::path file = directory.path() / "timeline.json";
    writeFileAtomically(file, "abc");
    EXPECT_EQ(sha256HexOfFile(file), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    const std::string bytes("a\0b\n", 4);
    writeFileAtomically(file, bytes);
    EXPECT_EQ(sha256HexOfFile(file), sha256Hex(bytes));
    EXPECT_THROW(sha256HexOfFile(directory.path() / "missing"), FileError);
    EXPECT_THROW(sha256HexOfFile(directory.path()), FileError);
}

// Application directories

TEST(AppDirectoriesTest, AnAbsoluteDataHomeIsUsedAndAnyOtherFallsBackToHome) {
    const ScopedEnvironment home("HOME", "/home/tester");
    {
        const ScopedEnvironment data("XDG_DATA_HOME", "/srv/data");
        EXPECT_EQ(defaultProjectsDirectory(), fs::path("/srv/data/Rilo/Projects"));
        EXPECT_EQ(defaultExportsDirectory(), fs::path("/srv/data/Rilo/Exports"));
    }
    for (const char* dataHome : {"relative/data", "", static_cast<const char*>(nullptr)}) {
        const ScopedEnvironment data("XDG_DATA_HOME", dataHome);
        EXPECT_EQ(applicationDataDirectory(), fs::path("/home/tester/.local/share"));
    }
}

} // namespace
} // namespace rilo

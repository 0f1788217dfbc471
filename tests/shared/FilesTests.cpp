#include "shared/AppDirectories.h"
#include "shared/Errors.h"
#include "shared/Files.h"
#include "shared/Sha256.h"
#include "shared/Uuid.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <sys/resource.h>
#include <vector>

namespace {

namespace fs = std::filesystem;

// A fresh directory under the system's temporary directory, removed again at the end of the test.
class TemporaryDirectory {
public:
    TemporaryDirectory()
        : path_(fs::temp_directory_path() / ("rilo-shared-tests-" + rilo::Uuid::random().string())) {
        fs::create_directories(path_);
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const fs::path& path() const { return path_; }
    std::vector<std::string> entries() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(path_)) {
            names.push_back(entry.path().filename().string());
        }
        return names;
    }

private:
    fs::path path_;
};

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

void writePlainFile(const fs::path& path, const std::string& bytes) {
    std::ofstream stream(path, std::ios::binary);
    stream << bytes;
}

// Files

TEST(FilesTest, WriteCreatesAndReplacesLeavingNothingElseBehind) {
    const TemporaryDirectory directory;
    const fs::path target = directory.path() / "timeline.json";
    rilo::writeFileAtomically(target, "first");
    EXPECT_EQ(rilo::readFileBytes(target), "first");
    rilo::writeFileAtomically(target, "second, longer than the first");
    EXPECT_EQ(rilo::readFileBytes(target), "second, longer than the first");
    rilo::writeFileAtomically(target, "");
    EXPECT_EQ(rilo::readFileBytes(target), "");
    EXPECT_EQ(directory.entries(), std::vector<std::string>{"timeline.json"});
}

TEST(FilesTest, BytesRoundTripExactly) {
    const TemporaryDirectory directory;
    const fs::path target = directory.path() / "chunk-000001.json";
    std::string bytes;
    for (int i = 0; i < (1 << 20) + 17; ++i) {
        bytes.push_back(static_cast<char>(i * 31 % 256));
    }
    rilo::writeFileAtomically(target, bytes);
    EXPECT_EQ(fs::file_size(target), bytes.size());
    EXPECT_EQ(rilo::readFileBytes(target), bytes);
}

TEST(FilesTest, WriteOntoADirectoryFailsAndCleansUp) {
    const TemporaryDirectory directory;
    const fs::path target = directory.path() / "edits";
    fs::create_directory(target);
    writePlainFile(target / "timeline.json", "kept");
    EXPECT_THROW(rilo::writeFileAtomically(target, "new"), rilo::FileError);
    EXPECT_TRUE(fs::is_directory(target));
    EXPECT_EQ(rilo::readFileBytes(target / "timeline.json"), "kept");
    EXPECT_EQ(directory.entries(), std::vector<std::string>{"edits"});
}

TEST(FilesTest, WriteIntoAMissingDirectoryFails) {
    const TemporaryDirectory directory;
    EXPECT_THROW(rilo::writeFileAtomically(directory.path() / "missing" / "a.json", "x"), rilo::FileError);
    writePlainFile(directory.path() / "plain", "file");
    EXPECT_THROW(rilo::writeFileAtomically(directory.path() / "plain" / "a.json", "x"), rilo::FileError);
    EXPECT_EQ(directory.entries(), std::vector<std::string>{"plain"});
}

TEST(FilesTest, AFailedWriteLeavesTheOldFileIntact) {
    const TemporaryDirectory directory;
    const fs::path target = directory.path() / "manifest.json";
    rilo::writeFileAtomically(target, "old");

    // Cap the file size this process may write, so that writing the new bytes fails part way.
    rlimit previous{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &previous), 0);
    const auto previousHandler = std::signal(SIGXFSZ, SIG_IGN);
    rlimit capped = previous;
    capped.rlim_cur = 1024;
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &capped), 0);
    bool threw = false;
    try {
        rilo::writeFileAtomically(target, std::string(64 * 1024, 'n'));
    } catch (const rilo::FileError&) {
        threw = true;
    }
    ::setrlimit(RLIMIT_FSIZE, &previous);
    std::signal(SIGXFSZ, previousHandler);

    EXPECT_TRUE(threw);
    EXPECT_EQ(rilo::readFileBytes(target), "old");
    EXPECT_EQ(directory.entries(), std::vector<std::string>{"manifest.json"});
}

TEST(FilesTest, ReadingWhatIsNotAReadableFileFails) {
    const TemporaryDirectory directory;
    const fs::path missing = directory.path() / "missing.json";
    try {
        rilo::readFileBytes(missing);
        ADD_FAILURE() << "a missing file was read";
    } catch (const rilo::FileError& error) {
        EXPECT_NE(error.message().find(missing.string()), std::string::npos) << error.message();
    }
    EXPECT_THROW(rilo::readFileBytes(directory.path()), rilo::FileError);
}

// Digests

TEST(Sha256Test, MatchesTheStandardVectors) {
    EXPECT_EQ(rilo::sha256Hex(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(rilo::sha256Hex("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(rilo::sha256Hex("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
}

TEST(Sha256Test, FileDigestIsOfTheBytesOnDisk) {
    const TemporaryDirectory directory;
    const fs::path file = directory.path() / "timeline.json";
    const std::string bytes("a\0b\n", 4);
    writePlainFile(file, bytes);
    EXPECT_EQ(rilo::sha256HexOfFile(file), rilo::sha256Hex(bytes));
    EXPECT_NE(rilo::sha256HexOfFile(file), rilo::sha256Hex("a"));
    writePlainFile(file, "");
    EXPECT_EQ(rilo::sha256HexOfFile(file), rilo::sha256Hex(""));
    EXPECT_THROW(rilo::sha256HexOfFile(directory.path() / "missing"), rilo::FileError);
    EXPECT_THROW(rilo::sha256HexOfFile(directory.path()), rilo::FileError);
}

// Application directories

TEST(AppDirectoriesTest, AbsoluteDataHomeIsUsed) {
    const ScopedEnvironment home("HOME", "/home/tester");
    const ScopedEnvironment data("XDG_DATA_HOME", "/srv/data");
    EXPECT_EQ(rilo::applicationDataDirectory(), fs::path("/srv/data"));
    EXPECT_EQ(rilo::defaultProjectsDirectory(), fs::path("/srv/data/Rilo/Projects"));
    EXPECT_EQ(rilo::defaultExportsDirectory(), fs::path("/srv/data/Rilo/Exports"));
}

TEST(AppDirectoriesTest, RelativeOrMissingDataHomeFallsBackToHome) {
    const ScopedEnvironment home("HOME", "/home/tester");
    {
        const ScopedEnvironment data("XDG_DATA_HOME", "relative/data");
        EXPECT_EQ(rilo::applicationDataDirectory(), fs::path("/home/tester/.local/share"));
    }
    {
        const ScopedEnvironment data("XDG_DATA_HOME", "");
        EXPECT_EQ(rilo::applicationDataDirectory(), fs::path("/home/tester/.local/share"));
    }
    {
        const ScopedEnvironment data("XDG_DATA_HOME", nullptr);
        EXPECT_EQ(rilo::applicationDataDirectory(), fs::path("/home/tester/.local/share"));
        EXPECT_EQ(rilo::defaultProjectsDirectory(), fs::path("/home/tester/.local/share/Rilo/Projects"));
    }
}

} // namespace

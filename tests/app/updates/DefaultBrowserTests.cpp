#include "app/updates/AppUpdateError.h"
#include "app/updates/DefaultBrowser.h"
#include "support/TemporaryDirectory.h"

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <thread>

namespace rilo::app {
namespace {

// Puts `directory` alone on PATH for the life of the object.
class SearchPathOverride {
public:
    explicit SearchPathOverride(const std::filesystem::path& directory)
        : saved_(std::getenv("PATH") != nullptr ? std::getenv("PATH") : "") {
        ::setenv("PATH", directory.c_str(), 1);
    }
    ~SearchPathOverride() { ::setenv("PATH", saved_.c_str(), 1); }

private:
    std::string saved_;
};

TEST(DefaultBrowserTest, HandsTheURLToXdgOpenAsOneArgumentOrSaysItCannot) {
    rilo::testing::TemporaryDirectory directory;
    const auto bin = directory.path() / "bin";
    const auto received = directory.path() / "received.txt";
    std::filesystem::create_directories(bin);
    {
        std::ofstream script(bin / "xdg-open");
        script << "#!/bin/sh\nprintf '%s|%s' \"$#\" \"$1\" > '" << received.string() << ".part'\n/bin/mv '"
               << received.string() << ".part' '" << received.string() << "'\n";
    }
    std::filesystem::permissions(bin / "xdg-open", std::filesystem::perms::owner_all);
    const std::string url = "https://updates.example.org/Rilo 1.3.0.tar.zst?a=1&b=$(id)";
    {
        const SearchPathOverride path(bin);
        openInDefaultBrowser(url);
    }
    for (int attempt = 0; attempt < 1000 && !std::filesystem::exists(received); ++attempt) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    std::ifstream file(received);
    std::stringstream contents;
    contents << file.rdbuf();
    EXPECT_EQ(contents.str(), "1|" + url);

    const auto empty = directory.path() / "empty";
    std::filesystem::create_directories(empty);
    const SearchPathOverride path(empty);
    try {
        openInDefaultBrowser(url);
        FAIL() << "a missing xdg-open went unnoticed";
    } catch (const AppUpdateError& error) {
        EXPECT_EQ(error.errorCase(), AppUpdateErrorCase::cannotOpenBrowser);
    }
}

} // namespace
} // namespace rilo::app

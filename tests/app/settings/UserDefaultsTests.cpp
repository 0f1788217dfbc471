#include "app/settings/UserDefaults.h"
#include "shared/Files.h"
#include "support/TemporaryDirectory.h"

#include <fstream>
#include <gtest/gtest.h>

namespace rilo {
namespace {

class UserDefaultsTest : public ::testing::Test {
protected:
    testing::TemporaryDirectory directory;
    std::filesystem::path file = directory.path() / "Rilo" / "settings.json";
};

TEST_F(UserDefaultsTest, ValuesSurviveAReopenAndWrongTypesReadAsAbsent) {
    {
        UserDefaults defaults(file);
        EXPECT_FALSE(defaults.contains("recording.countdownSeconds"));
        defaults.set("recording.countdownSeconds", 5);
        defaults.set("recording.capturesWebcam", true);
        defaults.set("recording.microphoneDeviceID", "usb-mic");
        defaults.setDate("updates.lastAutomaticCheckAt", IsoDate{1'700'000'000});
        defaults.set("recording.webcamDeviceID", "gone");
        defaults.remove("recording.webcamDeviceID");
    }
    const UserDefaults reopened(file);
    EXPECT_EQ(reopened.integer("recording.countdownSeconds"), 5);
    EXPECT_EQ(reopened.boolean("recording.capturesWebcam"), true);
    EXPECT_EQ(reopened.string("recording.microphoneDeviceID"), "usb-mic");
    EXPECT_EQ(reopened.date("updates.lastAutomaticCheckAt"), IsoDate{1'700'000'000});
    EXPECT_FALSE(reopened.contains("recording.webcamDeviceID"));
    EXPECT_FALSE(reopened.boolean("recording.countdownSeconds"));
    EXPECT_FALSE(reopened.integer("recording.microphoneDeviceID"));
    EXPECT_FALSE(reopened.damagedFileKeptAt());
}

TEST_F(UserDefaultsTest, ADamagedFileIsKeptAsideAndTheDefaultsStartEmpty) {
    const std::vector<std::string> damagedFiles{"{\"recording.countdownSeconds\": 3", "[1, 2]",
                                                std::string("\0\xff", 2)};
    for (const std::string& damaged : damagedFiles) {
        std::filesystem::create_directories(file.parent_path());
        writeFileAtomically(file, damaged);
        UserDefaults defaults(file);
        ASSERT_TRUE(defaults.damagedFileKeptAt());
        EXPECT_EQ(readFileBytes(*defaults.damagedFileKeptAt()), damaged);
        EXPECT_FALSE(defaults.contains("recording.countdownSeconds"));
        defaults.set("recording.countdownSeconds", 0);
        EXPECT_EQ(UserDefaults(file).integer("recording.countdownSeconds"), 0);
        std::filesystem::remove(*defaults.damagedFileKeptAt());
    }
}

TEST_F(UserDefaultsTest, AFailedWriteKeepsTheValuesAsTheyWere) {
    UserDefaults defaults(file);
    defaults.set("recording.framesPerSecond", 30);
    // The settings directory is replaced by a file: nothing can be written.
    std::filesystem::remove_all(file.parent_path());
    { std::ofstream(file.parent_path()) << "x"; }
    EXPECT_THROW(defaults.set("recording.framesPerSecond", 60), FileError);
    EXPECT_EQ(defaults.integer("recording.framesPerSecond"), 30);
}

} // namespace
} // namespace rilo

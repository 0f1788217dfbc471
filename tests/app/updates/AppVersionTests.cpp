#include "app/updates/AppVersion.h"

#include <gtest/gtest.h>

namespace rilo::app {
namespace {

AppVersion version(const char* text) {
    const auto parsed = AppVersion::parse(text);
    EXPECT_TRUE(parsed) << text;
    return parsed.value_or(AppVersion{});
}

TEST(AppVersionTest, OrdersAsSemanticVersions) {
    // Each is older than the next.
    const std::vector<const char*> ascending{
        "0.9.9",        "1.0.0-alpha",   "1.0.0-alpha.1", "1.0.0-alpha.beta", "1.0.0-beta",
        "1.0.0-beta.2", "1.0.0-beta.10", "1.0.0-beta.11", "1.0.0-rc.1",       "1.0.0",
        "1.0.1",        "1.2.0-beta.1",  "1.2.0",         "1.10.0",           "2.0.0"};
    for (std::size_t i = 0; i + 1 < ascending.size(); ++i) {
        EXPECT_LT(version(ascending[i]), version(ascending[i + 1]))
            << ascending[i] << " < " << ascending[i + 1];
        EXPECT_GT(version(ascending[i + 1]), version(ascending[i]))
            << ascending[i + 1] << " > " << ascending[i];
    }
}

TEST(AppVersionTest, NumbersComeBeforeTextsAndMissingNumbersCountAsZero) {
    EXPECT_LT(version("1.0.0-1"), version("1.0.0-a"));
    EXPECT_LT(version("1.0.0-999"), version("1.0.0-10a"));
    EXPECT_EQ(version("1.2"), version("1.2.0"));
    EXPECT_LT(version("1.2"), version("1.2.1"));
    EXPECT_EQ(version("v1.2.0+build.7"), version("1.2.0"));
    EXPECT_EQ(version("1.2.0-beta.2").string(), "1.2.0-beta.2");
}

TEST(AppVersionTest, RejectsWhatIsNotAVersion) {
    for (const char* text : {"", "v", "1..2", "1.2.", ".1", "1.2.0-", "1.2.0-beta..1", "1.2.x", "1.2.0 ",
                             "1.2.0-beta_1", "1.2.0+", "99999999999999999999.0"}) {
        EXPECT_FALSE(AppVersion::parse(text)) << '"' << text << '"';
    }
}

} // namespace
} // namespace rilo::app

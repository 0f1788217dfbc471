#include "shared/IsoDate.h"
#include "shared/Uuid.h"
#include "shared/ValueCodecs.h"

#include <gtest/gtest.h>
#include <set>
#include <string>

namespace rilo {
namespace {

constexpr const char* sampleUuid = "E621E1F8-C36C-495A-93FC-0C247A3E6E5F";

// Uuid

TEST(UuidTest, ParsesEitherCaseWritesUpperCaseRefusesMalformedTextAndMakesVersionFour) {
    const auto lower = Uuid::parse("e621e1f8-c36c-495a-93fc-0c247a3e6e5f");
    ASSERT_TRUE(lower.has_value());
    EXPECT_EQ(Uuid::parse(sampleUuid), lower);
    EXPECT_EQ(lower->string(), sampleUuid);
    EXPECT_EQ(lower->bytes[0], 0xE6);
    EXPECT_EQ(lower->bytes[15], 0x5F);
    EXPECT_EQ(json::encodeDocument(*lower), std::string("\"") + sampleUuid + "\"");
    EXPECT_EQ(json::decodeDocument<Uuid>("\"e621e1f8-c36c-495a-93fc-0c247a3e6e5f\""), lower);
    EXPECT_THROW(json::decodeDocument<Uuid>("42"), json::DecodingError);

    for (const char* text :
         {"", "E621E1F8-C36C-495A-93FC-0C247A3E6E5", "E621E1F8-C36C-495A-93FC-0C247A3E6E5F0",
          "E621E1F8C36C495A93FC0C247A3E6E5F", "E621E1F8-C36C-495A-93FC0-C247A3E6E5F",
          "E621E1F8_C36C_495A_93FC_0C247A3E6E5F", "G621E1F8-C36C-495A-93FC-0C247A3E6E5F"}) {
        EXPECT_EQ(Uuid::parse(text), std::nullopt) << text;
    }

    // Random identifiers are of version four and distinct.
    std::set<Uuid> seen;
    for (int i = 0; i < 64; ++i) {
        const Uuid uuid = Uuid::random();
        const std::string text = uuid.string();
        EXPECT_EQ(text[14], '4') << text;
        EXPECT_NE(std::string("89AB").find(text[19]), std::string::npos) << text;
        seen.insert(uuid);
    }
    EXPECT_EQ(seen.size(), 64u);
}

// IsoDate

TEST(IsoDateTest, FormatsAndParsesUtcAtSecondPrecisionOnlyAndNowIsInThisEra) {
    EXPECT_EQ(IsoDate{-1}.string(), "1969-12-31T23:59:59Z");
    EXPECT_EQ(IsoDate{1'709'251'199}.string(), "2024-02-29T23:59:59Z");
    EXPECT_EQ(json::encodeDocument(IsoDate{1'772'439'330}), "\"2026-03-02T08:15:30Z\"");
    EXPECT_EQ(IsoDate::parse("2026-03-02T09:15:30+01:00"), IsoDate{1'772'439'330});
    EXPECT_EQ(IsoDate::parse("2026-03-02T02:45:30-05:30"), IsoDate{1'772'439'330});
    for (const std::int64_t seconds : {-86'401LL, 951'782'400LL, 4'102'444'800LL, 253'402'300'799LL}) {
        const IsoDate date{seconds};
        EXPECT_EQ(IsoDate::parse(date.string()), date) << date.string();
        EXPECT_EQ(json::decodeDocument<IsoDate>(json::encodeDocument(date)), date);
    }
    EXPECT_THROW(json::decodeDocument<IsoDate>("1772439330"), json::DecodingError);

    for (const char* text :
         {"", "2026-02-30T00:00:00Z", "2025-02-29T00:00:00Z", "2026-13-01T00:00:00Z", "2026-00-10T00:00:00Z",
          "2026-03-02T24:00:00Z", "2026-03-02T23:60:00Z", "2026-03-02T23:59:60Z", "2026-03-02T08:15:30.5Z",
          "2026-03-02T08:15Z", "2026-03-02T08:15:30", "2026-03-02 08:15:30Z", "2026-03-02T08:15:30ZZ",
          "2026-03-02T08:15:30+25:00", "2026-03-02T08:15:30+01:60", "2026-3-2T08:15:30Z"}) {
        EXPECT_EQ(IsoDate::parse(text), std::nullopt) << text;
    }

    const IsoDate now = IsoDate::now();
    EXPECT_GT(now, *IsoDate::parse("2024-01-01T00:00:00Z"));
    EXPECT_LT(now, *IsoDate::parse("2200-01-01T00:00:00Z"));
}

} // namespace
} // namespace rilo

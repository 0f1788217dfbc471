#include "shared/Json.h"
#include "shared/ValueCodecs.h"
#include "support/Thrown.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace json = rilo::json;
using json::Json;
using json::JsonStyle;

namespace {

enum class Fruit { apple, bloodOrange };

// A small document that exercises every decoding rule of ObjectReader.
struct Basket {
    std::int32_t count = 0;
    std::optional<std::string> label;
    double weight = 1.5;
    Fruit fruit = Fruit::apple;
    std::vector<rilo::PointValue> marks;
    friend bool operator==(const Basket&, const Basket&) = default;
};

struct Shelf {
    Basket basket;
    std::vector<Basket> spares;
    friend bool operator==(const Shelf&, const Shelf&) = default;
};

} // namespace

template <>
struct json::EnumNames<Fruit> {
    static constexpr std::array entries{std::pair{Fruit::apple, std::string_view{"apple"}},
                                        std::pair{Fruit::bloodOrange, std::string_view{"blood-orange"}}};
};

template <>
struct json::Codec<Basket> {
    static Basket decode(const Json& value, const std::string& path) {
        const ObjectReader reader(value, path);
        Basket basket;
        basket.count = reader.required<std::int32_t>("count");
        basket.label = reader.optional<std::string>("label");
        basket.weight = reader.valueOr<double>("weight", 1.5);
        basket.fruit = reader.required<Fruit>("fruit");
        basket.marks = reader.valueOr<std::vector<rilo::PointValue>>("marks", {});
        return basket;
    }
    static Json encode(const Basket& basket) {
        return ObjectBuilder()
            .set("count", basket.count)
            .setIfPresent("label", basket.label)
            .set("weight", basket.weight)
            .set("fruit", basket.fruit)
            .set("marks", basket.marks)
            .build();
    }
};

template <>
struct json::Codec<Shelf> {
    static Shelf decode(const Json& value, const std::string& path) {
        const ObjectReader reader(value, path);
        return {reader.required<Basket>("basket"), reader.valueOr<std::vector<Basket>>("spares", {})};
    }
    static Json encode(const Shelf& shelf) {
        return ObjectBuilder().set("basket", shelf.basket).set("spares", shelf.spares).build();
    }
};

namespace {

std::optional<std::string> decodingMessage(std::string_view bytes) {
    return rilo::testing::thrownMessage<json::DecodingError>([&] { json::decodeDocument<Shelf>(bytes); });
}

std::string written(double value) {
    return json::write(Json(value), JsonStyle::chunk);
}

// The writer

TEST(JsonWriterTest, DocumentStyleIndentsByTwoAndChunkStyleIsCompactWithSortedKeys) {
    const Json nested = {{"outer", {{"inner", Json::array({Json::object({{"k", nullptr}})})}}}, {"a", 1}};
    EXPECT_EQ(json::write(nested, JsonStyle::document), "{\n"
                                                        "  \"a\" : 1,\n"
                                                        "  \"outer\" : {\n"
                                                        "    \"inner\" : [\n"
                                                        "      {\n"
                                                        "        \"k\" : null\n"
                                                        "      }\n"
                                                        "    ]\n"
                                                        "  }\n"
                                                        "}");
    const Json empty = {{"a", Json::array()}, {"b", Json::object()}};
    EXPECT_EQ(json::write(empty, JsonStyle::document), "{\n  \"a\" : [],\n  \"b\" : {}\n}");

    // The chunk style is compact with keys sorted by their bytes.
    const Json value = {{"b", {{"c", nullptr}, {"a", false}}},
                        {"a", Json::array({1, -2, "x", Json::object()})}};
    EXPECT_EQ(json::write(value, JsonStyle::chunk), R"({"a":[1,-2,"x",{}],"b":{"a":false,"c":null}})");
    Json keys = Json::object();
    for (const char* key : {"b", "aa", "é", "B", "a", "_", "10", "9"}) {
        keys[key] = 0;
    }
    EXPECT_EQ(json::write(keys, JsonStyle::chunk), R"({"10":0,"9":0,"B":0,"_":0,"a":0,"aa":0,"b":0,"é":0})");
}

TEST(JsonWriterTest, SlashesAndControlCharactersAreEscapedAndTheRestIsUtf8) {
    const Json value = {{"path", "/tmp/a b/c.mov"}};
    EXPECT_EQ(json::write(value, JsonStyle::document), "{\n  \"path\" : \"\\/tmp\\/a b\\/c.mov\"\n}");
    EXPECT_EQ(json::write(value, JsonStyle::commandLine), "{\n  \"path\" : \"/tmp/a b/c.mov\"\n}");
    EXPECT_EQ(json::write(Json{{"a/b", 1}}, JsonStyle::chunk), R"({"a\/b":1})");

    EXPECT_EQ(json::write(Json("播放倍率 🎬"), JsonStyle::chunk), "\"播放倍率 🎬\"");
    EXPECT_EQ(json::write(Json("q\"b\\"), JsonStyle::chunk), R"("q\"b\\")");
    EXPECT_EQ(json::write(Json("\n\t\r\b\f"), JsonStyle::chunk), R"("\n\t\r\b\f")");
    EXPECT_EQ(json::write(Json(std::string("\x01\x1f\x7f", 3)), JsonStyle::chunk), "\"\\u0001\\u001f\x7f\"");
    EXPECT_EQ(json::write(Json(std::string("a\0b", 3)), JsonStyle::chunk), R"("a\u0000b")");
}

TEST(JsonWriterTest, NumbersUseTheShortestExactFormAndMustBeFinite) {
    EXPECT_EQ(written(1.0), "1");
    EXPECT_EQ(written(0.1 + 0.2), "0.30000000000000004");
    EXPECT_EQ(written(12000000.0), "12000000");
    for (const double value :
         {1e-7, 1e21, 1e300, -1e-300, 1.0 / 3.0, 2.0 / 3.0, 123.456, 9007199254740993.0, 4.9e-324,
          std::numeric_limits<double>::max(), std::numeric_limits<double>::min(),
          std::numeric_limits<double>::lowest(), 0.57, 1.005}) {
        const Json back = json::parse(written(value));
        EXPECT_EQ(back.get<double>(), value) << written(value);
    }
    EXPECT_EQ(json::write(Json(std::numeric_limits<std::int64_t>::min()), JsonStyle::chunk),
              "-9223372036854775808");

    EXPECT_THROW(json::write(Json(std::nan("")), JsonStyle::document), json::EncodingError);
    const Json nested = {{"a", Json::array({1, -std::numeric_limits<double>::infinity()})}};
    EXPECT_THROW(json::write(nested, JsonStyle::commandLine), json::EncodingError);
}

// Decoding

TEST(ObjectReaderTest, DocumentsRoundTripMissingKeysNameTheirPathAndNullCountsAsMissing) {
    Shelf shelf;
    shelf.basket = {3, "早餐", 0.75, Fruit::bloodOrange, {{0.1, 0.2}}};
    shelf.spares = {Basket{}, Basket{7, std::nullopt, 2, Fruit::apple, {}}};
    EXPECT_EQ(json::decodeDocument<Shelf>(json::encodeDocument(shelf)), shelf);
    // An empty optional is left out.
    EXPECT_EQ(json::write(json::encode(Basket{}), JsonStyle::chunk),
              R"({"count":0,"fruit":"apple","marks":[],"weight":1.5})");

    EXPECT_EQ(decodingMessage(R"({"basket":{"fruit":"apple"}})"), "缺少必需的键：basket.count");
    EXPECT_EQ(decodingMessage(R"({"basket":{"count":null,"fruit":"apple"}})"), "缺少必需的键：basket.count");
    const std::string nestedInArray =
        decodingMessage(R"({"basket":{"count":1,"fruit":"apple"},"spares":[{"count":1,"fruit":"apple"},)"
                        R"({"count":1,"fruit":"apple","marks":[{"x":0,"y":0},{"x":1}]}]})")
            .value_or("");
    EXPECT_NE(nestedInArray.find("spares[1].marks[1].y"), std::string::npos) << nestedInArray;

    const auto nulls = json::decodeDocument<Shelf>(
        R"({"basket":{"count":2,"fruit":"apple","label":null,"weight":null,"marks":null},"spares":null})");
    EXPECT_EQ(nulls.basket, (Basket{2, std::nullopt, 1.5, Fruit::apple, {}}));
    EXPECT_TRUE(nulls.spares.empty());
    const auto present =
        json::decodeDocument<Shelf>(R"({"basket":{"count":2,"fruit":"apple","label":"","weight":0}})");
    EXPECT_EQ(present.basket.label, std::string());
    EXPECT_EQ(present.basket.weight, 0.0);
}

// A NUL byte ends the text for the underlying parser, so a document followed
// by one and anything at all would otherwise be read as if nothing followed.
TEST(JsonParserTest, TextWithANulByteIsNotJson) {
    using namespace std::string_literals;
    for (const std::string& text : {"{}\0"s, "[1]\0garbage"s, "\0"s}) {
        EXPECT_THROW(json::parse(text), json::DecodingError) << text.size();
    }
    EXPECT_EQ(rilo::testing::thrownMessage<json::DecodingError>([] { json::parse("[1]\0x"s); }),
              "JSON格式无效：第4个字节是空字符");
    // Escaped, it is an ordinary character of a string.
    EXPECT_EQ(json::parse(R"(["a\u0000b"])")[0].get<std::string>(), "a\0b"s);
}

TEST(ObjectReaderTest, IntegersMustBeWholeAndInRangeAndOtherTypesAndWordsMatch) {
    EXPECT_EQ(json::decode<std::int32_t>(json::parse("3.0")), 3);
    EXPECT_EQ(json::decode<std::int64_t>(json::parse("-9223372036854775808")),
              std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(json::decode<std::uint64_t>(json::parse("18446744073709551615")),
              std::numeric_limits<std::uint64_t>::max());

    for (const char* refused : {"3.5", "2147483648", "-2147483649", "1e10", "true", "\"3\"", "null"}) {
        EXPECT_THROW(json::decode<std::int32_t>(json::parse(refused)), json::DecodingError) << refused;
    }
    for (const char* refused : {"9223372036854775808", "1e19", "-1e19"}) {
        EXPECT_THROW(json::decode<std::int64_t>(json::parse(refused)), json::DecodingError) << refused;
    }
    EXPECT_THROW(json::decode<std::uint64_t>(json::parse("-1")), json::DecodingError);
    EXPECT_EQ(decodingMessage(R"({"basket":{"count":3.5,"fruit":"apple"}})"),
              "类型不符：basket.count应为整数");

    EXPECT_THROW(json::decode<double>(json::parse("\"1.5\"")), json::DecodingError);
    EXPECT_THROW(json::decode<bool>(json::parse("1")), json::DecodingError);
    EXPECT_EQ(json::decode<double>(json::parse("15")), 15.0);
    EXPECT_EQ(decodingMessage("[]"), "类型不符：文档应为对象");
    EXPECT_EQ(decodingMessage(R"({"basket":{"count":1,"fruit":"apple","label":7}})"),
              "类型不符：basket.label应为字符串");

    EXPECT_EQ(json::decode<Fruit>(Json("blood-orange")), Fruit::bloodOrange);
    EXPECT_THROW(json::decode<Fruit>(Json("Apple")), json::DecodingError);
    EXPECT_THROW(json::decode<Fruit>(Json(0)), json::DecodingError);
    EXPECT_EQ(decodingMessage(R"({"basket":{"count":1,"fruit":"pear"}})"),
              "无法识别的取值：basket.fruit = \"pear\"");
}

} // namespace

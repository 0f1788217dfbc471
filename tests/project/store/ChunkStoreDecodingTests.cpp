// ChunkStore<T>::readAll parses the chunks of mouse, geometry and cursor
// samples on a quick road of its own. These tests hold it to the general
// decoder (json::decode of each file's nlohmann tree): the same samples, bit
// for bit, and the same failures with the same messages, for every textual
// form a chunk can take.

#include "project/document/CaptureSamples.h"
#include "project/store/ChunkStore.h"
#include "project/store/FastChunkDecoding.h"
#include "shared/Errors.h"
#include "shared/Files.h"
#include "support/TemporaryDirectory.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <gtest/gtest.h>
#include <limits>
#include <ostream>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace rilo {
namespace {

namespace fs = std::filesystem;

// What a read gives: the samples (also as the chunk writer encodes them, so
// that doubles compare bit for bit, the sign of zero included) or the failure.
template <class T>
struct Outcome {
    std::vector<T> samples;
    std::string encoded;
    std::string failure;

    friend bool operator==(const Outcome&, const Outcome&) = default;
};

template <class T>
void PrintTo(const Outcome<T>& outcome, std::ostream* stream) {
    *stream << outcome.samples.size() << " samples " << outcome.encoded.substr(0, 400) << " failure \""
            << outcome.failure << "\"";
}

template <class T, class Read>
Outcome<T> outcomeOf(Read read) {
    Outcome<T> outcome;
    try {
        outcome.samples = read();
        outcome.encoded = json::write(json::encode(outcome.samples), json::JsonStyle::chunk);
    } catch (const json::DecodingError& error) {
        outcome.failure = "DecodingError: " + error.message();
    } catch (const FileError& error) {
        outcome.failure = "FileError: " + error.message();
    }
    return outcome;
}

// The general decoder, file by file, as readAll worked before it had a quick road.
template <class T>
std::vector<T> generalRead(const fs::path& directory) {
    std::vector<T> samples;
    for (const auto& file : ChunkFiles::list(directory)) {
        const auto chunk = json::decode<std::vector<T>>(ChunkFiles::read(file), file.filename().string());
        samples.insert(samples.end(), chunk.begin(), chunk.end());
    }
    return samples;
}

template <class T>
void expectSameAsGeneralDecoder(const fs::path& directory) {
    EXPECT_EQ(outcomeOf<T>([&] { return ChunkStore<T>::readAll(directory); }),
              outcomeOf<T>([&] { return generalRead<T>(directory); }));
}

// Writes samples as JSON text in the many forms that parse to them: numbers
// in every notation, keys in any order, unknown members, white space.
class ChunkTextWriter {
public:
    explicit ChunkTextWriter(std::uint64_t seed)
        : random_(seed) {}

    bool chance(int percent) { return std::uniform_int_distribution<int>(0, 99)(random_) < percent; }
    std::size_t below(std::size_t limit) {
        return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random_);
    }

    template <class Choices>
    auto pick(const Choices& choices) {
        return choices[std::uniform_int_distribution<std::size_t>(0, choices.size() - 1)(random_)];
    }

    double anyDouble() {
        switch (std::uniform_int_distribution<int>(0, 5)(random_)) {
        case 0:
            return std::uniform_real_distribution<double>(-5000, 5000)(random_);
        case 1:
            return static_cast<double>(std::uniform_int_distribution<int>(-3000, 3000)(random_));
        case 2:
            return std::uniform_real_distribution<double>(0, 1)(random_);
        case 3:
            return pick(std::vector<double>{
                0.0, -0.0, 1.0, 5e-324, 2.2250738585072009e-308, std::numeric_limits<double>::max(), -1e300,
                1e21, 0.1, 1e19, 9223372036854775808.0, 18446744073709549568.0, -9223372036854775808.0});
        default:
            for (;;) {
                const auto value = std::bit_cast<double>(random_());
                if (std::isfinite(value)) {
                    return value;
                }
            }
        }
    }

    // Every form is valid JSON. Detours are forms that the quick road leaves
    // to the general decoder (integers beyond 64 bits, whole doubles in
    // integer fields, null flags); a chunk has them or not, so that both
    // roads are taken often.
    void allowDetours(bool allowed) { detours_ = allowed; }

    std::string number(double value) {
        char text[64];
        switch (std::uniform_int_distribution<int>(0, 4)(random_)) {
        case 0:
            return std::string(text, std::to_chars(text, text + sizeof text, value).ptr);
        case 1:
            std::snprintf(text, sizeof text, "%.17g", value);
            return text;
        case 2:
            std::snprintf(text, sizeof text, "%.16e", value);
            return text;
        case 3:
            std::snprintf(text, sizeof text, "%.16E", value);
            return text;
        default:
            // Beyond 64 bits only with detours.
            if (std::trunc(value) == value &&
                (detours_ ? std::fabs(value) < 1e30
                          : value >= -9223372036854775808.0 && value < 18446744073709551616.0)) {
                std::snprintf(text, sizeof text, "%.0f", value); // a whole double written as an integer
                return text;
            }
            return number(value);
        }
    }

    // Mostly plain integers; now and then a whole double that names one.
    template <class I>
    std::string integer(I value) {
        if (detours_ && chance(3) && std::in_range<std::int32_t>(value)) {
            return std::to_string(value) + pick(std::vector<std::string>{".0", "e0", ".000E+0"});
        }
        return std::to_string(value);
    }

    std::string string(const std::string& value) {
        // Sometimes with every non-ASCII character as a \u escape.
        return chance(30) ? json::Json(value).dump(-1, ' ', true)
                          : json::write(json::Json(value), json::JsonStyle::chunk);
    }

    using Members = std::vector<std::pair<std::string, std::string>>;

    std::string object(Members members) {
        if (chance(20)) {
            std::shuffle(members.begin(), members.end(), random_);
        }
        if (chance(10)) {
            std::vector<std::string> values{
                "{\"a\":[1,2.5,{\"b\":null}]}", "\"text\"", "-1e300", "true", "null", "[]"};
            if (detours_) {
                values.push_back("123456789012345678901234567890");
            }
            members.emplace_back(pick(std::vector<std::string>{"extra", "zz", "a"}), pick(values));
        }
        const std::string space = chance(5) ? " \n\t" : "";
        std::string text = "{" + space;
        for (std::size_t index = 0; index < members.size(); ++index) {
            text += (index == 0 ? "" : "," + space) + string(members[index].first) + space + ":" + space +
                    members[index].second;
        }
        return text + space + "}";
    }

    std::string point(const PointValue& value) {
        return object({{"x", number(value.x)}, {"y", number(value.y)}});
    }

    std::string time(ProjectTime value) { return object({{"nanoseconds", integer(value.nanoseconds)}}); }

    std::int64_t anyTime() {
        if (chance(10)) {
            return pick(std::vector<std::int64_t>{std::numeric_limits<std::int64_t>::min(),
                                                  std::numeric_limits<std::int64_t>::max(), -1, 0});
        }
        return std::uniform_int_distribution<std::int64_t>(-4'000'000'000'000, 4'000'000'000'000)(random_);
    }

    std::string mouseEvent() {
        const std::uint64_t raw =
            chance(20)
                ? pick(std::vector<std::uint64_t>{0, std::numeric_limits<std::uint64_t>::max(),
                                                  std::uint64_t{1} << 63, (std::uint64_t{1} << 63) - 1})
                : random_() >> (random_() % 64);
        const std::uint32_t revision = chance(10) ? std::numeric_limits<std::uint32_t>::max()
                                                  : static_cast<std::uint32_t>(random_() % 50);
        Members members{
            {"button", string(std::string(pick(json::EnumNames<MouseButton>::entries).second))},
            {"geometryRevision", integer(revision)},
            {"globalPoint", point({anyDouble(), anyDouble()})},
            {"localPoint", point({anyDouble(), anyDouble()})},
            {"normalizedPoint", point({anyDouble(), anyDouble()})},
            {"phase", string(std::string(pick(json::EnumNames<MousePhase>::entries).second))},
            {"rawTimestampNanoseconds", integer(raw)},
            {"time", time(ProjectTime{anyTime()})},
        };
        if (detours_ && chance(5)) {
            members.emplace_back("isInsideSource", "null");
        } else if (!chance(20)) { // else recorded before the flag existed
            members.emplace_back("isInsideSource", chance(50) ? "true" : "false");
        }
        return object(std::move(members));
    }

    std::string geometrySample() {
        const auto rect = [this] {
            return object({{"height", number(anyDouble())},
                           {"width", number(anyDouble())},
                           {"x", number(anyDouble())},
                           {"y", number(anyDouble())}});
        };
        const auto pixels = [this] {
            return std::uniform_int_distribution<std::int64_t>(-10, 10'000)(random_);
        };
        return object({
            {"contentRectInEncodedFrame", rect()},
            {"encodedPixelSize", object({{"height", integer(pixels())}, {"width", integer(pixels())}})},
            {"globalWindowFrame", rect()},
            {"revision", integer(static_cast<std::uint32_t>(random_() % 1000))},
            {"scaleFactor", number(anyDouble())},
            {"sourceContentSize", object({{"height", number(anyDouble())}, {"width", number(anyDouble())}})},
            {"time", time(ProjectTime{anyTime()})},
        });
    }

    std::string cursorShapeSample() {
        const std::string assetID = pick(std::vector<std::string>{
            "arrow", "光标-1", "\"quoted\" \\ back", "a/b", "tab\there", "😀", std::string("nul\0in", 6), ""});
        return object({{"assetID", string(assetID)}, {"time", time(ProjectTime{anyTime()})}});
    }

    template <class Sample>
    std::string chunk(Sample sample, std::size_t count) {
        std::string text = "[";
        for (std::size_t index = 0; index < count; ++index) {
            text += (index == 0 ? "" : ",") + sample();
        }
        return text + "]";
    }

private:
    std::mt19937_64 random_;
    bool detours_ = false;
};

// Writes `fileCount` chunks of random forms and compares both roads.
template <class T, class Sample>
void compareOnRandomChunks(std::uint64_t seed, int fileCount, Sample sample) {
    const testing::TemporaryDirectory temporary;
    ChunkTextWriter writer(seed);
    for (int index = 0; index < fileCount; ++index) {
        writer.allowDetours(writer.chance(50));
        const std::size_t count = writer.below(13);
        writeFileAtomically(temporary / ChunkFiles::chunkFileName(index),
                            writer.chunk([&] { return sample(writer); }, count));
    }
    const auto expected = outcomeOf<T>([&] { return generalRead<T>(temporary.path()); });
    ASSERT_EQ(expected.failure, "") << "the random forms are all valid chunks";
    EXPECT_EQ(outcomeOf<T>([&] { return ChunkStore<T>::readAll(temporary.path()); }), expected);

    // File by file, the quick road takes most of them and agrees where it does.
    FastChunkDecoding::ChunkParser parser;
    int taken = 0;
    for (const auto& file : ChunkFiles::list(temporary.path())) {
        std::vector<T> samples;
        if (parser.appendSamples(file, samples)) {
            ++taken;
            EXPECT_EQ(json::write(json::encode(samples), json::JsonStyle::chunk),
                      json::write(json::encode(json::decode<std::vector<T>>(ChunkFiles::read(file))),
                                  json::JsonStyle::chunk))
                << file;
        } else {
            EXPECT_TRUE(samples.empty());
        }
    }
    EXPECT_GT(taken, fileCount / 4);
}

TEST(ChunkStoreDecoding, MouseEventsInEveryFormDecodeAsTheGeneralDecoderDoes) {
    // Enough files for the reading to be shared among threads.
    for (std::uint64_t seed = 1; seed <= 3; ++seed) {
        compareOnRandomChunks<MouseEvent>(seed, 300, [](ChunkTextWriter& w) { return w.mouseEvent(); });
    }
}

TEST(ChunkStoreDecoding, GeometryAndCursorSamplesInEveryFormDecodeAsTheGeneralDecoderDoes) {
    compareOnRandomChunks<GeometrySample>(11, 120, [](ChunkTextWriter& w) { return w.geometrySample(); });
    compareOnRandomChunks<CursorShapeSample>(12, 120,
                                             [](ChunkTextWriter& w) { return w.cursorShapeSample(); });
}

// Every chunk that the stores write must take the quick road; a key renamed
// in a codec and not in the quick road's tables shows here.
TEST(ChunkStoreDecoding, ChunksOfTheWriterTakeTheQuickRoad) {
    const testing::TemporaryDirectory temporary;
    std::vector<MouseEvent> events;
    for (const auto& [button, buttonName] : json::EnumNames<MouseButton>::entries) {
        for (const auto& [phase, phaseName] : json::EnumNames<MousePhase>::entries) {
            for (const std::optional<bool> inside :
                 {std::optional<bool>(), std::optional(true), std::optional(false)}) {
                MouseEvent event;
                event.rawTimestampNanoseconds = std::numeric_limits<std::uint64_t>::max() - events.size();
                event.time =
                    ProjectTime{-1'000'000'000 + static_cast<std::int64_t>(events.size()) * 8'333'333};
                event.globalPoint = {1234.5, -0.25};
                event.localPoint = {1e-7, 3.0};
                event.normalizedPoint = {0.1 * static_cast<double>(events.size()), 1};
                event.geometryRevision = std::numeric_limits<std::uint32_t>::max();
                event.button = button;
                event.phase = phase;
                event.isInsideSource = inside;
                events.push_back(event);
            }
        }
    }
    GeometrySample geometry;
    geometry.time = ProjectTime{std::numeric_limits<std::int64_t>::min()};
    geometry.revision = 3;
    geometry.globalWindowFrame = {-1920, 0, 1920, 1080};
    geometry.sourceContentSize = {1512, 982};
    geometry.encodedPixelSize = PixelSize::unnormalized(3023, 1);
    geometry.contentRectInEncodedFrame = {0.5, 0, 3022.5, 1963};
    geometry.scaleFactor = 2;
    const std::vector<CursorShapeSample> cursors{{ProjectTime{5}, "E6A1-光标/\"1\""}, {ProjectTime{-5}, ""}};

    const auto storeAndCheck = [&](const std::string& name, const auto& samples) {
        using Sample = typename std::decay_t<decltype(samples)>::value_type;
        const fs::path directory = temporary / name;
        {
            ChunkStore<Sample> store(directory, 7, recordingChunkMaximumSpanNanoseconds,
                                     [](const Sample& sample) { return sample.time; });
            for (const Sample& sample : samples) {
                store.append(sample);
            }
            store.flush();
        }
        FastChunkDecoding::ChunkParser parser;
        std::vector<Sample> read;
        for (const auto& file : ChunkFiles::list(directory)) {
            EXPECT_TRUE(parser.appendSamples(file, read)) << file;
        }
        EXPECT_EQ(read, samples);
        EXPECT_EQ(ChunkStore<Sample>::readAll(directory), samples);
    };
    storeAndCheck("events", events);
    storeAndCheck("geometry", std::vector<GeometrySample>{geometry, geometry});
    storeAndCheck("cursor", cursors);
}

// One written mouse event with a distinct value in every member.
std::string writtenEvent() {
    MouseEvent event;
    event.rawTimestampNanoseconds = 9'000'000'000;
    event.time = ProjectTime{8'333'333};
    event.globalPoint = {100.5, 200.25};
    event.localPoint = {10.5, 20.25};
    event.normalizedPoint = {0.5, 0.25};
    event.geometryRevision = 7;
    event.button = MouseButton::left;
    event.phase = MousePhase::down;
    event.isInsideSource = true;
    return json::write(json::encode(event), json::JsonStyle::chunk);
}

// The event with `from` replaced by `to`, which must occur in it.
std::string editedEvent(const std::string& from, const std::string& to) {
    std::string text = writtenEvent();
    const auto at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

// A good chunk, then the one under test, so that the failure must name the second file.
Outcome<MouseEvent> readWithSecondChunk(const fs::path& directory, const std::string& text) {
    writeFileAtomically(directory / "000000.json", "[" + writtenEvent() + "]");
    writeFileAtomically(directory / "000001.json", text);
    expectSameAsGeneralDecoder<MouseEvent>(directory);
    return outcomeOf<MouseEvent>([&] { return ChunkStore<MouseEvent>::readAll(directory); });
}

TEST(ChunkStoreDecoding, DeviationsFailWithTheMessagesOfTheGeneralDecoder) {
    const std::vector<std::pair<std::string, std::string>> failing{
        {"missing key", "[" + editedEvent("\"phase\":\"down\",", "") + "]"},
        {"null required key", "[" + editedEvent("\"phase\":\"down\"", "\"phase\":null") + "]"},
        {"unknown button", "[" + editedEvent("\"left\"", "\"middle\"") + "]"},
        {"phase in upper case", "[" + editedEvent("\"down\"", "\"Down\"") + "]"},
        {"revision as text", "[" + editedEvent("\"geometryRevision\":7", "\"geometryRevision\":\"7\"") + "]"},
        {"revision beyond 32 bits",
         "[" + editedEvent("\"geometryRevision\":7", "\"geometryRevision\":4294967296") + "]"},
        {"negative revision", "[" + editedEvent("\"geometryRevision\":7", "\"geometryRevision\":-1") + "]"},
        {"fractional revision",
         "[" + editedEvent("\"geometryRevision\":7", "\"geometryRevision\":7.5") + "]"},
        {"time beyond 64 bits", "[" + editedEvent("8333333", "9223372036854775808") + "]"},
        {"negative raw time stamp", "[" + editedEvent("9000000000", "-5") + "]"},
        {"raw time stamp beyond 64 bits", "[" + editedEvent("9000000000", "18446744073709551616") + "]"},
        {"point as text", "[" + editedEvent("100.5", "\"100.5\"") + "]"},
        {"flag as number", "[" + editedEvent("\"isInsideSource\":true", "\"isInsideSource\":1") + "]"},
        {"point as array", "[" + editedEvent("{\"x\":100.5,\"y\":200.25}", "[100.5,200.25]") + "]"},
        {"number overflowing a double", "[" + editedEvent("100.5", "1e400") + "]"},
        {"repeated key, the last unknown",
         "[" + editedEvent("\"button\":\"left\"", "\"button\":\"left\",\"button\":\"middle\"") + "]"},
        {"truncated", "[" + writtenEvent().substr(0, 40)},
        {"trailing text", "[" + writtenEvent() + "]x"},
        {"object, not array", writtenEvent()},
        {"element not object", "[[1,2]]"},
        {"empty file", ""},
        {"invalid UTF-8 in a word", "[" + editedEvent("\"left\"", "\"l\xff\"") + "]"},
        {"lone surrogate", "[" + editedEvent("\"left\"", "\"\\ud800\"") + "]"},
    };
    for (const auto& [name, text] : failing) {
        SCOPED_TRACE(name);
        const testing::TemporaryDirectory temporary;
        const auto outcome = readWithSecondChunk(temporary.path(), text);
        EXPECT_NE(outcome.failure.find("000001.json"), std::string::npos) << outcome.failure;
    }
}

TEST(ChunkStoreDecoding, UnusualButValidFormsDecodeAsTheGeneralDecoderDoes) {
    const std::vector<std::pair<std::string, std::string>> accepted{
        {"repeated key, the last wins",
         "[" + editedEvent("\"button\":\"left\"", "\"button\":\"left\",\"button\":\"right\"") + "]"},
        {"null flag counts as absent",
         "[" + editedEvent("\"isInsideSource\":true", "\"isInsideSource\":null") + "]"},
        {"whole doubles in integer fields",
         "[" + editedEvent("\"geometryRevision\":7", "\"geometryRevision\":7.0") + "]"},
        {"time in exponent form", "[" + editedEvent("8333333", "8.333333e6") + "]"},
        {"escaped key", "[" + editedEvent("\"phase\"", "\"ph\\u0061se\"") + "]"},
        {"byte order mark", "\xEF\xBB\xBF[" + writtenEvent() + "]"},
        {"text after a NUL byte", "[" + writtenEvent() + "]" + std::string("\0junk", 5)},
        {"whole number beyond the signed range as a double",
         "[" + editedEvent("100.5", "18446744073709551615") + "]"},
        {"negative zero written as integer", "[" + editedEvent("100.5", "-0") + "]"},
        {"negative zero written as double", "[" + editedEvent("100.5", "-0.0") + "]"},
        {"empty chunk", "[]"},
        {"deep unknown member", "[" +
                                    editedEvent("{\"button\"", "{\"deep\":" + std::string(2000, '[') +
                                                                   std::string(2000, ']') + ",\"button\"") +
                                    "]"},
    };
    for (const auto& [name, text] : accepted) {
        SCOPED_TRACE(name);
        const testing::TemporaryDirectory temporary;
        const auto outcome = readWithSecondChunk(temporary.path(), text);
        EXPECT_EQ(outcome.failure, "");
    }
}

// Damage of every kind, one byte at a time: whatever the general decoder makes
// of it, samples or a failure, readAll makes the same.
TEST(ChunkStoreDecoding, RandomlyDamagedChunksDecodeAsTheGeneralDecoderDoes) {
    const testing::TemporaryDirectory temporary;
    const std::string whole = "[" + writtenEvent() + "," + editedEvent("\"isInsideSource\":true,", "") + "]";
    const std::string replacements = "{}[]:,\"\\0123456789.eE+- \tnultrfa\x01\xff";
    std::mt19937_64 random(99);
    for (int attempt = 0; attempt < 1500; ++attempt) {
        std::string damaged = whole;
        for (int edit = 0; edit <= attempt % 3; ++edit) {
            const std::size_t at = random() % damaged.size();
            const char replacement = replacements[random() % replacements.size()];
            switch (random() % 3) {
            case 0:
                damaged[at] = replacement;
                break;
            case 1:
                damaged.insert(damaged.begin() + static_cast<std::ptrdiff_t>(at), replacement);
                break;
            default:
                damaged.erase(at, 1);
            }
        }
        SCOPED_TRACE(damaged);
        writeFileAtomically(temporary / "000000.json", damaged);
        expectSameAsGeneralDecoder<MouseEvent>(temporary.path());
    }
}

// With many files read on several threads, the failure is still that of the
// first damaged file in name order, and the samples keep that order.
TEST(ChunkStoreDecoding, ManyChunksKeepTheirOrderAndReportTheFirstDamagedFile) {
    const testing::TemporaryDirectory temporary;
    constexpr int fileCount = 400;
    std::vector<MouseEvent> written;
    for (int index = 0; index < fileCount; ++index) {
        MouseEvent event;
        event.time = ProjectTime{index};
        event.rawTimestampNanoseconds = static_cast<std::uint64_t>(index);
        written.push_back(event);
        writeFileAtomically(
            temporary / ChunkFiles::chunkFileName(index),
            json::write(json::encode(std::vector<MouseEvent>{event}), json::JsonStyle::chunk));
    }
    EXPECT_EQ(ChunkStore<MouseEvent>::readAll(temporary.path()), written);

    const auto damage = [&](int index) {
        writeFileAtomically(temporary / ChunkFiles::chunkFileName(index),
                            "[" + editedEvent("\"left\"", "\"middle\"") + "]");
    };
    const auto failure = [&] {
        expectSameAsGeneralDecoder<MouseEvent>(temporary.path());
        return outcomeOf<MouseEvent>([&] { return ChunkStore<MouseEvent>::readAll(temporary.path()); })
            .failure;
    };
    damage(390);
    EXPECT_NE(failure().find(ChunkFiles::chunkFileName(390)), std::string::npos);
    damage(250);
    EXPECT_NE(failure().find(ChunkFiles::chunkFileName(250)), std::string::npos);
    damage(7);
    EXPECT_NE(failure().find(ChunkFiles::chunkFileName(7)), std::string::npos);
}

} // namespace
} // namespace rilo

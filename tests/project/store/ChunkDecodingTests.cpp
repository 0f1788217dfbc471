// Reading sample chunks: the records' key tables drive both the writer and
// this reader, so the reader must follow the decoding rules of the record
// codecs and fail with their texts, naming the file and the key path.

#include "project/document/CaptureSamples.h"
#include "project/store/ChunkStore.h"
#include "shared/Files.h"
#include "support/TemporaryDirectory.h"
#include "support/Thrown.h"

#include <gtest/gtest.h>

namespace rilo {
namespace {

namespace fs = std::filesystem;

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

// A good chunk, then the one under test: the samples, or the failure's text.
std::string readWithSecondChunk(const fs::path& directory, const std::string& text,
                                std::vector<MouseEvent>* samples = nullptr) {
    writeFileAtomically(directory / "000000.json", "[" + writtenEvent() + "]");
    writeFileAtomically(directory / "000001.json", text);
    std::vector<MouseEvent> read;
    const auto failure =
        testing::thrownMessage<LocalizedError>([&] { read = ChunkStore<MouseEvent>::readAll(directory); });
    if (samples != nullptr) {
        *samples = read;
    }
    return failure.value_or("");
}

// What the record codec makes of the same text.
std::string generalDecoderFailure(const std::string& text) {
    return testing::thrownMessage<LocalizedError>(
               [&] { json::decode<std::vector<MouseEvent>>(json::parse(text), "000001.json"); })
        .value_or("");
}

TEST(ChunkDecoding, FailuresNameTheFileAndKeyPathAsTheRecordCodecDoes) {
    // A written event with one member changed, in a chunk; the key path of its member.
    const auto edited = [](const std::string& from, const std::string& to) {
        return "[" + editedEvent(from, to) + "]";
    };
    const std::string at = "000001.json[0].";
    const std::vector<std::pair<std::string, std::string>> failing{
        {edited("\"phase\":\"down\",", ""), "缺少必需的键：" + at + "phase"},
        {edited("\"phase\":\"down\"", "\"phase\":null"), "缺少必需的键：" + at + "phase"},
        {edited("\"left\"", "\"middle\""), "无法识别的取值：" + at + "button = \"middle\""},
        {edited("\"geometryRevision\":7", "\"geometryRevision\":\"7\""),
         "类型不符：" + at + "geometryRevision应为整数"},
        {edited("\"geometryRevision\":7", "\"geometryRevision\":4294967296"),
         "类型不符：" + at + "geometryRevision应为范围内的整数"},
        {edited("\"geometryRevision\":7", "\"geometryRevision\":-1"),
         "类型不符：" + at + "geometryRevision应为范围内的整数"},
        {edited("\"geometryRevision\":7", "\"geometryRevision\":7.5"),
         "类型不符：" + at + "geometryRevision应为整数"},
        {edited("8333333", "9223372036854775808"), "类型不符：" + at + "time.nanoseconds应为范围内的整数"},
        // Beyond 64 bits the number is a double, and no whole one in range.
        {edited("8333333", "100000000000000000000000"), "类型不符：" + at + "time.nanoseconds应为整数"},
        {edited("9000000000", "-5"), "类型不符：" + at + "rawTimestampNanoseconds应为范围内的整数"},
        {edited("100.5", "\"100.5\""), "类型不符：" + at + "globalPoint.x应为数值"},
        {edited("\"isInsideSource\":true", "\"isInsideSource\":1"),
         "类型不符：" + at + "isInsideSource应为布尔值"},
        {edited("{\"x\":100.5,\"y\":200.25}", "[100.5,200.25]"), "类型不符：" + at + "globalPoint应为对象"},
        {edited("\"button\":\"left\"", "\"button\":\"left\",\"button\":\"middle\""),
         "无法识别的取值：" + at + "button = \"middle\""},
        {writtenEvent(), "类型不符：000001.json应为数组"},
        {"[[1,2]]", "类型不符：000001.json[0]应为对象"},
    };
    for (const auto& [text, message] : failing) {
        SCOPED_TRACE(text);
        const testing::TemporaryDirectory temporary;
        EXPECT_EQ(readWithSecondChunk(temporary.path(), text), message);
        EXPECT_EQ(generalDecoderFailure(text), message);
    }

    // Text that is no JSON at all names the file.
    for (const std::string& text :
         {"[" + writtenEvent().substr(0, 40), "[" + writtenEvent() + "]x", std::string()}) {
        const testing::TemporaryDirectory temporary;
        const std::string failure = readWithSecondChunk(temporary.path(), text);
        EXPECT_TRUE(failure.starts_with("JSON格式无效：") && failure.ends_with("（000001.json）")) << failure;
    }
}

TEST(ChunkDecoding, UnusualButValidFormsFollowTheRecordRules) {
    MouseEvent expected = json::decode<MouseEvent>(json::parse(writtenEvent()));
    const auto accepted = [&](const std::string& text, const MouseEvent& sample) {
        SCOPED_TRACE(text);
        const testing::TemporaryDirectory temporary;
        std::vector<MouseEvent> samples;
        EXPECT_EQ(readWithSecondChunk(temporary.path(), "[" + text + "]", &samples), "");
        ASSERT_EQ(samples.size(), 2u);
        EXPECT_EQ(samples[1], sample);
    };
    accepted(editedEvent("\"geometryRevision\":7", "\"geometryRevision\":7.0"), expected);
    accepted(editedEvent("8333333", "8.333333e6"), expected);
    accepted(editedEvent("{\"button\"", "{\"unknown\":[{}],\"button\""), expected);
    // Forms that simdjson does not take but JSON allows: integers beyond 64
    // bits, and nesting deeper than simdjson's limit in a member that no
    // record knows.
    accepted(editedEvent("{\"button\"", "{\"unknown\":100000000000000000000000,\"button\""), expected);
    accepted(editedEvent("{\"button\"",
                         "{\"unknown\":" + std::string(2000, '[') + std::string(2000, ']') + ",\"button\""),
             expected);
    MouseEvent far = expected;
    far.globalPoint.x = 1e23;
    accepted(editedEvent("100.5", "100000000000000000000000"), far);

    MouseEvent right = expected;
    right.button = MouseButton::right;
    accepted(editedEvent("\"button\":\"left\"", "\"button\":\"left\",\"button\":\"right\""), right);

    MouseEvent withoutFlag = expected;
    withoutFlag.isInsideSource.reset();
    accepted(editedEvent("\"isInsideSource\":true", "\"isInsideSource\":null"), withoutFlag);
    accepted(editedEvent(",\"isInsideSource\":true", ""), withoutFlag);
}

// With many files read on several threads, the samples keep the order of the
// file names, and the failure is that of the first damaged file.
TEST(ChunkDecoding, ManyChunksKeepTheirOrderAndReportTheFirstDamagedFile) {
    const testing::TemporaryDirectory temporary;
    constexpr int fileCount = 400;
    std::vector<MouseEvent> written;
    for (int index = 0; index < fileCount; ++index) {
        MouseEvent event;
        event.time = ProjectTime{index};
        written.push_back(event);
        writeFileAtomically(
            temporary / ChunkFiles::chunkFileName(index),
            json::write(json::encode(std::vector<MouseEvent>{event}), json::JsonStyle::chunk));
    }
    EXPECT_EQ(ChunkStore<MouseEvent>::readAll(temporary.path()), written);

    for (const int damaged : {390, 250, 7}) {
        writeFileAtomically(temporary / ChunkFiles::chunkFileName(damaged),
                            "[" + editedEvent("\"left\"", "1") + "]");
        const auto failure = testing::thrownMessage<json::DecodingError>([&] {
                                 ChunkStore<MouseEvent>::readAll(temporary.path());
                             }).value_or("");
        EXPECT_NE(failure.find(ChunkFiles::chunkFileName(damaged)), std::string::npos) << failure;
    }
}

} // namespace
} // namespace rilo

#include "project/caption/CaptionCodecs.h"
#include "project/caption/CaptionDocument.h"
#include "support/Thrown.h"
#include "support/TimelineBuilders.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace rilo {
namespace {

const ProjectTime sourceDuration = ProjectTime::fromSeconds(60);

Uuid cueID(std::uint8_t n) {
    Uuid id;
    id.bytes[15] = n;
    id.bytes[6] = 0x40;
    return id;
}

using testing::ms;

CaptionCue cue(std::uint8_t n, std::int64_t startMs, std::int64_t endMs, std::string text) {
    return {cueID(n), ms(startMs), ms(endMs), std::move(text), {}, {}};
}

CaptionDocument documentWith(std::vector<CaptionCue> cues) {
    CaptionDocument document;
    document.sourceTrack = MediaTrackKind::microphone;
    document.sourceAudioDigest = std::string(64, 'a');
    document.basedOnTimelineDigest = std::string(64, 'b');
    document.cues = std::move(cues);
    return document;
}

CaptionDocument sampleDocument() {
    CaptionDocument document = documentWith({
        cue(1, 0, 1500, "今天我们看看 Rilo 的剪辑"),
        cue(2, 1500, 4000, "自动缩放和字幕 / captions"),
    });
    document.sourceTrack = MediaTrackKind::systemAudio;
    document.language = "zh-Hans";
    document.style = {false, 1, CaptionAppearance::whiteWithBlackOutline, 1.15, 0.2};
    document.cues[0].words = {{ms(0), ms(600), "今天"}, {ms(600), ms(1500), "剪辑"}};
    document.cues[0].highlights = {{"剪辑", 1}};
    document.cues[1].highlights = {{"字幕", 1}, {"自动缩放", 1}};
    return document;
}

std::optional<CaptionValidationError::Case> validationFailure(const CaptionDocument& document) {
    return testing::thrownCase<CaptionValidationError>([&] { (void)document.validated(sourceDuration); });
}

template <class Mutate>
std::optional<CaptionValidationError::Case> failureOf(Mutate mutate) {
    CaptionDocument document = sampleDocument();
    mutate(document);
    return validationFailure(document);
}

std::string repeated(std::string_view unit, std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        text += unit;
    }
    return text;
}

TEST(CaptionDocument, RoundTripsByteForByteLeavingOutAMissingLanguage) {
    const CaptionDocument document = sampleDocument();
    const std::string bytes = json::encodeDocument(document);
    const auto decoded = json::decodeDocument<CaptionDocument>(bytes);
    EXPECT_EQ(decoded, document);
    EXPECT_EQ(json::encodeDocument(decoded), bytes);
    EXPECT_NE(bytes.find("\"appearance\" : \"white-black-outline\""), std::string::npos);
    EXPECT_NE(bytes.find("\"sourceTrack\" : \"systemAudio\""), std::string::npos);

    CaptionDocument withoutLanguage = document;
    withoutLanguage.language.reset();
    const std::string plain = json::encodeDocument(withoutLanguage);
    EXPECT_EQ(plain.find("language"), std::string::npos);
    EXPECT_EQ(plain.find("null"), std::string::npos);
}

TEST(CaptionDocument, MissingOptionalKeysTakeDefaultsAndRequiredOnesFail) {
    json::Json document = json::encode(sampleDocument());
    document["style"] = json::Json::object();
    document["cues"][1].erase("words");
    document["cues"][1].erase("highlights");
    const auto decoded = json::decode<CaptionDocument>(document);
    EXPECT_EQ(decoded.style, CaptionStyle{});
    EXPECT_TRUE(decoded.cues[1].words.empty());
    EXPECT_TRUE(decoded.cues[1].highlights.empty());

    // Every required key: of the document, of a cue and of a highlight.
    for (const char* path :
         {"/schemaVersion", "/sourceTrack", "/sourceAudioDigest", "/basedOnTimelineDigest", "/cues",
          "/cues/0/id", "/cues/0/start", "/cues/0/end", "/cues/0/text", "/cues/0/highlights/0/occurrence"}) {
        json::Json broken = json::encode(sampleDocument());
        const json::Json::json_pointer pointer(path);
        broken[pointer.parent_pointer()].erase(pointer.back());
        EXPECT_THROW(json::decode<CaptionDocument>(broken), json::DecodingError) << path;
    }
}

TEST(CaptionDocument, DocumentLevelFailuresComeFirstThenCueOrderTimesAndIdentity) {
    using Case = CaptionValidationError::Case;
    EXPECT_EQ(failureOf([](CaptionDocument& document) {
                  document.schemaVersion = 2;
                  document.sourceTrack = MediaTrackKind::screen;
              }),
              Case::unsupportedSchema);
    EXPECT_EQ(failureOf([](CaptionDocument& document) { document.sourceTrack = MediaTrackKind::screen; }),
              Case::invalidTrack);

    // At the limit the count passes, and the repeated id is what fails.
    const auto crowded = [](std::size_t count) {
        return [count](CaptionDocument& document) { document.cues.assign(count, cue(1, 0, 1, "x")); };
    };
    EXPECT_EQ(failureOf(crowded(maximumCaptionCueCount)), Case::invalidCue);
    EXPECT_EQ(failureOf(crowded(maximumCaptionCueCount + 1)), Case::tooManyCues);

    auto rejects = [](std::vector<CaptionCue> cues) {
        return validationFailure(documentWith(std::move(cues))) == Case::invalidCue;
    };
    // Touching cues pass, also a cue ending exactly at the end of the source.
    EXPECT_NO_THROW(
        (void)documentWith({cue(1, 0, 1000, "a"), cue(2, 1000, 60'000, "b")}).validated(sourceDuration));

    CaptionCue overlapping = cue(2, 1000, 2000, "b");
    overlapping.start.nanoseconds -= 1;
    EXPECT_TRUE(rejects({cue(1, 0, 1000, "a"), overlapping}));
    EXPECT_TRUE(rejects({cue(1, 1000, 2000, "a"), cue(2, 0, 500, "b")}));
    EXPECT_TRUE(rejects({cue(1, 0, 1000, "a"), cue(1, 1000, 2000, "b")}));
    EXPECT_TRUE(rejects({cue(1, -1, 1000, "a")}));
    EXPECT_TRUE(rejects({cue(1, 1000, 1000, "a")}));
    CaptionCue pastTheEnd = cue(1, 59'000, 60'000, "a");
    pastTheEnd.end.nanoseconds += 1;
    EXPECT_TRUE(rejects({pastTheEnd}));
    EXPECT_TRUE(rejects({cue(1, 0, 1000, " \n\t\u3000")}));
}

TEST(CaptionDocument, CueLengthCountsUserPerceivedCharactersAndTextsAreStoredTrimmed) {
    auto passes = [](const std::string& text) {
        const auto failure = validationFailure(documentWith({cue(1, 0, 1000, text)}));
        EXPECT_TRUE(!failure || failure == CaptionValidationError::Case::invalidCue);
        return !failure;
    };
    const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467"; // one composed emoji
    const std::string accented = "e\u0301";                                  // e with a combining accent
    for (const std::string_view unit :
         {std::string_view("字"), std::string_view(family), std::string_view(accented)}) {
        EXPECT_TRUE(passes(repeated(unit, 2000))) << unit;
        EXPECT_FALSE(passes(repeated(unit, 2001))) << unit;
    }
    EXPECT_TRUE(passes("  " + repeated("字", 2000) + "\n"));

    CaptionCue spoken = cue(1, 0, 2000, " \n 你好，世界\t\u3000\n");
    spoken.words = {{ms(0), ms(1000), "  你好 "}, {ms(1000), ms(2000), "\n世界"}};
    const auto validated = documentWith({spoken}).validated(sourceDuration);
    EXPECT_EQ(validated.cues[0].text, "你好，世界");
    EXPECT_EQ(validated.cues[0].words[0].text, "你好");
    EXPECT_EQ(validated.cues[0].words[1].text, "世界");
    EXPECT_EQ(trimmedCaptionText("\u00A0\u2028a b\u0085"), "a b");
}

TEST(CaptionDocument, WordsLieInsideTheirCueInOrderAndHighlightsAreFoundKeywords) {
    using Case = CaptionValidationError::Case;
    auto withWords = [](std::vector<CaptionWord> words) {
        return [words = std::move(words)](CaptionDocument& document) { document.cues[1].words = words; };
    };
    // cues[1] spans 1500...4000 ms.
    EXPECT_EQ(failureOf(withWords({{ms(1500), ms(2000), " \n"}})), Case::invalidWord);
    EXPECT_EQ(failureOf(withWords({{ms(1499), ms(2000), "a"}})), Case::invalidWord);
    EXPECT_EQ(failureOf(withWords({{ms(2000), ms(2000), "a"}})), Case::invalidWord);
    EXPECT_EQ(failureOf(withWords({{ms(3000), ms(4001), "a"}})), Case::invalidWord);
    EXPECT_EQ(failureOf(withWords({{ms(1500), ms(2500), "a"}, {ms(2499), ms(3000), "b"}})),
              Case::invalidWord);

    CaptionDocument touching = sampleDocument();
    touching.cues[1].words = {{ms(1500), ms(2500), "a"}, {ms(2500), ms(4000), "b"}};
    EXPECT_NO_THROW((void)touching.validated(sourceDuration));

    // Highlights must be keywords found in the text.
    const struct {
        std::string text;
        std::vector<CaptionHighlight> highlights;
    } refused[] = {
        {"剪辑很快", {{"剪辑", 2}}},
        {"剪辑很快", {{"剪辑", 0}}},
        {"剪辑很快", {{"剪切", 1}}},
        // The whole text is compared after trimming the cue.
        {"  剪辑很快\n", {{"剪辑很快", 1}}},
        {"真的？！好", {{"？！", 1}}},
        {"a b c", {{" b", 1}}},
        {"abcd", {{"ab", 1}, {"bc", 1}}},
        {"abcd", {{"ab", 1}, {"ab", 1}}},
        // Occurrences count from the end of the previous match: "aa" occurs twice in "aaaa".
        {"aaaa x", {{"aa", 3}}},
        {"w1 w2 w3 w4 w5 w6 w7 w8 w9",
         {{"w1", 1}, {"w2", 1}, {"w3", 1}, {"w4", 1}, {"w5", 1}, {"w6", 1}, {"w7", 1}, {"w8", 1}, {"w9", 1}}},
    };
    for (const auto& row : refused) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(failureOf([&](CaptionDocument& document) {
                      document.cues[0].text = row.text;
                      document.cues[0].highlights = row.highlights;
                  }),
                  Case::invalidHighlight);
    }

    // Eight pass, and come back sorted by position.
    CaptionDocument document = sampleDocument();
    document.cues[0].text = " 快速剪辑，快速导出，再剪辑 w1 w2 w3 w4";
    document.cues[0].highlights = {{"剪辑", 2}, {"快速", 2}, {"快速", 1}, {"导出", 1},
                                   {"w4", 1},   {"w3", 1},   {"w2", 1},   {"w1", 1}};
    const auto validated = document.validated(sourceDuration);
    EXPECT_EQ(
        validated.cues[0].highlights,
        (std::vector<CaptionHighlight>{
            {"快速", 1}, {"快速", 2}, {"导出", 1}, {"剪辑", 2}, {"w1", 1}, {"w2", 1}, {"w3", 1}, {"w4", 1}}));
}

TEST(CaptionDocument, StyleIsClampedAndRounded) {
    const auto appearance = CaptionAppearance::whiteOnBlack;
    const struct {
        CaptionStyle given;
        CaptionStyle expected;
    } rows[] = {
        {{true, 2, appearance, 0.5, 0.123}, {true, 2, appearance, 0.6, 0.12}},
        {{true, 5, appearance, 1.234, -0.3}, {true, 2, appearance, 1.2, 0.0}},
        {{true, 0, appearance, 0.876, 1.7}, {true, 1, appearance, 0.88, 1.0}},
    };
    for (const auto& row : rows) {
        CaptionDocument document = sampleDocument();
        document.style = row.given;
        EXPECT_EQ(document.validated(sourceDuration).style, row.expected);
    }
}

TEST(CaptionHighlight, FromSelectionFindsItsOccurrence) {
    const std::string text = "剪辑 and 剪辑 again";
    const std::size_t second = text.find("剪辑", 1);
    const auto highlight = CaptionHighlight::fromRange(second, std::string("剪辑").size(), text);
    ASSERT_TRUE(highlight.has_value());
    EXPECT_EQ(*highlight, (CaptionHighlight{"剪辑", 2}));
    EXPECT_EQ(highlight->matchedRange(text), (CaptionHighlight::ByteRange{second, 6}));

    EXPECT_FALSE(CaptionHighlight::fromRange(3, 0, text));               // empty
    EXPECT_FALSE(CaptionHighlight::fromRange(text.size() - 2, 3, text)); // past the end
    EXPECT_FALSE(CaptionHighlight::fromRange(1, 3, text));               // inside a character
    // "aa" at offset 1 of "aaa" lies inside the first match, so no count reaches it.
    EXPECT_FALSE(CaptionHighlight::fromRange(1, 2, "aaa"));
}

} // namespace
} // namespace rilo

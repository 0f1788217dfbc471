// The plan document an agent writes: how it decodes, which operations each
// schema admits, the limits of ranges, rates, zooms and settings, and the
// plan it becomes; plus the reading rules of the exchange directory and what
// a plan tells about the captions.

#include "cli/exchange/EditPlanDocument.h"
#include "cli/exchange/EditPlanError.h"
#include "cli/exchange/EditPlanExchange.h"
#include "project/engine/TimelinePlanError.h"
#include "shared/Files.h"
#include "support/TemporaryDirectory.h"
#include "support/Thrown.h"
#include "support/TimelineBuilders.h"

#include <gtest/gtest.h>
#include <limits>

namespace rilo::cli {
namespace {

using testing::between;
using testing::ms;
using testing::thrownCase;
using Case = EditPlanValidationError::Case;

constexpr ProjectTime sourceDuration = ProjectTime::fromMilliseconds(10'000);

EditPlanExchangeDocument documentOf(std::int64_t version, std::vector<EditPlanOperation> operations) {
    EditPlanExchangeDocument document;
    document.protocolVersion = version;
    document.operations = std::move(operations);
    return document;
}

EditPlanOperation operationOf(EditPlanOperationType type) {
    EditPlanOperation operation;
    operation.type = type;
    return operation;
}

EditPlanOperation cut(std::int64_t start, std::int64_t end) {
    EditPlanOperation operation = operationOf(EditPlanOperationType::cut);
    operation.range = CLIRange{start, end};
    return operation;
}

EditPlanOperation speed(std::int64_t start, std::int64_t end, double rate) {
    EditPlanOperation operation = operationOf(EditPlanOperationType::speed);
    operation.range = CLIRange{start, end};
    operation.rate = rate;
    return operation;
}

EditPlanOperation settings(std::map<std::string, std::string> values) {
    EditPlanOperation operation = operationOf(EditPlanOperationType::settings);
    operation.values = std::move(values);
    return operation;
}

// The case that converting the document throws, if any.
std::optional<Case> failureOf(std::int64_t version, std::vector<EditPlanOperation> operations) {
    const EditPlanExchangeDocument document = documentOf(version, std::move(operations));
    return thrownCase<EditPlanValidationError>([&] { document.domainPlan(sourceDuration); });
}

TEST(EditPlanDocument, DecodesEveryMemberAndConvertsMillisecondsToAPlan) {
    const std::string bytes = R"({
        "protocolVersion": 3, "jobID": "6F9619FF-8B86-D011-B42D-00C04FC964FF",
        "projectID": "6f9619ff-8b86-d011-b42d-00c04fc964f0", "timelineDigest": "t", "captionsDigest": "c",
        "timeDomain": "source milliseconds",
        "operations": [
            {"type": "cut", "range": {"startMilliseconds": 1000, "endMilliseconds": 2000}, "reason": "停顿"},
            {"type": "speed", "range": {"startMilliseconds": 3000, "endMilliseconds": 5000}, "rate": 1.5},
            {"type": "zoom-reconcile"},
            {"type": "zoom-add", "range": {"startMilliseconds": 6000, "endMilliseconds": 8000},
             "focusX": 0.25, "focusY": 0.75},
            {"type": "zoom-add", "range": {"startMilliseconds": 8000, "endMilliseconds": 9500}, "level": 2.5},
            {"type": "settings", "values": {"cursor.scale": "1.5", "canvas.padding": "0.1"}}
        ]})";
    const auto document = json::decodeDocument<EditPlanExchangeDocument>(bytes);
    EXPECT_EQ(document.projectID.string(), "6F9619FF-8B86-D011-B42D-00C04FC964F0");
    ASSERT_EQ(document.operations.size(), 6u);
    EXPECT_EQ(document.operations[0].reason, "停顿");
    EXPECT_EQ(document.operations[5].values->at("cursor.scale"), "1.5");

    TimelineEditPlan expected;
    expected.cuts = {between(ms(1000), ms(2000))};
    expected.speedChanges = {{between(ms(3000), ms(5000)), {1500}}};
    expected.reconcilesZooms = true;
    expected.zoomAdds = {{between(ms(6000), ms(8000)), 1.8, PointValue{0.25, 0.75}},
                         {between(ms(8000), ms(9500)), 2.5, std::nullopt}};
    expected.settings = {{"canvas.padding", "0.1"}, {"cursor.scale", "1.5"}};
    EXPECT_EQ(document.domainPlan(sourceDuration), expected);

    // What is written reads back the same.
    EXPECT_EQ(json::decodeDocument<EditPlanExchangeDocument>(json::encodeDocument(document)), document);
}

TEST(EditPlanDocument, UnknownWordsAndWrongTypesDoNotDecode) {
    const auto decodeOperation = [](const std::string& text) {
        return json::decode<EditPlanOperation>(json::parse(text));
    };
    EXPECT_THROW(decodeOperation(R"({"type": "trim"})"), json::DecodingError);
    EXPECT_THROW(decodeOperation(R"({"range": {"startMilliseconds": 0, "endMilliseconds": 100}})"),
                 json::DecodingError);
    EXPECT_THROW(decodeOperation(R"({"type": "settings", "values": {"cursor.scale": 1.5}})"),
                 json::DecodingError);
    EXPECT_THROW(decodeOperation(R"({"type": "settings", "values": ["cursor.scale=1.5"]})"),
                 json::DecodingError);
    EXPECT_THROW(
        decodeOperation(R"({"type": "cut", "range": {"startMilliseconds": 0.5, "endMilliseconds": 100}})"),
        json::DecodingError);
    const EditPlanJob job{3, Uuid::random(), Uuid::random(), "a", "b", IsoDate{1'772'439'330}};
    EXPECT_EQ(EditPlanExchange::decodeJob(json::encodeDocument(job)), job);

    // The files' readers refuse what does not decode as a document they can report.
    for (const std::string_view bytes : {R"({"protocolVersion": 3, "operations": [)", "", "[]"}) {
        EXPECT_EQ(thrownCase<EditPlanValidationError>([&] { EditPlanExchange::decodeDocument(bytes); }),
                  Case::invalidDocument)
            << bytes;
        EXPECT_EQ(thrownCase<EditPlanValidationError>([&] { EditPlanExchange::decodeJob(bytes); }),
                  Case::invalidDocument)
            << bytes;
    }
}

TEST(EditPlanDocument, TheDocumentMustBeOfAKnownVersionDomainAndSize) {
    EXPECT_EQ(failureOf(0, {cut(0, 100)}), Case::invalidDocument);
    EXPECT_EQ(failureOf(4, {cut(0, 100)}), Case::invalidDocument);
    EditPlanExchangeDocument sequenceTime = documentOf(3, {cut(0, 100)});
    sequenceTime.timeDomain = "sequence milliseconds";
    EXPECT_EQ(thrownCase<EditPlanValidationError>([&] { sequenceTime.domainPlan(sourceDuration); }),
              Case::invalidDocument);

    EXPECT_EQ(thrownCase<TimelinePlanError>([] { documentOf(3, {}).domainPlan(sourceDuration); }),
              TimelinePlanError::Case::empty);
    const std::vector<EditPlanOperation> many(501, cut(0, 100));
    EXPECT_EQ(thrownCase<TimelinePlanError>([&] { documentOf(3, many).domainPlan(sourceDuration); }),
              TimelinePlanError::Case::tooManyOperations);
    EXPECT_EQ(failureOf(3, std::vector<EditPlanOperation>(500, cut(0, 100))), std::nullopt);
}

TEST(EditPlanDocument, RangesLieInTheMediaAndLastAtLeast17Milliseconds) {
    EXPECT_EQ(failureOf(1, {cut(1000, 1016)}), Case::invalidOperation);
    EXPECT_EQ(failureOf(1, {cut(1000, 1017)}), std::nullopt);
    EXPECT_EQ(failureOf(1, {cut(9000, 10'000)}), std::nullopt);
    EXPECT_EQ(failureOf(1, {cut(9000, 10'001)}), Case::invalidOperation);
    EXPECT_EQ(failureOf(1, {cut(-1, 100)}), Case::invalidOperation);
    EXPECT_EQ(failureOf(1, {cut(500, 100)}), Case::invalidOperation);
    EXPECT_EQ(failureOf(1, {operationOf(EditPlanOperationType::cut)}), Case::invalidOperation);
    // Whole milliseconds of the media: 10,000.999 ms still ends at 10,000.
    const EditPlanExchangeDocument atEnd = documentOf(1, {cut(9000, 10'000)});
    EXPECT_NO_THROW(atEnd.domainPlan(ProjectTime{10'000'999'999}));
}

TEST(EditPlanDocument, SpeedNeedsSchema2AndARateInHundredthsFromHalfToFour) {
    EXPECT_EQ(failureOf(1, {speed(0, 1000, 2)}), Case::invalidOperation);
    EXPECT_EQ(failureOf(2, {speed(0, 1000, 2)}), std::nullopt);
    EXPECT_EQ(failureOf(2, {speed(0, 1000, 0.5)}), std::nullopt);
    EXPECT_EQ(failureOf(2, {speed(0, 1000, 4)}), std::nullopt);
    EXPECT_EQ(failureOf(2, {speed(0, 1000, 0.49)}), Case::invalidOperation);
    EXPECT_EQ(failureOf(2, {speed(0, 1000, 4.01)}), Case::invalidOperation);
    EXPECT_EQ(failureOf(2, {speed(0, 1000, 1.234)}), Case::invalidOperation);
    EXPECT_EQ(failureOf(2, {speed(0, 1000, 1.2345)}), Case::invalidOperation);
    EXPECT_EQ(failureOf(2, {speed(0, 1000, 1e300)}), Case::invalidOperation);
    EditPlanOperation withoutRate = speed(0, 1000, 1);
    withoutRate.rate.reset();
    EXPECT_EQ(failureOf(2, {withoutRate}), Case::invalidOperation);
    // 1.1 × 1000 is not exactly 1100 in binary, but close enough.
    EXPECT_EQ(
        documentOf(2, {speed(0, 1000, 1.1)}).domainPlan(sourceDuration).speedChanges.front().rate.permille,
        1100);
}

TEST(EditPlanDocument, ZoomClearAndReconcileExcludeEachOther) {
    const auto clear = operationOf(EditPlanOperationType::zoomClear);
    const auto reconcile = operationOf(EditPlanOperationType::zoomReconcile);
    EXPECT_EQ(failureOf(2, {reconcile}), Case::invalidOperation);
    EXPECT_EQ(failureOf(3, {reconcile}), std::nullopt);
    EXPECT_EQ(failureOf(1, {clear}), std::nullopt);
    EXPECT_EQ(failureOf(3, {clear, reconcile}), Case::invalidOperation);
    EXPECT_EQ(failureOf(3, {reconcile, clear}), Case::invalidOperation);
    EXPECT_EQ(failureOf(3, {clear, clear}), Case::invalidOperation);
    EXPECT_EQ(failureOf(3, {reconcile, reconcile}), Case::invalidOperation);
}

TEST(EditPlanDocument, ZoomAddFocusIsBothOrNeitherWithinTheFrame) {
    EditPlanOperation zoom = operationOf(EditPlanOperationType::zoomAdd);
    zoom.range = CLIRange{1000, 3000};
    EXPECT_EQ(documentOf(1, {zoom}).domainPlan(sourceDuration).zoomAdds.front().scale, 1.8);
    zoom.focusX = 0.5;
    EXPECT_EQ(failureOf(1, {zoom}), Case::invalidOperation);
    zoom.focusY = 1.01;
    EXPECT_EQ(failureOf(1, {zoom}), Case::invalidOperation);
    zoom.focusY = 1;
    EXPECT_EQ(failureOf(1, {zoom}), std::nullopt);
    zoom.level = std::numeric_limits<double>::infinity();
    EXPECT_EQ(failureOf(1, {zoom}), Case::invalidOperation);
}

TEST(EditPlanDocument, SettingsComeOnceWithOneTo32Values) {
    EXPECT_EQ(failureOf(1, {settings({{"cursor.scale", "2"}})}), std::nullopt);
    EXPECT_EQ(failureOf(1, {settings({{"cursor.scale", "2"}}), settings({{"cursor.show", "false"}})}),
              Case::invalidOperation);
    EXPECT_EQ(failureOf(1, {settings({})}), Case::invalidOperation);
    EXPECT_EQ(failureOf(1, {operationOf(EditPlanOperationType::settings)}), Case::invalidOperation);
    std::map<std::string, std::string> values;
    for (int i = 0; i < 32; ++i) {
        values["key" + std::to_string(i)] = "1";
    }
    EXPECT_EQ(failureOf(1, {settings(values)}), std::nullopt);
    values["key32"] = "1";
    EXPECT_EQ(failureOf(1, {settings(values)}), Case::invalidOperation);
}

TEST(EditPlanDocument, MembersOutsideTheTypeAndLongReasonsAreRefused) {
    EditPlanOperation cutWithRate = cut(0, 1000);
    cutWithRate.rate = 2;
    EXPECT_EQ(failureOf(3, {cutWithRate}), Case::invalidOperation);
    EditPlanOperation cutWithLevel = cut(0, 1000);
    cutWithLevel.level = 2;
    EXPECT_EQ(failureOf(3, {cutWithLevel}), Case::invalidOperation);
    EditPlanOperation clearWithRange = operationOf(EditPlanOperationType::zoomClear);
    clearWithRange.range = CLIRange{0, 1000};
    EXPECT_EQ(failureOf(3, {clearWithRange}), Case::invalidOperation);
    EditPlanOperation settingsWithFocus = settings({{"cursor.scale", "2"}});
    settingsWithFocus.focusX = 0.5;
    EXPECT_EQ(failureOf(3, {settingsWithFocus}), Case::invalidOperation);
    EditPlanOperation speedWithValues = speed(0, 1000, 2);
    speedWithValues.values = std::map<std::string, std::string>{{"cursor.scale", "2"}};
    EXPECT_EQ(failureOf(3, {speedWithValues}), Case::invalidOperation);

    // 500 characters as people count them, each three bytes of UTF-8.
    EditPlanOperation reasoned = cut(0, 1000);
    reasoned.reason = std::string();
    for (int i = 0; i < 500; ++i) {
        *reasoned.reason += "剪";
    }
    EXPECT_EQ(failureOf(3, {reasoned}), std::nullopt);
    *reasoned.reason += "a";
    EXPECT_EQ(failureOf(3, {reasoned}), Case::invalidOperation);
}

class EditPlanExchangeFiles : public ::testing::Test {
protected:
    testing::TemporaryDirectory data;
    std::filesystem::path root = EditPlanExchange::exchangeRootDirectory(data / "Rilo/Projects/");
    std::optional<Case> readFailure(const std::filesystem::path& file, std::size_t maximum) const {
        return thrownCase<EditPlanValidationError>(
            [&] { EditPlanExchange::readExchangeData(file, root, maximum); });
    }
};

TEST_F(EditPlanExchangeFiles, TheRootIsBesideTheLibraryAndJobsAreNeverReused) {
    std::filesystem::create_directories(data / "Rilo/Projects");
    EXPECT_EQ(root, data / "Rilo/AgentExchange");
    const Uuid job = Uuid::random();
    const auto directory = EditPlanExchange::createEditPlanDirectory(root, job);
    EXPECT_EQ(directory, root / job.string());
    EXPECT_TRUE(std::filesystem::is_directory(directory));
    EXPECT_EQ(
        thrownCase<EditPlanValidationError>([&] { EditPlanExchange::createEditPlanDirectory(root, job); }),
        Case::invalidDocument);

    // A root that is a link to elsewhere is refused.
    std::filesystem::remove_all(root);
    std::filesystem::create_directory(data / "elsewhere");
    std::filesystem::create_directory_symlink(data / "elsewhere", root);
    EXPECT_EQ(thrownCase<EditPlanValidationError>(
                  [&] { EditPlanExchange::createEditPlanDirectory(root, Uuid::random()); }),
              Case::invalidDocument);
    EXPECT_TRUE(std::filesystem::is_empty(data / "elsewhere"));
}

TEST_F(EditPlanExchangeFiles, ReadsUpToTheLimitAndRefusesLinksAndStrayPaths) {
    const auto directory = EditPlanExchange::createEditPlanDirectory(root, Uuid::random());
    const auto plan = directory / "edit-plan.json";
    writeFileAtomically(plan, std::string(EditPlanExchange::maximumPlanBytes, ' '));
    EXPECT_EQ(EditPlanExchange::readExchangeData(plan, root, EditPlanExchange::maximumPlanBytes).size(),
              EditPlanExchange::maximumPlanBytes);
    writeFileAtomically(plan, std::string(EditPlanExchange::maximumPlanBytes + 1, ' '));
    EXPECT_EQ(readFailure(plan, EditPlanExchange::maximumPlanBytes), Case::documentTooLarge);

    // A link at the plan's place, even to a file inside the exchange.
    writeFileAtomically(directory / "other.json", "{}");
    std::filesystem::remove(plan);
    std::filesystem::create_symlink(directory / "other.json", plan);
    EXPECT_EQ(readFailure(plan, 100), Case::invalidDocument);
    EXPECT_EQ(readFailure(directory / "missing.json", 100), Case::invalidDocument);
    EXPECT_EQ(readFailure(directory, 100), Case::invalidDocument);

    // A job directory that is a link, and a file outside the exchange.
    std::filesystem::create_directory_symlink(directory, root / "linked");
    EXPECT_EQ(readFailure(root / "linked/other.json", 100), Case::invalidDocument);
    std::filesystem::create_directories(data / "outside/job");
    writeFileAtomically(data / "outside/job/edit-plan.json", "{}");
    EXPECT_EQ(readFailure(data / "outside/job/edit-plan.json", 100), Case::invalidDocument);
    EXPECT_EQ(readFailure(root / "../AgentExchange" / directory.filename() / "other.json", 100),
              std::nullopt);
}

TEST(EditPlanExchangeExample, TheExampleCutFollowsTheMediaLength) {
    const EditPlanJob job{3, Uuid::random(), Uuid::random(), "t", "c", IsoDate{0}};
    const auto example = [&](std::int64_t nanoseconds) {
        const EditPlanExchangeDocument document =
            EditPlanExchange::exampleDocument(job, ProjectTime{nanoseconds});
        std::vector<CLIRange> ranges;
        for (const EditPlanOperation& operation : document.operations) {
            ranges.push_back(*operation.range);
        }
        return ranges;
    };
    EXPECT_EQ(example(2'999'999), (std::vector<CLIRange>{{0, 1}}));
    EXPECT_EQ(example(2'999'999'999), (std::vector<CLIRange>{{0, 999}, {999, 1999}}));
    EXPECT_EQ(example(3'000'000'000), (std::vector<CLIRange>{{0, 1000}, {1000, 2000}}));
    EXPECT_EQ(example(1'400'000'000), (std::vector<CLIRange>{{0, 466}}));
    const EditPlanExchangeDocument document = EditPlanExchange::exampleDocument(job, ms(12'000));
    EXPECT_EQ(document.jobID, job.id);
    EXPECT_EQ(document.operations[1].rate, 2.0);
    // The example is itself a valid plan of the newest schema.
    EXPECT_EQ(document.protocolVersion, 3);
    EXPECT_NO_THROW(document.domainPlan(ms(12'000)));
}

TEST(EditPlanCaptionImpact, CuesThatLoseContentAreReportedByHowTheyAreHit) {
    using testing::segment;
    const auto cue = [](std::int64_t start, std::int64_t end, std::vector<CaptionWord> words = {}) {
        CaptionCue result;
        result.id = Uuid::random();
        result.start = ms(start);
        result.end = ms(end);
        result.text = "字幕";
        result.words = std::move(words);
        return result;
    };
    CaptionDocument captions;
    captions.cues = {
        cue(1000, 1800),                                                         // inside the cut
        cue(2500, 4000, {{ms(2500), ms(2900), "a"}, {ms(3100), ms(3900), "b"}}), // a word in the cut
        cue(4500, 6000, {{ms(4500), ms(4900), "c"}, {ms(5600), ms(6000), "d"}}), // words beside it
        cue(6500, 8000),                                                         // no words
        cue(8500, 9500),                                                         // only sped up
    };
    const auto original = testing::timelineOf({segment(ms(0), ms(10'000))});
    const auto resulting = testing::timelineOf(
        {segment(ms(0), ms(900)), segment(ms(2000), ms(3000)), segment(ms(3500), ms(5000)),
         segment(ms(5500), ms(7000)), segment(ms(7500), ms(8500)), segment(ms(8500), ms(10'000), 2000)});
    const std::vector<ProjectTimeRange> cuts{between(ms(900), ms(2000)), between(ms(3000), ms(3500)),
                                             between(ms(5000), ms(5500)), between(ms(7000), ms(7500))};
    const EditPlanCaptionImpact impact =
        EditPlanExchange::captionImpact(captions, original, resulting, cuts, sourceDuration);
    ASSERT_EQ(impact.impacts.size(), 4u);
    const auto id = [&](std::size_t index) { return captions.cues[index].id.string(); };
    EXPECT_EQ(impact.impacts[0], (CLICaptionImpactDescription{id(0), "fully-removed", {{900, 2000}}, false}));
    EXPECT_EQ(impact.impacts[1],
              (CLICaptionImpactDescription{id(1), "word-timing-overlap", {{3000, 3500}}, true}));
    EXPECT_EQ(impact.impacts[2],
              (CLICaptionImpactDescription{id(2), "cue-timing-overlap", {{5000, 5500}}, true}));
    EXPECT_EQ(impact.impacts[3],
              (CLICaptionImpactDescription{id(3), "cue-timing-overlap", {{7000, 7500}}, false}));
    EXPECT_EQ(impact.fullyRemovedCaptionIDs, std::vector<std::string>{id(0)});
    EXPECT_EQ(impact.splitCaptionIDs, (std::vector<std::string>{id(1), id(2), id(3)}));

    EXPECT_EQ(EditPlanExchange::captionImpact(std::nullopt, original, resulting, cuts, sourceDuration),
              EditPlanCaptionImpact{});
}

} // namespace
} // namespace rilo::cli

// An edit plan as an agent runs it through the real executable: prepare a
// job, write the plan where the job says, preview it, confirm with the three
// digests of the preview; and the plans, jobs and confirmations that must be
// refused with the package left as it was.

#include "shared/Files.h"
#include "shared/Json.h"
#include "shared/Sha256.h"
#include "support/CliLibraryTest.h"
#include "support/FileTree.h"
#include "support/RecordedPackage.h"

#include <gtest/gtest.h>

namespace rilo {
namespace {

using json::Json;
using testing::fileTreeState;

constexpr const char* invalidDocument = "Edit Plan Schema 1/2/3文档无效。";
constexpr const char* invalidOperation = "Edit Plan包含无效或互相冲突的操作。";
constexpr const char* staleJob = "Edit Plan任务与当前项目或Timeline不一致，请重新准备。";
constexpr const char* stalePlan = "Edit Plan文件已变化，请重新预演。";

// A response without the ids of its segments and zooms. A project that was
// never edited has no stored segment, and each load gives the whole-source
// segment a fresh id, from which the plan engine derives the new ids.
Json withoutIDs(Json response) {
    for (const char* key : {"resultingSegments", "resultingZooms", "zooms"}) {
        if (response.contains(key)) {
            for (Json& element : response[key]) {
                element.erase("id");
            }
        }
    }
    return response;
}

Json range(std::int64_t start, std::int64_t end) {
    return {{"startMilliseconds", start}, {"endMilliseconds", end}};
}

class EditPlanEndToEnd : public testing::CliLibraryTest {
protected:
    testing::RecordedPackage recorded;
    std::string prefix;

    void SetUp() override {
        testing::RecordedPackageOptions spec;
        spec.movie.duration = ProjectTime::fromSeconds(12);
        spec.clicks = {{ProjectTime::fromMilliseconds(2000), {0.3, 0.3}},
                       {ProjectTime::fromMilliseconds(7000), {0.7, 0.6}}};
        recorded = testing::makeRecordedPackage(store, spec);
        prefix = recorded.manifest.id.string().substr(0, 6);
    }

    // The prepared job's example with these operations, written to its plan path.
    static std::string writePlan(const Json& prepared, const Json& operations, std::int64_t version = 3) {
        Json plan = prepared["example"];
        plan["protocolVersion"] = version;
        plan["operations"] = operations;
        const std::string bytes = plan.dump(2);
        writeFileAtomically(prepared["planPath"].get<std::string>(), bytes);
        return bytes;
    }

    std::vector<std::string> preview(const Json& prepared) const {
        return {"edit-plan-preview", prefix, "--job", prepared["jobID"]};
    }

    // Runs a command that must fail and leave the package untouched.
    std::string failUnchanged(const std::vector<std::string>& arguments, const std::string& code,
                              int exitCode) const {
        const auto before = fileTreeState(recorded.package.rootURL);
        std::string message = fail(arguments, code, exitCode);
        EXPECT_EQ(fileTreeState(recorded.package.rootURL), before) << message;
        return message;
    }
};

TEST_F(EditPlanEndToEnd, PrepareWritePreviewAndConfirmInOneHistoryStep) {
    const Json described = succeed({"describe", prefix});
    const std::string timelineDigest = described["timelineDigest"];
    const std::string projectID = recorded.manifest.id.string();
    const auto untouched = fileTreeState(recorded.package.rootURL);

    const Json prepared = succeed({"edit-plan-prepare", prefix});
    std::vector<std::string> keys;
    for (const auto& [key, value] : prepared.items()) {
        keys.push_back(key);
    }
    EXPECT_EQ(keys,
              (std::vector<std::string>{"captionsDigest", "example", "instructions", "jobID", "planPath",
                                        "projectID", "protocolVersion", "timeDomain", "timelineDigest"}));
    const std::string jobID = prepared["jobID"];
    const auto jobDirectory = dataHome / ("Rilo/AgentExchange/" + jobID);
    EXPECT_EQ(prepared["planPath"], (jobDirectory / "edit-plan.json").string());
    EXPECT_EQ(prepared["protocolVersion"], 3);
    EXPECT_EQ(prepared["projectID"], projectID);
    EXPECT_EQ(prepared["timelineDigest"], timelineDigest);
    EXPECT_EQ(prepared["captionsDigest"], sha256Hex(""));
    EXPECT_EQ(prepared["timeDomain"], "source milliseconds");
    EXPECT_EQ(prepared["instructions"].size(), 3u);
    EXPECT_EQ(prepared["example"]["jobID"], jobID);
    EXPECT_EQ(prepared["example"]["operations"][0]["range"], range(0, 1000));
    EXPECT_EQ(prepared["example"]["operations"][1]["rate"], 2.0);
    const Json job = json::parse(readFileBytes(jobDirectory / "job.json"));
    EXPECT_EQ(job["id"], jobID);
    EXPECT_EQ(job["projectID"], projectID);
    EXPECT_EQ(job["timelineDigest"], timelineDigest);
    EXPECT_EQ(fileTreeState(recorded.package.rootURL), untouched);

    const Json operations = Json::array({
        {{"type", "cut"}, {"range", range(3000, 4000)}, {"reason", "等待加载"}},
        {{"type", "cut"}, {"range", range(8000, 9000)}},
        {{"type", "speed"}, {"range", range(5000, 7000)}, {"rate", 2.0}},
        {{"type", "zoom-add"},
         {"range", range(10'000, 11'500)},
         {"level", 2.0},
         {"focusX", 0.4},
         {"focusY", 0.5}},
        {{"type", "settings"}, {"values", {{"cursor.scale", "1.5"}}}},
    });
    const std::string planBytes = writePlan(prepared, operations);

    const Json previewed = succeed(preview(prepared));
    EXPECT_EQ(fileTreeState(recorded.package.rootURL), untouched);
    EXPECT_EQ(previewed["applied"], false);
    EXPECT_FALSE(previewed.contains("resultingDigest"));
    EXPECT_EQ(previewed["jobID"], jobID);
    EXPECT_EQ(previewed["planDigest"], sha256Hex(planBytes));
    EXPECT_EQ(previewed["normalizedCuts"], Json::array({range(3000, 4000), range(8000, 9000)}));
    EXPECT_EQ(previewed["normalizedSpeeds"], Json::array({{{"sourceStartMilliseconds", 5000},
                                                           {"sourceEndMilliseconds", 7000},
                                                           {"playbackRate", 2.0}}}));
    EXPECT_EQ(previewed["removedDurationMilliseconds"], 2000);
    // 2 s cut and 1 s gained by playing 2 s at double speed.
    EXPECT_EQ(previewed["before"]["sequenceDurationMilliseconds"], 12'000);
    EXPECT_EQ(previewed["after"]["sequenceDurationMilliseconds"], 9000);
    EXPECT_EQ(previewed["sequenceDurationDeltaMilliseconds"], -3000);
    EXPECT_EQ(previewed["after"]["cursor"]["scale"], 1.5);
    ASSERT_EQ(previewed["resultingZooms"].size(), 1u);
    const Json zoom = previewed["resultingZooms"][0];
    EXPECT_EQ(zoom["sourceStartMilliseconds"], 10'000);
    EXPECT_EQ(zoom["sourceEndMilliseconds"], 11'500);
    EXPECT_EQ(zoom["scale"], 2.0);
    EXPECT_EQ(zoom["focusX"], 0.4);
    EXPECT_EQ(previewed["resultingSegments"].size(), 5u);
    EXPECT_EQ(previewed["operations"], operations);
    EXPECT_EQ(previewed["captionImpacts"], Json::array());
    EXPECT_EQ(previewed["warnings"], Json::array());
    const auto confirmation = previewed["confirmationArguments"].get<std::vector<std::string>>();
    EXPECT_EQ(confirmation,
              (std::vector<std::string>{"edit-plan-preview", projectID, "--job", jobID, "--apply",
                                        "--expect-timeline", timelineDigest, "--expect-captions",
                                        sha256Hex(""), "--expect-plan", sha256Hex(planBytes)}));
    // A preview can be repeated and gives the same answer.
    EXPECT_EQ(withoutIDs(succeed(preview(prepared))), withoutIDs(previewed));

    const Json applied = succeed(confirmation);
    EXPECT_EQ(applied["applied"], true);
    EXPECT_FALSE(applied.contains("confirmationArguments"));
    EXPECT_EQ(withoutIDs(applied)["resultingZooms"], withoutIDs(previewed)["resultingZooms"]);
    EXPECT_EQ(withoutIDs(applied)["resultingSegments"], withoutIDs(previewed)["resultingSegments"]);
    const Json after = succeed({"describe", prefix});
    EXPECT_EQ(applied["resultingDigest"], after["timelineDigest"]);
    EXPECT_EQ(after["sequenceDurationMilliseconds"], 9000);
    EXPECT_EQ(after["zooms"], applied["resultingZooms"]);
    const Json history = succeed({"history", prefix})["entries"];
    ASSERT_EQ(history.size(), 1u);
    EXPECT_EQ(history[0]["timelineDigest"], timelineDigest);

    // The commit retired the job: the same confirmation is now stale.
    EXPECT_EQ(failUnchanged(confirmation, "edit_plan_conflict", 3), staleJob);
}

TEST_F(EditPlanEndToEnd, ConfirmationsOfAnOutdatedStateOrPlanChangeNothing) {
    const Json prepared = succeed({"edit-plan-prepare", prefix});
    writePlan(prepared, Json::array({{{"type", "cut"}, {"range", range(1000, 2000)}}}));
    const auto confirmation =
        succeed(preview(prepared))["confirmationArguments"].get<std::vector<std::string>>();
    // A confirmation must carry the digests the preview showed.
    std::vector<std::string> wrongDigest = confirmation;
    wrongDigest[6] = sha256Hex("other");
    EXPECT_EQ(failUnchanged(wrongDigest, "edit_plan_conflict", 3), staleJob);

    // Someone else commits in between.
    succeed({"set", prefix, "cursor.scale=2", "--apply", "--expect",
             succeed({"describe", prefix})["timelineDigest"]});
    EXPECT_EQ(failUnchanged(confirmation, "edit_plan_conflict", 3), staleJob);
    EXPECT_EQ(failUnchanged(preview(prepared), "edit_plan_conflict", 3), staleJob);

    // The plan file is changed after its preview.
    const Json fresh = succeed({"edit-plan-prepare", prefix});
    const std::string bytes =
        writePlan(fresh, Json::array({{{"type", "cut"}, {"range", range(1000, 2000)}}}));
    const auto freshConfirmation =
        succeed(preview(fresh))["confirmationArguments"].get<std::vector<std::string>>();
    writeFileAtomically(fresh["planPath"].get<std::string>(), bytes + " ");
    EXPECT_EQ(failUnchanged(freshConfirmation, "edit_plan_conflict", 3), stalePlan);
    EXPECT_EQ(succeed({"history", prefix})["entries"].size(), 1u);
}

TEST_F(EditPlanEndToEnd, InvalidPlansAndJobsFailWithTheirMessageAndChangeNothing) {
    const Json prepared = succeed({"edit-plan-prepare", prefix});
    const std::string planPath = prepared["planPath"];
    // No plan written yet.
    EXPECT_EQ(failUnchanged(preview(prepared), "validation", 4), invalidDocument);

    writeFileAtomically(planPath, "{\"protocolVersion\": 3, \"operations\": [");
    EXPECT_EQ(failUnchanged(preview(prepared), "validation", 4), invalidDocument);
    writePlan(prepared, Json::array({{{"type", "trim"}, {"range", range(1000, 2000)}}}));
    EXPECT_EQ(failUnchanged(preview(prepared), "validation", 4), invalidDocument);
    Json otherJob = prepared["example"];
    otherJob["jobID"] = Uuid::random().string();
    writeFileAtomically(planPath, otherJob.dump());
    EXPECT_EQ(failUnchanged(preview(prepared), "validation", 4), invalidDocument);

    writePlan(prepared, Json::array({{{"type", "cut"}, {"range", range(11'000, 12'001)}}}));
    EXPECT_EQ(failUnchanged(preview(prepared), "validation", 4), invalidOperation);
    writePlan(prepared, Json::array({{{"type", "speed"}, {"range", range(1000, 2000)}, {"rate", 2.0}}}), 1);
    EXPECT_EQ(failUnchanged(preview(prepared), "validation", 4), invalidOperation);
    writePlan(prepared, Json::array());
    EXPECT_EQ(failUnchanged(preview(prepared), "validation", 4), "剪辑计划至少需要一项操作。");
    // A plan as large as allowed still reads; one byte more does not.
    const std::string padded =
        writePlan(prepared, Json::array({{{"type", "cut"}, {"range", range(0, 500)}}}));
    writeFileAtomically(planPath, padded + std::string(1'048'576 - padded.size(), ' '));
    EXPECT_EQ(succeed(preview(prepared))["normalizedCuts"], Json::array({range(0, 500)}));
    writeFileAtomically(planPath, padded + std::string(1'048'577 - padded.size(), ' '));
    EXPECT_EQ(failUnchanged(preview(prepared), "validation", 4), "Edit Plan文件超过1MB安全上限。");

    // A job that was never prepared, and one prepared for another project.
    EXPECT_EQ(failUnchanged({"edit-plan-preview", prefix, "--job", Uuid::random().string()}, "validation", 4),
              invalidDocument);
    const testing::RecordedPackage other = testing::makeRecordedPackage(store);
    const Json foreign = succeed({"edit-plan-prepare", other.manifest.id.string()});
    writePlan(foreign, Json::array({{{"type", "cut"}, {"range", range(0, 500)}}}));
    EXPECT_EQ(failUnchanged(preview(foreign), "edit_plan_conflict", 3), staleJob);
    EXPECT_EQ(succeed({"history", prefix})["entries"], Json::array());
}

} // namespace
} // namespace rilo

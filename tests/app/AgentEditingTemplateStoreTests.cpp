#include "app/AgentEditingTemplateStore.h"
#include "project/store/ProjectSnapshot.h"
#include "shared/Files.h"
#include "shared/Json.h"
#include "support/TemporaryDirectory.h"
#include "support/Thrown.h"

#include <gtest/gtest.h>

namespace rilo::app {
namespace {

using cli::AgentEditingCapabilityID;
using ID = AgentEditingCapabilityID;
using Case = AgentEditingTemplateStoreErrorCase;

std::string repeated(std::string_view text, int count) {
    std::string result;
    for (int i = 0; i < count; ++i) {
        result += text;
    }
    return result;
}

AgentEditingTemplate named(std::string name) {
    AgentEditingTemplate result;
    result.id = Uuid::random();
    result.name = std::move(name);
    return result;
}

std::vector<std::string> filesIn(const std::filesystem::path& directory) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        names.push_back(entry.path().filename().string());
    }
    return names;
}

TEST(AgentEditingTemplate, IsMadeFromADraftAndRoundTripsThroughTheFile) {
    cli::AgentEditingRequirementDraft draft;
    draft.selectedCapabilities = {ID::exportVideo, ID::removePauses, ID::addZooms};
    draft.capabilityInstructions = {
        {ID::removePauses, " 超过2秒 "}, {ID::addZooms, " "}, {ID::styleCursor, "未选择"}};
    draft.options.aspectRatio = cli::AgentEditingAspectRatio::portraitFourFive;
    draft.options.webcamShape = cli::AgentEditingWebcamShape::roundedRectangle;
    draft.additionalInstructions = "保持/简洁";
    const Uuid id = *Uuid::parse("0A1B2C3D-4E5F-4061-8273-8495A6B7C8D9");
    const AgentEditingTemplate made = AgentEditingTemplate::make(
        id, "\u3000教程剪辑 ", draft, IsoDate{1'772'439'330}, IsoDate{1'772'439'331});

    EXPECT_EQ(made.name, "教程剪辑");
    EXPECT_EQ(made.capabilityIDs, (std::vector<std::string>{"remove-pauses", "add-zooms", "export-video"}));
    EXPECT_EQ(made.capabilityInstructions,
              (std::map<std::string, std::string>{{"remove-pauses", "超过2秒"}}));

    const testing::TemporaryDirectory directory;
    const AgentEditingTemplateStore store(directory / "data" / "Rilo");
    EXPECT_TRUE(store.load().empty());
    store.save({made});

    EXPECT_EQ(store.load(), std::vector{made});
    EXPECT_EQ(store.fileURL(), directory / "data" / "Rilo" / "AgentEditingTemplates.json");
    EXPECT_EQ(readFileBytes(store.fileURL()), R"({
  "schemaVersion" : 2,
  "templates" : [
    {
      "additionalInstructions" : "保持\/简洁",
      "capabilityIDs" : [
        "remove-pauses",
        "add-zooms",
        "export-video"
      ],
      "capabilityInstructions" : {
        "remove-pauses" : "超过2秒"
      },
      "createdAt" : "2026-03-02T08:15:30Z",
      "id" : "0A1B2C3D-4E5F-4061-8273-8495A6B7C8D9",
      "name" : "教程剪辑",
      "options" : {
        "aspectRatio" : "4:5",
        "clickStyle" : "solid-pulse",
        "exportPreset" : "high",
        "webcamShape" : "rounded-rectangle"
      },
      "updatedAt" : "2026-03-02T08:15:31Z"
    }
  ]
})");
}

TEST(AgentEditingTemplateStore, RejectsWhatBreaksALimitAndLeavesTheFileAsItWas) {
    const testing::TemporaryDirectory directory;
    const AgentEditingTemplateStore store(directory.path());
    const std::string fortyCharacters = repeated("模", 39) + "👍🏽";
    store.save({named(" " + fortyCharacters + " ")});
    const std::string saved = readFileBytes(store.fileURL());

    AgentEditingTemplate longInstruction = named("说明");
    longInstruction.capabilityInstructions = {{"remove-pauses", repeated("字", 501)}};
    AgentEditingTemplate longAdditional = named("补充");
    longAdditional.additionalInstructions = repeated("字", 4001);
    const std::pair<std::vector<AgentEditingTemplate>, std::string> rejected[] = {
        {{named(fortyCharacters + "板")}, "模板名称不能为空，且最多40个字符。"},
        {{named(" \n\u3000")}, "模板名称不能为空，且最多40个字符。"},
        {{longAdditional}, "模板整体补充说明不能超过4000个字符。"},
        {{named("好"), longInstruction}, "每项功能的针对性说明不能超过500个字符。"},
        {std::vector<AgentEditingTemplate>(51, named("多")), "最多只能保存50个AI剪辑模板。"},
    };
    for (const auto& [templates, message] : rejected) {
        SCOPED_TRACE(message);
        EXPECT_EQ(testing::thrownMessage<AgentEditingTemplateStoreError>([&] { store.save(templates); }),
                  message);
        EXPECT_EQ(readFileBytes(store.fileURL()), saved);
    }

    longInstruction.capabilityInstructions = {{"remove-pauses", repeated("字", 500)}};
    longAdditional.additionalInstructions = repeated("字", 4000);
    std::vector<AgentEditingTemplate> atTheLimits(48, named("满"));
    atTheLimits.push_back(longInstruction);
    atTheLimits.push_back(longAdditional);
    store.save(atTheLimits);
    EXPECT_EQ(store.load(), atTheLimits);
    EXPECT_EQ(filesIn(directory.path()), std::vector<std::string>{"AgentEditingTemplates.json"});
}

TEST(AgentEditingTemplateStore, LoadRefusesOtherSchemasAndFilesThatDoNotDecode) {
    const testing::TemporaryDirectory directory;
    const AgentEditingTemplateStore store(directory.path());
    // A newer version may change the templates themselves: its version is
    // reported, not the first key this version fails to read.
    writeFileAtomically(store.fileURL(), R"({"schemaVersion": 3, "templates": [{"title": "新格式"}]})");
    const auto error = testing::thrown<AgentEditingTemplateStoreError>([&] { store.load(); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->errorCase(), Case::unsupportedSchema);
    EXPECT_EQ(error->message(), "模板文件版本不受支持：3");

    for (const std::string bytes : {R"({"schemaVersion": 2, "templates": [{"name": "缺键"}]})",
                                    "{\"schemaVersion\": 2,", R"({"templates": []})"}) {
        SCOPED_TRACE(bytes);
        writeFileAtomically(store.fileURL(), bytes);
        EXPECT_TRUE(testing::thrown<json::DecodingError>([&] { store.load(); }));
    }
}

TEST(AgentEditingTemplate, ApplyingSkipsWhatTheProjectOrThisVersionCannotDo) {
    ProjectSnapshot silent;
    silent.manifest.media.tracks = {{MediaTrackKind::screen, 0}};
    AgentEditingTemplate saved = named("通用");
    saved.capabilityIDs = {"remove-pauses", "prepare-captions", "future-capability", "style-cursor",
                           "export-video"};
    saved.capabilityInstructions = {{"remove-pauses", repeated("停", 600)}, {"prepare-captions", "用麦克风"}};
    saved.options.clickStyle = cli::AgentEditingClickStyle::ring;
    saved.additionalInstructions = "整体说明";

    const AgentEditingTemplateApplication application =
        saved.applying(silent, {ID::removePauses, ID::prepareCaptions, ID::exportVideo});

    cli::AgentEditingRequirementDraft expected;
    expected.selectedCapabilities = {ID::removePauses, ID::exportVideo};
    expected.capabilityInstructions = {{ID::removePauses, repeated("停", 500)}};
    expected.options = saved.options;
    expected.additionalInstructions = "整体说明";
    EXPECT_EQ(application.draft, expected);
    EXPECT_EQ(application.skippedCapabilityNames,
              (std::vector<std::string>{"生成或重新生成字幕", "future-capability", "调整鼠标样式"}));
}

} // namespace
} // namespace rilo::app

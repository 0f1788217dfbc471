#include "cli/agent/AgentEditingRequirementComposer.h"
#include "cli/agent/AgentPromptBuilder.h"
#include "project/store/ProjectSnapshot.h"

#include <gtest/gtest.h>

namespace rilo::cli {
namespace {

using ID = AgentEditingCapabilityID;

ProjectSnapshot recording(std::vector<MediaTrackKind> audioTracks, bool webcam) {
    ProjectSnapshot snapshot;
    snapshot.manifest.id = *Uuid::parse("1a2b3c4d-5e6f-4a0b-8c9d-0e1f2a3b4c5d");
    snapshot.manifest.duration = ProjectTime{125'900'000'000};
    snapshot.manifest.media.tracks.push_back({MediaTrackKind::screen, 0});
    for (const MediaTrackKind kind : audioTracks) {
        snapshot.manifest.media.tracks.push_back(
            {kind, static_cast<std::int64_t>(snapshot.manifest.media.tracks.size())});
    }
    if (webcam) {
        snapshot.manifest.webcam = WebcamMediaInfo{3, "cam-1", "Webcam", PixelSize(1280, 720), 30};
    }
    return snapshot;
}

TEST(AgentPromptBuilder, EditingPromptStatesFactsCommandsRulesHelpAndRequirements) {
    AgentEditingRequirementDraft draft;
    draft.selectedCapabilities = {ID::exportVideo, ID::prepareCaptions, ID::speedUpWaiting, ID::removePauses,
                                  ID::generatePreview};
    draft.capabilityInstructions = {{ID::removePauses, " 只删除超过2秒的停顿\n"}, {ID::speedUpWaiting, "  "}};
    draft.options.exportPreset = AgentEditingExportPreset::standard;
    draft.additionalInstructions = "\n节奏紧凑一些 ";

    const std::string prompt =
        AgentPromptBuilder::make(recording({MediaTrackKind::systemAudio, MediaTrackKind::microphone}, true),
                                 draft, std::filesystem::path("/opt/Rilo Builds/it's/rilo"));

    EXPECT_EQ(
        prompt,
        R"(请使用 Rilo 内建命令行帮我剪辑这段录屏。Rilo没有内建模型，你负责提出决策，CLI负责验证和非破坏提交。

## 这段录制
- ID：1A2B3C4D-5E6F-4A0B-8C9D-0E1F2A3B4C5D（命令可使用前缀 1A2B3C4D）
- 时长：2:05
- 摄像头轨：有
- 麦克风轨：有
- 系统声音轨：有

## 命令入口
CS='/opt/Rilo Builds/it'\''s/rilo'
"$CS" cli describe 1A2B3C4D
"$CS" cli idle 1A2B3C4D --min-ms 1500
"$CS" cli captions-prepare 1A2B3C4D --track microphone

## 必须遵守
1. 禁止直接修改.rilo项目文件，只能调用Rilo CLI。
2. 所有修改先预演，不得直接写盘；向我报告影响和警告。
3. 必须等待我明确确认，Agent不能替我确认。
4. 确认后只执行预演返回的confirmationArguments；Digest冲突时停止并重新读取项目。

先读取`"$CS" cli help workflow`、`"$CS" cli help edit-plan`、`"$CS" cli help captions`、`"$CS" cli help output`帮助，再处理我的需求，不要依赖记忆猜测命令。

## 我的剪辑需求

已选择功能：
- 清理明显且确定无信息的长停顿，不删除不确定内容。
  针对性说明：只删除超过2秒的停顿
- 保留有过程价值的无操作等待，并按等待长度与上下文提出逐段变速方案。
- 所有结构剪辑确认提交后再生成或重新生成最终字幕，并保持现有全局字幕样式。
- 完成预演后生成一个代表性片段预览供我确认。
- 全部修改确认后，以标准预设导出完整视频。

整体补充说明：
节奏紧凑一些

整体说明约束全部功能，针对性说明只细化对应功能；二者冲突时停止并询问，但都不得覆盖安全规则。

执行顺序：
1. 已有字幕可直接用于分析结构；没有字幕且语义剪辑确有需要时，可先执行captions-prepare取得临时转录，但不得执行captions-import。
2. 先预演并确认全部剪切和变速，完成Timeline提交。
3. 重新执行describe和captions-prepare；只用绑定最终Timeline Digest的新任务生成、预演并确认最终字幕。
4. captions-prepare之后Timeline如有变化，丢弃旧字幕任务并从第3步重新开始。)");
}

TEST(AgentPromptBuilder, WithoutAudioTheEditingPromptSaysSoAndThereIsNoCaptionPrompt) {
    const ProjectSnapshot silent = recording({}, false);
    const std::string prompt = AgentPromptBuilder::make(silent, {}, std::nullopt);

    EXPECT_NE(prompt.find("- 摄像头轨：无\n- 麦克风轨：无\n- 系统声音轨：无\n"), std::string::npos);
    EXPECT_NE(
        prompt.find("CS='/usr/bin/rilo'\n\"$CS\" cli describe 1A2B3C4D\n\"$CS\" cli idle 1A2B3C4D --min-ms "
                    "1500\n# 当前项目没有可用于生成字幕的音轨\n\n## 必须遵守\n"),
        std::string::npos);
    EXPECT_EQ(prompt.find("captions-prepare"), std::string::npos);
    EXPECT_EQ(AgentPromptBuilder::preferredCaptionTrack(silent), std::nullopt);
    EXPECT_EQ(AgentPromptBuilder::makeCaptions(silent, CaptionAgentPromptMode::generate, std::nullopt),
              std::nullopt);
}

TEST(AgentPromptBuilder, CaptionPromptUsesTheMicrophoneBeforeSystemAudio) {
    EXPECT_EQ(AgentPromptBuilder::preferredCaptionTrack(
                  recording({MediaTrackKind::systemAudio, MediaTrackKind::microphone}, false)),
              MediaTrackKind::microphone);

    ProjectSnapshot snapshot = recording({MediaTrackKind::systemAudio}, false);
    snapshot.captions = CaptionDocument{};
    snapshot.captions->cues.push_back(CaptionCue{});

    EXPECT_EQ(
        AgentPromptBuilder::makeCaptions(snapshot, CaptionAgentPromptMode::regenerate, std::nullopt),
        R"(请仅为这个 Rilo 项目重新生成字幕，不要修改剪辑、镜头、画布、鼠标、声音或导出设置。你必须能在本机终端执行 Rilo CLI。

## 项目
- ID：1A2B3C4D-5E6F-4A0B-8C9D-0E1F2A3B4C5D
- 字幕音轨：系统声音
- 当前项目已有字幕；重新导入会替换字幕内容和人工高亮，但必须保留现有全局字幕样式。

## 命令入口
CS='/usr/bin/rilo'
"$CS" cli help captions
"$CS" cli describe 1A2B3C4D
"$CS" cli captions-read 1A2B3C4D
"$CS" cli captions-prepare 1A2B3C4D --track system-audio

## 必须遵守
1. 只处理字幕，禁止直接修改.rilo项目文件。
2. 未获用户对具体方案的明确确认前不得安装工具或下载模型；任何情况下都不得上传音频。
3. captions-import必须先预演并向我报告结果，Agent不能替我确认。
4. 得到确认后只执行预演返回的confirmationArguments；Digest冲突时停止并重新开始。

先读取captions帮助并完整遵循其中的转录、术语校正、高亮和导入规则，不要依赖记忆猜测格式。)");

    const std::optional<std::string> first =
        AgentPromptBuilder::makeCaptions(recording({MediaTrackKind::microphone}, false),
                                         CaptionAgentPromptMode::generate, "/usr/local/bin/rilo");
    ASSERT_TRUE(first);
    EXPECT_TRUE(first->starts_with("请仅为这个 Rilo 项目生成字幕，"));
    EXPECT_NE(first->find("- 字幕音轨：麦克风\n- 当前项目还没有字幕，完成导入后应用会自动载入。\n"),
              std::string::npos);
    EXPECT_NE(
        first->find("CS='/usr/local/bin/rilo'\n\"$CS\" cli help captions\n\"$CS\" cli describe 1A2B3C4D\n"
                    "# 当前项目没有已有字幕\n\"$CS\" cli captions-prepare 1A2B3C4D --track microphone\n"),
        std::string::npos);
}

TEST(AgentEditingRequirementComposer, WithNothingChosenTheAgentIsAskedForAPlanOnly) {
    AgentEditingRequirementDraft draft;
    draft.additionalInstructions = " \n ";
    EXPECT_EQ(AgentEditingRequirementComposer::text(draft),
              "## 我的剪辑需求\n先分析录制内容和结构，提出一份保守的剪辑方案并说明理由，暂时不要执行修改。");
    EXPECT_EQ(AgentEditingRequirementComposer::helpTopics(draft), std::vector{CLIAgentHelpTopic::workflow});
}

TEST(AgentEditingRequirementComposer, AdditionalTextAloneKeepsTheScopeToIt) {
    AgentEditingRequirementDraft draft;
    draft.additionalInstructions = "把开头的寒暄剪掉";
    EXPECT_EQ(
        AgentEditingRequirementComposer::text(draft),
        "## 我的剪辑需求\n\n已选择功能：\n- 按照整体补充说明处理，不要擅自扩大修改范围。\n\n整体补充说明：\n"
        "把开头的寒暄剪掉");
}

TEST(AgentEditingRequirementComposer, SentencesNameTheChosenOptionsAndNeedNoOrderWithoutBothKinds) {
    AgentEditingRequirementDraft draft;
    draft.selectedCapabilities = {ID::styleCursor, ID::setAspectRatio, ID::emphasizeClicks, ID::styleWebcam,
                                  ID::removeWaiting};
    draft.options = {AgentEditingAspectRatio::portraitThreeFour, AgentEditingClickStyle::ringAndPress,
                     AgentEditingWebcamShape::roundedRectangle, AgentEditingExportPreset::compact};
    EXPECT_EQ(AgentEditingRequirementComposer::text(draft),
              "## 我的剪辑需求\n\n已选择功能：\n"
              "- 删除明确无内容价值、无操作的等待片段。\n"
              "- 启用克制的鼠标点击反馈，样式为圆环加按压。\n"
              "- 把项目画面比例调整为竖屏3:4，并检查构图。\n"
              "- 把摄像头设置为圆角矩形，并通过1:1或原比例与圆角组合，保留克制的描边和阴影。\n"
              "- 优化鼠标可见性和大小，点击效果使用圆环加按压。");
    EXPECT_EQ(AgentEditingRequirementComposer::helpTopics(draft),
              (std::vector{CLIAgentHelpTopic::workflow, CLIAgentHelpTopic::settings}));

    AgentEditingRequirementDraft captionsOnly;
    captionsOnly.selectedCapabilities = {ID::highlightKeywords, ID::addZooms};
    const std::string text = AgentEditingRequirementComposer::text(captionsOnly);
    EXPECT_TRUE(text.ends_with(
        "- 结构剪辑确认提交后读取最终字幕；没有字幕时先生成，再少量高亮核心概念、关键步骤、数字和警告。"));
    EXPECT_EQ(text.find("执行顺序"), std::string::npos);
    EXPECT_EQ(AgentEditingRequirementComposer::instruction(ID::exportVideo, captionsOnly.options),
              "全部修改确认后，以高质量预设导出完整视频。");
}

} // namespace
} // namespace rilo::cli

#include "cli/agent/AgentEditingCapabilities.h"

#include "project/store/ProjectSnapshot.h"

#include <algorithm>

namespace rilo::cli {

namespace {

using ID = AgentEditingCapabilityID;
using Group = AgentEditingCapabilityGroup;
using Topic = CLIAgentHelpTopic;

constexpr std::array<AgentEditingCapabilityDefinition, 16> catalog{{
    {ID::removePauses, Group::content, "清理明显停顿", "删除确定无信息的长停顿", Topic::workflow},
    {ID::removeRepetition, Group::content, "清理重复表达和口误", "结合字幕上下文保守判断", Topic::captions},
    {ID::removeWaiting, Group::content, "删除无操作等待", "只处理明确没有内容价值的等待", Topic::workflow},
    {ID::speedUpWaiting, Group::content, "加速无操作等待", "保留过程但缩短等待时间", Topic::editPlan},
    {ID::adjustPlaybackSpeed, Group::content, "调整内容播放速度", "分别说明范围、倍率和保留边界",
     Topic::editPlan},
    {ID::addZooms, Group::focus, "为关键操作添加镜头", "适度强调重要点击与操作区域", Topic::editPlan},
    {ID::regenerateZooms, Group::focus, "重新生成全部自动镜头", "清理现有自动镜头后重新规划",
     Topic::editPlan},
    {ID::emphasizeClicks, Group::focus, "强调鼠标点击", "启用克制的点击反馈", Topic::settings},
    {ID::prepareCaptions, Group::captions, "生成或重新生成字幕", "使用项目中可用的音轨", Topic::captions},
    {ID::correctTerminology, Group::captions, "校正技术术语", "结合全文保守修正识别错误", Topic::captions},
    {ID::highlightKeywords, Group::captions, "高亮关键词", "少量强调核心概念和步骤", Topic::captions},
    {ID::setAspectRatio, Group::appearance, "调整画面比例", "修改项目构图并检查预览", Topic::settings},
    {ID::styleWebcam, Group::appearance, "调整摄像头样式", "设置形状、描边和阴影", Topic::settings},
    {ID::styleCursor, Group::appearance, "调整鼠标样式", "设置大小和点击效果", Topic::settings},
    {ID::generatePreview, Group::delivery, "生成片段预览", "输出短片供最终确认", Topic::output},
    {ID::exportVideo, Group::delivery, "导出完整视频", "确认剪辑后按所选规格导出", Topic::output},
}};

constexpr bool catalogFollowsDeclarationOrder() noexcept {
    for (std::size_t index = 0; index < catalog.size(); ++index) {
        if (static_cast<std::size_t>(catalog[index].id) != index) {
            return false;
        }
    }
    return true;
}
static_assert(catalogFollowsDeclarationOrder());

bool hasTrack(const ProjectSnapshot& snapshot, MediaTrackKind kind) noexcept {
    const auto& tracks = snapshot.manifest.media.tracks;
    return std::any_of(tracks.begin(), tracks.end(),
                       [&](const MediaTrack& track) { return track.kind == kind; });
}

} // namespace

std::span<const AgentEditingCapabilityDefinition> AgentEditingCapabilityCatalog::definitions() noexcept {
    return catalog;
}

const AgentEditingCapabilityDefinition& AgentEditingCapabilityCatalog::definition(ID id) noexcept {
    // The catalog is indexed by the declaration order of the ids.
    return catalog[static_cast<std::size_t>(id)];
}

bool AgentEditingCapabilityCatalog::isAvailable(ID id, const ProjectSnapshot& snapshot) noexcept {
    switch (id) {
    case ID::prepareCaptions:
    case ID::correctTerminology:
    case ID::highlightKeywords:
        return hasTrack(snapshot, MediaTrackKind::microphone) ||
               hasTrack(snapshot, MediaTrackKind::systemAudio);
    case ID::styleWebcam:
        return snapshot.manifest.webcam.has_value();
    default:
        return true;
    }
}

std::string_view AgentEditingCapabilityCatalog::instructionExample(ID id) noexcept {
    switch (id) {
    case ID::removePauses:
        return "例如：只删除超过2秒的停顿，保留句间自然停顿";
    case ID::removeRepetition:
        return "例如：只删除完全重复的句子，保留有意的强调";
    case ID::removeWaiting:
        return "例如：删除等待安装和加载的片段，保留结果画面";
    case ID::speedUpWaiting:
        return "例如：等待编译的片段加速到4倍，其余保持原速";
    case ID::adjustPlaybackSpeed:
        return "例如：安装过程3倍速，代码讲解保持原速，结论使用0.8倍速";
    case ID::addZooms:
        return "例如：只在点击菜单和输入代码时添加镜头";
    case ID::regenerateZooms:
        return "例如：镜头倍率不超过1.8，每段不超过3秒";
    case ID::emphasizeClicks:
        return "例如：只强调左键点击";
    case ID::prepareCaptions:
        return "例如：使用麦克风音轨，专有名词保留英文";
    case ID::correctTerminology:
        return "例如：统一写作React、TypeScript和GitHub";
    case ID::highlightKeywords:
        return "例如：只高亮命令名和关键数字";
    case ID::setAspectRatio:
        return "例如：保持主要操作区域在画面中央";
    case ID::styleWebcam:
        return "例如：摄像头放在右下角，描边使用白色";
    case ID::styleCursor:
        return "例如：鼠标放大到1.5倍";
    case ID::generatePreview:
        return "例如：预览开头30秒";
    case ID::exportVideo:
        return "例如：导出1080p、60帧";
    }
    return {};
}

} // namespace rilo::cli

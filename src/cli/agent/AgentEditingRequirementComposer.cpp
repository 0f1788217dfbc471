#include "cli/agent/AgentEditingRequirementComposer.h"

#include "cli/agent/UserPerceivedText.h"

#include <algorithm>
#include <set>

namespace rilo::cli {

namespace {

using ID = AgentEditingCapabilityID;
using Group = AgentEditingCapabilityGroup;

bool selectsGroup(const AgentEditingRequirementDraft& draft, Group group) {
    return std::any_of(draft.selectedCapabilities.begin(), draft.selectedCapabilities.end(),
                       [&](ID id) { return AgentEditingCapabilityCatalog::definition(id).group == group; });
}

constexpr std::string_view heading = "## 我的剪辑需求";

constexpr std::string_view executionOrder =
    "\n\n执行顺序：\n"
    "1. 已有字幕可直接用于分析结构；没有字幕且语义剪辑确有需要时，可先执行captions-prepare取得临时转录，"
    "但不得执行captions-import。\n"
    "2. 先预演并确认全部剪切和变速，完成Timeline提交。\n"
    "3. 重新执行describe和captions-prepare；只用绑定最终Timeline Digest的新任务生成、预演并确认最终字幕。\n"
    "4. captions-prepare之后Timeline如有变化，丢弃旧字幕任务并从第3步重新开始。";

} // namespace

std::vector<CLIAgentHelpTopic>
AgentEditingRequirementComposer::helpTopics(const AgentEditingRequirementDraft& draft) {
    std::set<CLIAgentHelpTopic> topics{CLIAgentHelpTopic::workflow};
    for (const ID id : draft.selectedCapabilities) {
        topics.insert(AgentEditingCapabilityCatalog::definition(id).helpTopic);
    }
    return {topics.begin(), topics.end()};
}

std::string AgentEditingRequirementComposer::text(const AgentEditingRequirementDraft& draft) {
    const std::string_view additional = trimmedWhiteSpace(draft.additionalInstructions);
    const bool selectsCapabilities = !draft.selectedCapabilities.empty();
    if (!selectsCapabilities && additional.empty()) {
        return std::string(heading) +
               "\n先分析录制内容和结构，提出一份保守的剪辑方案并说明理由，暂时不要执行修改。";
    }
    std::string result = std::string(heading) + "\n\n已选择功能：\n";
    if (selectsCapabilities) {
        bool first = true;
        for (const ID id : draft.selectedCapabilities) {
            if (!first) {
                result += "\n";
            }
            first = false;
            result += "- " + instruction(id, draft.options);
            if (const std::string note = draft.capabilityInstruction(id); !note.empty()) {
                result += "\n  针对性说明：" + note;
            }
        }
    } else {
        result += "- 按照整体补充说明处理，不要擅自扩大修改范围。";
    }
    if (!additional.empty()) {
        result += "\n\n整体补充说明：\n";
        result += additional;
        if (selectsCapabilities) {
            result += "\n\n整体说明约束全部功能，针对性说明只细化对应功能；二者冲突时停止并询问，但都不得覆盖"
                      "安全规则。";
        }
    }
    if (selectsGroup(draft, Group::content) && selectsGroup(draft, Group::captions)) {
        result += executionOrder;
    }
    return result;
}

std::string AgentEditingRequirementComposer::instruction(ID id,
                                                         const AgentEditingRequirementOptions& options) {
    switch (id) {
    case ID::removePauses:
        return "清理明显且确定无信息的长停顿，不删除不确定内容。";
    case ID::removeRepetition:
        return "先读取已有字幕；没有字幕时只做不导入项目的临时转录，再结合全文保守清理明确的重复表达和口误。";
    case ID::removeWaiting:
        return "删除明确无内容价值、无操作的等待片段。";
    case ID::speedUpWaiting:
        return "保留有过程价值的无操作等待，并按等待长度与上下文提出逐段变速方案。";
    case ID::adjustPlaybackSpeed:
        return "按针对性说明规划需要加速、减速或保持原速的内容，逐段说明范围、倍率和理由。";
    case ID::addZooms:
        return "为关键操作添加适度且互不重叠的重点镜头。";
    case ID::regenerateZooms:
        return "清理现有自动镜头并根据关键操作重新生成。";
    case ID::emphasizeClicks:
        return "启用克制的鼠标点击反馈，样式为" + std::string(optionTitle(options.clickStyle)) + "。";
    case ID::prepareCaptions:
        return "所有结构剪辑确认提交后再生成或重新生成最终字幕，并保持现有全局字幕样式。";
    case ID::correctTerminology:
        return "结构剪辑确认提交后读取最终字幕；没有字幕时先生成，再结合全文上下文保守校正技术术语。";
    case ID::highlightKeywords:
        return "结构剪辑确认提交后读取最终字幕；没有字幕时先生成，再少量高亮核心概念、关键步骤、数字和警告。";
    case ID::setAspectRatio:
        return "把项目画面比例调整为" + std::string(optionTitle(options.aspectRatio)) + "，并检查构图。";
    case ID::styleWebcam:
        return "把摄像头设置为" + std::string(optionTitle(options.webcamShape)) +
               "，并通过1:1或原比例与圆角组合，保留克制的描边和阴影。";
    case ID::styleCursor:
        return "优化鼠标可见性和大小，点击效果使用" + std::string(optionTitle(options.clickStyle)) + "。";
    case ID::generatePreview:
        return "完成预演后生成一个代表性片段预览供我确认。";
    case ID::exportVideo:
        return "全部修改确认后，以" + std::string(optionTitle(options.exportPreset)) + "预设导出完整视频。";
    }
    return {};
}

} // namespace rilo::cli

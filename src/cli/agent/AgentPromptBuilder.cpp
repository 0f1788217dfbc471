#include "cli/agent/AgentPromptBuilder.h"

#include "cli/agent/AgentEditingRequirementComposer.h"
#include "project/store/ProjectSnapshot.h"

#include <algorithm>
#include <cstdio>

namespace rilo::cli {

namespace {

bool hasTrack(const ProjectSnapshot& snapshot, MediaTrackKind kind) noexcept {
    const auto& tracks = snapshot.manifest.media.tracks;
    return std::any_of(tracks.begin(), tracks.end(),
                       [&](const MediaTrack& track) { return track.kind == kind; });
}

std::string_view presenceWord(bool present) {
    return present ? "有" : "无";
}

// The word of `--track`.
std::string_view trackOption(MediaTrackKind kind) {
    return kind == MediaTrackKind::microphone ? "microphone" : "system-audio";
}

std::string_view trackTitle(MediaTrackKind kind) {
    return kind == MediaTrackKind::microphone ? "麦克风" : "系统声音";
}

// Single quotes keep every byte of the path literal in a POSIX shell; a
// single quote inside is closed, escaped and reopened.
std::string shellQuoted(const std::string& text) {
    std::string quoted = "'";
    for (const char character : text) {
        if (character == '\'') {
            quoted += "'\\''";
        } else {
            quoted += character;
        }
    }
    return quoted + "'";
}

std::string commandEntry(const std::optional<std::filesystem::path>& executablePath) {
    const std::string path =
        executablePath ? executablePath->string() : std::string(AgentPromptBuilder::defaultExecutablePath);
    return "\n\n## 命令入口\nCS=" + shellQuoted(path);
}

std::string minutesAndSeconds(ProjectTime duration) {
    const std::int64_t totalSeconds = std::max<std::int64_t>(duration.nanoseconds, 0) / 1'000'000'000;
    char formatted[32];
    std::snprintf(formatted, sizeof formatted, "%d:%02d", static_cast<int>(totalSeconds / 60),
                  static_cast<int>(totalSeconds % 60));
    return formatted;
}

std::string helpCommands(const std::vector<CLIAgentHelpTopic>& topics) {
    std::string result;
    for (const CLIAgentHelpTopic topic : topics) {
        if (!result.empty()) {
            result += "、";
        }
        result += "`\"$CS\" cli help ";
        result += json::rawValue(topic);
        result += "`";
    }
    return result;
}

bool hasCaptions(const ProjectSnapshot& snapshot) {
    return snapshot.captions.has_value() && !snapshot.captions->cues.empty();
}

} // namespace

std::optional<MediaTrackKind>
AgentPromptBuilder::preferredCaptionTrack(const ProjectSnapshot& snapshot) noexcept {
    if (hasTrack(snapshot, MediaTrackKind::microphone)) {
        return MediaTrackKind::microphone;
    }
    if (hasTrack(snapshot, MediaTrackKind::systemAudio)) {
        return MediaTrackKind::systemAudio;
    }
    return std::nullopt;
}

std::string AgentPromptBuilder::make(const ProjectSnapshot& snapshot,
                                     const AgentEditingRequirementDraft& requirements,
                                     const std::optional<std::filesystem::path>& executablePath) {
    const std::string id = snapshot.manifest.id.string();
    const std::string prefix = id.substr(0, 8);
    std::string prompt =
        "请使用 Rilo 内建命令行帮我剪辑这段录屏。Rilo没有内建模型，你负责提出决策，CLI负责验证和非破坏提交。"
        "\n\n## 这段录制\n- ID：" +
        id + "（命令可使用前缀 " + prefix + "）\n- 时长：" + minutesAndSeconds(snapshot.manifest.duration);
    prompt += "\n- 摄像头轨：";
    prompt += presenceWord(snapshot.manifest.webcam.has_value());
    prompt += "\n- 麦克风轨：";
    prompt += presenceWord(hasTrack(snapshot, MediaTrackKind::microphone));
    prompt += "\n- 系统声音轨：";
    prompt += presenceWord(hasTrack(snapshot, MediaTrackKind::systemAudio));

    prompt += commandEntry(executablePath);
    prompt += "\n\"$CS\" cli describe " + prefix;
    prompt += "\n\"$CS\" cli idle " + prefix + " --min-ms 1500\n";
    if (const auto track = preferredCaptionTrack(snapshot)) {
        prompt += "\"$CS\" cli captions-prepare " + prefix + " --track " + std::string(trackOption(*track));
    } else {
        prompt += "# 当前项目没有可用于生成字幕的音轨";
    }

    prompt += "\n\n## 必须遵守\n"
              "1. 禁止直接修改.rilo项目文件，只能调用Rilo CLI。\n"
              "2. 所有修改先预演，不得直接写盘；向我报告影响和警告。\n"
              "3. 必须等待我明确确认，Agent不能替我确认。\n"
              "4. 确认后只执行预演返回的confirmationArguments；Digest冲突时停止并重新读取项目。\n\n"
              "先读取";
    prompt += helpCommands(AgentEditingRequirementComposer::helpTopics(requirements));
    prompt += "帮助，再处理我的需求，不要依赖记忆猜测命令。\n\n";
    prompt += AgentEditingRequirementComposer::text(requirements);
    return prompt;
}

std::optional<std::string>
AgentPromptBuilder::makeCaptions(const ProjectSnapshot& snapshot, CaptionAgentPromptMode mode,
                                 const std::optional<std::filesystem::path>& executablePath) {
    const auto track = preferredCaptionTrack(snapshot);
    if (!track) {
        return std::nullopt;
    }
    const std::string id = snapshot.manifest.id.string();
    const std::string prefix = id.substr(0, 8);
    const bool captionsExist = hasCaptions(snapshot);

    std::string prompt = "请仅为这个 Rilo 项目";
    prompt += mode == CaptionAgentPromptMode::generate ? "生成" : "重新生成";
    prompt += "字幕，不要修改剪辑、镜头、画布、鼠标、声音或导出设置。你必须能在本机终端执行 Rilo CLI。"
              "\n\n## 项目\n- ID：" +
              id;
    prompt += "\n- 字幕音轨：";
    prompt += trackTitle(*track);
    prompt += "\n- ";
    prompt += captionsExist
                  ? "当前项目已有字幕；重新导入会替换字幕内容和人工高亮，但必须保留现有全局字幕样式。"
                  : "当前项目还没有字幕，完成导入后应用会自动载入。";

    prompt += commandEntry(executablePath);
    prompt += "\n\"$CS\" cli help captions";
    prompt += "\n\"$CS\" cli describe " + prefix;
    prompt +=
        captionsExist ? "\n\"$CS\" cli captions-read " + prefix : std::string("\n# 当前项目没有已有字幕");
    prompt += "\n\"$CS\" cli captions-prepare " + prefix + " --track " + std::string(trackOption(*track));

    prompt += "\n\n## 必须遵守\n"
              "1. 只处理字幕，禁止直接修改.rilo项目文件。\n"
              "2. 未获用户对具体方案的明确确认前不得安装工具或下载模型；任何情况下都不得上传音频。\n"
              "3. captions-import必须先预演并向我报告结果，Agent不能替我确认。\n"
              "4. 得到确认后只执行预演返回的confirmationArguments；Digest冲突时停止并重新开始。\n\n"
              "先读取captions帮助并完整遵循其中的转录、术语校正、高亮和导入规则，不要依赖记忆猜测格式。";
    return prompt;
}

} // namespace rilo::cli

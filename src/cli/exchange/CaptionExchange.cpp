#include "cli/exchange/CaptionExchange.h"

#include "cli/exchange/AgentExchangeFiles.h"
#include "cli/exchange/CaptionExchangeError.h"
#include "shared/Json.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <fstream>
#include <memory>
#include <mutex>
#include <system_error>
#include <unicode/translit.h>
#include <unicode/unistr.h>

namespace rilo::cli {

namespace {

// Closing marks that a final period may hide behind.
constexpr std::array<std::string_view, 11> closingMarks{"\"", "'",  "”", "’",  "」", "』",
                                                        "》", "）", ")", "】", "]"};

std::optional<ProjectTime> nanosecondsOf(std::int64_t milliseconds) noexcept {
    std::int64_t nanoseconds = 0;
    if (__builtin_mul_overflow(milliseconds, std::int64_t{1'000'000}, &nanoseconds)) {
        return std::nullopt;
    }
    return ProjectTime{nanoseconds};
}

ProjectTime checkedTime(std::int64_t milliseconds) {
    const auto time = nanosecondsOf(milliseconds);
    if (!time) {
        throw CaptionValidationError::invalidCue();
    }
    return *time;
}

// One transform for the process: building it compiles its rules. A
// transliterator is not safe to share between threads, so uses take turns.
class SimplifiedScript {
public:
    static std::optional<std::string> convert(std::string_view text) {
        static SimplifiedScript instance;
        if (!instance.transliterator_) {
            return std::nullopt;
        }
        icu::UnicodeString converted = icu::UnicodeString::fromUTF8(
            icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())));
        {
            const std::lock_guard lock(instance.mutex_);
            instance.transliterator_->transliterate(converted);
        }
        std::string result;
        converted.toUTF8String(result);
        return result;
    }

private:
    SimplifiedScript() {
        UErrorCode status = U_ZERO_ERROR;
        transliterator_.reset(
            icu::Transliterator::createInstance("Traditional-Simplified", UTRANS_FORWARD, status));
        if (U_FAILURE(status)) {
            transliterator_.reset();
        }
    }

    std::mutex mutex_;
    std::unique_ptr<icu::Transliterator> transliterator_;
};

std::string lowercased(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return result;
}

} // namespace

bool CaptionExchangeDocument::simplifiesChinese(const std::optional<std::string>& language) {
    if (!language) {
        return false;
    }
    const std::string tag = lowercased(*language);
    return tag == "zh" || tag == "zh-cn" || tag == "zh-sg" || tag.starts_with("zh-hans");
}

std::string CaptionExchangeDocument::normalizedScript(std::string_view text,
                                                      const std::optional<std::string>& language) {
    if (!simplifiesChinese(language) || text.empty()) {
        return std::string(text);
    }
    std::optional<std::string> converted = SimplifiedScript::convert(text);
    if (!converted || converted->empty()) {
        return std::string(text);
    }
    return std::move(*converted);
}

std::string CaptionExchangeDocument::normalizedCueText(std::string_view text,
                                                       const std::optional<std::string>& language) {
    std::string_view body = trimmedCaptionText(text);
    if (body.empty()) {
        return {};
    }
    std::string closing;
    for (bool stripped = true; stripped;) {
        stripped = false;
        for (const std::string_view mark : closingMarks) {
            if (body.ends_with(mark)) {
                closing.insert(0, mark);
                body.remove_suffix(mark.size());
                stripped = true;
                break;
            }
        }
    }
    if (body.ends_with("。")) {
        body.remove_suffix(std::string_view("。").size());
    } else if (body.ends_with(".") && !body.ends_with("...")) {
        body.remove_suffix(1);
    }
    return normalizedScript(std::string(body) + closing, language);
}

CaptionDocument
CaptionExchangeDocument::captionDocument(const CaptionExchangeJob& job,
                                         const std::optional<CaptionStyle>& preserving) const {
    if (protocolVersion != captionExchangeProtocolVersion || jobID != job.id || projectID != job.projectID ||
        sourceAudioDigest != job.sourceAudioDigest) {
        throw CaptionValidationError::staleAudio();
    }
    CaptionDocument document;
    document.sourceTrack = job.sourceTrack;
    document.sourceAudioDigest = job.sourceAudioDigest;
    document.basedOnTimelineDigest = job.timelineDigest;
    document.language = simplifiesChinese(language) ? std::optional<std::string>("zh-Hans") : language;
    document.style = preserving.value_or(CaptionStyle{});
    document.cues.reserve(cues.size());
    for (const CaptionExchangeCue& exchanged : cues) {
        CaptionCue cue;
        cue.id = Uuid::random();
        cue.start = checkedTime(exchanged.startMilliseconds);
        cue.end = checkedTime(exchanged.endMilliseconds);
        cue.text = normalizedCueText(exchanged.text, language);
        for (const CaptionExchangeWord& word : exchanged.words.value_or(std::vector<CaptionExchangeWord>{})) {
            cue.words.push_back({checkedTime(word.startMilliseconds), checkedTime(word.endMilliseconds),
                                 normalizedScript(word.text, language)});
        }
        for (const CaptionExchangeHighlight& highlight :
             exchanged.highlights.value_or(std::vector<CaptionExchangeHighlight>{})) {
            cue.highlights.push_back(
                {normalizedScript(highlight.text, language), highlight.occurrence.value_or(1)});
        }
        document.cues.push_back(std::move(cue));
    }
    return document;
}

namespace CaptionExchange {
namespace {

const AgentExchangeFiles::Failures failures{
    [] { return std::make_exception_ptr(CaptionExchangeError::invalidDocument()); },
    [] { return std::make_exception_ptr(CaptionExchangeError::documentTooLarge()); },
};

} // namespace

std::filesystem::path exchangeRootDirectory(const std::filesystem::path& projectsDirectory) {
    return AgentExchangeFiles::rootDirectory(projectsDirectory);
}

std::filesystem::path jobDirectory(const std::filesystem::path& exchangeRoot, const Uuid& jobID) {
    return exchangeRoot / jobID.string();
}

std::filesystem::path createJobDirectory(const std::filesystem::path& exchangeRoot, const Uuid& jobID) {
    return AgentExchangeFiles::createJobDirectory(exchangeRoot, jobID, failures);
}

void checkExchangeFile(const std::filesystem::path& file, const std::filesystem::path& exchangeRoot) {
    AgentExchangeFiles::checkFile(file, exchangeRoot, failures);
}

std::string readExchangeData(const std::filesystem::path& file, const std::filesystem::path& exchangeRoot,
                             std::size_t maximumBytes) {
    return AgentExchangeFiles::read(file, exchangeRoot, maximumBytes, failures);
}

CaptionExchangeJob decodeJob(std::string_view bytes) {
    try {
        return json::decodeDocument<CaptionExchangeJob>(bytes);
    } catch (const std::exception&) {
        throw CaptionExchangeError::invalidDocument();
    }
}

CaptionExchangeDocument decodeDocument(std::string_view bytes) {
    try {
        return json::decodeDocument<CaptionExchangeDocument>(bytes);
    } catch (const std::exception&) {
        throw CaptionExchangeError::invalidDocument();
    }
}

CaptionExchangeDocument exampleDocument(const CaptionExchangeJob& job) {
    CaptionExchangeDocument example;
    example.jobID = job.id;
    example.projectID = job.projectID;
    example.sourceAudioDigest = job.sourceAudioDigest;
    example.language = "zh-Hans";
    example.cues = {{0, std::min<std::int64_t>(1000, job.sourceDurationMilliseconds), "替换为转录文本",
                     std::nullopt, std::nullopt}};
    return example;
}

std::vector<std::string> instructions() {
    return {
        "先检查本机已有转录引擎和模型；缺失时展示具体安装方案，让用户选择Agent安装、手动安装或暂不生成。Agent"
        "安装必须"
        "获得明确确认，任何情况下都不得上传音频。",
        "输出Caption Exchange Schema "
        "1到resultPath；中文固定使用language=zh-Hans和中国大陆简体字形，多数字幕不应高亮，"
        "只标记确有强调必要的原文关键词。",
        "模型只提供粗略句段时间时，captions-import预演应加--align-audio，以20ms音频包络保守收紧首尾静音。",
        "不得直接修改项目文件。",
    };
}

} // namespace CaptionExchange

} // namespace rilo::cli

#pragma once

// An update endpoint on the loopback server: the metadata at /feed/latest.json
// and the release notes catalog beside it.

#include "LoopbackHttpServer.h"
#include "app/updates/AppUpdateHttp.h"

#include <chrono>
#include <string>

namespace rilo::testing {

inline const std::string metadataPath = "/feed/latest.json";
inline const std::string releaseNotesPath = "/feed/release-notes.json";

inline std::string metadataJson(const std::string& version) {
    return R"({"version": ")" + version + R"(", "key": "downloads/Rilo-)" + version +
           R"(.tar.zst", "releaseNotesKey": "release-notes.json", "sha256": "9f86d081884c7d659a2feaa0c55ad015a3bf4f1b2b0b822cd15d6c15b0f00a08", "size": 73400320, "publishedAt": "2026-03-02T08:15:30Z"})";
}

inline std::string releaseNotesJson(const std::string& version) {
    return R"({"schemaVersion": 1, "releases": [{"version": "1.0.0", "title": "首个版本", "publishedAt": "2025-11-01T00:00:00Z", "sections": []}, {"version": ")" +
           version +
           R"(", "title": "更顺手的剪辑", "publishedAt": "2026-03-02T08:15:30Z", "sections": [{"title": "新功能", "items": ["字幕批量替换", "自动缩放更平滑"]}]}]})";
}

inline rilo::app::AppUpdateTransportLimits shortLimits() {
    using std::chrono::milliseconds;
    return {.connectTimeout = milliseconds(1000),
            .totalTimeout = milliseconds(1500),
            .maximumMetadataBytes = 64 * 1024,
            .maximumReleaseNotesBytes = 256 * 1024};
}

} // namespace rilo::testing

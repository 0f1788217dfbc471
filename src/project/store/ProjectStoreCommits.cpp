// Timeline and caption commits of ProjectStore: digests, guarded writes under
// the advisory locks, history and migration backups.

#include "project/caption/CaptionCodecs.h"
#include "project/document/TimelineCodecs.h"
#include "project/document/TimelineValidator.h"
#include "project/store/AdvisoryFileLock.h"
#include "project/store/DocumentHistory.h"
#include "project/store/ProjectStore.h"
#include "shared/Files.h"
#include "shared/Sha256.h"

#include <system_error>

namespace rilo {

namespace {

constexpr std::int64_t firstBackedUpSchema = 3;

// Whether a file is there; an error other than its absence is thrown.
bool fileExists(const std::filesystem::path& path) {
    std::error_code error;
    const bool exists = std::filesystem::exists(path, error);
    if (error) {
        throw FileError("无法读取文件：" + path.string() + "（" + error.message() + "）");
    }
    return exists;
}

// The bytes of a document, or none when the file is not there.
std::optional<std::string> bytesIfPresent(const std::filesystem::path& path) {
    if (!fileExists(path)) {
        return std::nullopt;
    }
    return readFileBytes(path);
}

std::string digestOf(const std::optional<std::string>& bytes) {
    return sha256Hex(bytes ? std::string_view(*bytes) : std::string_view{});
}

// A package without a timeline file (a recording that stopped before writing
// one, a file removed by hand) has the empty timeline, and its digest is that
// of no bytes, so that the first commit can create the file.
EditTimeline decodedTimeline(const std::optional<std::string>& bytes, ProjectTime sourceDuration,
                             bool hasWebcam,
                             const TimelineValidator::DeviceFrameCatalogProvider& deviceFrameCatalog) {
    const EditTimeline stored = bytes ? json::decodeDocument<EditTimeline>(*bytes) : EditTimeline::empty();
    EditTimeline timeline = stored.normalized(sourceDuration, hasWebcam);
    if (sourceDuration > ProjectTime::zero()) {
        TimelineValidator::validate(timeline, sourceDuration, deviceFrameCatalog);
    }
    return timeline;
}

// The schema version stored in a timeline file. Bytes that do not decode as
// a timeline are thrown, so that such a file is never overwritten by a write
// that keeps migration backups.
std::int64_t storedSchemaVersion(const std::string& bytes) {
    return json::decodeDocument<EditTimeline>(bytes).schemaVersion;
}

// Keeps the bytes of the document about to be replaced, once for each schema
// step that the new document crosses; a backup already there is never
// replaced.
void preserveTimelineMigrationBackups(const std::string& existingBytes, std::int64_t existingSchema,
                                      std::int64_t targetSchema, const ProjectPackage& package) {
    for (std::int64_t threshold = firstBackedUpSchema; threshold <= EditTimeline::currentSchemaVersion;
         ++threshold) {
        const std::filesystem::path backup = package.preSchemaTimelineBackupURL(static_cast<int>(threshold));
        if (targetSchema >= threshold && existingSchema < threshold && !fileExists(backup)) {
            writeFileAtomically(backup, existingBytes);
        }
    }
}

// The caption file as a guarded write sees it: its bytes, which must decode
// as a caption document, and their digest; or no bytes and the digest of no
// bytes when there is no such file.
struct CaptionsFile {
    std::optional<std::string> bytes;
    std::string digest;
};

CaptionsFile checkedCaptionsFile(const ProjectPackage& package) {
    std::optional<std::string> bytes = bytesIfPresent(package.captionsURL());
    if (bytes) {
        json::decodeDocument<CaptionDocument>(*bytes);
    }
    std::string digest = digestOf(bytes);
    return {std::move(bytes), std::move(digest)};
}

struct TimelineReplacement {
    const std::string& expectedDigest;
    const std::optional<std::string>& expectedCaptionsDigest;
    bool preservesHistory = false;
};

TimelineCommitResult replaceTimeline(const ProjectStore& store, const EditTimeline& timeline,
                                     const TimelineReplacement& replacement, const ProjectPackage& package) {
    // Encoded first, so that a document that cannot be written fails before
    // anything is touched.
    const std::string newBytes = json::encodeDocument(timeline);

    const AdvisoryFileLock timelineLock(package.timelineLockURL());
    std::optional<AdvisoryFileLock> captionsLock;
    if (replacement.expectedCaptionsDigest) {
        captionsLock.emplace(package.captionsLockURL());
    }

    const std::optional<std::string> oldBytes = bytesIfPresent(package.timelineURL());
    const std::string actualDigest = digestOf(oldBytes);
    if (actualDigest != replacement.expectedDigest) {
        throw ProjectStoreError::timelineDigestConflict(replacement.expectedDigest, actualDigest);
    }
    if (replacement.expectedCaptionsDigest) {
        const std::string actualCaptionsDigest = checkedCaptionsFile(package).digest;
        if (actualCaptionsDigest != *replacement.expectedCaptionsDigest) {
            throw ProjectStoreError::captionsDigestConflict(*replacement.expectedCaptionsDigest,
                                                            actualCaptionsDigest);
        }
    }

    // Everything that can refuse the commit runs before the first write.
    const ProjectTime sourceDuration = store.readManifest(package).duration;
    if (sourceDuration > ProjectTime::zero()) {
        TimelineValidator::validate(timeline, sourceDuration, store.deviceFrameCatalog());
    }
    // Without a file there is nothing to keep in history or to back up.
    if (oldBytes) {
        const std::int64_t existingSchema = storedSchemaVersion(*oldBytes);
        if (replacement.preservesHistory) {
            DocumentHistory::writeEntry(package.timelineHistoryDirectory(), *oldBytes);
        }
        preserveTimelineMigrationBackups(*oldBytes, existingSchema, timeline.schemaVersion, package);
    }
    writeFileAtomically(package.timelineURL(), newBytes);

    TimelineCommitResult result;
    result.digest = sha256HexOfFile(package.timelineURL());
    if (replacement.preservesHistory) {
        try {
            DocumentHistory::trim(package.timelineHistoryDirectory());
        } catch (const std::exception& error) {
            result.warnings.push_back(std::string("历史清理失败：") + error.what());
        }
    }
    return result;
}

void requireTimelineDigest(const ProjectPackage& package, const std::string& expectedDigest) {
    const std::string actualDigest = digestOf(bytesIfPresent(package.timelineURL()));
    if (actualDigest != expectedDigest) {
        throw ProjectStoreError::timelineDigestConflict(expectedDigest, actualDigest);
    }
}

struct CaptionsReplacement {
    const std::string& expectedDigest;
    bool preservesHistory = false;
};

// The part of a caption write that runs under the caption lock.
std::string replaceCaptions(const ProjectStore& store, const CaptionDocument& document,
                            const CaptionsReplacement& replacement, const ProjectPackage& package) {
    const CaptionsFile existing = checkedCaptionsFile(package);
    if (existing.digest != replacement.expectedDigest) {
        throw ProjectStoreError::captionsDigestConflict(replacement.expectedDigest, existing.digest);
    }
    const CaptionDocument validated = document.validated(store.readManifest(package).duration);
    const std::string newBytes = json::encodeDocument(validated);

    if (replacement.preservesHistory) {
        DocumentHistory::createDirectory(package.captionsHistoryDirectory());
        if (existing.bytes) {
            DocumentHistory::writeEntry(package.captionsHistoryDirectory(), *existing.bytes);
        }
    }
    writeFileAtomically(package.captionsURL(), newBytes);
    if (replacement.preservesHistory) {
        DocumentHistory::trim(package.captionsHistoryDirectory());
    }

    const std::string writtenBytes = readFileBytes(package.captionsURL());
    json::decodeDocument<CaptionDocument>(writtenBytes);
    return sha256Hex(writtenBytes);
}

} // namespace

std::string ProjectStore::timelineDigest(const ProjectPackage& package) const {
    return digestOf(bytesIfPresent(package.timelineURL()));
}

EditTimeline ProjectStore::readTimeline(const ProjectPackage& package, ProjectTime sourceDuration,
                                        bool hasWebcam) const {
    return decodedTimeline(bytesIfPresent(package.timelineURL()), sourceDuration, hasWebcam,
                           deviceFrameCatalog_);
}

TimelineState ProjectStore::readTimelineState(const ProjectPackage& package, ProjectTime sourceDuration,
                                              bool hasWebcam) const {
    const std::optional<std::string> bytes = bytesIfPresent(package.timelineURL());
    return {decodedTimeline(bytes, sourceDuration, hasWebcam, deviceFrameCatalog_), digestOf(bytes)};
}

void ProjectStore::writeTimeline(const EditTimeline& timeline, const ProjectPackage& package) {
    const std::string newBytes = json::encodeDocument(timeline);
    if (fileExists(package.timelineURL())) {
        const std::string existingBytes = readFileBytes(package.timelineURL());
        preserveTimelineMigrationBackups(existingBytes, storedSchemaVersion(existingBytes),
                                         timeline.schemaVersion, package);
    }
    writeFileAtomically(package.timelineURL(), newBytes);
}

std::string ProjectStore::writeTimeline(const EditTimeline& timeline, const std::string& expectedDigest,
                                        const ProjectPackage& package) {
    const std::optional<std::string> noCaptions;
    return replaceTimeline(*this, timeline, {expectedDigest, noCaptions, false}, package).digest;
}

TimelineCommitResult ProjectStore::commitTimeline(const EditTimeline& timeline,
                                                  const std::string& expectedDigest,
                                                  const std::optional<std::string>& expectedCaptionsDigest,
                                                  const ProjectPackage& package) {
    return replaceTimeline(*this, timeline, {expectedDigest, expectedCaptionsDigest, true}, package);
}

std::vector<TimelineHistoryEntry> ProjectStore::timelineHistory(const ProjectPackage& package) const {
    std::vector<std::filesystem::path> files = DocumentHistory::entries(package.timelineHistoryDirectory());
    std::vector<TimelineHistoryEntry> history;
    history.reserve(files.size());
    for (auto file = files.rbegin(); file != files.rend(); ++file) {
        history.push_back({*file, sha256HexOfFile(*file)});
    }
    return history;
}

EditTimeline ProjectStore::historyTimeline(std::int64_t index, const ProjectPackage& package,
                                           ProjectTime sourceDuration, bool hasWebcam) const {
    const std::vector<TimelineHistoryEntry> history = timelineHistory(package);
    if (index < 0 || static_cast<std::uint64_t>(index) >= history.size()) {
        throw ProjectStoreError::historyNotFound(index);
    }
    return decodedTimeline(readFileBytes(history[static_cast<std::size_t>(index)].fileURL), sourceDuration,
                           hasWebcam, deviceFrameCatalog_);
}

TimelineCommitResult ProjectStore::restoreTimeline(std::int64_t index, const std::string& expectedDigest,
                                                   const ProjectPackage& package, ProjectTime sourceDuration,
                                                   bool hasWebcam) {
    const EditTimeline restored = historyTimeline(index, package, sourceDuration, hasWebcam);
    return commitTimeline(restored, expectedDigest, std::nullopt, package);
}

std::string ProjectStore::captionsDigest(const ProjectPackage& package) const {
    return digestOf(bytesIfPresent(package.captionsURL()));
}

CaptionsState ProjectStore::captionsState(const ProjectPackage& package) const {
    const std::optional<std::string> bytes = bytesIfPresent(package.captionsURL());
    if (!bytes) {
        return {std::nullopt, digestOf(bytes)};
    }
    return {json::decodeDocument<CaptionDocument>(*bytes), digestOf(bytes)};
}

std::string ProjectStore::commitCaptions(const CaptionDocument& document,
                                         const std::string& expectedCaptionsDigest,
                                         const std::string& expectedTimelineDigest,
                                         const ProjectPackage& package) {
    const AdvisoryFileLock timelineLock(package.timelineLockURL());
    const AdvisoryFileLock captionsLock(package.captionsLockURL());
    requireTimelineDigest(package, expectedTimelineDigest);
    return replaceCaptions(*this, document, {expectedCaptionsDigest, true}, package);
}

std::string ProjectStore::writeCaptions(const CaptionDocument& document, const std::string& expectedDigest,
                                        const ProjectPackage& package) {
    const AdvisoryFileLock captionsLock(package.captionsLockURL());
    return replaceCaptions(*this, document, {expectedDigest, false}, package);
}

} // namespace rilo

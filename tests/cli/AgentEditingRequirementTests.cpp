#include "cli/agent/AgentEditingCapabilities.h"
#include "cli/agent/AgentEditingRequirements.h"
#include "cli/agent/UserPerceivedText.h"
#include "project/store/ProjectSnapshot.h"

#include <gtest/gtest.h>

namespace rilo::cli {
namespace {

using ID = AgentEditingCapabilityID;

ProjectSnapshot snapshotWith(std::vector<MediaTrackKind> audioTracks, bool webcam) {
    ProjectSnapshot snapshot;
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

AgentEditingRequirementDraft selecting(AgentEditingRequirementDraft draft, ID id) {
    draft.selectedCapabilities.insert(id);
    draft.applyDependenciesAndConflicts(id);
    return draft;
}

TEST(AgentEditingRequirementDraft, ExclusiveCapabilitiesReplaceEachOther) {
    const std::pair<ID, ID> exclusive[] = {{ID::removeWaiting, ID::speedUpWaiting},
                                           {ID::addZooms, ID::regenerateZooms}};
    for (const auto& [first, second] : exclusive) {
        AgentEditingRequirementDraft draft;
        draft.selectedCapabilities = {ID::removePauses};
        draft = selecting(draft, first);
        draft = selecting(draft, second);
        EXPECT_EQ(draft.selectedCapabilities, (std::set<ID>{ID::removePauses, second}));
        draft = selecting(draft, first);
        EXPECT_EQ(draft.selectedCapabilities, (std::set<ID>{ID::removePauses, first}));
    }
}

TEST(AgentEditingRequirementDraft, ExportSelectsThePreviewWhichStaysWhenTheExportIsDropped) {
    AgentEditingRequirementDraft draft = selecting({}, ID::exportVideo);
    EXPECT_EQ(draft.selectedCapabilities, (std::set<ID>{ID::generatePreview, ID::exportVideo}));

    draft.selectedCapabilities.erase(ID::exportVideo);
    draft.applyDependenciesAndConflicts(ID::exportVideo);
    EXPECT_EQ(draft.selectedCapabilities, (std::set<ID>{ID::generatePreview}));
}

TEST(AgentEditingRequirementDraft, InstructionsAreCutToFiveHundredUserPerceivedCharacters) {
    AgentEditingRequirementDraft draft;
    std::string chinese;
    for (int i = 0; i < 501; ++i) {
        chinese += "字";
    }
    // A family emoji is five code points in one character: a cut by code
    // points would keep only its first two and a half.
    const std::string family = "👨‍👩‍👧";
    std::string withEmoji;
    for (int i = 0; i < 499; ++i) {
        withEmoji += "停";
    }
    withEmoji += family + "尾";
    draft.capabilityInstructions = {
        {ID::removePauses, chinese}, {ID::addZooms, withEmoji}, {ID::styleCursor, "短"}};

    draft.constrainInstructions();

    EXPECT_EQ(draft.capabilityInstructions.at(ID::removePauses), chinese.substr(0, 500 * 3));
    EXPECT_EQ(draft.capabilityInstructions.at(ID::addZooms), withEmoji.substr(0, withEmoji.size() - 3));
    EXPECT_EQ(draft.capabilityInstructions.at(ID::styleCursor), "短");
    EXPECT_EQ(userPerceivedCharacterCount(draft.capabilityInstructions.at(ID::addZooms)), 500u);
}

TEST(AgentEditingRequirementDraft, CapabilityInstructionIsTrimmedAndEmptyWhenAbsent) {
    AgentEditingRequirementDraft draft;
    draft.capabilityInstructions = {{ID::removePauses, " \n　只删长停顿\t "}};
    EXPECT_EQ(draft.capabilityInstruction(ID::removePauses), "只删长停顿");
    EXPECT_EQ(draft.capabilityInstruction(ID::addZooms), "");
}

TEST(AgentEditingCapabilityCatalog, CaptionsNeedAnAudioTrackAndTheWebcamStyleNeedsWebcamMedia) {
    const std::set<ID> captionCapabilities{ID::prepareCaptions, ID::correctTerminology,
                                           ID::highlightKeywords};
    const ProjectSnapshot silent = snapshotWith({}, false);
    const ProjectSnapshot microphoneOnly = snapshotWith({MediaTrackKind::microphone}, false);
    const ProjectSnapshot systemAudioAndWebcam = snapshotWith({MediaTrackKind::systemAudio}, true);
    for (const AgentEditingCapabilityDefinition& definition : AgentEditingCapabilityCatalog::definitions()) {
        SCOPED_TRACE(std::string(json::rawValue(definition.id)));
        const bool needsAudio = captionCapabilities.contains(definition.id);
        const bool needsWebcam = definition.id == ID::styleWebcam;
        EXPECT_EQ(AgentEditingCapabilityCatalog::isAvailable(definition.id, silent),
                  !needsAudio && !needsWebcam);
        EXPECT_EQ(AgentEditingCapabilityCatalog::isAvailable(definition.id, microphoneOnly), !needsWebcam);
        EXPECT_TRUE(AgentEditingCapabilityCatalog::isAvailable(definition.id, systemAudioAndWebcam));
        EXPECT_EQ(AgentEditingCapabilityCatalog::definition(definition.id), definition);
        EXPECT_FALSE(AgentEditingCapabilityCatalog::instructionExample(definition.id).empty());
    }
}

TEST(UserPerceivedText, TrimsUnicodeWhiteSpaceAndCountsCharactersAsSeen) {
    EXPECT_EQ(trimmedWhiteSpace("\u3000\n 模板 名称\u2028 "), "模板 名称");
    EXPECT_EQ(trimmedWhiteSpace(" \t\n"), "");
    EXPECT_EQ(userPerceivedCharacterCount("e\u0301字👍🏽"), 3u);
    EXPECT_EQ(userPerceivedPrefix("e\u0301字👍🏽", 2), "e\u0301字");
    EXPECT_EQ(userPerceivedPrefix("短", 500), "短");
}

} // namespace
} // namespace rilo::cli

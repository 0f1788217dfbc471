#pragma once

// Pure functions that turn a loaded project into what the read commands
// answer with. No file is touched here.

#include "cli/CLIReadResponses.h"
#include "project/caption/CaptionDocument.h"
#include "project/document/CaptureSamples.h"
#include "project/document/EditTimeline.h"
#include "project/document/ProjectManifest.h"
#include "project/engine/TimelineMapper.h"
#include "project/store/ProjectSnapshot.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace rilo::cli::ProjectInspector {

// The description of a project whose timeline (the snapshot's) was decoded
// from the bytes of `timelineDigest`. Builds the timeline mapper and so
// throws the timeline's validation errors.
CLIProjectDescription describe(const ProjectSnapshot& snapshot, const std::string& timelineDigest);

// Every kept segment with its place on both axes, in timeline order.
std::vector<CLISegmentDescription> segmentDescriptions(const TimelineMapper& mapper);

// The zooms in timeline order, numbered from 0.
std::vector<CLIZoomDescription> zoomDescriptions(const EditTimeline& timeline);

// The brief form that change commands show before and after; the mapper is
// the one built from this timeline.
CLITimelineSummary timelineSummary(const EditTimeline& timeline, const TimelineMapper& mapper);

// "screen", "webcam", "systemAudio", "microphone": whether the manifest
// promises that track.
std::map<std::string, bool> trackPresence(const ProjectManifest& manifest);

// Source time of every left press inside the source, in stored order.
std::vector<std::int64_t> clickMilliseconds(const std::vector<MouseEvent>& mouseEvents);

// The cues in order, each with the sequence ranges that still show it; a cue
// that was cut away keeps an empty list.
std::vector<CLICaptionCueDescription> cueDescriptions(const CaptionDocument& document,
                                                      const TimelineMapper& mapper);

// A source span with the sequence ranges that show it (empty when it was cut
// away); the end is converted from nanoseconds as a whole.
CLISpanDescription spanDescription(const ProjectTimeRange& span, const TimelineMapper& mapper);

} // namespace rilo::cli::ProjectInspector

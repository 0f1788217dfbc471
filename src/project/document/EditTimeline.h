#pragma once

// The timeline document (edits/timeline.json): the whole non-destructive
// edit of a project. Which source ranges are kept and at what speed, and the
// canvas, cursor, webcam, audio, zooms, annotations and device frame. Every
// change is a new value of the document, committed as a whole.
//
// Old documents stay readable: missing keys take defaults on decoding (see
// TimelineCodecs.h for the JSON form) and normalized() brings any older
// schema up to the current one. It is applied on every load before anything
// else looks at the document.
//
// Schema history: 1 to 3 brought segments at normal speed, canvas, cursor,
// webcam, audio and zooms; 4 other playback rates; 5 webcam full-screen
// segments; 6 motion blur; 7 annotations; 8 the device frame.

#include "project/document/CanvasEdit.h"
#include "project/document/TimelineEffects.h"
#include "project/document/WebcamOverlay.h"
#include "shared/ProjectTime.h"
#include "shared/Uuid.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace rilo {

// A kept range of source time and the speed it plays at.
struct TimelineSegment {
    Uuid id;
    ProjectTimeRange sourceRange;
    TimelinePlaybackRate playbackRate = TimelinePlaybackRate::normal();

    friend bool operator==(const TimelineSegment&, const TimelineSegment&) = default;
};

// The device frame drawn around a phone or tablet recording; assetID names
// an entry of the device frame catalog.
struct DeviceFrameEdit {
    bool isEnabled = false;
    std::string assetID;

    friend bool operator==(const DeviceFrameEdit&, const DeviceFrameEdit&) = default;
};

// A default-constructed EditTimeline is EditTimeline::empty().
struct EditTimeline {
    static constexpr std::int64_t currentSchemaVersion = 8;
    static constexpr double defaultMotionBlurAmount = 0.5;

    std::int64_t schemaVersion = currentSchemaVersion;
    // Kept source ranges, in source order.
    std::vector<TimelineSegment> segments;
    std::optional<DeviceFrameEdit> deviceFrame;
    // 0...1.
    double motionBlurAmount = defaultMotionBlurAmount;
    CanvasEdit canvas;
    CursorEdit cursor;
    std::optional<WebcamOverlay> webcamOverlay;
    std::vector<WebcamOverlayKeyframe> webcamKeyframes;
    std::vector<WebcamFullscreenSegment> webcamFullscreenSegments;
    AudioMixEdit audioMix;
    std::vector<ZoomSegment> zooms;
    std::vector<AnnotationElement> annotations;

    // Current schema, no segments, the default canvas, cursor and audio,
    // nothing else.
    static EditTimeline empty() { return {}; }

    // The document in the current schema with its values made orderly:
    // members that its stored schema did not know are dropped or reset, an
    // empty document gets one segment over the whole source, the webcam
    // follows hasWebcam, lists are sorted and values clamped. A schema newer
    // than the current one is left as it stands so that validation refuses
    // it. Pure; fresh ids are the only thing that differs between calls.
    EditTimeline normalized(ProjectTime sourceDuration, bool hasWebcam) const;

    friend bool operator==(const EditTimeline&, const EditTimeline&) = default;
};

} // namespace rilo

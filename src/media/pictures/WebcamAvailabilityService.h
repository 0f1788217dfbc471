#pragma once

// The stretches of a recording in which the webcam track really has
// pictures (a camera may stall or drop out while the screen goes on).
//
// The webcam track's packet times are read from the media file without
// decoding anything. Frames whose presentation times lie at most
// maximumGapNanoseconds apart belong to one stretch; a larger gap ends it. A
// stretch runs from its first frame to the end of its last, a frame lasting
// as long as the container says (in a fragmented recording, one frame at the
// track's rate) unless that is longer than the gap limit (then it lasts no
// time, so that no stretch reaches into a gap). Times are source times.
//
// Stateless: any thread may call, reading the file on the calling thread.

#include "project/store/ProjectSnapshot.h"
#include "shared/Errors.h"
#include "shared/ProjectTime.h"

#include <string>
#include <vector>

namespace rilo {

enum class WebcamAvailabilityServiceErrorCase { diagnosticsUnavailable };

class WebcamAvailabilityServiceError : public CaseError<WebcamAvailabilityServiceErrorCase> {
public:
    // `description` says what went wrong (the text of the failure beneath).
    explicit WebcamAvailabilityServiceError(const std::string& description)
        : CaseError(Case::diagnosticsUnavailable, "摄像头轨道诊断暂不可用：" + description) {}
};

// One packet of a video track: when it is shown and for how long.
struct WebcamFrameTiming {
    ProjectTime presentationTime;
    ProjectTime duration;

    friend bool operator==(const WebcamFrameTiming&, const WebcamFrameTiming&) = default;
};

namespace WebcamAvailabilityService {

inline constexpr std::int64_t maximumGapNanoseconds = 500'000'000;

// The stretches of the snapshot's webcam track, in time order; none for a
// project without a webcam track. Throws WebcamAvailabilityServiceError when
// the media file or its webcam track cannot be read.
std::vector<ProjectTimeRange> availableRanges(const ProjectSnapshot& snapshot);

// The stretches made of frame timings in any order.
std::vector<ProjectTimeRange> rangesOfFrames(std::vector<WebcamFrameTiming> frames);

} // namespace WebcamAvailabilityService

} // namespace rilo

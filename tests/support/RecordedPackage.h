#pragma once

// A project package made the way a recording makes one: ProjectStore::create,
// a real media/recording.mov written through FFmpeg, mouse events with clicks,
// geometry and cursor shape chunks written through the chunk stores, a cursor
// image in the cursor asset store, then finish (or left unfinished).

#include "project/store/ProjectStore.h"
#include "support/MediaFixture.h"

#include <vector>

namespace rilo::testing {

struct RecordedPackageOptions {
    RecordingMovieOptions movie;
    // Left-button clicks (down, then up 80 ms later) at these times and
    // normalised positions; the pointer moves between them every 1/60 s.
    std::vector<std::pair<ProjectTime, PointValue>> clicks{
        {ProjectTime::fromMilliseconds(500), {0.25, 0.25}},
        {ProjectTime::fromMilliseconds(1500), {0.75, 0.6}},
    };
    // Stretches in which the mouse sends nothing at all; clicks lie outside them.
    std::vector<ProjectTimeRange> stillRanges;
    // false: the package keeps its .rilo.tmp name in state "recording".
    bool finished = true;
};

struct RecordedPackage {
    ProjectPackage package;
    ProjectManifest manifest;
    std::vector<MouseEvent> mouseEvents;
    std::vector<GeometrySample> geometry;
    CursorAssetDescriptor cursorAsset;
};

RecordedPackage makeRecordedPackage(ProjectStore& store, const RecordedPackageOptions& spec);
// With the default options (made out of line: GCC 12 warns falsely about the
// optional members of a temporary set of options destroyed inline).
RecordedPackage makeRecordedPackage(ProjectStore& store);

} // namespace rilo::testing

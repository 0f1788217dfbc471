#pragma once

// The one place that decides whether a timeline document may exist. It runs
// after normalized() on every load with a known (positive) source duration,
// and every engine runs it on its result, so that no invalid document is
// ever committed.

#include "project/document/DeviceFrameCatalog.h"
#include "project/document/EditTimeline.h"
#include "project/document/TimelineEffectError.h"
#include "project/document/TimelineValidationError.h"
#include "shared/ProjectTime.h"

#include <cstddef>
#include <cstdint>
#include <functional>

namespace rilo::TimelineValidator {

inline constexpr std::size_t maximumAnnotationCount = 500;
inline constexpr std::int64_t maximumSimultaneousAnnotationCount = 16;

// Where the device frame catalog comes from. It is asked for only when a
// timeline has a device frame; whatever it throws counts as a catalog that
// could not be loaded.
using DeviceFrameCatalogProvider = std::function<const DeviceFrameCatalog&()>;

// Checks, in this order, and throws the first failure (TimelineValidationError
// or TimelineEffectError); the document itself is never changed:
//  1. a schema newer than the current one;
//  2. no segments;
//  3. motion blur not finite or outside 0...1;
//  4. a device frame below schema 8, or whose asset id the catalog can't
//     resolve (or the catalog can't be loaded); isEnabled plays no part;
//  5. each segment in order: its range inside the source, at least one grid
//     frame of source, a valid rate, normal speed below schema 4, a sequence
//     length of at least one grid frame that, like the running total, fits in
//     64 bits, and no start before the previous start or end;
//  6. the timed effects (TimelineEffectEngine::validate);
//  7. annotations below schema 7;
//  8. more than 500 annotations, then each annotation's times, uniqueness,
//     style and geometry, then more than 16 shown at one time.
void validate(const EditTimeline& timeline, ProjectTime sourceDuration,
              const DeviceFrameCatalogProvider& deviceFrameCatalog);

// The same checks without asking a catalog whether it knows the device
// frame's asset (the rest of step 4 stays). The engines and the mapper run
// this on what they take and make: no engine changes a device frame, and
// documents enter and leave a package through the store, which validates
// with its own catalog.
void validateContent(const EditTimeline& timeline, ProjectTime sourceDuration);

} // namespace rilo::TimelineValidator

#pragma once

// The pixel values of the timeline view, in one place: lane heights, block
// insets, trim handles and how far beside a handle a press still takes it.
// The model takes a metrics value wherever it needs one, so a view (or a
// test) can choose its own; `standard` is what the editor draws with.

namespace rilo {

struct TimelineViewMetrics {
    // The time ruler at the top; it never expands.
    double rulerHeight = 0;
    // The screen lane shows the frame strip, and below it the waveform when
    // the recording has sound.
    double screenCollapsedHeight = 0;
    double screenExpandedHeight = 0;
    double waveformHeight = 0;
    // Every other lane.
    double laneCollapsedHeight = 0;
    double laneExpandedHeight = 0;
    // Space between a block and the top and bottom of its lane.
    double blockVerticalInset = 0;
    // Width of the trim handle drawn inside each end of a block; a narrow
    // block gets at most half its width per handle.
    double handleWidth = 0;
    // How far outside a handle (on either side) a press still grabs it.
    double handleHitSlop = 0;
    // Rate badge: height, padding beside the text, and an estimate of one
    // character's advance for sizing before the text is set.
    double badgeHeight = 0;
    double badgeHorizontalPadding = 0;
    double badgeCharacterWidth = 0;
    double badgeMargin = 0;

    static constexpr TimelineViewMetrics standard() noexcept {
        return {
            .rulerHeight = 24,
            .screenCollapsedHeight = 44,
            .screenExpandedHeight = 72,
            .waveformHeight = 24,
            .laneCollapsedHeight = 26,
            .laneExpandedHeight = 52,
            .blockVerticalInset = 3,
            .handleWidth = 8,
            .handleHitSlop = 4,
            .badgeHeight = 16,
            .badgeHorizontalPadding = 5,
            .badgeCharacterWidth = 7,
            .badgeMargin = 4,
        };
    }

    friend bool operator==(const TimelineViewMetrics&, const TimelineViewMetrics&) = default;
};

} // namespace rilo

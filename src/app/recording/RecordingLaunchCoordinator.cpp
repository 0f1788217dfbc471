#include "app/recording/RecordingLaunchCoordinator.h"

#include <algorithm>

namespace rilo {

RecordingLaunchCoordinator::RecordingLaunchCoordinator(MainRunLoop& mainRunLoop, RecordingCueSounds& sounds)
    : mainRunLoop_(mainRunLoop)
    , sounds_(sounds) {}

void RecordingLaunchCoordinator::countDown(int seconds, bool playsSound, std::stop_token stop,
                                           std::function<void(int)> onTick, std::function<void()> finished) {
    tick(std::max(seconds, 0), playsSound, std::move(stop), std::move(onTick), std::move(finished));
}

void RecordingLaunchCoordinator::tick(int remaining, bool playsSound, std::stop_token stop,
                                      std::function<void(int)> onTick, std::function<void()> finished) {
    if (stop.stop_requested()) {
        return;
    }
    const auto started = std::chrono::steady_clock::now();
    onTick(remaining);
    if (stop.stop_requested()) {
        return;
    }
    if (remaining == 0) {
        if (!playsSound) {
            finished();
            return;
        }
        sounds_.play(startSoundName, startSoundLength);
        mainRunLoop_.postAfter(startSoundLength, [stop, finished = std::move(finished)] {
            if (!stop.stop_requested()) {
                finished();
            }
        });
        return;
    }
    if (playsSound) {
        sounds_.play(tickSoundName, tickSoundLength);
    }
    // A full second from the start of this tick, whatever the tick itself took.
    const auto spent =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - started);
    mainRunLoop_.postAfter(std::max(tickInterval - spent, std::chrono::milliseconds(0)),
                           [this, remaining, playsSound, stop, onTick = std::move(onTick),
                            finished = std::move(finished)]() mutable {
                               // Checked before anything of the coordinator is touched.
                               if (stop.stop_requested()) {
                                   return;
                               }
                               tick(remaining - 1, playsSound, stop, std::move(onTick), std::move(finished));
                           });
}

} // namespace rilo

// Makes a sample project in the library, the way a recording would: a desktop
// whose window scrolls, a pointer that glides to three clicks, a steady tone,
// and the first timeline with the zooms made from the clicks. Prints the new
// project's id. Used by the demo until the recorder makes real ones.
//
//   make_sample_project [--width W] [--height H] [--fps N] [--seconds S] [--cut]
//                       [--webcam] [--caption] [--portrait] [--phone]
//
// --cut also removes 1.0 s to 1.5 s and plays 4 s to 6 s at twice the speed,
// so that an export shows cuts and speed changes. --webcam adds a webcam
// track shown as a circle; --caption a Chinese caption with a highlighted
// word; --portrait a 9:16 canvas; --phone makes a portrait phone recording
// shown inside the catalog's device frame for its size.

#include "project/caption/CaptionDocument.h"
#include "project/document/DeviceFrameCatalog.h"
#include "project/engine/TimelineEditEngine.h"
#include "project/engine/TimelineSpeedEngine.h"
#include "scene/AutoZoomEngine.h"
#include "support/RecordedPackage.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <string_view>

using namespace rilo;

int main(int argc, char** argv) {
    testing::RecordedPackageOptions options;
    options.movie.screen = {PixelSize{1920, 1080}, 30, testing::MoviePicture::desktop};
    options.movie.duration = ProjectTime::fromSeconds(8);
    options.movie.microphone.reset();
    options.clicks = {
        {ProjectTime::fromMilliseconds(1800), {0.32, 0.36}},
        {ProjectTime::fromMilliseconds(2600), {0.36, 0.41}},
        {ProjectTime::fromMilliseconds(5200), {0.7, 0.62}},
    };
    bool cut = false;
    bool caption = false;
    bool portrait = false;
    bool phone = false;
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        const auto next = [&]() -> long {
            if (i + 1 >= argc) {
                std::fprintf(stderr, "missing value after %s\n", argv[i]);
                std::exit(1);
            }
            return std::strtol(argv[++i], nullptr, 10);
        };
        if (argument == "--width") {
            options.movie.screen.pixelSize.width = next();
        } else if (argument == "--height") {
            options.movie.screen.pixelSize.height = next();
        } else if (argument == "--fps") {
            options.movie.screen.framesPerSecond = next();
        } else if (argument == "--seconds") {
            options.movie.duration = ProjectTime::fromSeconds(next());
        } else if (argument == "--cut") {
            cut = true;
        } else if (argument == "--webcam") {
            options.movie.webcam = testing::VideoTrackOptions{PixelSize{640, 360}, 30};
        } else if (argument == "--caption") {
            caption = true;
        } else if (argument == "--portrait") {
            portrait = true;
        } else if (argument == "--phone") {
            phone = true;
            options.movie.screen.pixelSize = PixelSize{1170, 2532};
        } else {
            std::fprintf(stderr, "unknown argument %s\n", argv[i]);
            return 1;
        }
    }
    try {
        ProjectStore store(std::nullopt, DeviceFrameCatalog::bundled);
        const testing::RecordedPackage recorded = testing::makeRecordedPackage(store, options);
        const ProjectTime duration = recorded.manifest.duration;

        std::vector<MouseEvent> visible;
        for (const MouseEvent& event : recorded.mouseEvents) {
            if (event.isVisibleInsideSource()) {
                visible.push_back(event);
            }
        }
        EditTimeline timeline =
            store.readTimeline(recorded.package, duration, recorded.manifest.webcam.has_value());
        timeline.zooms = AutoZoomEngine{}.makeSegments(visible, duration);
        if (cut && duration > ProjectTime::fromSeconds(6)) {
            timeline = TimelineEditEngine::removeSourceRanges(
                timeline, {{ProjectTime::fromMilliseconds(1000), ProjectTime::fromMilliseconds(500)}},
                duration);
            timeline = TimelineSpeedEngine::settingRate(
                TimelinePlaybackRate{2000}, {ProjectTime::fromSeconds(4), ProjectTime::fromSeconds(2)},
                timeline, duration);
        }
        if (options.movie.webcam) {
            timeline.webcamOverlay = WebcamOverlay::defaultValue();
        }
        if (portrait) {
            timeline.canvas.aspectRatio = CanvasAspectRatio::portrait9x16;
        }
        if (phone) {
            timeline.canvas.aspectRatio = CanvasAspectRatio::portrait9x16;
            const DeviceFrameCatalog& catalog = DeviceFrameCatalog::bundled();
            if (const auto assetID = catalog.defaultAssetID(recorded.manifest.encodedPixelSize)) {
                timeline.deviceFrame = DeviceFrameEdit{true, *assetID};
            }
        }
        store.writeTimeline(timeline, recorded.package);
        if (caption) {
            CaptionDocument document;
            document.language = "zh-Hans";
            document.sourceTrack = MediaTrackKind::systemAudio;
            CaptionCue cue;
            cue.id = Uuid::random();
            cue.start = ProjectTime::zero();
            cue.end = duration;
            cue.text = "点击这里，打开新的项目设置";
            cue.highlights = {CaptionHighlight{"项目设置", 1}};
            document.cues = {cue};
            store.writeCaptions(document.validated(duration), store.captionsDigest(recorded.package),
                                recorded.package);
        }
        std::printf("%s\n", recorded.manifest.id.string().c_str());
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}

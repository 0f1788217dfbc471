// What the open project shows beside its documents (waveforms, the strip of
// thumbnails, the stretches with webcam pictures) and the export.

#include "app/model/AppModel.h"
#include "app/model/AppModelTasks.h"
#include "export/ProjectExporter.h"
#include "media/audio/WaveformService.h"
#include "media/pictures/TimelineThumbnailProfile.h"
#include "media/pictures/WebcamAvailabilityService.h"
#include "project/engine/TimelineMapper.h"
#include "rendering/RenderContext.h"
#include "rendering/SceneRenderer.h"
#include "rendering/caption/CaptionRasterizer.h"

#include <cmath>
#include <sstream>

namespace rilo {

namespace {

// Waveform progress is published in steps of this share, not per packet.
constexpr double waveformProgressStep = 0.01;

} // namespace

void AppModel::loadWaveforms() {
    waveformTask_.request_stop();
    if (!currentSnapshot_) {
        return;
    }
    std::vector<MediaTrackKind> kinds;
    for (const MediaTrack& track : currentSnapshot_->manifest.media.tracks) {
        if (track.kind == MediaTrackKind::systemAudio || track.kind == MediaTrackKind::microphone) {
            kinds.push_back(track.kind);
        }
    }
    timelineWaveforms_.clear();
    if (kinds.empty()) {
        waveformProgress_.reset();
        return;
    }
    waveformProgress_ = 0.0;
    const std::uint64_t generation = editorGeneration_;
    std::weak_ptr<AppModel*> weak = alive_;
    waveformTask_ = backgroundThreads_.start(
        [snapshot = *currentSnapshot_, kinds, generation, weak, &loop = mainRunLoop_](std::stop_token stop) {
            // Runs on the main thread, for the newest task of the same project only.
            auto publish = [weak, generation, stop, &loop](std::function<void(AppModel&)> apply) {
                loop.post([weak, generation, stop, apply = std::move(apply)] {
                    const auto model = weak.lock();
                    if (!model || stop.stop_requested() || (*model)->editorGeneration_ != generation) {
                        return;
                    }
                    apply(**model);
                    (*model)->changed();
                });
            };
            const WaveformService service(stop);
            auto envelopes = std::make_shared<std::vector<WaveformEnvelope>>();
            try {
                for (std::size_t index = 0; index < kinds.size(); ++index) {
                    double published = 0;
                    envelopes->push_back(service.envelope(kinds[index], snapshot, [&](double fraction) {
                        const double overall =
                            (static_cast<double>(index) + fraction) / static_cast<double>(kinds.size());
                        if (overall - published >= waveformProgressStep) {
                            published = overall;
                            publish([overall](AppModel& model) { model.waveformProgress_ = overall; });
                        }
                    }));
                }
            } catch (const CancellationError&) {
                return;
            } catch (...) {
                const std::string message = "波形暂不可用：" + describeFailure(std::current_exception());
                publish([message](AppModel& model) {
                    model.waveformProgress_.reset();
                    model.timelineMediaMessage_ = message;
                });
                return;
            }
            publish([envelopes](AppModel& model) {
                model.timelineWaveforms_ = std::move(*envelopes);
                model.waveformProgress_.reset();
            });
        });
}

void AppModel::loadWebcamAvailability() {
    webcamAvailabilityTask_.request_stop();
    if (!currentSnapshot_) {
        return;
    }
    const std::uint64_t generation = editorGeneration_;
    std::weak_ptr<AppModel*> weak = alive_;
    webcamAvailabilityTask_ = backgroundThreads_.start(
        [snapshot = *currentSnapshot_, generation, weak, &loop = mainRunLoop_](std::stop_token stop) {
            auto ranges = std::make_shared<std::vector<ProjectTimeRange>>();
            std::optional<std::string> message;
            try {
                *ranges = WebcamAvailabilityService::availableRanges(snapshot);
            } catch (const WebcamAvailabilityServiceError& error) {
                message = error.message(); // already says what is unavailable
            } catch (...) {
                message = "摄像头轨道诊断暂不可用：" + describeFailure(std::current_exception());
            }
            loop.post([weak, generation, stop, ranges, message] {
                const auto model = weak.lock();
                if (!model || stop.stop_requested() || (*model)->editorGeneration_ != generation) {
                    return;
                }
                if (message) {
                    (*model)->timelineMediaMessage_ = message;
                } else {
                    (*model)->webcamAvailability_ = std::move(*ranges);
                }
                (*model)->changed();
            });
        });
}

void AppModel::loadTimelineThumbnails(double pixelsPerSecond, std::optional<ProjectTimeRange> visibleRange) {
    if (!currentSnapshot_ || !timelineSession_) {
        return;
    }
    lastThumbnailRequest_ = ThumbnailRequest{pixelsPerSecond, visibleRange};
    ProjectTimeRange requestedRange;
    std::string key;
    if (visibleRange) {
        TimelineThumbnailRequestWindow window =
            TimelineThumbnailRequestWindow::make(*visibleRange, pixelsPerSecond);
        key = std::move(window.key);
        requestedRange = window.requestedRange;
    } else {
        try {
            requestedRange = {ProjectTime::zero(), TimelineMapper(timelineSession_->timeline(),
                                                                  currentSnapshot_->manifest.duration)
                                                       .sequenceDuration()};
        } catch (...) {
            timelineMediaMessage_ = "缩略图暂不可用：" + describeFailure(std::current_exception());
            changed();
            return;
        }
        std::ostringstream whole;
        whole << "whole:" << pixelsPerSecond;
        key = whole.str();
    }
    if (thumbnailRequestKey_ == key) {
        return; // the same request is running or done
    }
    thumbnailRequestKey_ = key;
    thumbnailTask_.request_stop();

    const std::uint64_t generation = editorGeneration_;
    std::weak_ptr<AppModel*> weak = alive_;
    thumbnailTask_ = backgroundThreads_.start([service = thumbnailService_, snapshot = editedSnapshot(),
                                               pixelsPerSecond, requestedRange, key, generation, weak,
                                               &loop = mainRunLoop_](std::stop_token stop) {
        auto thumbnails = std::make_shared<std::vector<TimelineThumbnail>>();
        std::optional<std::string> message;
        try {
            *thumbnails = service->thumbnails(snapshot, pixelsPerSecond, requestedRange, stop);
        } catch (const CancellationError&) {
            return;
        } catch (...) {
            message = "缩略图暂不可用：" + describeFailure(std::current_exception());
        }
        loop.post([weak, generation, stop, thumbnails, message, key] {
            const auto model = weak.lock();
            if (!model || stop.stop_requested() || (*model)->editorGeneration_ != generation) {
                return;
            }
            if (message) {
                (*model)->timelineMediaMessage_ = message;
                (*model)->thumbnailRequestKey_.reset(); // a later request may try again
            } else {
                (*model)->timelineThumbnails_ = std::move(*thumbnails);
            }
            (*model)->changed();
        });
    });
}

// ---- Export ----

void AppModel::startExport(const std::filesystem::path& target, const ExportConfiguration& configuration) {
    if (!currentSnapshot_ || !projectStore_) {
        return;
    }
    exportTask_.request_stop();
    const std::uint64_t generation = ++activeExportGeneration_;
    isExporting_ = true;
    exportPhase_ = ExportPhase::preparing;
    exportProgress_ = 0;
    exportStartedAt_ = std::chrono::steady_clock::now();
    exportEstimatedRemainingSeconds_.reset();
    exportEstimator_.reset();
    activeExportConfiguration_ = configuration;
    exportMessage_.reset();
    changed();

    std::weak_ptr<AppModel*> weak = alive_;
    exportTask_ = backgroundThreads_.start([snapshot = editedSnapshot(), target, configuration, generation,
                                            weak, catalog = projectStore_->deviceFrameCatalog(),
                                            resources = environment_.deviceFrameResourceDirectory,
                                            &loop = mainRunLoop_](std::stop_token stop) {
        std::exception_ptr failure;
        try {
            // The GPU context belongs to this thread for the whole export.
            RenderContext context;
            CaptionRasterizer captions;
            std::optional<DeviceFrameCatalog> frames;
            try {
                frames = catalog();
            } catch (const std::exception&) {
                // Without a catalog device frames are simply not drawn.
            }
            SceneRenderer renderer(context, std::move(frames), resources, captions);
            ProjectExporter exporter(context, renderer);
            exporter.exportProject(
                snapshot, target, configuration, std::nullopt, std::nullopt,
                [&](const ExportProgressUpdate& update) {
                    loop.post([weak, generation, update] {
                        if (const auto model = weak.lock()) {
                            (*model)->exportProgressed(generation, update);
                        }
                    });
                },
                stop);
        } catch (...) {
            failure = std::current_exception();
        }
        loop.post([weak, generation, failure] {
            if (const auto model = weak.lock()) {
                (*model)->exportEnded(generation, failure);
            }
        });
    });
}

void AppModel::cancelExport() {
    exportTask_.request_stop();
}

void AppModel::exportProgressed(std::uint64_t generation, const ExportProgressUpdate& update) {
    if (generation != activeExportGeneration_ || !isExporting_) {
        return;
    }
    exportPhase_ = update.phase;
    exportProgress_ = update.fraction();
    const double elapsed =
        ExportTimeEstimator::elapsedSeconds(*exportStartedAt_, std::chrono::steady_clock::now());
    exportEstimatedRemainingSeconds_ = exportEstimator_.estimatedRemainingSeconds(update, elapsed);
    changed();
}

void AppModel::exportEnded(std::uint64_t generation, std::exception_ptr failure) {
    if (generation != activeExportGeneration_) {
        return; // a newer export took its place
    }
    isExporting_ = false;
    exportEstimatedRemainingSeconds_.reset();
    activeExportConfiguration_.reset();
    if (!failure) {
        exportPhase_ = ExportPhase::completed;
        exportProgress_ = 1;
    } else {
        exportPhase_.reset();
        exportProgress_ = 0;
        if (!failureIs<CancellationError>(failure)) {
            exportMessage_ = describeFailure(failure);
        }
    }
    changed();
}

} // namespace rilo

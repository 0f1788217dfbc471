#include "capture/x11/X11ScreenCaptureStream.h"

#include <xcb/composite.h>
#include <xcb/shm.h>

extern "C" {
#include <libavutil/pixfmt.h>
}

#include <algorithm>
#include <atomic>
#include <cmath>
#include <ctime>
#include <mutex>
#include <sys/ipc.h>
#include <sys/shm.h>

namespace rilo::x11 {
namespace {

constexpr std::uint64_t windowProbeIntervalNanoseconds = 100'000'000;

void sleepUntil(std::uint64_t hostNanoseconds) {
    timespec until{static_cast<time_t>(hostNanoseconds / 1'000'000'000),
                   static_cast<long>(hostNanoseconds % 1'000'000'000)};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
    }
}

} // namespace

// Shared memory segments attached both here and in the X server. A segment
// is free again when the last image made from it is released.
class X11ScreenCaptureStream::SegmentPool : public std::enable_shared_from_this<SegmentPool> {
public:
    SegmentPool(std::shared_ptr<X11Connection> connection, std::size_t count, std::size_t bytes)
        : connection_(std::move(connection))
        , bytes_(bytes) {
        for (std::size_t i = 0; i < count; ++i) {
            Segment segment;
            segment.shmid = shmget(IPC_PRIVATE, bytes, IPC_CREAT | 0600);
            if (segment.shmid < 0) {
                throw X11CaptureError::extensionMissing("MIT-SHM");
            }
            void* address = shmat(segment.shmid, nullptr, 0);
            // Marked for removal now: it goes away with the last attachment.
            shmctl(segment.shmid, IPC_RMID, nullptr);
            if (address == reinterpret_cast<void*>(-1)) {
                throw X11CaptureError::extensionMissing("MIT-SHM");
            }
            segment.data = static_cast<std::uint8_t*>(address);
            segment.id = xcb_generate_id(connection_->get());
            const Reply<xcb_generic_error_t> error(
                xcb_request_check(connection_->get(),
                                  xcb_shm_attach_checked(connection_->get(), segment.id, segment.shmid, 0)));
            if (error) {
                shmdt(address);
                throw X11CaptureError::extensionMissing("MIT-SHM");
            }
            segments_.push_back(segment);
        }
        inUse_ = std::vector<std::atomic<bool>>(count);
    }

    ~SegmentPool() {
        for (const Segment& segment : segments_) {
            xcb_shm_detach(connection_->get(), segment.id);
            shmdt(segment.data);
        }
        xcb_flush(connection_->get());
    }

    SegmentPool(const SegmentPool&) = delete;
    SegmentPool& operator=(const SegmentPool&) = delete;

    std::size_t bytes() const noexcept { return bytes_; }

    // A free segment's index, taken; nothing when all are in use.
    std::optional<std::size_t> take() {
        for (std::size_t i = 0; i < segments_.size(); ++i) {
            bool expected = false;
            if (inUse_[i].compare_exchange_strong(expected, true)) {
                return i;
            }
        }
        return std::nullopt;
    }
    void release(std::size_t index) { inUse_[index] = false; }

    xcb_shm_seg_t id(std::size_t index) const { return segments_[index].id; }
    std::uint8_t* data(std::size_t index) const { return segments_[index].data; }

private:
    struct Segment {
        xcb_shm_seg_t id = 0;
        int shmid = -1;
        std::uint8_t* data = nullptr;
    };
    std::shared_ptr<X11Connection> connection_;
    std::size_t bytes_;
    std::vector<Segment> segments_;
    std::vector<std::atomic<bool>> inUse_;
};

X11ScreenCaptureStream::X11ScreenCaptureStream(std::shared_ptr<X11Connection> connection,
                                               CaptureSourceDescriptor source)
    : connection_(std::move(connection))
    , content_(connection_)
    , source_(std::move(source)) {}

X11ScreenCaptureStream::~X11ScreenCaptureStream() {
    stopCapture();
}

void X11ScreenCaptureStream::startCapture(const ScreenStreamConfiguration& configuration,
                                          ScreenCaptureStreamOutput& output) {
    const xcb_query_extension_reply_t* shm = xcb_get_extension_data(connection_->get(), &xcb_shm_id);
    if (shm == nullptr || shm->present == 0) {
        throw X11CaptureError::extensionMissing("MIT-SHM");
    }
    const xcb_screen_t* screen = connection_->screen();
    // A window may grow up to the whole screen; a display or area keeps its size.
    const RectValue largest =
        source_.kind == CaptureSourceKind::window
            ? RectValue{0, 0, double(screen->width_in_pixels), double(screen->height_in_pixels)}
            : source_.globalFrame;
    const auto bytes = static_cast<std::size_t>(std::ceil(largest.width) * std::ceil(largest.height) * 4);
    if (source_.kind == CaptureSourceKind::window) {
        // Automatic redirection keeps the window on the screen as it was and
        // gives it a picture of its own that other windows can't cover.
        xcb_connection_t* c = connection_->get();
        const Reply<xcb_composite_query_version_reply_t> composite(
            xcb_composite_query_version_reply(c, xcb_composite_query_version(c, 0, 2), nullptr));
        readsWindowPicture_ = composite && (composite->major_version > 0 || composite->minor_version >= 2);
        if (readsWindowPicture_) {
            xcb_composite_redirect_window(c, source_.nativeID, XCB_COMPOSITE_REDIRECT_AUTOMATIC);
        }
    }
    segments_ = std::make_shared<SegmentPool>(
        connection_, static_cast<std::size_t>(std::max<std::int64_t>(configuration.queueDepth, 1)),
        std::max<std::size_t>(bytes, 4));
    thread_ = std::jthread(
        [this, configuration, &output](const std::stop_token& stop) { run(stop, configuration, output); });
}

void X11ScreenCaptureStream::stopCapture() {
    if (thread_.joinable()) {
        thread_.request_stop();
        thread_.join();
    }
}

void X11ScreenCaptureStream::releaseWindowPixmap() {
    if (windowPixmap_ != 0) {
        xcb_free_pixmap(connection_->get(), windowPixmap_);
        xcb_flush(connection_->get());
        windowPixmap_ = 0;
    }
}

std::optional<X11ScreenCaptureStream::Grab> X11ScreenCaptureStream::windowGrab() {
    const std::uint64_t now = hostUptimeNanoseconds();
    if (windowGrab_ && now - lastWindowProbeNanoseconds_ < windowProbeIntervalNanoseconds) {
        return windowGrab_;
    }
    lastWindowProbeNanoseconds_ = now;
    const std::optional<RectValue> frame = content_.windowFrame(source_.nativeID);
    if (!frame) {
        return std::nullopt;
    }
    if (!readsWindowPicture_) {
        windowGrab_ = Grab{connection_->root(), *frame, *frame};
        return windowGrab_;
    }
    // The picture includes the border; a new size needs a new picture.
    xcb_connection_t* c = connection_->get();
    const Reply<xcb_get_geometry_reply_t> geometry(
        xcb_get_geometry_reply(c, xcb_get_geometry(c, source_.nativeID), nullptr));
    if (!geometry) {
        return std::nullopt;
    }
    const RectValue readRect{double(geometry->border_width), double(geometry->border_width),
                             double(geometry->width), double(geometry->height)};
    if (windowPixmap_ == 0 || !windowGrab_ || windowGrab_->readRect != readRect) {
        releaseWindowPixmap();
        windowPixmap_ = xcb_generate_id(c);
        const Reply<xcb_generic_error_t> error(xcb_request_check(
            c, xcb_composite_name_window_pixmap_checked(c, source_.nativeID, windowPixmap_)));
        if (error) {
            windowPixmap_ = 0;
            return std::nullopt;
        }
    }
    windowGrab_ = Grab{windowPixmap_, readRect, *frame};
    return windowGrab_;
}

std::optional<X11ScreenCaptureStream::Grab> X11ScreenCaptureStream::nextGrab() {
    if (source_.kind == CaptureSourceKind::window) {
        return windowGrab();
    }
    return Grab{connection_->root(), source_.globalFrame, source_.globalFrame};
}

void X11ScreenCaptureStream::run(const std::stop_token& stop, ScreenStreamConfiguration configuration,
                                 ScreenCaptureStreamOutput& output) {
    xcb_connection_t* c = connection_->get();
    const auto interval =
        static_cast<std::uint64_t>(1'000'000'000 / std::max<std::int64_t>(configuration.framesPerSecond, 1));
    std::uint64_t next = hostUptimeNanoseconds();
    const auto deliverDropped = [&output](std::uint64_t time) {
        VideoSampleBuffer sample;
        sample.presentationTime = MediaTime::nanoseconds(static_cast<std::int64_t>(time));
        output.streamDidOutputScreenFrame(sample);
    };
    while (!stop.stop_requested()) {
        const std::uint64_t grabTime = hostUptimeNanoseconds();
        std::optional<Grab> grab = nextGrab();
        if (!grab) {
            output.streamDidStop(std::make_exception_ptr(CaptureContentError::sourceUnavailable()));
            return;
        }
        if (grab->drawable == connection_->root()) {
            // Only what lies on the screen can be read from it.
            const xcb_screen_t* screen = connection_->screen();
            const RectValue& wanted = grab->readRect;
            const double left = std::clamp(std::floor(wanted.x), 0.0, double(screen->width_in_pixels) - 1);
            const double top = std::clamp(std::floor(wanted.y), 0.0, double(screen->height_in_pixels) - 1);
            const double right =
                std::clamp(std::floor(wanted.maxX()), left + 1, double(screen->width_in_pixels));
            const double bottom =
                std::clamp(std::floor(wanted.maxY()), top + 1, double(screen->height_in_pixels));
            grab->readRect = {left, top, right - left, bottom - top};
            grab->screenRect = grab->readRect;
        }
        const RectValue* rect = &grab->readRect;
        const std::optional<std::size_t> segment =
            static_cast<std::size_t>(rect->width * rect->height * 4) <= segments_->bytes() ? segments_->take()
                                                                                           : std::nullopt;
        if (!segment) {
            deliverDropped(grabTime);
        } else {
            xcb_generic_error_t* rawError = nullptr;
            const Reply<xcb_shm_get_image_reply_t> image(xcb_shm_get_image_reply(
                c,
                xcb_shm_get_image(c, grab->drawable, static_cast<std::int16_t>(rect->x),
                                  static_cast<std::int16_t>(rect->y), static_cast<std::uint16_t>(rect->width),
                                  static_cast<std::uint16_t>(rect->height), ~0U, XCB_IMAGE_FORMAT_Z_PIXMAP,
                                  segments_->id(*segment), 0),
                &rawError));
            const Reply<xcb_generic_error_t> error(rawError);
            if (!image) {
                segments_->release(*segment);
                if (!connection_->isAlive()) {
                    output.streamDidStop(std::make_exception_ptr(
                        X11CaptureError::displayUnavailable(connection_->displayName())));
                    return;
                }
                deliverDropped(grabTime);
            } else {
                auto picture = std::make_shared<CapturedImage>();
                picture->width = static_cast<int>(rect->width);
                picture->height = static_cast<int>(rect->height);
                picture->pixelFormat = AV_PIX_FMT_BGR0;
                picture->planes[0] = segments_->data(*segment);
                picture->bytesPerRow[0] = picture->width * 4;
                // The segment comes back to the pool when the writer lets the picture go.
                picture->owner = std::shared_ptr<const void>(
                    segments_->data(*segment),
                    [pool = segments_, index = *segment](const void*) { pool->release(index); });
                VideoSampleBuffer sample;
                sample.presentationTime = MediaTime::nanoseconds(static_cast<std::int64_t>(grabTime));
                sample.image = std::move(picture);
                sample.attachments.status = 0;
                sample.attachments.displayTimeHostUnits = grabTime;
                sample.attachments.screenRect = grab->screenRect;
                sample.attachments.contentRect = RectValue{0, 0, rect->width, rect->height};
                sample.attachments.scaleFactor = 1.0;
                output.streamDidOutputScreenFrame(sample);
            }
        }
        next += interval;
        const std::uint64_t now = hostUptimeNanoseconds();
        if (now > next + interval) {
            // Ticks the machine was too busy for are frames lost.
            const std::uint64_t missed = (now - next) / interval;
            for (std::uint64_t i = 0; i < missed; ++i) {
                deliverDropped(next + i * interval);
            }
            next += missed * interval;
        }
        sleepUntil(next);
    }
}

} // namespace rilo::x11

#include "capture/x11/X11CaptureContent.h"

#include <algorithm>
#include <utility>
#include <xcb/randr.h>
#include <xcb/res.h>

namespace rilo::x11 {
namespace {

bool intersects(const RectValue& a, const RectValue& b) noexcept {
    return a.x < b.maxX() && b.x < a.maxX() && a.y < b.maxY() && b.y < a.maxY();
}

CaptureSourceDescriptor displaySource(std::uint32_t nativeID, std::string title, RectValue frame) {
    CaptureSourceDescriptor source;
    source.kind = CaptureSourceKind::display;
    source.nativeID = nativeID;
    source.title = std::move(title);
    source.globalFrame = frame;
    source.initialPixelSize = DisplayCaptureGeometry::initialPixelSize({frame.width, frame.height}, 1.0);
    source.pointPixelScale = 1.0;
    return source;
}

} // namespace

X11CaptureContent::X11CaptureContent(std::shared_ptr<X11Connection> connection)
    : connection_(std::move(connection)) {}

std::vector<CaptureSourceDescriptor> X11CaptureContent::displays() const {
    xcb_connection_t* c = connection_->get();
    std::vector<CaptureSourceDescriptor> result;
    const Reply<xcb_randr_get_monitors_reply_t> monitors(
        xcb_randr_get_monitors_reply(c, xcb_randr_get_monitors(c, connection_->root(), 1), nullptr));
    if (monitors) {
        for (auto it = xcb_randr_get_monitors_monitors_iterator(monitors.get()); it.rem > 0;
             xcb_randr_monitor_info_next(&it)) {
            const xcb_randr_monitor_info_t& monitor = *it.data;
            const Reply<xcb_get_atom_name_reply_t> name(
                xcb_get_atom_name_reply(c, xcb_get_atom_name(c, monitor.name), nullptr));
            std::string title =
                name ? std::string(xcb_get_atom_name_name(name.get()),
                                   static_cast<std::size_t>(xcb_get_atom_name_name_length(name.get())))
                     : "显示器";
            CaptureSourceDescriptor source = displaySource(
                monitor.name, std::move(title),
                {double(monitor.x), double(monitor.y), double(monitor.width), double(monitor.height)});
            if (monitor.primary != 0) {
                result.insert(result.begin(), std::move(source));
            } else {
                result.push_back(std::move(source));
            }
        }
    }
    if (result.empty()) {
        const xcb_screen_t* screen = connection_->screen();
        result.push_back(
            displaySource(connection_->root(), "屏幕",
                          {0, 0, double(screen->width_in_pixels), double(screen->height_in_pixels)}));
    }
    return result;
}

CaptureSourceDescriptor X11CaptureContent::display(std::optional<std::uint32_t> nativeID) const {
    const std::vector<CaptureSourceDescriptor> all = displays();
    if (!nativeID) {
        return all.front();
    }
    const auto found = std::find_if(all.begin(), all.end(), [&](const CaptureSourceDescriptor& source) {
        return source.nativeID == *nativeID;
    });
    if (found == all.end()) {
        throw CaptureContentError::sourceUnavailable();
    }
    return *found;
}

std::vector<xcb_window_t> X11CaptureContent::topLevelWindows() const {
    xcb_connection_t* c = connection_->get();
    // With a window manager its client list names the windows people see;
    // without one, the root's children are the windows.
    const xcb_atom_t clientList = connection_->atom("_NET_CLIENT_LIST_STACKING");
    const Reply<xcb_get_property_reply_t> listed(xcb_get_property_reply(
        c, xcb_get_property(c, 0, connection_->root(), clientList, XCB_ATOM_WINDOW, 0, 4096), nullptr));
    std::vector<xcb_window_t> windows;
    if (listed && listed->format == 32 && xcb_get_property_value_length(listed.get()) > 0) {
        const auto* values = static_cast<const xcb_window_t*>(xcb_get_property_value(listed.get()));
        windows.assign(values, values + xcb_get_property_value_length(listed.get()) / 4);
    } else {
        const Reply<xcb_query_tree_reply_t> tree(
            xcb_query_tree_reply(c, xcb_query_tree(c, connection_->root()), nullptr));
        if (tree) {
            const xcb_window_t* children = xcb_query_tree_children(tree.get());
            windows.assign(children, children + xcb_query_tree_children_length(tree.get()));
        }
    }
    std::reverse(windows.begin(), windows.end()); // topmost first
    return windows;
}

std::int32_t X11CaptureContent::processOf(xcb_window_t window) const {
    xcb_connection_t* c = connection_->get();
    xcb_res_client_id_spec_t spec{window, XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID};
    const Reply<xcb_res_query_client_ids_reply_t> reply(
        xcb_res_query_client_ids_reply(c, xcb_res_query_client_ids(c, 1, &spec), nullptr));
    if (reply) {
        for (auto it = xcb_res_query_client_ids_ids_iterator(reply.get()); it.rem > 0;
             xcb_res_client_id_value_next(&it)) {
            if ((it.data->spec.mask & XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID) != 0 &&
                xcb_res_client_id_value_value_length(it.data) >= 1) {
                return static_cast<std::int32_t>(*xcb_res_client_id_value_value(it.data));
            }
        }
    }
    return -1;
}

std::optional<X11CaptureContent::WindowFacts> X11CaptureContent::facts(xcb_window_t window) const {
    xcb_connection_t* c = connection_->get();
    const auto attributesCookie = xcb_get_window_attributes(c, window);
    const auto geometryCookie = xcb_get_geometry(c, window);
    const auto translateCookie = xcb_translate_coordinates(c, window, connection_->root(), 0, 0);
    const Reply<xcb_get_window_attributes_reply_t> attributes(
        xcb_get_window_attributes_reply(c, attributesCookie, nullptr));
    const Reply<xcb_get_geometry_reply_t> geometry(xcb_get_geometry_reply(c, geometryCookie, nullptr));
    const Reply<xcb_translate_coordinates_reply_t> origin(
        xcb_translate_coordinates_reply(c, translateCookie, nullptr));
    if (!attributes || !geometry || !origin) {
        return std::nullopt;
    }
    WindowFacts facts;
    facts.window = window;
    facts.frame = {double(origin->dst_x), double(origin->dst_y), double(geometry->width),
                   double(geometry->height)};
    facts.isViewable = attributes->map_state == XCB_MAP_STATE_VIEWABLE;
    facts.overrideRedirect = attributes->override_redirect != 0;
    facts.processID = processOf(window);
    facts.title = connection_->textProperty(window, connection_->atom("_NET_WM_NAME"));
    if (!facts.title) {
        facts.title = connection_->textProperty(window, XCB_ATOM_WM_NAME);
    }
    // WM_CLASS holds the instance and then the class, each ended by a zero.
    if (const std::optional<std::string> windowClass = connection_->textProperty(window, XCB_ATOM_WM_CLASS)) {
        const std::size_t split = windowClass->find('\0');
        std::string name = split == std::string::npos ? *windowClass : windowClass->substr(split + 1);
        name.erase(std::find(name.begin(), name.end(), '\0'), name.end());
        if (!name.empty()) {
            facts.applicationName = name;
        }
    }
    return facts;
}

std::vector<CaptureSourceDescriptor> X11CaptureContent::windows(std::int32_t currentProcessID) const {
    std::vector<CaptureSourceDescriptor> result;
    for (const xcb_window_t window : topLevelWindows()) {
        const std::optional<WindowFacts> found = facts(window);
        if (!found || !found->isViewable || (!found->title && !found->applicationName)) {
            continue;
        }
        const CaptureWindowEligibility eligibility{found->processID, found->applicationName.value_or(""),
                                                   found->overrideRedirect ? 1 : 0, found->frame.width,
                                                   found->frame.height};
        if (!eligibility.isEligible(currentProcessID)) {
            continue;
        }
        CaptureSourceDescriptor source;
        source.kind = CaptureSourceKind::window;
        source.nativeID = window;
        source.title = found->title.value_or(found->applicationName.value_or(""));
        source.applicationName = found->applicationName;
        source.globalFrame = found->frame;
        source.initialPixelSize =
            DisplayCaptureGeometry::initialPixelSize({found->frame.width, found->frame.height}, 1.0);
        source.pointPixelScale = 1.0;
        result.push_back(std::move(source));
    }
    return result;
}

CaptureSourceDescriptor X11CaptureContent::window(std::uint32_t windowID,
                                                  std::int32_t currentProcessID) const {
    for (CaptureSourceDescriptor& source : windows(currentProcessID)) {
        if (source.nativeID == windowID) {
            return source;
        }
    }
    throw CaptureContentError::sourceUnavailable();
}

void X11CaptureContent::verifyOwnWindowsExcluded(const CaptureSourceDescriptor& source,
                                                 std::int32_t currentProcessID) const {
    if (source.kind == CaptureSourceKind::window) {
        return;
    }
    for (const xcb_window_t window : topLevelWindows()) {
        const std::optional<WindowFacts> found = facts(window);
        if (found && found->isViewable && found->processID == currentProcessID &&
            intersects(found->frame, source.globalFrame)) {
            throw CaptureContentError::ownApplicationUnavailable();
        }
    }
}

std::optional<RectValue> X11CaptureContent::windowFrame(std::uint32_t windowID) const {
    const std::optional<WindowFacts> found = facts(windowID);
    if (!found || !found->isViewable) {
        return std::nullopt;
    }
    return found->frame;
}

X11CaptureSourceMonitor::X11CaptureSourceMonitor(std::shared_ptr<X11Connection> connection,
                                                 CaptureSourceDescriptor source)
    : content_(std::move(connection))
    , source_(std::move(source)) {}

std::optional<RectValue> X11CaptureSourceMonitor::currentWindowFrame() {
    return content_.windowFrame(source_.nativeID);
}

std::optional<CaptureSourceMonitor::DisplayState> X11CaptureSourceMonitor::currentDisplay() {
    for (const CaptureSourceDescriptor& display : content_.displays()) {
        if (display.nativeID == source_.nativeID) {
            return DisplayState{{display.globalFrame.width, display.globalFrame.height},
                                display.pointPixelScale.value_or(1.0)};
        }
    }
    return std::nullopt;
}

} // namespace rilo::x11

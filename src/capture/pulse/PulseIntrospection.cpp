#include "capture/pulse/PulseIntrospection.h"

#include <pulse/introspect.h>

namespace rilo::pulse {

namespace {
std::string text(const char* value) {
    return value == nullptr ? std::string() : std::string(value);
}
} // namespace

ServerDefaults serverDefaults(PulseConnection& connection, Deadline deadline) {
    ServerDefaults defaults;
    const auto onInfo = [](pa_context*, const pa_server_info* info, void* userdata) {
        if (info != nullptr) {
            auto& result = *static_cast<ServerDefaults*>(userdata);
            result.sinkName = text(info->default_sink_name);
            result.sourceName = text(info->default_source_name);
        }
    };
    connection.await(OperationHandle(pa_context_get_server_info(connection.context(), onInfo, &defaults)),
                     deadline);
    return defaults;
}

std::vector<SourceDescription> sources(PulseConnection& connection, Deadline deadline) {
    std::vector<SourceDescription> result;
    const auto onSource = [](pa_context*, const pa_source_info* info, int isLast, void* userdata) {
        if (isLast == 0 && info != nullptr) {
            static_cast<std::vector<SourceDescription>*>(userdata)->push_back(
                {text(info->name), text(info->description), info->monitor_of_sink != PA_INVALID_INDEX});
        }
    };
    connection.await(
        OperationHandle(pa_context_get_source_info_list(connection.context(), onSource, &result)), deadline);
    return result;
}

std::optional<SinkDescription> sink(PulseConnection& connection, const std::string& name, Deadline deadline) {
    std::optional<SinkDescription> result;
    // A sink that does not exist ends the list with an error instead of an entry.
    const auto onSink = [](pa_context*, const pa_sink_info* info, int isLast, void* userdata) {
        if (isLast == 0 && info != nullptr) {
            *static_cast<std::optional<SinkDescription>*>(userdata) =
                SinkDescription{text(info->name), text(info->description), text(info->monitor_source_name)};
        }
    };
    connection.await(OperationHandle(pa_context_get_sink_info_by_name(connection.context(), name.c_str(),
                                                                      onSink, &result)),
                     deadline);
    return result;
}

SinkDescription defaultSink(PulseConnection& connection, Deadline deadline) {
    const ServerDefaults defaults = serverDefaults(connection, deadline);
    std::optional<SinkDescription> found;
    if (!defaults.sinkName.empty()) {
        found = sink(connection, defaults.sinkName, deadline);
    }
    if (!found || found->monitorSourceName.empty()) {
        throw PulseServerError(PA_ERR_NOENTITY);
    }
    return *found;
}

} // namespace rilo::pulse

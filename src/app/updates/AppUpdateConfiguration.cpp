#include "app/updates/AppUpdateConfiguration.h"

namespace rilo::app {

std::string buildUpdateFeedURL() {
    return RILO_UPDATE_FEED_URL;
}

AppUpdateTransportLimits standardUpdateTransportLimits() {
    using std::chrono::seconds;
    return AppUpdateTransportLimits{.connectTimeout = seconds(10),
                                    .totalTimeout = seconds(30),
                                    .maximumMetadataBytes = 64 * 1024,
                                    .maximumReleaseNotesBytes = 4 * 1024 * 1024};
}

} // namespace rilo::app

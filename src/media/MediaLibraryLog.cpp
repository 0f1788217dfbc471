#include "media/MediaLibraryLog.h"

extern "C" {
#include <libavutil/log.h>
}

namespace rilo {

void silenceMediaLibraryLog() noexcept {
    av_log_set_level(AV_LOG_QUIET);
}

} // namespace rilo

#pragma once

namespace rilo {

// Stops the media library from printing its own messages. The command line
// calls it once at its start, so that standard output and standard error
// carry only its JSON; failures still arrive as typed errors.
void silenceMediaLibraryLog() noexcept;

} // namespace rilo

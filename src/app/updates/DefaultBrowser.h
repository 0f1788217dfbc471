#pragma once

// Opens a URL in the person's default browser through xdg-open, without a
// shell. Returns once xdg-open has started; a detached thread collects it
// when it ends. Throws AppUpdateError::cannotOpenBrowser when xdg-open
// cannot be started.

#include <string>

namespace rilo::app {

void openInDefaultBrowser(const std::string& url);

} // namespace rilo::app

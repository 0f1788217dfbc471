#include "app/updates/DefaultBrowser.h"

#include "app/updates/AppUpdateError.h"

#include <cerrno>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace rilo::app {

void openInDefaultBrowser(const std::string& url) {
    std::string program = "xdg-open";
    std::string argument = url;
    char* arguments[] = {program.data(), argument.data(), nullptr};
    pid_t child = 0;
    if (posix_spawnp(&child, program.c_str(), nullptr, nullptr, arguments, environ) != 0) {
        throw AppUpdateError::cannotOpenBrowser();
    }
    // xdg-open may stay as long as the browser it started; nobody waits for
    // it, but its exit status must still be collected.
    std::thread([child] {
        int status = 0;
        while (waitpid(child, &status, 0) == -1 && errno == EINTR) {
        }
    }).detach();
}

} // namespace rilo::app

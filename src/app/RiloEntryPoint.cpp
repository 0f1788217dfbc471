#include "app/RiloEntryPoint.h"

#include "cli/RiloCLI.h"
#include "media/MediaLibraryLog.h"
#include "platform/SignalCancellation.h"

#include <csignal>
#include <cstdio>
#include <string_view>

#ifndef RILO_VERSION
#define RILO_VERSION "unknown"
#endif

namespace rilo::app {

void RiloEntryPoint::printVersion() {
    constexpr std::string_view version = RILO_VERSION;
    std::printf("{\"protocolVersion\":1,\"version\":\"%s\"}\n", version.empty() ? "unknown" : RILO_VERSION);
    std::fflush(stdout);
}

int RiloEntryPoint::runCLI(const std::vector<std::string>& arguments) {
    const platform::SignalCancellation cancellation;
    // The standard streams carry the command's JSON and nothing else.
    silenceMediaLibraryLog();
    return cli::RiloCLI::run(arguments, cancellation.token());
}

int RiloEntryPoint::main(const std::vector<std::string>& arguments,
                         const GraphicalApplicationLauncher& launchGraphicalApplication) {
    if (arguments.size() < 2 || arguments[1] != "cli") {
        return launchGraphicalApplication(arguments);
    }
    // A reader of standard output or error that has gone away must not end
    // the process: the write fails quietly, and the exit code is the
    // command's only result.
    std::signal(SIGPIPE, SIG_IGN);
    const std::vector<std::string> rest(arguments.begin() + 2, arguments.end());
    if (!rest.empty() && (rest[0] == "version" || rest[0] == "--version")) {
        printVersion();
        return 0;
    }
    return runCLI(rest);
}

} // namespace rilo::app

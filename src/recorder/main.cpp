// rilo-record: records the desktop into a finished project and prints
// {"projectID", "packagePath"}; failures as the command line's error envelope.

#include "cli/RiloCLI.h"
#include "media/MediaLibraryLog.h"
#include "platform/SignalCancellation.h"
#include "recorder/HeadlessRecorder.h"
#include "shared/Json.h"

#include <csignal>
#include <exception>
#include <string>
#include <unistd.h>
#include <vector>

int main(int argc, char** argv) {
    using namespace rilo;
    std::signal(SIGPIPE, SIG_IGN);
    const platform::SignalCancellation cancellation;
    silenceMediaLibraryLog();
    try {
        const recorder::RecorderArguments arguments =
            recorder::parseRecorderArguments(std::vector<std::string>(argv + 1, argv + argc));
        const recorder::HeadlessRecordingResult result =
            recorder::recordDesktop(arguments, cancellation.token(), STDERR_FILENO);
        json::Json response = json::Json::object();
        response["projectID"] = result.projectID.string();
        response["packagePath"] = result.packagePath.string();
        cli::RiloCLI::writeJSON(response);
        return 0;
    } catch (const std::exception& error) {
        const cli::CLIErrorClassification classification = cli::RiloCLI::classify(error);
        cli::RiloCLI::writeError(classification.code, error.what(), std::nullopt);
        return classification.exitCode;
    }
}

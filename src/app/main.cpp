#include "app/RiloEntryPoint.h"
#include "ui/desktop/DesktopApplication.h"

#ifndef RILO_VERSION
#define RILO_VERSION "unknown"
#endif

namespace {

// A launch without "cli" opens the desktop application.
int launchGraphicalApplication(const std::vector<std::string>& arguments) {
    return rilo::ui::runDesktopApplication(arguments, RILO_VERSION);
}

} // namespace

int main(int argc, char** argv) {
    return rilo::app::RiloEntryPoint::main(std::vector<std::string>(argv, argv + argc),
                                           launchGraphicalApplication);
}

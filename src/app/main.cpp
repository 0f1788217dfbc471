#include "app/RiloEntryPoint.h"

#include <cstdio>

#ifndef RILO_VERSION
#define RILO_VERSION "unknown"
#endif

namespace {

// This build has no graphical application yet: a launch without "cli" says so.
int launchGraphicalApplication(const std::vector<std::string>&) {
    std::puts("Rilo " RILO_VERSION "：此版本尚未包含图形界面，请使用命令行模式（rilo cli）。");
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    return rilo::app::RiloEntryPoint::main(std::vector<std::string>(argv, argv + argc),
                                           launchGraphicalApplication);
}

#include "app/RiloEntryPoint.h"

int main(int argc, char** argv) {
    return rilo::app::RiloEntryPoint::main(std::vector<std::string>(argv, argv + argc));
}

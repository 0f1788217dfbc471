#pragma once

#include <filesystem>

namespace rilo::testing {

// The build directory (where build/rilo and its resources are) and the
// source tree, fixed when the tests are compiled.
inline std::filesystem::path buildDirectory() {
    return RILO_TEST_BUILD_DIR;
}
inline std::filesystem::path sourceDirectory() {
    return RILO_TEST_SOURCE_DIR;
}

} // namespace rilo::testing

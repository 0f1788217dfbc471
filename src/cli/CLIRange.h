#pragma once

#include "shared/Json.h"
#include "shared/ProjectTime.h"

#include <cstdint>

namespace rilo::cli {

// A range of time on the command line, in milliseconds.
struct CLIRange {
    std::int64_t startMilliseconds = 0;
    std::int64_t endMilliseconds = 0;

    static CLIRange from(const ProjectTimeRange& range) noexcept {
        return {range.start.cliMilliseconds(), range.end().cliMilliseconds()};
    }
    ProjectTimeRange projectRange() const noexcept {
        return {ProjectTime{checkedMultiply(startMilliseconds, 1'000'000)},
                ProjectTime{checkedMultiply(checkedSubtract(endMilliseconds, startMilliseconds), 1'000'000)}};
    }

    friend constexpr bool operator==(const CLIRange&, const CLIRange&) = default;
};

} // namespace rilo::cli

namespace rilo::json {

template <>
struct Codec<cli::CLIRange> {
    static cli::CLIRange decode(const Json& value, const std::string& path) {
        const ObjectReader reader(value, path);
        return {reader.required<std::int64_t>("startMilliseconds"),
                reader.required<std::int64_t>("endMilliseconds")};
    }
    static Json encode(const cli::CLIRange& range) {
        return ObjectBuilder()
            .set("startMilliseconds", range.startMilliseconds)
            .set("endMilliseconds", range.endMilliseconds)
            .build();
    }
};

} // namespace rilo::json

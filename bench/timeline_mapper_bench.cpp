// Cost of the timeline mapper: building one from a timeline, and the two
// point mappings that run for every rendered frame and every thumbnail.
// Timelines of growing segment counts, with varied lengths, cuts and rates;
// the lookups should grow with the logarithm of the segment count.
//
// Each figure is the best of several passes, so that other work on the
// machine disturbs it as little as possible.
//
// Usage: timeline_mapper_bench [lookups]   (default 1,000,000)

#include "project/document/EditTimeline.h"
#include "project/engine/TimelineMapper.h"

#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <random>
#include <vector>

namespace {

using rilo::EditTimeline;
using rilo::ProjectTime;
using rilo::TimelineMapper;
using Clock = std::chrono::steady_clock;

struct Fixture {
    EditTimeline timeline;
    ProjectTime sourceDuration;
};

// Segments of 0.2 to 3 s, separated by cuts of 0 to 1 s, at rates from
// 0.50x to 4.00x.
Fixture makeFixture(std::size_t segmentCount, std::mt19937_64& random) {
    std::uniform_int_distribution<std::int64_t> length(200'000'000, 3'000'000'000);
    std::uniform_int_distribution<std::int64_t> cut(0, 1'000'000'000);
    std::uniform_int_distribution<std::int64_t> rateStep(50, 400);
    Fixture fixture;
    std::int64_t cursor = 0;
    for (std::size_t index = 0; index < segmentCount; ++index) {
        cursor += cut(random);
        const std::int64_t duration = length(random);
        fixture.timeline.segments.push_back(
            {rilo::Uuid::random(), {ProjectTime{cursor}, ProjectTime{duration}}, {rateStep(random) * 10}});
        cursor += duration;
    }
    fixture.sourceDuration = ProjectTime{cursor + cut(random)};
    return fixture;
}

constexpr int passCount = 5;

double nanosecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

// The fastest of several timed passes of work, in nanoseconds per call;
// work runs a whole pass and says how many calls it made.
template <typename Work>
double bestNanosecondsPerCall(Work&& work) {
    double best = std::numeric_limits<double>::infinity();
    for (int pass = 0; pass < passCount; ++pass) {
        const auto start = Clock::now();
        const std::size_t calls = work();
        best = std::min(best, nanosecondsSince(start) / static_cast<double>(calls));
    }
    return best;
}

struct Figures {
    double constructionMicroseconds = 0;
    double sequenceLookupNanoseconds = 0;
    double sourceLookupNanoseconds = 0;
    std::uint64_t checksum = 0;
    std::size_t sourceHits = 0;
};

Figures measure(const Fixture& fixture, std::size_t lookupCount, std::mt19937_64& random) {
    Figures figures;

    // Construction, each pass repeated until it has run for a measurable time.
    std::uint64_t checksum = 0;
    figures.constructionMicroseconds =
        bestNanosecondsPerCall([&] {
            std::size_t builds = 0;
            const auto start = Clock::now();
            do {
                const TimelineMapper mapper(fixture.timeline, fixture.sourceDuration);
                checksum += static_cast<std::uint64_t>(mapper.sequenceDuration().nanoseconds);
                ++builds;
            } while (nanosecondsSince(start) < 50e6 || builds < 3);
            return builds;
        }) /
        1000.0;

    const TimelineMapper mapper(fixture.timeline, fixture.sourceDuration);
    std::uniform_int_distribution<std::int64_t> sequenceTimes(0, mapper.sequenceDuration().nanoseconds - 1);
    std::uniform_int_distribution<std::int64_t> sourceTimes(0, mapper.sourceDuration().nanoseconds - 1);
    std::vector<ProjectTime> sequenceQueries(lookupCount);
    std::vector<ProjectTime> sourceQueries(lookupCount);
    for (std::size_t index = 0; index < lookupCount; ++index) {
        sequenceQueries[index] = ProjectTime{sequenceTimes(random)};
        sourceQueries[index] = ProjectTime{sourceTimes(random)};
    }

    figures.sequenceLookupNanoseconds = bestNanosecondsPerCall([&] {
        for (const ProjectTime t : sequenceQueries) {
            const auto mapped = mapper.mappedTimeForSequenceTime(t);
            checksum +=
                static_cast<std::uint64_t>(mapped->sourceTime.nanoseconds) + mapped->segmentID.bytes[0];
        }
        return sequenceQueries.size();
    });

    figures.sourceLookupNanoseconds = bestNanosecondsPerCall([&] {
        figures.sourceHits = 0;
        for (const ProjectTime s : sourceQueries) {
            if (const auto mapped = mapper.mappedTimeForSourceTime(s)) {
                checksum += static_cast<std::uint64_t>(mapped->sequenceTime.nanoseconds);
                ++figures.sourceHits;
            }
        }
        return sourceQueries.size();
    });

    figures.checksum = checksum;
    return figures;
}

} // namespace

int main(int argc, char** argv) {
    std::size_t lookupCount = 1'000'000;
    if (argc > 1) {
        lookupCount = static_cast<std::size_t>(std::strtoull(argv[1], nullptr, 10));
        if (lookupCount == 0) {
            std::fprintf(stderr, "usage: %s [lookups]\n", argv[0]);
            return 2;
        }
    }

    std::mt19937_64 random(20240601);
    std::printf("timeline mapper, %zu random lookups per size, best of %d passes\n", lookupCount, passCount);
    std::printf("%9s %6s %14s %16s %16s %12s  %s\n", "segments", "log2", "build us", "sequence ns/op",
                "source ns/op", "source hits", "checksum");
    for (const std::size_t segmentCount : {std::size_t{100}, std::size_t{1'000}, std::size_t{10'000}}) {
        const Fixture fixture = makeFixture(segmentCount, random);
        const Figures figures = measure(fixture, lookupCount, random);
        std::printf("%9zu %6.1f %14.1f %16.1f %16.1f %11.1f%%  %016" PRIx64 "\n", segmentCount,
                    std::log2(static_cast<double>(segmentCount)), figures.constructionMicroseconds,
                    figures.sequenceLookupNanoseconds, figures.sourceLookupNanoseconds,
                    100.0 * static_cast<double>(figures.sourceHits) / static_cast<double>(lookupCount),
                    figures.checksum);
    }
    return 0;
}

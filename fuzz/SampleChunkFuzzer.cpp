// One sample chunk file as a project load reads it (ChunkStore<T>::readAll,
// the simdjson reader), as each of the three sample kinds. That reader
// promises the decoding rules and failure texts of the record codecs, so the
// general decoder must come to the same samples or the same failure; only
// the wording of a parser's own complaint about malformed text may differ.

#include "FuzzSupport.h"
#include "project/document/CaptureSamples.h"
#include "project/store/ChunkStore.h"

#include <optional>
#include <vector>

namespace {

using namespace rilo;

constexpr const char* chunkName = "000000.json";
constexpr std::string_view malformedText = "JSON格式无效：";

template <class T>
struct Outcome {
    std::optional<std::vector<T>> samples;
    std::string failure;
};

template <class T>
void compareReaders(const fuzz::ScratchDirectory& directory, std::string_view bytes, const char* kind) {
    Outcome<T> chunk;
    try {
        chunk.samples = ChunkStore<T>::readAll(directory.path());
    } catch (const json::DecodingError& error) {
        chunk.failure = error.message();
    }
    Outcome<T> general;
    try {
        general.samples = json::decode<std::vector<T>>(json::parse(bytes), chunkName);
    } catch (const json::DecodingError& error) {
        general.failure = error.message();
    }

    if (chunk.samples && general.samples) {
        if (!(*chunk.samples == *general.samples)) {
            fuzz::finding(std::string(kind) + " chunk: the readers decode different samples");
        }
        return;
    }
    const bool bothMalformed =
        chunk.failure.starts_with(malformedText) && general.failure.starts_with(malformedText);
    if (chunk.failure != general.failure && !bothMalformed) {
        fuzz::finding(std::string(kind) + " chunk: the chunk reader says \"" +
                      (chunk.samples ? std::string("(samples)") : chunk.failure) +
                      "\", the record codecs \"" +
                      (general.samples ? std::string("(samples)") : general.failure) + "\"");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const fuzz::ScratchDirectory directory("chunks");
    const std::string_view bytes = fuzz::inputText(data, size);
    directory.write(chunkName, bytes);
    compareReaders<MouseEvent>(directory, bytes, "mouse event");
    compareReaders<GeometrySample>(directory, bytes, "geometry");
    compareReaders<CursorShapeSample>(directory, bytes, "cursor shape");
    return 0;
}

#pragma once

// The quick road for reading the sample chunks that make up long recordings:
// mouse events, geometry and cursor shapes. An hour of mouse samples is some
// 1,800 chunk files and 150 MB of JSON; building nlohmann's tree for them and
// decoding that costs seconds, while this road parses each file with simdjson
// and fills the samples straight from the parsed values.
//
// Contract: the results and failures are exactly those of decoding each file
// with json::decode<std::vector<T>>. The quick road takes a file only when it
// is sure of giving the same samples: the chunk writer's form (every required
// key once, no nulls, integers written as integers, enumerations by their
// listed raw words), with unknown keys passed over as the general decoder does.
// Anything else (a missing or repeated key, a null, a whole number written as
// a double in an integer field, an unknown word, a number out of range,
// malformed text, a file that cannot be read) sends that file to the general
// decoder, which answers as it always has, errors and messages included.
//
// This header does not include simdjson; ChunkStore<T>::readAll uses it for
// the sample types named by FastChunkSample.

#include <concepts>
#include <filesystem>
#include <memory>
#include <vector>

namespace rilo {

struct MouseEvent;
struct GeometrySample;
struct CursorShapeSample;

namespace FastChunkDecoding {

template <class T>
concept FastChunkSample =
    std::same_as<T, MouseEvent> || std::same_as<T, GeometrySample> || std::same_as<T, CursorShapeSample>;

// One simdjson parser and one read buffer, reused from file to file. Not for
// use by several threads at once.
class ChunkParser {
public:
    ChunkParser();
    ~ChunkParser();
    ChunkParser(const ChunkParser&) = delete;
    ChunkParser& operator=(const ChunkParser&) = delete;

    // Appends the samples of the chunk file to `samples` and answers true when
    // the quick road takes the whole file; otherwise answers false and leaves
    // `samples` as it was, for the caller to use the general decoder.
    template <FastChunkSample T>
    bool appendSamples(const std::filesystem::path& file, std::vector<T>& samples);

private:
    struct State;
    std::unique_ptr<State> state_;
};

// Every sample of the files in their order, each file by the quick road when
// it can and by the general decoder otherwise. Throws what the general decoder
// throws for the first file it fails on (FileError, json::DecodingError).
template <FastChunkSample T>
std::vector<T> readAll(const std::vector<std::filesystem::path>& files);

} // namespace FastChunkDecoding
} // namespace rilo

#pragma once

// Reads the sample chunks of a package: an hour of mouse samples is some
// 1,800 chunk files and 150 MB of JSON, so each file is parsed with simdjson
// and the samples are filled straight from the parsed values, guided by the
// same key tables (json::RecordFields) that the chunk writer encodes with.
//
// The decoding rules are those of json::Codec: required keys, optional keys
// absent or null, unknown keys passed over, the last of a repeated key, whole
// numbers written as doubles accepted for integers, enumerations by their
// raw words; and its failures are the same json::DecodingError texts, naming
// the key path from the file's name ("000003.json[12].time.nanoseconds").
// Malformed text is a DecodingError too, naming the file. The rare file that
// simdjson cannot take though it is JSON (integers beyond 64 bits, very deep
// nesting) is decoded by the record codecs themselves.
//
// This header does not include simdjson.

#include "shared/Json.h"

#include <filesystem>
#include <vector>

namespace rilo::ChunkDecoding {

// Every sample of the files in their order. Throws FileError for a file that
// cannot be read and json::DecodingError for one that does not decode: the
// failure of the first such file in order. Large series are read on several
// threads.
template <json::Record T>
std::vector<T> readAll(const std::vector<std::filesystem::path>& files);

} // namespace rilo::ChunkDecoding

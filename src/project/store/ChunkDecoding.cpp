#include "project/store/ChunkDecoding.h"

#include "project/document/CaptureSamples.h"
#include "shared/Files.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <iterator>
#include <limits>
#include <new>
#include <numeric>
#include <optional>
#include <simdjson.h>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <type_traits>
#include <utility>

namespace rilo::ChunkDecoding {

namespace {

namespace dom = simdjson::dom;

// Where a value sits, written out only for a failure: building the text for
// every value of an hour of samples would cost more than the parsing.
struct Path {
    const Path* parent = nullptr;
    std::string_view key;  // a member's key; empty for the root and for elements
    std::size_t index = 0; // an element's index
    std::string_view root; // the file's name, on the root only

    Path member(std::string_view memberKey) const noexcept { return {this, memberKey, 0, {}}; }
    Path element(std::size_t elementIndex) const noexcept { return {this, {}, elementIndex, {}}; }

    std::string text() const {
        if (parent == nullptr) {
            return std::string(root);
        }
        return key.empty() ? json::indexPath(parent->text(), index) : json::joinPath(parent->text(), key);
    }
};

[[noreturn]] void mismatch(const Path& path, std::string_view expected) {
    json::throwTypeMismatch(path.text(), expected);
}

void decodeValue(dom::element value, const Path& path, double& result) {
    switch (value.type()) {
    case dom::element_type::DOUBLE:
        result = value.get_double().value_unsafe();
        return;
    case dom::element_type::INT64:
        result = static_cast<double>(value.get_int64().value_unsafe());
        return;
    case dom::element_type::UINT64:
        result = static_cast<double>(value.get_uint64().value_unsafe());
        return;
    default:
        mismatch(path, "数值");
    }
}

// The integer rules of json::decodeInteger: a whole double counts as the
// integer it names, and the value must fit the range.
std::int64_t integer(dom::element value, const Path& path, std::int64_t minimum, std::int64_t maximum) {
    std::int64_t result = 0;
    switch (value.type()) {
    case dom::element_type::INT64:
        result = value.get_int64().value_unsafe();
        break;
    case dom::element_type::UINT64:
        // Above the signed range, so above every maximum asked for here.
        mismatch(path, "范围内的整数");
    case dom::element_type::DOUBLE: {
        const double number = value.get_double().value_unsafe();
        if (!std::isfinite(number) || std::trunc(number) != number || number < -9223372036854775808.0 ||
            number >= 9223372036854775808.0) {
            mismatch(path, "整数");
        }
        result = static_cast<std::int64_t>(number);
        break;
    }
    default:
        mismatch(path, "整数");
    }
    if (result < minimum || result > maximum) {
        mismatch(path, "范围内的整数");
    }
    return result;
}

template <class I>
requires(std::is_integral_v<I> && !std::is_same_v<I, bool>) void decodeValue(dom::element value,
                                                                             const Path& path, I& result) {
    if constexpr (std::is_same_v<I, std::uint64_t>) {
        if (value.type() == dom::element_type::UINT64) {
            result = value.get_uint64().value_unsafe();
            return;
        }
        result =
            static_cast<std::uint64_t>(integer(value, path, 0, std::numeric_limits<std::int64_t>::max()));
    } else {
        result = static_cast<I>(integer(value, path, std::numeric_limits<I>::min(),
                                        static_cast<std::int64_t>(std::numeric_limits<I>::max())));
    }
}

void decodeValue(dom::element value, const Path& path, bool& result) {
    if (value.get_bool().get(result) != simdjson::SUCCESS) {
        mismatch(path, "布尔值");
    }
}

std::string_view stringValue(dom::element value, const Path& path) {
    std::string_view text;
    if (value.get_string().get(text) != simdjson::SUCCESS) {
        mismatch(path, "字符串");
    }
    return text;
}

void decodeValue(dom::element value, const Path& path, std::string& result) {
    result.assign(stringValue(value, path));
}

template <json::NamedEnum E>
void decodeValue(dom::element value, const Path& path, E& result) {
    const std::string_view raw = stringValue(value, path);
    const auto parsed = json::enumFromRaw<E>(raw);
    if (!parsed) {
        json::throwUnknownEnumValue(path.text(), std::string(raw));
    }
    result = *parsed;
}

// The keys of a record in its table's order, and the order that sorts them:
// the writer sorts keys, so the next key of an object is usually the next
// one in sorted order, which saves searching the table.
template <json::Record T>
struct RecordKeys {
    static constexpr auto keys = std::apply(
        [](const auto&... fields) { return std::array<std::string_view, sizeof...(fields)>{fields.key...}; },
        json::RecordFields<T>::fields);
    static constexpr std::size_t count = keys.size();

    static constexpr std::array<std::size_t, count> sortedOrder = [] {
        std::array<std::size_t, count> order{};
        std::iota(order.begin(), order.end(), std::size_t{0});
        std::sort(order.begin(), order.end(), [](std::size_t a, std::size_t b) { return keys[a] < keys[b]; });
        return order;
    }();
};

template <json::Record T>
void decodeValue(dom::element value, const Path& path, T& result);

template <class Value>
void decodeField(std::optional<dom::element> member, const Path& path, std::string_view key, Value& result) {
    if constexpr (json::IsOptional<Value>::value) {
        if (member) {
            typename Value::value_type present{};
            decodeValue(*member, path.member(key), present);
            result = std::move(present);
        } else {
            result.reset();
        }
    } else {
        if (!member) {
            throw json::DecodingError("缺少必需的键：" + json::joinPath(path.text(), key));
        }
        decodeValue(*member, path.member(key), result);
    }
}

// One pass over the object's members puts each known key's value in its slot
// (the last of a repeated key wins); then the fields are decoded in the
// table's order, a null counting as absent.
template <json::Record T>
void decodeValue(dom::element value, const Path& path, T& result) {
    using Keys = RecordKeys<T>;
    dom::object object;
    if (value.get_object().get(object) != simdjson::SUCCESS) {
        mismatch(path, "对象");
    }
    std::array<std::optional<dom::element>, Keys::count> slots{};
    std::size_t expected = 0; // position in sortedOrder
    for (const dom::key_value_pair member : object) {
        std::size_t position = expected;
        if (position >= Keys::count || Keys::keys[Keys::sortedOrder[position]] != member.key) {
            position = 0;
            while (position < Keys::count && Keys::keys[Keys::sortedOrder[position]] != member.key) {
                ++position;
            }
            if (position == Keys::count) {
                continue;
            }
        }
        const std::size_t index = Keys::sortedOrder[position];
        if (member.value.is_null()) {
            slots[index].reset();
        } else {
            slots[index] = member.value;
        }
        expected = position + 1;
    }
    [&]<std::size_t... index>(std::index_sequence<index...>) {
        (decodeField(slots[index], path, std::get<index>(json::RecordFields<T>::fields).key,
                     result.*(std::get<index>(json::RecordFields<T>::fields).member)),
         ...);
    }
    (std::make_index_sequence<Keys::count>{});
}

// Parses one chunk file at a time, keeping its buffers from file to file.
// Not for use by several threads at once.
template <json::Record T>
class ChunkParser {
public:
    // Appends the file's samples; throws as readAll does, and then leaves
    // `samples` with what it had before.
    void append(const std::filesystem::path& file, std::vector<T>& samples) {
        readFileBytes(file, bytes_, simdjson::SIMDJSON_PADDING);
        // Room for the largest file so far and then some, so that slowly
        // growing files do not make the parser reallocate at every new size.
        if (bytes_.size() > parser_.capacity() &&
            parser_.allocate(std::max(bytes_.size(), parser_.capacity() * 2)) != simdjson::SUCCESS) {
            // Without the room the parse below fails and says so.
        }
        const std::string name = file.filename().string();
        dom::element document;
        if (const auto error = parser_.parse(bytes_.data(), bytes_.size(), false).get(document)) {
            appendRefusedBySimdjson(name, error, samples);
            return;
        }
        const Path root{nullptr, {}, 0, name};
        dom::array elements;
        if (document.get_array().get(elements) != simdjson::SUCCESS) {
            mismatch(root, "数组");
        }
        const std::size_t before = samples.size();
        try {
            std::size_t index = 0;
            for (const dom::element element : elements) {
                T sample{};
                decodeValue(element, root.element(index++), sample);
                samples.push_back(std::move(sample));
            }
        } catch (...) {
            samples.resize(before);
            throw;
        }
    }

private:
    // simdjson refuses some JSON that the record codecs read: integers beyond
    // 64 bits and nesting deeper than its limit. A file it refuses goes to the
    // codecs, so that both readers agree on every file; text that is no JSON
    // at all keeps simdjson's complaint, naming the file.
    void appendRefusedBySimdjson(const std::string& name, simdjson::error_code error,
                                 std::vector<T>& samples) {
        json::Json parsed;
        try {
            parsed = json::parse(std::string_view(bytes_));
        } catch (const json::DecodingError&) {
            throw json::DecodingError(std::string("JSON格式无效：") + simdjson::error_message(error) + "（" +
                                      name + "）");
        }
        std::vector<T> decoded = json::decode<std::vector<T>>(parsed, name);
        samples.insert(samples.end(), std::make_move_iterator(decoded.begin()),
                       std::make_move_iterator(decoded.end()));
    }

    dom::parser parser_;
    std::string bytes_;
};

// The samples of a run of files, or the failure of the first file in it that
// does not decode; files after that one are not read.
template <class T>
struct FileRun {
    std::span<const std::filesystem::path> files;
    std::span<const std::uintmax_t> fileBytes;
    std::vector<T> samples;
    std::exception_ptr failure;

    // `bytesToHold`: the size of the files whose samples will end up in
    // `samples`. Once a file gives samples, room for all of them is reserved
    // at its density, with some to spare, so that the vector does not grow
    // and copy itself again and again; room never touched costs no memory.
    void read(std::uintmax_t bytesToHold) noexcept {
        try {
            ChunkParser<T> parser;
            bool reserved = false;
            for (std::size_t index = 0; index < files.size(); ++index) {
                parser.append(files[index], samples);
                if (!reserved && !samples.empty() && fileBytes[index] > 0) {
                    reserved = true;
                    reserveFor(static_cast<double>(samples.size()) / static_cast<double>(fileBytes[index]) *
                               static_cast<double>(bytesToHold));
                }
            }
        } catch (...) {
            failure = std::current_exception();
        }
    }

    // Only a guess: when it cannot be had, the vector grows as usual.
    void reserveFor(double expectedSamples) noexcept {
        const double wanted = expectedSamples * 1.25 + 16;
        if (wanted < static_cast<double>(samples.max_size())) {
            try {
                samples.reserve(static_cast<std::size_t>(wanted));
            } catch (const std::bad_alloc&) {
            }
        }
    }
};

// Files are independent, so runs of them are read on several threads; a run
// should be long enough to be worth a thread.
constexpr std::size_t minimumFilesPerThread = 64;
constexpr std::size_t maximumThreads = 4;

} // namespace

template <json::Record T>
std::vector<T> readAll(const std::vector<std::filesystem::path>& files) {
    const std::size_t threadCount =
        std::clamp<std::size_t>(std::min<std::size_t>(std::thread::hardware_concurrency(), maximumThreads), 1,
                                std::max<std::size_t>(files.size() / minimumFilesPerThread, 1));
    // Sizes for the reservations; a file that cannot be measured counts as empty here.
    std::vector<std::uintmax_t> fileBytes(files.size(), 0);
    std::uintmax_t totalBytes = 0;
    for (std::size_t index = 0; index < files.size(); ++index) {
        std::error_code error;
        const std::uintmax_t bytes = std::filesystem::file_size(files[index], error);
        fileBytes[index] = error ? 0 : bytes;
        totalBytes += fileBytes[index];
    }

    std::vector<FileRun<T>> runs(threadCount);
    std::vector<std::uintmax_t> runBytes(threadCount, 0);
    for (std::size_t index = 0; index < threadCount; ++index) {
        const std::size_t begin = files.size() * index / threadCount;
        const std::size_t end = files.size() * (index + 1) / threadCount;
        runs[index].files = std::span(files).subspan(begin, end - begin);
        runs[index].fileBytes = std::span<const std::uintmax_t>(fileBytes).subspan(begin, end - begin);
        runBytes[index] =
            std::accumulate(runs[index].fileBytes.begin(), runs[index].fileBytes.end(), std::uintmax_t{0});
    }
    // The first run's vector becomes the result and so makes room for all.
    runBytes[0] = totalBytes;
    {
        std::vector<std::jthread> helpers;
        helpers.reserve(threadCount);
        // This thread reads the first run, and any for which no thread could be had.
        std::vector<std::size_t> ownRuns{0};
        for (std::size_t index = 1; index < threadCount; ++index) {
            try {
                helpers.emplace_back([&run = runs[index], bytes = runBytes[index]] { run.read(bytes); });
            } catch (const std::system_error&) {
                ownRuns.push_back(index);
            }
        }
        for (const std::size_t index : ownRuns) {
            runs[index].read(runBytes[index]);
        }
    }

    // The failure of the first failing file, as one thread reading the files
    // in order would meet it.
    std::size_t total = 0;
    for (const FileRun<T>& run : runs) {
        if (run.failure) {
            std::rethrow_exception(run.failure);
        }
        total += run.samples.size();
    }
    std::vector<T> samples = std::move(runs[0].samples);
    samples.reserve(total);
    for (std::size_t index = 1; index < threadCount; ++index) {
        samples.insert(samples.end(), std::make_move_iterator(runs[index].samples.begin()),
                       std::make_move_iterator(runs[index].samples.end()));
        runs[index].samples = {};
    }
    return samples;
}

template std::vector<MouseEvent> readAll(const std::vector<std::filesystem::path>&);
template std::vector<GeometrySample> readAll(const std::vector<std::filesystem::path>&);
template std::vector<CursorShapeSample> readAll(const std::vector<std::filesystem::path>&);

} // namespace rilo::ChunkDecoding

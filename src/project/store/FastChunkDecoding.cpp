#include "project/store/FastChunkDecoding.h"

#include "project/document/CaptureSamples.h"
#include "project/store/ChunkStore.h"
#include "shared/Geometry.h"
#include "shared/Json.h"
#include "shared/ProjectTime.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <fcntl.h>
#include <iterator>
#include <limits>
#include <new>
#include <numeric>
#include <optional>
#include <simdjson.h>
#include <span>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <type_traits>
#include <unistd.h>
#include <utility>

namespace rilo::FastChunkDecoding {

namespace {

namespace dom = simdjson::dom;

// Scalars. Each reader answers false for any value that the general decoder
// would read differently or refuse; the caller then gives the whole file to
// the general decoder.

bool readValue(dom::element value, double& result) {
    // The general decoder takes any number as a double: integers by a plain
    // conversion, which is what these casts are.
    switch (value.type()) {
    case dom::element_type::DOUBLE:
        return value.get_double().get(result) == simdjson::SUCCESS;
    case dom::element_type::INT64:
        result = static_cast<double>(value.get_int64().value_unsafe());
        return true;
    case dom::element_type::UINT64:
        result = static_cast<double>(value.get_uint64().value_unsafe());
        return true;
    default:
        return false;
    }
}

// Integers written as integers, within the type's range. A whole number
// written as a double, which the general decoder also accepts, is left to it.
template <class I>
requires(std::is_integral_v<I> && !std::is_same_v<I, bool>) bool readValue(dom::element value, I& result) {
    if (value.type() == dom::element_type::INT64) {
        const std::int64_t number = value.get_int64().value_unsafe();
        if (!std::in_range<I>(number)) {
            return false;
        }
        result = static_cast<I>(number);
        return true;
    }
    // Above the signed range: only an unsigned 64-bit field holds it.
    if constexpr (std::is_same_v<I, std::uint64_t>) {
        if (value.type() == dom::element_type::UINT64) {
            result = value.get_uint64().value_unsafe();
            return true;
        }
    }
    return false;
}

bool readValue(dom::element value, std::optional<bool>& result) {
    if (value.type() != dom::element_type::BOOL) {
        return false;
    }
    result = value.get_bool().value_unsafe();
    return true;
}

bool readValue(dom::element value, std::string& result) {
    std::string_view text;
    if (value.get_string().get(text) != simdjson::SUCCESS) {
        return false;
    }
    result.assign(text);
    return true;
}

// Enumerations by the same raw words as their codecs.
template <json::NamedEnum E>
bool readValue(dom::element value, E& result) {
    std::string_view raw;
    if (value.get_string().get(raw) != simdjson::SUCCESS) {
        return false;
    }
    const auto parsed = json::enumFromRaw<E>(raw);
    if (!parsed) {
        return false;
    }
    result = *parsed;
    return true;
}

// Objects are read through a table of their members: the key as the codec of
// the type writes it, and how to fill the member from a value.
template <class Owner>
struct Member {
    std::string_view key;
    bool (*read)(dom::element value, Owner& owner);
    bool optional = false;
};

// Keys are short; comparing them in place is quicker than a call to memcmp,
// and with some 16 keys a sample the calls add up.
constexpr bool sameKey(std::string_view a, std::string_view b) noexcept {
    if (a.size() != b.size()) {
        return false;
    }
    for (std::size_t index = 0; index < a.size(); ++index) {
        if (a[index] != b[index]) {
            return false;
        }
    }
    return true;
}

// The member tables of the object types, Layout<T>::members.
template <class T>
struct Layout;

template <class Owner, std::size_t count>
constexpr std::uint32_t optionalMask(const std::array<Member<Owner>, count>& members) {
    std::uint32_t mask = 0;
    for (std::size_t index = 0; index < count; ++index) {
        if (members[index].optional) {
            mask |= 1U << index;
        }
    }
    return mask;
}

// Walks the members of the object once. Unknown keys are passed over, as the
// general decoder does. A key seen twice is refused: the general decoder keeps
// the last of them. Every member that is not optional must be there.
template <class T>
requires requires {
    Layout<T>::members;
}
bool readValue(dom::element value, T& result) {
    constexpr const auto& members = Layout<T>::members;
    constexpr std::size_t count = members.size();
    static_assert(count <= 32);
    constexpr std::uint32_t all = count == 32 ? ~0U : (1U << count) - 1;
    constexpr std::uint32_t optionalMembers = optionalMask(Layout<T>::members);

    dom::object object;
    if (value.get_object().get(object) != simdjson::SUCCESS) {
        return false;
    }
    std::uint32_t seen = 0;
    // The writer sorts keys, and so do the tables: the next key is usually the
    // one after the last match.
    std::size_t expected = 0;
    for (const dom::key_value_pair field : object) {
        std::size_t index = expected < count && sameKey(members[expected].key, field.key) ? expected : count;
        for (std::size_t candidate = 0; index == count && candidate < count; ++candidate) {
            if (sameKey(members[candidate].key, field.key)) {
                index = candidate;
            }
        }
        if (index == count) {
            continue;
        }
        const std::uint32_t bit = 1U << index;
        if ((seen & bit) != 0 || !members[index].read(field.value, result)) {
            return false;
        }
        seen |= bit;
        expected = index + 1;
    }
    return (seen | optionalMembers) == all;
}

template <class>
struct MemberPointer;

template <class O, class V>
struct MemberPointer<V O::*> {
    using Owner = O;
};

template <auto pointer>
constexpr Member<typename MemberPointer<decltype(pointer)>::Owner> member(std::string_view key,
                                                                          bool optional = false) {
    using Owner = typename MemberPointer<decltype(pointer)>::Owner;
    return {key, [](dom::element value, Owner& owner) { return readValue(value, owner.*pointer); }, optional};
}

// The member tables, in the sorted order of their keys. They name the same
// keys as the codecs of these types; the tests check that every chunk the
// writer produces takes this road.

template <>
struct Layout<ProjectTime> {
    static constexpr std::array<Member<ProjectTime>, 1> members{{
        member<&ProjectTime::nanoseconds>("nanoseconds"),
    }};
};

template <>
struct Layout<PointValue> {
    static constexpr std::array<Member<PointValue>, 2> members{{
        member<&PointValue::x>("x"),
        member<&PointValue::y>("y"),
    }};
};

template <>
struct Layout<SizeValue> {
    static constexpr std::array<Member<SizeValue>, 2> members{{
        member<&SizeValue::height>("height"),
        member<&SizeValue::width>("width"),
    }};
};

template <>
struct Layout<RectValue> {
    static constexpr std::array<Member<RectValue>, 4> members{{
        member<&RectValue::height>("height"),
        member<&RectValue::width>("width"),
        member<&RectValue::x>("x"),
        member<&RectValue::y>("y"),
    }};
};

// Decoded as stored, like the codec's PixelSize::unnormalized.
template <>
struct Layout<PixelSize> {
    static constexpr std::array<Member<PixelSize>, 2> members{{
        member<&PixelSize::height>("height"),
        member<&PixelSize::width>("width"),
    }};
};

template <>
struct Layout<MouseEvent> {
    static constexpr std::array<Member<MouseEvent>, 9> members{{
        member<&MouseEvent::button>("button"),
        member<&MouseEvent::geometryRevision>("geometryRevision"),
        member<&MouseEvent::globalPoint>("globalPoint"),
        member<&MouseEvent::isInsideSource>("isInsideSource", true),
        member<&MouseEvent::localPoint>("localPoint"),
        member<&MouseEvent::normalizedPoint>("normalizedPoint"),
        member<&MouseEvent::phase>("phase"),
        member<&MouseEvent::rawTimestampNanoseconds>("rawTimestampNanoseconds"),
        member<&MouseEvent::time>("time"),
    }};
};

template <>
struct Layout<GeometrySample> {
    static constexpr std::array<Member<GeometrySample>, 7> members{{
        member<&GeometrySample::contentRectInEncodedFrame>("contentRectInEncodedFrame"),
        member<&GeometrySample::encodedPixelSize>("encodedPixelSize"),
        member<&GeometrySample::globalWindowFrame>("globalWindowFrame"),
        member<&GeometrySample::revision>("revision"),
        member<&GeometrySample::scaleFactor>("scaleFactor"),
        member<&GeometrySample::sourceContentSize>("sourceContentSize"),
        member<&GeometrySample::time>("time"),
    }};
};

template <>
struct Layout<CursorShapeSample> {
    static constexpr std::array<Member<CursorShapeSample>, 2> members{{
        member<&CursorShapeSample::assetID>("assetID"),
        member<&CursorShapeSample::time>("time"),
    }};
};

// Closes the descriptor when it goes out of scope.
class OpenFile {
public:
    explicit OpenFile(const std::filesystem::path& path)
        : handle_(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {}
    ~OpenFile() {
        if (handle_ >= 0) {
            ::close(handle_);
        }
    }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    int get() const noexcept { return handle_; }

private:
    int handle_;
};

} // namespace

struct ChunkParser::State {
    dom::parser parser;
    // The file's bytes, followed by the padding simdjson reads past the end.
    std::unique_ptr<char[]> buffer;
    std::size_t capacity = 0;

    // The whole file in one read, or nothing when anything is amiss; the
    // general decoder then reads it again and reports what it finds.
    std::optional<std::size_t> read(const std::filesystem::path& path) {
        const OpenFile file(path);
        struct stat status {};
        if (file.get() < 0 || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
            status.st_size < 0) {
            return std::nullopt;
        }
        const auto size = static_cast<std::size_t>(status.st_size);
        // One byte more than the size, so that a file that grew since is seen.
        const std::size_t wanted = size + 1;
        if (capacity < wanted + simdjson::SIMDJSON_PADDING) {
            capacity = std::max(wanted + simdjson::SIMDJSON_PADDING, capacity * 2);
            buffer = std::make_unique_for_overwrite<char[]>(capacity);
        }
        ssize_t count = 0;
        do {
            count = ::read(file.get(), buffer.get(), wanted);
        } while (count < 0 && errno == EINTR);
        if (count < 0 || static_cast<std::size_t>(count) != size) {
            return std::nullopt;
        }
        return size;
    }
};

ChunkParser::ChunkParser()
    : state_(std::make_unique<State>()) {}

ChunkParser::~ChunkParser() = default;

template <FastChunkSample T>
bool ChunkParser::appendSamples(const std::filesystem::path& file, std::vector<T>& samples) {
    const std::optional<std::size_t> size = state_->read(file);
    if (!size) {
        return false;
    }
    // Room for the largest file so far and then some, so that slowly growing
    // files do not make the parser reallocate at every new size.
    if (*size > state_->parser.capacity() &&
        state_->parser.allocate(std::max(*size, state_->parser.capacity() * 2)) != simdjson::SUCCESS) {
        return false;
    }
    dom::element document;
    dom::array elements;
    if (state_->parser.parse(state_->buffer.get(), *size, false).get(document) != simdjson::SUCCESS ||
        document.get_array().get(elements) != simdjson::SUCCESS) {
        return false;
    }
    const std::size_t before = samples.size();
    for (const dom::element element : elements) {
        T sample{};
        if (!readValue(element, sample)) {
            samples.resize(before);
            return false;
        }
        samples.push_back(std::move(sample));
    }
    return true;
}

namespace {

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
            ChunkParser parser;
            bool reserved = false;
            for (std::size_t index = 0; index < files.size(); ++index) {
                const auto& file = files[index];
                if (!parser.appendSamples(file, samples)) {
                    // The general road, which ChunkStore<T>::readAll takes for other sample types.
                    auto chunk =
                        json::decode<std::vector<T>>(ChunkFiles::read(file), file.filename().string());
                    samples.insert(samples.end(), std::make_move_iterator(chunk.begin()),
                                   std::make_move_iterator(chunk.end()));
                }
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

template <FastChunkSample T>
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

template bool ChunkParser::appendSamples(const std::filesystem::path&, std::vector<MouseEvent>&);
template bool ChunkParser::appendSamples(const std::filesystem::path&, std::vector<GeometrySample>&);
template bool ChunkParser::appendSamples(const std::filesystem::path&, std::vector<CursorShapeSample>&);
template std::vector<MouseEvent> readAll(const std::vector<std::filesystem::path>&);
template std::vector<GeometrySample> readAll(const std::vector<std::filesystem::path>&);
template std::vector<CursorShapeSample> readAll(const std::vector<std::filesystem::path>&);

} // namespace rilo::FastChunkDecoding

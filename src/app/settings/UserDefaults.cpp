#include "app/settings/UserDefaults.h"

#include "shared/Errors.h"
#include "shared/Files.h"

#include <algorithm>
#include <system_error>

namespace rilo {

namespace {

// Settings files are small; anything larger is not ours.
constexpr std::uintmax_t largestSettingsFile = 4 * 1024 * 1024;

std::optional<json::Json> parseObject(const std::filesystem::path& file) {
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(file, error);
    if (error || size > largestSettingsFile) {
        return std::nullopt;
    }
    try {
        json::Json values = json::parse(readFileBytes(file));
        if (values.is_object()) {
            return values;
        }
    } catch (const LocalizedError&) {
    } catch (const json::Json::exception&) {
    }
    return std::nullopt;
}

} // namespace

UserDefaults::UserDefaults(std::filesystem::path file)
    : file_(std::move(file)) {
    std::error_code error;
    if (!std::filesystem::exists(file_, error)) {
        return;
    }
    if (std::optional<json::Json> values = parseObject(file_)) {
        values_ = std::move(*values);
        return;
    }
    std::string stamp = IsoDate::now().string();
    std::replace(stamp.begin(), stamp.end(), ':', '-');
    std::filesystem::path keptAt = file_;
    keptAt += ".damaged-" + stamp;
    std::filesystem::rename(file_, keptAt, error);
    if (error) {
        throw FileError("无法读取设置文件：" + file_.string());
    }
    damagedFileKeptAt_ = keptAt;
}

bool UserDefaults::contains(std::string_view key) const {
    return values_.contains(key);
}

std::optional<json::Json> UserDefaults::value(std::string_view key) const {
    const auto found = values_.find(key);
    if (found == values_.end()) {
        return std::nullopt;
    }
    return *found;
}

std::optional<bool> UserDefaults::boolean(std::string_view key) const {
    const std::optional<json::Json> found = value(key);
    if (!found || !found->is_boolean()) {
        return std::nullopt;
    }
    return found->get<bool>();
}

std::optional<std::int64_t> UserDefaults::integer(std::string_view key) const {
    const std::optional<json::Json> found = value(key);
    if (!found || !found->is_number_integer()) {
        return std::nullopt;
    }
    return found->get<std::int64_t>();
}

std::optional<std::string> UserDefaults::string(std::string_view key) const {
    const std::optional<json::Json> found = value(key);
    if (!found || !found->is_string()) {
        return std::nullopt;
    }
    return found->get<std::string>();
}

std::optional<IsoDate> UserDefaults::date(std::string_view key) const {
    const std::optional<std::string> text = string(key);
    return text ? IsoDate::parse(*text) : std::nullopt;
}

void UserDefaults::set(std::string_view key, json::Json value) {
    json::Json changed = values_;
    changed[std::string(key)] = std::move(value);
    write(changed);
    values_ = std::move(changed);
}

void UserDefaults::setDate(std::string_view key, IsoDate date) {
    set(key, date.string());
}

void UserDefaults::remove(std::string_view key) {
    if (!contains(key)) {
        return;
    }
    json::Json changed = values_;
    changed.erase(std::string(key));
    write(changed);
    values_ = std::move(changed);
}

void UserDefaults::write(const json::Json& values) const {
    std::error_code error;
    std::filesystem::create_directories(file_.parent_path(), error);
    if (error) {
        throw FileError("无法写入设置文件：" + file_.string());
    }
    writeFileAtomically(file_, json::write(values, json::JsonStyle::document));
}

} // namespace rilo

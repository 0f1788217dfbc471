#include "shared/IsoDate.h"

#include <chrono>
#include <cstdio>

namespace rilo {

namespace {
bool readNumber(std::string_view text, std::size_t at, std::size_t digits, int& out) noexcept {
    if (at + digits > text.size()) {
        return false;
    }
    int value = 0;
    for (std::size_t i = at; i < at + digits; ++i) {
        if (text[i] < '0' || text[i] > '9') {
            return false;
        }
        value = value * 10 + (text[i] - '0');
    }
    out = value;
    return true;
}
} // namespace

IsoDate IsoDate::now() noexcept {
    const auto seconds =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch());
    return {seconds.count()};
}

std::optional<IsoDate> IsoDate::parse(std::string_view text) noexcept {
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    if (text.size() < 20 || !readNumber(text, 0, 4, year) || text[4] != '-' ||
        !readNumber(text, 5, 2, month) || text[7] != '-' || !readNumber(text, 8, 2, day) || text[10] != 'T' ||
        !readNumber(text, 11, 2, hour) || text[13] != ':' || !readNumber(text, 14, 2, minute) ||
        text[16] != ':' || !readNumber(text, 17, 2, second)) {
        return std::nullopt;
    }
    std::int64_t offsetSeconds = 0;
    const std::string_view zone = text.substr(19);
    if (zone == "Z") {
        offsetSeconds = 0;
    } else if (zone.size() == 6 && (zone[0] == '+' || zone[0] == '-') && zone[3] == ':') {
        int zoneHours = 0, zoneMinutes = 0;
        if (!readNumber(zone, 1, 2, zoneHours) || !readNumber(zone, 4, 2, zoneMinutes) || zoneHours > 23 ||
            zoneMinutes > 59) {
            return std::nullopt;
        }
        offsetSeconds = (zoneHours * 3600 + zoneMinutes * 60) * (zone[0] == '-' ? -1 : 1);
    } else {
        return std::nullopt;
    }
    using namespace std::chrono;
    const year_month_day date{std::chrono::year{year}, std::chrono::month{static_cast<unsigned>(month)},
                              std::chrono::day{static_cast<unsigned>(day)}};
    if (!date.ok() || hour > 23 || minute > 59 || second > 59) {
        return std::nullopt;
    }
    const std::int64_t days = sys_days{date}.time_since_epoch().count();
    return IsoDate{days * 86400 + hour * 3600 + minute * 60 + second - offsetSeconds};
}

std::string IsoDate::string() const {
    using namespace std::chrono;
    const sys_seconds moment{seconds{secondsSinceEpoch}};
    const sys_days day = floor<days>(moment);
    const year_month_day date{day};
    const hh_mm_ss time{moment - day};
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                  static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
                  static_cast<int>(time.seconds().count()));
    return buffer;
}

} // namespace rilo

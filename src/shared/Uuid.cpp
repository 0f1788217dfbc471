#include "shared/Uuid.h"

#include "shared/Checked.h"

#include <cerrno>
#include <stdexcept>
#include <sys/random.h>

namespace rilo {

namespace {
int hexDigit(char c) noexcept {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

bool isDashPosition(std::size_t i) noexcept {
    return i == 8 || i == 13 || i == 18 || i == 23;
}
} // namespace

Uuid Uuid::random() {
    Uuid uuid;
    std::size_t filled = 0;
    while (filled < uuid.bytes.size()) {
        const ssize_t n = getrandom(uuid.bytes.data() + filled, uuid.bytes.size() - filled, 0);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            programmingFault("no random bytes for a UUID");
        }
        filled += static_cast<std::size_t>(n);
    }
    uuid.bytes[6] = static_cast<std::uint8_t>((uuid.bytes[6] & 0x0F) | 0x40);
    uuid.bytes[8] = static_cast<std::uint8_t>((uuid.bytes[8] & 0x3F) | 0x80);
    return uuid;
}

std::optional<Uuid> Uuid::parse(std::string_view text) noexcept {
    if (text.size() != 36) {
        return std::nullopt;
    }
    Uuid uuid;
    std::size_t byte = 0;
    for (std::size_t i = 0; i < text.size();) {
        if (isDashPosition(i)) {
            if (text[i] != '-') {
                return std::nullopt;
            }
            ++i;
            continue;
        }
        const int high = hexDigit(text[i]);
        const int low = hexDigit(text[i + 1]);
        if (high < 0 || low < 0 || isDashPosition(i + 1)) {
            return std::nullopt;
        }
        uuid.bytes[byte++] = static_cast<std::uint8_t>(high * 16 + low);
        i += 2;
    }
    return uuid;
}

std::string Uuid::string() const {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(36);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) {
            text.push_back('-');
        }
        text.push_back(digits[bytes[i] >> 4]);
        text.push_back(digits[bytes[i] & 0x0F]);
    }
    return text;
}

} // namespace rilo

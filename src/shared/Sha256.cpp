#include "shared/Sha256.h"

#include "shared/Files.h"

#include <array>
#include <openssl/evp.h>
#include <stdexcept>

namespace rilo {

std::string sha256Hex(std::string_view bytes) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int length = 0;
    if (EVP_Digest(bytes.data(), bytes.size(), digest.data(), &length, EVP_sha256(), nullptr) != 1) {
        throw std::runtime_error("SHA-256 failed");
    }
    static constexpr char digits[] = "0123456789abcdef";
    std::string hex;
    hex.reserve(length * 2);
    for (unsigned int i = 0; i < length; ++i) {
        hex.push_back(digits[digest[i] >> 4]);
        hex.push_back(digits[digest[i] & 0x0F]);
    }
    return hex;
}

std::string sha256HexOfFile(const std::filesystem::path& path) {
    return sha256Hex(readFileBytes(path));
}

} // namespace rilo

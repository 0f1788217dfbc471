#include "shared/Sha256.h"

#include "shared/Checked.h"
#include "shared/Files.h"

#include <array>
#include <memory>
#include <openssl/evp.h>
#include <stdexcept>

namespace rilo {

namespace {

std::string hexDigits(const unsigned char* digest, unsigned int length) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string hex;
    hex.reserve(length * 2);
    for (unsigned int i = 0; i < length; ++i) {
        hex.push_back(digits[digest[i] >> 4]);
        hex.push_back(digits[digest[i] & 0x0F]);
    }
    return hex;
}

struct DigestContextDeleter {
    void operator()(EVP_MD_CTX* context) const noexcept { EVP_MD_CTX_free(context); }
};

} // namespace

std::string sha256Hex(std::string_view bytes) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int length = 0;
    if (EVP_Digest(bytes.data(), bytes.size(), digest.data(), &length, EVP_sha256(), nullptr) != 1) {
        programmingFault("SHA-256 failed");
    }
    return hexDigits(digest.data(), length);
}

std::string sha256Hex(std::span<const std::string_view> parts) {
    const std::unique_ptr<EVP_MD_CTX, DigestContextDeleter> context(EVP_MD_CTX_new());
    if (!context || EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) != 1) {
        programmingFault("SHA-256 failed");
    }
    for (const std::string_view part : parts) {
        if (EVP_DigestUpdate(context.get(), part.data(), part.size()) != 1) {
            programmingFault("SHA-256 failed");
        }
    }
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int length = 0;
    if (EVP_DigestFinal_ex(context.get(), digest.data(), &length) != 1) {
        programmingFault("SHA-256 failed");
    }
    return hexDigits(digest.data(), length);
}

std::string sha256HexOfFile(const std::filesystem::path& path) {
    return sha256Hex(readFileBytes(path));
}

} // namespace rilo

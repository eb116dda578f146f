#include "store/Sha256.h"

#include <openssl/evp.h>

#include <stdexcept>

namespace vosklin {

Sha256::Sha256() : context_(EVP_MD_CTX_new(), EVP_MD_CTX_free) {
    if (!context_ || EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr) != 1)
        throw std::runtime_error("SHA-256 is unavailable");
}

void Sha256::update(const void* data, std::size_t size) {
    if (size > 0 && EVP_DigestUpdate(context_.get(), data, size) != 1) throw std::runtime_error("SHA-256 update failed");
}

std::string Sha256::hex() {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_DigestFinal_ex(context_.get(), digest, &length) != 1) throw std::runtime_error("SHA-256 failed");
    static const char digits[] = "0123456789abcdef";
    std::string text;
    for (unsigned int i = 0; i < length; ++i) {
        text += digits[digest[i] >> 4];
        text += digits[digest[i] & 15];
    }
    return text;
}

std::string Sha256::of(std::string_view bytes) {
    Sha256 hash;
    hash.update(bytes);
    return hash.hex();
}

}  // namespace vosklin

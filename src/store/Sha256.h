#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

struct evp_md_ctx_st;

namespace vosklin {

// An incremental SHA-256 (OpenSSL, which uses the CPU's SHA extensions).
// One instance per digest, not shared between threads. OpenSSL failures are
// thrown as std::runtime_error.
class Sha256 {
public:
    Sha256();
    void update(const void* data, std::size_t size);
    void update(std::string_view bytes) { update(bytes.data(), bytes.size()); }
    // The digest as 64 lowercase hexadecimal characters; the instance is spent afterwards.
    std::string hex();

    static std::string of(std::string_view bytes);

private:
    std::unique_ptr<evp_md_ctx_st, void (*)(evp_md_ctx_st*)> context_;
};

}  // namespace vosklin

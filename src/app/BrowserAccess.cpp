#include "app/BrowserAccess.h"

#include <openssl/crypto.h>

#include "app/DaemonEndpoint.h"

namespace vosklin {

namespace {

// Comparison that takes as long whatever the bytes, so timing tells nothing of a secret.
bool sameSecret(const std::string& a, const std::string& b) {
    return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

}  // namespace

BrowserAccess::BrowserAccess(Clock& clock, std::string token, int port)
    : clock_(clock), token_(std::move(token)), port_(port) {}

std::string BrowserAccess::issueLoginCode() {
    const std::string code = DaemonEndpoint::makeToken();
    std::lock_guard guard(lock_);
    const double now = clock_.now();
    std::erase_if(codes_, [&](const auto& entry) { return now - entry.second > codeLifetime; });
    codes_[code] = now;
    return code;
}

std::optional<std::string> BrowserAccess::redeem(const std::string& code) {
    std::lock_guard guard(lock_);
    const auto found = codes_.find(code);
    if (found == codes_.end()) return std::nullopt;
    const double issued = found->second;
    codes_.erase(found);
    const double now = clock_.now();
    if (now - issued > codeLifetime || now < issued) return std::nullopt;
    const std::string session = DaemonEndpoint::makeToken();
    sessions_[session] = now;
    return session;
}

std::string BrowserAccess::sessionCookie(const std::string& session) {
    return std::string(cookieName) + "=" + session + "; Path=/; HttpOnly; SameSite=Strict";
}

std::optional<std::string> BrowserAccess::sessionOf(const std::string& header) const {
    const std::string prefix = std::string(cookieName) + "=";
    std::size_t start = 0;
    while (start < header.size()) {
        while (start < header.size() && (header[start] == ' ' || header[start] == ';')) ++start;
        const auto end = std::min(header.find(';', start), header.size());
        const std::string pair = header.substr(start, end - start);
        if (pair.starts_with(prefix)) {
            const std::string value = pair.substr(prefix.size());
            for (const auto& [session, since] : sessions_)
                if (sameSecret(session, value)) return session;
        }
        start = end + 1;
    }
    return std::nullopt;
}

BrowserAccess::Verdict BrowserAccess::checkOrigin(const Request& request) const {
    const std::string port = std::to_string(port_);
    if (request.host != "127.0.0.1:" + port && request.host != "localhost:" + port)
        return {403, "This API answers only requests addressed to 127.0.0.1:" + port};
    if (!request.fetchSite.empty() && request.fetchSite != "same-origin" && request.fetchSite != "none")
        return {403, "Requests from other sites are refused"};
    return {};
}

BrowserAccess::Verdict BrowserAccess::check(const Request& request) const {
    if (auto origin = checkOrigin(request); !origin.allowed()) return origin;
    const bool changesState = request.method != "GET" && request.method != "HEAD";
    if (!request.authorization.empty()) {
        if (sameSecret(request.authorization, "Bearer " + token_)) return {};
        return {401, "Missing or wrong API token"};
    }
    std::lock_guard guard(lock_);
    if (!sessionOf(request.cookie)) return {401, "Not signed in: run 'vosklin ui' for a login link"};
    if (changesState && !request.hasRequestHeader)
        return {403, std::string("A request that changes something must carry the ") + requestHeader + " header"};
    return {};
}

}  // namespace vosklin

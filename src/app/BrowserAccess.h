#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "platform/Clock.h"

namespace vosklin {

// Who may use the daemon's web API, and how a browser proves it is the user's.
//
// A browser gets in with a one-time login code (`issueLoginCode`, printed by
// the command line): the code works once, within `codeLifetime` seconds, and
// is traded for a session kept in an HttpOnly, SameSite=Strict cookie. Other
// clients send the daemon's API token as "Authorization: Bearer".
//
// Every request is checked, in this order: the Host header names this port on
// 127.0.0.1 or localhost (no DNS rebinding); Sec-Fetch-Site, when the browser
// sends it, says "same-origin" or "none" (a page of another origin, even
// another local port, is refused); the token or a live session; and a request
// that changes state, made with the cookie, carries the custom header
// `requestHeader` (which no cross-origin page can add without a preflight this
// server never grants). GET never changes state.
//
// Thread-safe. Codes and sessions live in memory: a restarted daemon forgets them.
class BrowserAccess {
public:
    static constexpr double codeLifetime = 120;
    static constexpr const char* cookieName = "vosklin_session";
    static constexpr const char* requestHeader = "X-Vosklin-Request";

    struct Request {
        std::string method;  // "GET", "POST", ...
        std::string host;
        std::string authorization;
        std::string cookie;         // the whole Cookie header
        bool hasRequestHeader = false;
        std::string fetchSite;      // Sec-Fetch-Site, empty when absent
    };
    struct Verdict {
        int status = 200;  // 200 allowed; else 401 or 403
        std::string error;
        bool allowed() const { return status == 200; }
    };

    BrowserAccess(Clock& clock, std::string token, int port);

    std::string issueLoginCode();
    // A new session for a code that is known, unused and unexpired; the code is spent either way.
    std::optional<std::string> redeem(const std::string& code);
    Verdict check(const Request& request) const;
    // Only the first two checks (Host, Sec-Fetch-Site): for what needs no session (the
    // window's own files, the login).
    Verdict checkOrigin(const Request& request) const;
    // The Set-Cookie value that holds `session`.
    static std::string sessionCookie(const std::string& session);

private:
    std::optional<std::string> sessionOf(const std::string& cookieHeader) const;

    Clock& clock_;
    std::string token_;
    int port_;
    mutable std::mutex lock_;
    std::map<std::string, double> codes_;  // code -> when it was issued
    std::map<std::string, double> sessions_;
};

}  // namespace vosklin

#include "app/BrowserAccess.h"

#include <gtest/gtest.h>

#include "support/ManualClock.h"

namespace vosklin {
namespace {

TEST(BrowserAccessTest, ALoginCodeWorksOnceAndOnlyWithinTwoMinutes) {
    test::ManualClock clock;
    BrowserAccess access(clock, "token", 4242);
    const auto code = access.issueLoginCode();
    EXPECT_FALSE(access.redeem("not-a-code"));
    const auto session = access.redeem(code);
    ASSERT_TRUE(session);
    EXPECT_FALSE(access.redeem(code)) << "a code works once";
    EXPECT_NE(*session, code);

    const auto late = access.issueLoginCode();
    clock.advance(120);
    EXPECT_TRUE(access.redeem(late)) << "still good at exactly two minutes";
    const auto expired = access.issueLoginCode();
    clock.advance(120.5);
    EXPECT_FALSE(access.redeem(expired));
    EXPECT_EQ(BrowserAccess::sessionCookie("abc"), "vosklin_session=abc; Path=/; HttpOnly; SameSite=Strict");
}

TEST(BrowserAccessTest, EachRefusalHasItsStatusAndEveryGoodRequestPasses) {
    test::ManualClock clock;
    BrowserAccess access(clock, "token", 4242);
    const std::string session = *access.redeem(access.issueLoginCode());
    const std::string cookie = "theme=dark; vosklin_session=" + session;
    using R = BrowserAccess::Request;
    const struct {
        const char* name;
        R request;
        int status;
    } cases[] = {
        {"token", {"POST", "127.0.0.1:4242", "Bearer token", "", false, ""}, 200},
        {"token via localhost", {"GET", "localhost:4242", "Bearer token", "", false, ""}, 200},
        {"wrong token", {"GET", "127.0.0.1:4242", "Bearer nope", cookie, false, ""}, 401},
        {"cookie, read", {"GET", "127.0.0.1:4242", "", cookie, false, "same-origin"}, 200},
        {"cookie, change with the header", {"POST", "127.0.0.1:4242", "", cookie, true, "same-origin"}, 200},
        {"login link opened from outside", {"GET", "127.0.0.1:4242", "", cookie, false, "none"}, 200},
        {"cookie, change without the header", {"POST", "127.0.0.1:4242", "", cookie, false, "same-origin"}, 403},
        {"cookie, DELETE without the header", {"DELETE", "127.0.0.1:4242", "", cookie, false, ""}, 403},
        {"no credentials", {"GET", "127.0.0.1:4242", "", "theme=dark", false, ""}, 401},
        {"unknown session", {"GET", "127.0.0.1:4242", "", "vosklin_session=forged", false, ""}, 401},
        {"a session's prefix", {"GET", "127.0.0.1:4242", "", "vosklin_session=" + session.substr(0, 8), false, ""}, 401},
        {"rebinding: another host name", {"GET", "evil.example:4242", "", cookie, false, ""}, 403},
        {"another port", {"GET", "127.0.0.1:4243", "Bearer token", "", false, ""}, 403},
        {"no host", {"GET", "", "Bearer token", "", false, ""}, 403},
        {"cross-site page", {"POST", "127.0.0.1:4242", "", cookie, true, "cross-site"}, 403},
        {"another local port's page", {"GET", "127.0.0.1:4242", "", cookie, false, "same-site"}, 403},
        {"cross-site even with the token", {"GET", "127.0.0.1:4242", "Bearer token", "", false, "cross-site"}, 403},
    };
    for (const auto& c : cases) EXPECT_EQ(access.check(c.request).status, c.status) << c.name;
}

}  // namespace
}  // namespace vosklin

#include "simulator/web/RequestGuard.h"

#include <map>

#include <gtest/gtest.h>
#include <unistd.h>

namespace Vantor {

class RequestGuardTest : public testing::Test {
protected:
    using Headers = std::map<std::string, std::string>;

    static RequestGuard::Header in(const Headers& headers)
    {
        return [headers](const char* name) {
            const auto known = headers.find(name);
            return known != headers.end() ? known->second : std::string();
        };
    }

    bool isAnswered(const Headers& headers) const { return m_guard.refuse("/api/state", in(headers)).empty(); }
    bool isAnsweredFor(const std::string& host) const { return isAnswered({{"Host", host}}); }

    const RequestGuard m_guard{WebAddress{}, 8080};
    const std::string m_host = "127.0.0.1:8080";
};

TEST_F(RequestGuardTest, hostOnLoopback_isOneThatNobodyElseCanName)
{
    for (const char* const host : {"127.0.0.1:8080", "localhost:8080", "[::1]:8080", "127.9.8.7:8080"})
        EXPECT_TRUE(isAnsweredFor(host)) << host;
    for (const char* const host :
         {"", "127.0.0.1", "127.0.0.1:8081", "127.0.0.1:80800", "evil.example:8080", "127.0.0.1.evil.example:8080",
          "localhost.evil.example:8080", "192.168.1.2:8080", "[::2]:8080", ":8080", "[]:8080", "127.evil:8080",
          "localhost:8080@evil.example", "localhost"})
        EXPECT_FALSE(isAnsweredFor(host)) << host;
    char name[256] = {};
    ASSERT_EQ(gethostname(name, sizeof name - 1), 0);
    EXPECT_FALSE(isAnsweredFor(std::string(name) + ":8080"));
}

TEST_F(RequestGuardTest, hostElsewhere_isAnAddressInFiguresOrTheMachinesName)
{
    const RequestGuard guard{WebAddress{"0.0.0.0", 0}, 8080};
    char name[256] = {};
    ASSERT_EQ(gethostname(name, sizeof name - 1), 0);
    for (const std::string& host : {std::string("192.168.1.2:8080"), std::string("[fe80::1]:8080"),
                                    std::string(name) + ":8080", std::string("localhost:8080")})
        EXPECT_TRUE(guard.refuse("/", in({{"Host", host}})).empty()) << host;
    EXPECT_FALSE(guard.refuse("/", in({{"Host", "evil.example:8080"}})).empty());
}

TEST_F(RequestGuardTest, pageOfAnotherOrigin_isRefused)
{
    EXPECT_TRUE(isAnswered({{"Host", m_host}, {"Origin", "http://127.0.0.1:8080"}}));
    for (const char* const origin :
         {"null", "http://evil.example", "https://127.0.0.1:8080", "http://127.0.0.1:8081", "http://localhost:8080"})
        EXPECT_FALSE(isAnswered({{"Host", m_host}, {"Origin", origin}})) << origin;
    EXPECT_TRUE(isAnswered({{"Host", m_host}, {"Sec-Fetch-Site", "same-origin"}}));
    EXPECT_TRUE(isAnswered({{"Host", m_host}, {"Sec-Fetch-Site", "none"}}));
    EXPECT_FALSE(isAnswered({{"Host", m_host}, {"Sec-Fetch-Site", "cross-site"}}));
    EXPECT_FALSE(isAnswered({{"Host", m_host}, {"Sec-Fetch-Site", "same-site"}}));
}

TEST_F(RequestGuardTest, linkOfAnotherPage_leadsToThePageAndNothingElse)
{
    Headers link{{"Host", m_host},
                 {"Sec-Fetch-Site", "cross-site"},
                 {"Sec-Fetch-Mode", "navigate"},
                 {"Sec-Fetch-Dest", "document"}};
    EXPECT_EQ(m_guard.refuse("/", in(link)), "");
    EXPECT_EQ(m_guard.refuse("/index.html", in(link)), "");
    EXPECT_NE(m_guard.refuse("/api/events", in(link)), "");
    link["Sec-Fetch-Dest"] = "iframe";
    EXPECT_NE(m_guard.refuse("/", in(link)), "");
}

TEST_F(RequestGuardTest, usualPort_needNotBeSaid)
{
    const RequestGuard guard{WebAddress{}, 80};
    for (const char* const host : {"127.0.0.1", "localhost:80", "LocalHost", "[::1]", "[::1]:80"})
        EXPECT_EQ(guard.refuse("/", in({{"Host", host}})), "") << host;
    for (const char* const host : {"", "evil.example", "127.0.0.1:8080", "127.0.0.1:", ":80"})
        EXPECT_NE(guard.refuse("/", in({{"Host", host}})), "") << host;
}

TEST_F(RequestGuardTest, command_needsTheToken)
{
    const std::string token = m_guard.getToken();
    EXPECT_EQ(token.size(), 32U);
    EXPECT_EQ(token.find_first_not_of("0123456789abcdef"), std::string::npos);
    EXPECT_TRUE(m_guard.refuseCommand(in({{"X-Panelsim-Token", token}})).empty());
    EXPECT_FALSE(m_guard.refuseCommand(in({})).empty());
    EXPECT_FALSE(m_guard.refuseCommand(in({{"X-Panelsim-Token", token.substr(1)}})).empty());
    std::string another = token;
    another.back() = another.back() == '0' ? '1' : '0';
    EXPECT_FALSE(m_guard.refuseCommand(in({{"X-Panelsim-Token", another}})).empty());
    EXPECT_NE(RequestGuard(WebAddress{}, 8080).getToken(), token);
}

} // namespace Vantor

#include "simulator/web/WebAddress.h"

#include <gtest/gtest.h>

namespace Vantor {

TEST(WebAddress, portOrAddressAndPort_isRead)
{
    struct Case {
        const char* text;
        const char* address;
        int port;
        bool isLoopback;
        const char* shown;
    };
    for (const Case& test : {Case{"", "127.0.0.1", 0, true, "127.0.0.1:80"},
                             {"8080", "127.0.0.1", 8080, true, "127.0.0.1:80"},
                             {"65535", "127.0.0.1", 65535, true, "127.0.0.1:80"},
                             {"127.0.0.5:0", "127.0.0.5", 0, true, "127.0.0.5:80"},
                             {"0.0.0.0:8080", "0.0.0.0", 8080, false, "0.0.0.0:80"},
                             {"[::1]:1", "::1", 1, true, "[::1]:80"},
                             {"[::]:8080", "::", 8080, false, "[::]:80"}}) {
        const ParsedWebAddress parsed = parseWebAddress(test.text);
        EXPECT_EQ(parsed.error, "") << test.text;
        EXPECT_EQ(parsed.address.address, test.address);
        EXPECT_EQ(parsed.address.port, test.port);
        EXPECT_EQ(parsed.address.isLoopback(), test.isLoopback);
        EXPECT_EQ(parsed.address.format(80), test.shown);
    }
}

TEST(WebAddress, somethingElse_isRefused)
{
    for (const char* const text : {"65536", "-1", "x", ":8080", "localhost:8080", "::1:8080", "[::1]", "[::1:8080",
                                   "[127.0.0.1]:80", "1.2.3:80", "0.0.0.0:", " 80", "80 "})
        EXPECT_NE(parseWebAddress(text).error, "") << text;
    EXPECT_EQ(parseWebAddress("x").error, "expected PORT or ADDRESS:PORT, the address in figures, found \"x\"");
}

} // namespace Vantor

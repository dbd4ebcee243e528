#include "panel2mqtt/broker/Loopback.h"

#include <string>

#include <gtest/gtest.h>

namespace Vantor {
namespace {

TEST(Loopback, thisMachine_is)
{
    for (const std::string address :
         {"127.0.0.1", "127.255.255.255", "127.0.0.0", "::1", "0:0:0:0:0:0:0:1", "localhost", "LocalHost"})
        EXPECT_TRUE(isLoopback(address)) << address;
}

TEST(Loopback, whatOnlyLooksSo_isNot)
{
    for (const std::string address :
         {"", "128.0.0.1", "126.255.255.255", "0.0.0.0", "::", "::2", "127.0.0.1.example.org", "localhost.example.org",
          "127.1", " 127.0.0.1", "::127.0.0.1", "[::1]"})
        EXPECT_FALSE(isLoopback(address)) << address;
}

} // namespace
} // namespace Vantor

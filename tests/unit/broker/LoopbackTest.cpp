#include "panel2mqtt/broker/Loopback.h"

#include <gtest/gtest.h>

namespace Vantor {

namespace {

TEST(Loopback, addressOfThisMachine_isOne)
{
    for (const char* address : {"127.0.0.1", "127.0.0.0", "127.255.255.255", "::1", "0:0:0:0:0:0:0:1",
                                "::ffff:127.0.0.1", "localhost", "LocalHost"})
        EXPECT_TRUE(isLoopback(std::string(address))) << address;
}

TEST(Loopback, otherAddress_isNone)
{
    for (const char* address : {"", "126.255.255.255", "128.0.0.0", "0.0.0.0", "::", "::2", "::ffff:128.0.0.1", "127",
                                "127.0.0.1.example", "localhost.example", "broker", "[::1]"})
        EXPECT_FALSE(isLoopback(std::string(address))) << address;
}

} // namespace

} // namespace Vantor

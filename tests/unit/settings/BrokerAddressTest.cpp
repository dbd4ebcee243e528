#include "panel2mqtt/settings/BrokerAddress.h"

#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

namespace Vantor {
namespace {

std::string brokerAt(const std::string& text)
{
    BrokerSettings settings;
    settings.port = 7;
    setBrokerAddress(settings, text);
    return settings.address + " " + std::to_string(settings.port);
}

} // namespace

TEST(BrokerAddress, withAPort_replacesBoth)
{
    EXPECT_EQ(brokerAt("127.0.0.1:1884"), "127.0.0.1 1884");
    EXPECT_EQ(brokerAt("localhost:65535"), "localhost 65535");
    EXPECT_EQ(brokerAt("[::1]:1"), "::1 1");
}

TEST(BrokerAddress, withoutAPort_leavesIt)
{
    EXPECT_EQ(brokerAt("localhost"), "localhost 7");
    EXPECT_EQ(brokerAt("::1"), "::1 7");
    EXPECT_EQ(brokerAt("[::1]"), "::1 7");
}

TEST(BrokerAddress, noPort_isRefused)
{
    for (const char* const text : {"", "a:", "a:0", "a:65536", "a:x", "a:-1", "a:123456"})
        EXPECT_THROW(brokerAt(text), std::invalid_argument) << text;
}

TEST(BrokerAddress, password_isNotRepeated)
{
    for (const char* const text : {"user:secret@127.0.0.1", "user:secret@127.0.0.1:1883", "user@host"}) {
        try {
            brokerAt(text);
            FAIL() << text;
        } catch (const std::invalid_argument& error) {
            EXPECT_EQ(std::string(error.what()), "expected ADDRESS[:PORT]; the user and a file with the password are "
                                                 "broker.user and broker.password_file of the configuration");
        }
    }
}

TEST(BrokerAddress, noAddress_isRefused)
{
    for (const char* const text : {":1883", "[", "[]", "[]:1", "[broker.example:8883", "[::1"})
        EXPECT_THROW(brokerAt(text), std::invalid_argument) << text;
}

} // namespace Vantor

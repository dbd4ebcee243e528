#include "panel2mqtt/settings/BrokerProbe.h"
#include "tests/unit/settings/Listener.h"

#include <vector>

#include <gtest/gtest.h>

namespace Vantor {
namespace {

using Outcome = BrokerProbe::Outcome;
using std::chrono::milliseconds;

constexpr milliseconds ample(10000);

TEST(BrokerProbe, whoeverListens_isReached)
{
    const Listener listener;
    EXPECT_EQ(BrokerProbe::run("127.0.0.1", listener.getPort(), ample).outcome, Outcome::Reached);
    // Whichever of its addresses come first.
    EXPECT_EQ(BrokerProbe::run("localhost", listener.getPort(), ample).outcome, Outcome::Reached);
}

TEST(BrokerProbe, closedPort_isRefused)
{
    const BrokerProbe probe = BrokerProbe::run("127.0.0.1", findClosedPort(), ample);
    EXPECT_EQ(probe.outcome, Outcome::NotReached);
    EXPECT_EQ(probe.reason, "Connection refused");
}

TEST(BrokerProbe, noName_isTold)
{
    const BrokerProbe probe = BrokerProbe::run("no..name", 1883, ample);
    EXPECT_EQ(probe.outcome, Outcome::NoSuchName);
    EXPECT_FALSE(probe.reason.empty());
}

// A full backlog drops whoever knocks.
TEST(BrokerProbe, silence_endsWithTheLimit)
{
    const Listener listener(0);
    BrokerProbe probe{Outcome::Reached, ""};
    std::vector<int> knocking;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(listener.getPort());
    for (int i = 0; i < 4; ++i) {
        knocking.push_back(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        (void)connect(knocking.back(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    }
    const auto start = std::chrono::steady_clock::now();
    probe = BrokerProbe::run("127.0.0.1", listener.getPort(), milliseconds(50));
    EXPECT_EQ(probe.outcome, Outcome::NotReached);
    EXPECT_EQ(probe.reason, "Connection timed out");
    EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(50));
    for (const int descriptor : knocking)
        close(descriptor);
}

} // namespace
} // namespace Vantor

// The gateway ends orderly and soon, whatever it is doing: its exit code is 0, and what the
// broker retains says so.
#include "tests/mqtt/GatewayHost.h"
#include "tests/mqtt/MqttPeer.h"
#include "tests/mqtt/StubbornPort.h"

#include <chrono>
#include <csignal>
#include <cstdint>
#include <fstream>
#include <ios>
#include <memory>
#include <string>
#include <thread>

#include <gmock/gmock.h>

namespace Vantor {

namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;

class GatewayEnd : public testing::Test {
protected:
    // A second for what waits for the broker, half a second for USB; the rest is for a machine with much to do.
    static void expectOrderlyEnd(GatewayHost& host)
    {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(host.stop(), 0) << host.readErrors();
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    }
    void expectToldAway(const GatewayHost& host) const
    {
        const auto topics = readRetained(m_broker, host.topicOf("#"));
        EXPECT_THAT(topics.at(host.topicOf("state")), HasSubstr("\"online\":false"));
        const std::string& panel = topics.at(host.topicOf("1-1/state"));
        EXPECT_THAT(panel, HasSubstr("\"online\":false"));
        EXPECT_THAT(panel, HasSubstr("\"reason\":\"the gateway has ended\""));
    }
    void await(const GatewayHost& host)
    {
        m_peer.subscribe(host.topicOf("answer/test"));
        host.awaitPanels(m_peer);
    }

    MosquittoBroker m_broker;
    MqttPeer m_peer{m_broker.getSettings()};
};

// It reads the signal itself; before, nothing has begun that is to be ended.
bool holdsBackSigterm(int process)
{
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string word; status >> word;) {
        std::uint64_t signals = 0;
        if (word == "SigBlk:" && status >> std::hex >> signals)
            return (signals >> (SIGTERM - 1) & 1) != 0;
    }
    return false;
}

} // namespace

TEST_F(GatewayEnd, idle_isToldAtOnce)
{
    GatewayHost host(m_broker, {});
    await(host);
    expectOrderlyEnd(host);
    expectToldAway(host);
}

TEST_F(GatewayEnd, amidRecords_takenIsThere)
{
    GatewayHost host(m_broker, {});
    await(host);
    std::vector<std::string> taken;
    for (unsigned int number = 0; number < 150; ++number) {
        Message record = makeCommand(host, "1-1/do/send/5", std::to_string(number), std::to_string(number));
        record.qos = 0;
        m_peer.publish(record);
    }
    expectOrderlyEnd(host);
    expectToldAway(host);
    while (const auto answer = m_peer.await(host.topicOf("answer/test"), milliseconds(200))) {
        if (wordOf(*answer) == "taken")
            taken.push_back(*answer->correlation);
    }
    const auto records = host.readRecords(0, 5);
    ASSERT_LE(taken.size(), records.size());
    EXPECT_TRUE(std::equal(taken.begin(), taken.end(), records.begin())) << testing::PrintToString(records);
}

TEST_F(GatewayEnd, panelThatTakesNothing_delaysItNot)
{
    GatewayHost host(m_broker, {});
    await(host);
    host.tell("fault 0 out silent sticky");
    for (unsigned int number = 0; number < 300; ++number) {
        Message record = makeCommand(host, "1-1/do/send/5", std::string(4000, 'x'), std::to_string(number));
        record.qos = 0;
        m_peer.publish(record);
    }
    EXPECT_EQ(wordOf(*m_peer.await(host.topicOf("answer/test"))), "busy");
    expectOrderlyEnd(host);
    expectToldAway(host);
}

TEST_F(GatewayEnd, amidAnUpgrade_isToldAndFoundInterrupted)
{
    const TemporaryFolder folder;
    writeFile(folder / "main.bin", std::string(200000, 'i'));
    GatewayHost::Options options;
    options.settings = "[firmware]\nfolder = \"" + folder.getPath() + "\"\n";
    GatewayHost host(m_broker, options);
    await(host);
    m_peer.subscribe(host.topicOf("1-1/job/+"));
    Message command = makeCommand(host, "1-1/do/flash", "", "j");
    command.userProperties = {{"main", "main.bin"}, {"id", "j"}};
    m_peer.publish(command);
    ASSERT_TRUE(m_peer.await([](const Message& message) {
        return message.payload.find("\"state\":\"writing\",\"bytesWritten\":") == 1 &&
               fieldOf(message.payload, "bytesWritten") != "0";
    }));
    expectOrderlyEnd(host);
    expectToldAway(host);
    host.start();
    EXPECT_TRUE(
        m_peer.await([](const Message& message) { return message.payload.find("\"state\":\"interrupted\"") == 1; }));
    await(host);
}

TEST_F(GatewayEnd, portsWhereNobodySpeaksMqtt_delayItNot)
{
    for (const auto manner : {StubbornPort::Manner::SwallowsSyn, StubbornPort::Manner::SaysNothing}) {
        const StubbornPort port(manner);
        GatewayHost::Options options;
        options.port = port.getPort();
        GatewayHost host(m_broker, options);
        EXPECT_TRUE(eventually([&] { return host.readErrors().find("a panel has come at 1-1") != std::string::npos; }));
        expectOrderlyEnd(host);
    }
}

TEST_F(GatewayEnd, brokerAway_delaysItNot)
{
    GatewayHost host(m_broker, {});
    await(host);
    m_broker.tell(SIGSTOP);
    expectOrderlyEnd(host);
    m_broker.tell(SIGCONT); // and has it all
    EXPECT_TRUE(eventually([&] {
        const auto topics = readRetained(m_broker, host.topicOf("state"));
        return topics.count(host.topicOf("state")) == 1 &&
               topics.at(host.topicOf("state")).find("\"online\":false") == 1;
    }));
    host.start();
    await(host);
    m_broker.stop(SIGKILL);
    expectOrderlyEnd(host);
}

TEST_F(GatewayEnd, anyMomentOfAStart_isOne)
{
    GatewayHost host(m_broker, {});
    await(host);
    constexpr int steps = 20;
    for (int step = 0; step < steps; ++step) {
        host.stop();
        host.start();
        // It is the program's from here on, and not its shell's.
        const std::string name = "/proc/" + std::to_string(host.getProcess()) + "/comm";
        ASSERT_TRUE(eventually([&] { return contentOf(name) == "panel2mqtt\n"; }));
        std::this_thread::sleep_for(milliseconds(10 * step));
        if (step + 1 == steps) {
            ASSERT_TRUE(eventually([&] { return holdsBackSigterm(host.getProcess()); }));
        }
        const bool isOrderly = holdsBackSigterm(host.getProcess());
        const int exitCode = host.stop();
        EXPECT_TRUE(exitCode == 0 || (exitCode == 128 + SIGTERM && !isOrderly)) << exitCode;
        host.start();
    }
    host.stop();
    const auto topics = readRetained(m_broker, host.topicOf("#"));
    const auto state = topics.find(host.topicOf("state"));
    ASSERT_NE(state, topics.end());
    EXPECT_THAT(state->second, HasSubstr("\"online\":false"));
}

} // namespace Vantor

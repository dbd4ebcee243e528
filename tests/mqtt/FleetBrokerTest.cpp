// panelfleet with a broker alone: what it is told, what it may, and what anybody may publish.
#include "tests/mqtt/MosquittoBroker.h"
#include "tests/mqtt/MqttPeer.h"
#include "tests/support/ToolRun.h"

#include <algorithm>
#include <csignal>
#include <string>

#include <gmock/gmock.h>

namespace Vantor {

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class FleetBroker : public testing::Test {
protected:
    FleetBroker() { writeFile(m_files / "main.bin", std::string("image")); }

    static ToolResult run(const MosquittoBroker& broker, ToolRun::Arguments arguments)
    {
        arguments.insert(arguments.begin(), MORVANE_PANELFLEET);
        arguments.insert(arguments.end(), {"--broker", "127.0.0.1:" + std::to_string(broker.getPort())});
        return runTool(arguments);
    }

    static void retain(MqttPeer& peer, const std::string& topic, const std::string& payload)
    {
        Message message;
        message.topic = topic;
        message.payload = payload;
        message.qos = 1;
        message.isRetained = true;
        peer.publish(message);
    }

    // With the user's password in a file, as it has to be.
    std::string configure(const MosquittoBroker& broker, const std::string& user, const std::string& password)
    {
        writeFile(m_files / "password", password + "\n");
        writeFile(m_files / "panelfleet.toml", "[broker]\nport = " + std::to_string(broker.getPort()) + "\nuser = \"" +
                                                   user + "\"\npassword_file = \"" + (m_files / "password") + "\"\n");
        return m_files / "panelfleet.toml";
    }

    const TemporaryFolder m_files;
};

constexpr const char* hostIsThere = R"({"online":true,"epoch":1,"run":"x","version":"1.2.1"})";
constexpr const char* panelIsThere = R"({"online":true,"epoch":1,"since":"2026-11-22T22:19:31Z"})";

} // namespace

TEST_F(FleetBroker, nothingThere_isNothingSelected)
{
    const MosquittoBroker broker;
    const ToolResult result = run(broker, {"list"});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_THAT(result.errors, HasSubstr("nothing is selected"));
    EXPECT_EQ(run(broker, {"status", "--id", "j"}).exitCode, 3);
    EXPECT_EQ(run(broker, {"flash", "--id", "j", "--main", m_files / "main.bin", "--all"}).exitCode, 3);
}

TEST_F(FleetBroker, noBroker_isToldAtOnce)
{
    MosquittoBroker broker;
    broker.stop();
    const ToolResult result = run(broker, {"list"});
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_EQ(result.errors,
              "panelfleet: no connection with the broker: 127.0.0.1 can't be reached: Connection refused\n");
    const ToolResult json = run(broker, {"list", "--json"});
    EXPECT_EQ(json.exitCode, 4);
    EXPECT_THAT(json.errors, IsEmpty());
    EXPECT_THAT(json.output,
                HasSubstr(R"({"event":"error","kind":"no-broker","text":"no connection with the broker: )"));
}

TEST_F(FleetBroker, wrongArguments_areToldBeforeAnythingIsDone)
{
    MosquittoBroker broker;
    broker.stop();
    const auto errorsOf = [&broker](const ToolRun::Arguments& arguments) {
        const ToolResult result = run(broker, arguments);
        EXPECT_EQ(result.exitCode, 2) << result.errors;
        return result.errors;
    };
    const std::string image = m_files / "main.bin";
    EXPECT_THAT(errorsOf({"flash", "--id", "j", "--main", image}), HasSubstr("which panels?"));
    EXPECT_THAT(errorsOf({"flash", "--id", "j", "--all"}), HasSubstr("expected one of --main and --servo"));
    EXPECT_THAT(errorsOf({"flash", "--id", "j/k", "--main", image, "--all"}), HasSubstr("'j/k' is not an id"));
    EXPECT_THAT(errorsOf({"flash", "--id", "j", "--main", "nothing", "--all"}), HasSubstr("No such file"));
    EXPECT_THAT(errorsOf({"flash", "--id", "j", "--main", "/dev/zero", "--all"}), HasSubstr("is no file"));
    writeFile(m_files / "large", std::string(16777217, 'x'));
    EXPECT_THAT(errorsOf({"flash", "--id", "j", "--main", m_files / "large", "--all"}), HasSubstr("16 MiB"));
    EXPECT_THAT(errorsOf({"list", "--config", m_files / "nothing"}), HasSubstr("No such file"));
    EXPECT_THAT(runTool({MORVANE_PANELFLEET, "list", "--broker", "192.0.2.1"}).errors, HasSubstr("tls = true"));
    EXPECT_THAT(runTool({MORVANE_PANELFLEET, "list", "--broker", "localhost:x"}).errors, HasSubstr("'x' is no port"));
}

TEST_F(FleetBroker, accessList_ofTheDocumentsIsEnough)
{
    MosquittoBroker::Options options;
    options.user = "rollouts";
    options.password = "secret";
    options.accessList = "user rollouts\ntopic read panel/1/#\ntopic write panel/1/+/+/do/flash\n"
                         "topic write panel/1/all/told\n";
    const MosquittoBroker broker(options);
    const ToolResult result =
        runTool({MORVANE_PANELFLEET, "list", "--config", configure(broker, "rollouts", "secret")});
    EXPECT_EQ(result.exitCode, 3) << result.errors;
    const ToolResult wrong = runTool({MORVANE_PANELFLEET, "list", "--config", configure(broker, "rollouts", "wrong")});
    EXPECT_EQ(wrong.exitCode, 4);
    EXPECT_THAT(wrong.errors, Not(HasSubstr("wrong")));
    broker.setAccessList("user rollouts\ntopic read panel/1/#\n");
    broker.tell(SIGHUP);
    const ToolResult denied =
        runTool({MORVANE_PANELFLEET, "list", "--config", configure(broker, "rollouts", "secret")});
    EXPECT_EQ(denied.exitCode, 4);
    EXPECT_THAT(denied.errors, HasSubstr("the broker does not take panel/1/all/told: the broker's access list"));
}

TEST_F(FleetBroker, certificatesBothWays_letInWhoHasTheBrokersAuthority)
{
    const TestAuthority authority;
    const TestAuthority other;
    MosquittoBroker::Options options;
    options.authority = &authority;
    options.wantsCertificates = true;
    const MosquittoBroker broker(options);
    const auto list = [&](const TestAuthority& known, const TestAuthority::Certificate& own) {
        writeFile(m_files / "tls.toml", "[broker]\nport = " + std::to_string(broker.getPort()) +
                                            "\ntls = true\nauthority = \"" + known.getFile() + "\"\ncertificate = \"" +
                                            own.file + "\"\nkey = \"" + own.keyFile + "\"\n");
        return runTool({MORVANE_PANELFLEET, "list", "--config", m_files / "tls.toml"});
    };
    const TestAuthority::Certificate own = authority.sign("rollouts");
    BrokerSettings settings = broker.getSettings();
    settings.certificateFile = own.file;
    settings.keyFile = own.keyFile;
    MqttPeer peer(settings);
    retain(peer, "panel/1/a/state", hostIsThere);
    retain(peer, "panel/1/a/1-1/state", panelIsThere);

    const ToolResult result = list(authority, own);
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_EQ(result.output, "a/1-1: there since 2026-11-22T22:19:31Z, gateway 1.2.1\n");
    const ToolResult stranger = list(authority, other.sign("rollouts"));
    EXPECT_EQ(stranger.exitCode, 4);
    // "does not", or "may not" where its reason was lost as it closed the connection right behind it.
    EXPECT_THAT(stranger.errors, HasSubstr(" not accept "));
    const ToolResult elsewhere = list(other, own);
    EXPECT_EQ(elsewhere.exitCode, 4);
    EXPECT_THAT(elsewhere.errors, HasSubstr("the broker's certificate is not of an authority in " + other.getFile()));
}

TEST_F(FleetBroker, commandThatIsDenied_isAFailureOfItsPanel)
{
    MosquittoBroker::Options options;
    options.user = "rollouts";
    options.password = "secret";
    options.accessList = "user rollouts\ntopic readwrite panel/1/+/state\ntopic readwrite panel/1/+/+/state\n"
                         "topic readwrite panel/1/all/told\n";
    const MosquittoBroker broker(options);
    MqttPeer peer(broker.getSettings());
    retain(peer, "panel/1/a/state", hostIsThere);
    retain(peer, "panel/1/a/1-1/state", panelIsThere);
    const ToolResult result = runTool({MORVANE_PANELFLEET, "flash", "--id", "j", "--main", m_files / "main.bin",
                                       "--all", "--config", configure(broker, "rollouts", "secret")});
    EXPECT_EQ(result.exitCode, 5) << result.errors;
    EXPECT_THAT(result.output, HasSubstr("a/1-1: failed: refused: the broker does not take the command: "));
}

TEST_F(FleetBroker, imageBeyondWhatTheBrokerTakes_isAFailureOfItsPanel)
{
    MosquittoBroker::Options options;
    options.further = "message_size_limit 1000\n";
    const MosquittoBroker broker(options);
    MqttPeer peer(broker.getSettings());
    retain(peer, "panel/1/a/state", hostIsThere);
    retain(peer, "panel/1/a/1-1/state", panelIsThere);
    writeFile(m_files / "main.bin", std::string(2000, 'x'));
    const ToolResult result = run(broker, {"flash", "--id", "j", "--main", m_files / "main.bin", "--all"});
    EXPECT_EQ(result.exitCode, 5);
    EXPECT_THAT(result.output, HasSubstr("larger than the broker takes"));
}

TEST_F(FleetBroker, whatAnybodyPublishes_isLeftOutWithANote)
{
    const MosquittoBroker broker;
    MqttPeer peer(broker.getSettings());
    retain(peer, "panel/1/a/state", hostIsThere);
    retain(peer, "panel/1/a/1-1/state", panelIsThere);
    retain(peer, "panel/1/a/1-2/state", std::string(2000, '['));
    retain(peer, "panel/1/a/1-3/state", std::string(1u << 20, '['));
    retain(peer, "panel/1/a/../state", panelIsThere);
    retain(peer, "panel/1/a b/state", hostIsThere);
    retain(peer, "panel/1/a/1-1/info",
           R"({"place":"1-1","description":"\u001b[2J\n","maxPacketSize":1,"payloadLimit":1})");
    retain(peer, "panel/1/b/state", R"({"online":true,"epoch":1,"run":"x","version":"\u001b]0;hello\u0007"})");
    const ToolResult result = run(broker, {"list"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.output, "(4 messages made no sense, and are left out)\n"
                             "a/1-1: there since 2026-11-22T22:19:31Z, gateway 1.2.1, '?[2J?', packets of 1 bytes\n"
                             "b: there, without panels, gateway ?]0;hello?\n");
}

TEST_F(FleetBroker, thousandsOfHosts_areReadWholeUpToTheBound)
{
    const MosquittoBroker broker;
    MqttPeer peer(broker.getSettings());
    for (int host = 0; host < 16400; ++host)
        retain(peer, "panel/1/h" + std::to_string(host) + "/state", hostIsThere);
    const ToolResult result = run(broker, {"list"});
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_EQ(result.output.substr(0, result.output.find('\n')),
              "(16 messages are left out: more than 16384 hosts or 131072 panels)");
    EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 16385);
}

TEST_F(FleetBroker, thousandsOfPanels_areAllListed)
{
    const MosquittoBroker broker;
    MqttPeer peer(broker.getSettings());
    for (int host = 0; host < 400; ++host) {
        retain(peer, "panel/1/h" + std::to_string(host) + "/state", hostIsThere);
        for (int port = 1; port <= 8; ++port)
            retain(peer, "panel/1/h" + std::to_string(host) + "/1-" + std::to_string(port) + "/state", panelIsThere);
    }
    const ToolResult result = run(broker, {"list"});
    EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 3200);
}

TEST_F(FleetBroker, outputThatNobodyReads_endsIt)
{
    const MosquittoBroker broker;
    MqttPeer peer(broker.getSettings());
    retain(peer, "panel/1/a/state", hostIsThere);
    const ToolResult result =
        runTool({"/bin/sh", "-c",
                 std::string(MORVANE_PANELFLEET) + " list --broker 127.0.0.1:" + std::to_string(broker.getPort()) +
                     " > /dev/full"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.errors, HasSubstr("standard output can't be written: No space left on device"));
}

} // namespace Vantor

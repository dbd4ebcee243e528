// What is wrong between a gateway and its broker is told, and taken when it is put right, while
// the gateway's process runs.
#include "tests/mqtt/GatewayHost.h"
#include "tests/mqtt/MqttPeer.h"

#include <csignal>
#include <filesystem>
#include <string>

#include <gmock/gmock.h>

namespace Vantor {

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* secret = "correct-horse-7F3A";

// Commands and environments of all processes in which a text stands.
std::string findInProcesses(const std::string& text)
{
    std::string found;
    std::error_code ignored;
    for (const auto& process : std::filesystem::directory_iterator("/proc", ignored)) {
        for (const char* const file : {"/cmdline", "/environ"}) {
            if (contentOf(process.path().string() + file).find(text) != std::string::npos)
                found += process.path().string() + file + '\n';
        }
    }
    return found;
}

class GatewayCredentials : public testing::Test {
protected:
    static GatewayHost::Options optionsWith(const std::string& settings)
    {
        GatewayHost::Options options;
        options.settings = settings;
        return options;
    }
    static void awaitError(const GatewayHost& host, const std::string& text)
    {
        EXPECT_TRUE(eventually([&] { return host.readErrors().find(text) != std::string::npos; })) << host.readErrors();
    }
    // What `check` says; its exit code tells whether there is something wrong.
    static std::string check(const GatewayHost& host)
    {
        const ToolResult result = runTool({MORVANE_PANEL2MQTT, "check", "--config", host.pathOf("panel2mqtt.toml")});
        EXPECT_EQ(result.exitCode, result.output.find("wrong:") != std::string::npos ? 1 : 0)
            << result.output << result.errors;
        return result.output;
    }
    static void expectServed(const MosquittoBroker& broker, const GatewayHost& host, int process)
    {
        awaitError(host, "serves the panels of this host as panel/1/shop/\n");
        MqttPeer peer(broker.getSettings());
        peer.subscribe(host.topicOf("answer/test"));
        EXPECT_NO_THROW(host.awaitPanels(peer));
        peer.publish(makeCommand(host, "1-1/do/send/5", "x", "x"));
        EXPECT_EQ(awaitAnswer(peer, "x"), "taken");
        EXPECT_EQ(host.getProcess(), process) << "it is the same process";
    }

    static MosquittoBroker::Options withUser()
    {
        MosquittoBroker::Options options;
        options.user = "gateway";
        options.password = secret;
        return options;
    }
};

} // namespace

TEST_F(GatewayCredentials, wrongPassword_isToldAndTakenFromTheFileWhenMended)
{
    const MosquittoBroker broker(withUser());
    const TemporaryFile file("another-one-0B5C\n");
    std::filesystem::permissions(file.getPath(), std::filesystem::perms::owner_read);
    const GatewayHost host(broker, optionsWith("user = \"gateway\"\npassword_file = \"" + file.getPath() + "\"\n"));
    const int process = host.getProcess();
    const std::string reason = "the broker refuses this host, or its password: what it is sent is the user name "
                               "'gateway' and the password in " +
                               file.getPath();
    awaitError(host, "panel2mqtt: no connection with the broker: " + reason + "\n");
    EXPECT_THAT(check(host), HasSubstr("wrong: broker: " + reason));
    file.write(std::string(secret) + "\n");
    expectServed(broker, host, process);
    EXPECT_EQ(check(host), "nothing is wrong\n");
    EXPECT_THAT(findInProcesses(secret), IsEmpty());
    for (const char* const hidden : {secret, "another-one-0B5C"})
        EXPECT_THAT(host.readErrors(), Not(HasSubstr(hidden)));
}

TEST_F(GatewayCredentials, passwordThatTheBrokerDidNotHave_isTakenWhenItHasIt)
{
    MosquittoBroker::Options options = withUser();
    options.password = "the-broker's-former-one";
    const MosquittoBroker broker(options);
    const TemporaryFile file(std::string(secret) + "\n");
    const GatewayHost host(broker, optionsWith("user = \"gateway\"\npassword_file = \"" + file.getPath() + "\"\n"));
    const int process = host.getProcess();
    awaitError(host, "the broker refuses this host, or its password");
    broker.setPassword("gateway", secret);
    broker.tell(SIGHUP);
    expectServed(broker, host, process);
    EXPECT_THAT(host.readErrors(), Not(HasSubstr(secret)));
}

TEST_F(GatewayCredentials, wrongAuthority_isToldAndTakenWhenMended)
{
    const TestAuthority authority;
    const TestAuthority another;
    MosquittoBroker::Options options;
    options.authority = &authority;
    const MosquittoBroker broker(options);
    const TemporaryFile file(contentOf(another.getFile()));
    const GatewayHost host(broker, optionsWith("tls = true\nauthority = \"" + file.getPath() + "\"\n"));
    const int process = host.getProcess();
    const std::string reason = "the broker's certificate is not of an authority in " + file.getPath();
    awaitError(host, "no connection with the broker: " + reason + "\n");
    EXPECT_THAT(check(host), HasSubstr("wrong: broker: " + reason));
    file.write(contentOf(authority.getFile()));
    expectServed(broker, host, process);
}

TEST_F(GatewayCredentials, expiredCertificateOfTheBroker_isToldAndTakenWhenRenewed)
{
    const TestAuthority authority;
    MosquittoBroker::Options options;
    options.authority = &authority;
    MosquittoBroker broker(options);
    broker.stop();
    broker.renewCertificate(-1);
    broker.start();
    const GatewayHost host(broker, optionsWith("tls = true\nauthority = \"" + authority.getFile() + "\"\n"));
    const int process = host.getProcess();
    const std::string reason = "the broker's certificate, or its authority's, has expired";
    awaitError(host, "no connection with the broker: " + reason + "\n");
    EXPECT_THAT(check(host), HasSubstr("wrong: broker: " + reason));
    broker.renewCertificate(2);
    broker.tell(SIGHUP);
    expectServed(broker, host, process);
}

TEST_F(GatewayCredentials, accessListThatLetsNothingThrough_isToldAndTakenWhenMended)
{
    MosquittoBroker::Options options;
    options.accessList = "topic readwrite panel/1/another/#\n";
    const MosquittoBroker broker(options);
    const GatewayHost host(broker, {});
    const int process = host.getProcess();
    EXPECT_THAT(check(host), HasSubstr("wrong: broker: what is published to panel/1/shop/told does not come back\n"
                                       "  let this host read and write panel/1/shop/#"));
    awaitError(host, "the broker does not deliver what is published to panel/1/shop/told, and nothing is served: let "
                     "this host read and write panel/1/shop/#\n");
    broker.setAccessList("topic readwrite panel/1/#\n");
    broker.tell(SIGHUP);
    expectServed(broker, host, process);
    EXPECT_EQ(countOf(host.readErrors(), "does not deliver"), 1U);
    EXPECT_THAT(host.readErrors(), Not(HasSubstr("to come back later")));
}

TEST_F(GatewayCredentials, portWhereNobodyListens_isToldAndTakenWhenTheBrokerComes)
{
    MosquittoBroker broker;
    broker.stop();
    const GatewayHost host(broker, {});
    const int process = host.getProcess();
    awaitError(host, "no connection with the broker: 127.0.0.1 can't be reached: Connection refused\n");
    EXPECT_THAT(check(host), HasSubstr("wrong: broker: nothing answers at '127.0.0.1', port "));
    broker.start();
    expectServed(broker, host, process);
}

TEST_F(GatewayCredentials, checkBesideAGatewayThatServes_disturbsNothing)
{
    const MosquittoBroker broker;
    const GatewayHost host(broker, {});
    expectServed(broker, host, host.getProcess());
    const auto before = readRetained(broker, host.topicOf("#"));
    const std::string log = host.readErrors();
    EXPECT_EQ(check(host), "nothing is wrong\n");
    MqttPeer peer(broker.getSettings());
    peer.subscribe(host.topicOf("answer/test"));
    peer.publish(makeCommand(host, "1-1/do/send/5", "y", "y"));
    EXPECT_EQ(awaitAnswer(peer, "y"), "taken");
    EXPECT_EQ(readRetained(broker, host.topicOf("#")), before);
    EXPECT_EQ(host.readErrors(), log);
}

} // namespace Vantor

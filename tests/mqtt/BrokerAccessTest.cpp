// The access list and the configuration of mosquitto that we give to start from: each role may
// do what it is to, and what it may not does not arrive.
#include "tests/mqtt/GatewayHost.h"
#include "tests/mqtt/MosquittoBroker.h"
#include "tests/mqtt/MqttPeer.h"

#include <map>
#include <regex>

#include <gmock/gmock.h>
#include <unistd.h>

namespace Vantor {

namespace {

using testing::HasSubstr;

constexpr int notAuthorised = 135;
const std::string packaged = MORVANE_SOURCES "/packaging/panel2mqtt/";

// A letter a role.
const std::map<char, std::string> users{
    {'g', "shop-17"}, {'o', "shop-18"}, {'a', "applications"}, {'f', "panelfleet"}, {'n', "nobody"}};

struct Right {
    std::string topic;
    std::string writers;
    std::string readers;
};

// By hand, from docs/mqtt.md.
const std::vector<Right> rights{
    {"shop-17/state", "g", "gaf"},
    {"shop-17/claim", "g", "g"},
    {"shop-17/told", "g", "g"},
    {"shop-17/stats", "g", "ga"},
    {"shop-17/answer/me", "g", "gaf"},
    {"shop-17/1-4.2/state", "g", "gaf"},
    {"shop-17/1-4.2/info", "g", "gaf"},
    {"shop-17/1-4.2/stats", "g", "ga"},
    {"shop-17/1-4.2/got/5", "g", "ga"},
    {"shop-17/1-4.2/job/1.4.0", "g", "gaf"},
    {"shop-17/1-4.2/do/send/5", "ga", "g"},
    {"shop-17/1-4.2/do/set/5/0", "ga", "g"},
    {"shop-17/1-4.2/do/draw/0", "ga", "g"},
    {"shop-17/1-4.2/do/stats", "ga", "g"},
    {"shop-17/1-4.2/do/forget", "ga", "g"},
    {"shop-17/1-4.2/do/flash", "gf", "g"},
    {"shop-17/1-4.2/want/5/0", "ga", "ga"},
    {"shop-17/1-4.2/want/lcd/0", "ga", "ga"},
    {"shop-18/state", "o", "oaf"},
    {"shop-18/1-1/do/flash", "of", "o"},
    {"all/1-4.2/do/send/5", "a", "goafn"},
    {"all/all/do/flash", "f", "gofn"},
    {"all/all/want/lcd/0", "a", "goafn"},
    {"all/state", "", "af"},
    {"all/told", "f", "f"},
    {"all/answer/me", "", "af"},
};

Message messageFor(const std::string& topic, const std::string& payload)
{
    Message message;
    message.topic = "panel/1/" + topic;
    message.payload = payload;
    message.qos = 1;
    return message;
}

// The users above, and one who may do anything.
class ListedBroker {
public:
    ListedBroker() : m_broker(getOptions())
    {
        for (const auto& [letter, user] : users)
            m_broker.setPassword(user, "secret");
        m_broker.tell(SIGHUP);
    }

    BrokerSettings getSettings(const std::string& user) const
    {
        BrokerSettings settings = m_broker.getSettings();
        settings.user = user;
        return settings;
    }

    std::map<char, std::unique_ptr<MqttPeer>> connectAll() const
    {
        std::map<char, std::unique_ptr<MqttPeer>> peers;
        for (const auto& [letter, user] : users)
            peers[letter] = std::make_unique<MqttPeer>(getSettings(user));
        return peers;
    }

private:
    static MosquittoBroker::Options getOptions()
    {
        MosquittoBroker::Options options;
        options.user = "observer";
        options.password = "secret";
        options.accessList = contentOf(packaged + "mosquitto.acl") + "\nuser observer\ntopic readwrite #\n";
        return options;
    }

    MosquittoBroker m_broker;
};

// The commands of docs/mqtt.md that make certificates, for a broker on this machine.
void makeCertificates(const std::string& folder)
{
    const std::string page = contentOf(MORVANE_SOURCES "/docs/mqtt.md");
    std::smatch block;
    ASSERT_TRUE(std::regex_search(page, block, std::regex("```sh\n(openssl [^`]*)```")));
    std::string commands = std::regex_replace(block[1].str(), std::regex("broker\\.example"), "localhost");
    // For an application, and for whom no host trusts, too.
    commands += "cp host.key application.key\n"
                "openssl req -x509 -CA ca.pem -CAkey ca.key -key application.key -days 2 -subj /CN=applications "
                "-addext basicConstraints=critical,CA:FALSE -out application.pem\n";
    writeFile(folder + "/commands", commands);
    const ToolResult result = runTool({"/bin/sh", "-ec", "cd '" + folder + "'; . ./commands"});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
}

// Our configuration behind Debian's own, with the files of the folder.
std::string configurationIn(const std::string& folder)
{
    std::string text = contentOf(packaged + "mosquitto.conf");
    text = std::regex_replace(text, std::regex("listener 8883"), "listener PORT 127.0.0.1");
    text = std::regex_replace(text, std::regex("/etc/mosquitto/(certs/)?"), folder + "/");
    return "persistence true\npersistence_location " + folder + "/\nlog_dest stderr\n" +
           (geteuid() == 0 ? "user root\n" : "") + text;
}

BrokerSettings applicationOf(const MosquittoBroker& broker, const std::string& folder)
{
    BrokerSettings settings;
    settings.address = "localhost";
    settings.port = broker.getPort();
    settings.usesTls = true;
    settings.authorityFile = folder + "/ca.pem";
    settings.certificateFile = folder + "/application.pem";
    settings.keyFile = folder + "/application.key";
    return settings;
}

void expectToServeAllButFirmware(const GatewayHost& host, const BrokerSettings& application)
{
    MqttPeer peer(application);
    peer.subscribe(host.topicOf("answer/#"));
    host.awaitPanels(peer);
    EXPECT_EQ(peer.publish(makeCommand(host, "1-1/do/send/5", "hello", "a")), 0);
    EXPECT_EQ(awaitAnswer(peer, "a"), "taken");
    EXPECT_EQ(peer.publish(makeCommand(host, "1-1/do/flash", "image", "b")), notAuthorised);
    EXPECT_EQ(host.readRecords(0, 5), std::vector<std::string>{"hello"});
}

} // namespace

TEST(BrokerAccess, whatARoleMayNotWrite_doesNotArrive)
{
    const ListedBroker broker;
    MqttPeer observer(broker.getSettings("observer"));
    observer.subscribe("panel/#");
    for (const auto& [letter, peer] : broker.connectAll()) {
        for (const Right& right : rights) {
            SCOPED_TRACE(users.at(letter) + " writes " + right.topic);
            const bool isAllowed = right.writers.find(letter) != std::string::npos;
            const Message message = messageFor(right.topic, "of " + users.at(letter));
            const int reason = peer->publish(message);
            EXPECT_EQ(reason == notAuthorised, !isAllowed) << reason;
            // What comes behind it has it overtaken if it comes at all.
            observer.publish(messageFor("end", right.topic));
            const auto first = observer.await(
                [&](const Message& one) { return one.payload == message.payload || one.topic == "panel/1/end"; });
            ASSERT_TRUE(first);
            EXPECT_EQ(first->topic == message.topic, isAllowed) << first->topic;
            if (isAllowed)
                observer.await("panel/1/end");
        }
    }
}

TEST(BrokerAccess, whatARoleMayNotRead_isNotDelivered)
{
    const ListedBroker broker;
    MqttPeer observer(broker.getSettings("observer"));
    const auto peers = broker.connectAll();
    for (const auto& [letter, peer] : peers)
        peer->subscribe("panel/#");
    for (const Right& right : rights)
        observer.publish(messageFor(right.topic, "x"));
    // The last that all of them may read.
    observer.publish(messageFor("all/1-4.2/do/send/5", "end"));
    for (const auto& [letter, peer] : peers) {
        std::map<std::string, bool> isRead;
        while (const auto message = peer->await([](const Message&) { return true; })) {
            if (message->payload == "end")
                break;
            isRead[message->topic] = true;
        }
        for (const Right& right : rights)
            EXPECT_EQ(isRead.count("panel/1/" + right.topic) != 0, right.readers.find(letter) != std::string::npos)
                << users.at(letter) << " reads " << right.topic;
    }
}

// Everything as the documents say.
TEST(BrokerAccess, certificatesBothWays_serveAllButFirmware)
{
    const TemporaryFolder folder;
    const std::string path = folder.getPath();
    makeCertificates(path);
    writeFile(folder / "panels.acl", contentOf(packaged + "mosquitto.acl"));
    MosquittoBroker::Options options;
    options.whole = configurationIn(path);
    const MosquittoBroker broker(options);
    const std::string own = "tls = true\naddress = \"localhost\"\nauthority = \"" + path +
                            "/ca.pem\"\ncertificate = \"" + path + "/host.pem\"\nkey = \"" + path + "/host.key\"\n";
    const GatewayHost host(broker, {"shop-17", 1, {}, own});
    const BrokerSettings application = applicationOf(broker, path);
    expectToServeAllButFirmware(host, application);
    // Nobody without a certificate, and not by a password.
    BrokerSettings stranger = application;
    stranger.certificateFile.clear();
    stranger.keyFile.clear();
    EXPECT_THROW(MqttPeer{stranger}, std::runtime_error);
    const ToolResult checked = runTool({MORVANE_PANEL2MQTT, "check", "--config", host.pathOf("panel2mqtt.toml")});
    EXPECT_EQ(checked.output, "nothing is wrong\n") << checked.errors;
}

TEST(BrokerAccess, passwordsInstead_serveAllButFirmware)
{
    const TemporaryFolder folder;
    const std::string path = folder.getPath();
    makeCertificates(path);
    writeFile(folder / "panels.acl", contentOf(packaged + "mosquitto.acl"));
    writeFile(folder / "password", std::string("secret\n"));
    for (const std::string user : {"shop-17", "applications"}) {
        std::ofstream(folder / "passwords", std::ios::app).flush();
        ASSERT_EQ(runTool({"/usr/bin/mosquitto_passwd", "-b", folder / "passwords", user, "secret"}).exitCode, 0);
    }
    MosquittoBroker::Options options;
    options.whole = std::regex_replace(configurationIn(path),
                                       std::regex("(require_certificate|use_identity_as_username) true"), "");
    options.whole = std::regex_replace(options.whole, std::regex("#password_file"), "password_file");
    const MosquittoBroker broker(options);
    const std::string own = "tls = true\naddress = \"localhost\"\nauthority = \"" + path +
                            "/ca.pem\"\nuser = \"shop-17\"\npassword_file = \"" + path + "/password\"\n";
    const GatewayHost host(broker, {"shop-17", 1, {}, own});
    BrokerSettings application = applicationOf(broker, path);
    application.certificateFile.clear();
    application.keyFile.clear();
    EXPECT_THROW(MqttPeer{application}, std::runtime_error) << "without a name";
    application.user = "applications";
    application.passwordFile = folder / "password";
    expectToServeAllButFirmware(host, application);
}

} // namespace Vantor

#include "panel2mqtt/broker/BrokerLink.h"

#include "tests/mqtt/MosquittoBroker.h"
#include "tests/mqtt/MqttPeer.h"
#include "tests/mqtt/QuickLink.h"
#include "tests/mqtt/StubbornPort.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {

namespace {

using Kind = BrokerLink::Kind;
using testing::Each;
using testing::HasSubstr;
using testing::StartsWith;

const TestAuthority& getAuthority()
{
    static const TestAuthority authority;
    return authority;
}

MosquittoBroker::Options secureOptions()
{
    MosquittoBroker::Options options;
    options.authority = &getAuthority();
    return options;
}

// For TLS, which takes its time where all authorities are read, and under a sanitizer.
class PatientLink : public QuickLink {
public:
    explicit PatientLink(const BrokerSettings& settings, std::vector<BrokerLink::Subscription> subscriptions = {})
        : QuickLink(settings, std::move(subscriptions), getPatientPace())
    {}

private:
    static BrokerPace getPatientPace()
    {
        BrokerPace pace = getPace();
        pace.connectTime = std::chrono::seconds(10);
        return pace;
    }
};

TEST(BrokerLinkTls, broker_isSpokenTo)
{
    const MosquittoBroker broker(secureOptions());
    PatientLink quick(broker.getSettings(), {{"echo", 1, false, false}});
    ASSERT_TRUE(quick.listener.awaitConnections(1)) << testing::PrintToString(quick.listener.get().disconnected);
    // More than one record of TLS, and than a socket takes at once.
    quick.publish(Kind::Answer, "echo", std::string(5000000, 'x'));
    ASSERT_TRUE(quick.listener.await([](const auto& told) { return told.messages.size() == 1; }));
    EXPECT_EQ(quick.listener.get().messages[0].payload.size(), 5000000U);
    quick.publish(Kind::Answer, "echo", "x");
    EXPECT_TRUE(quick.listener.await([](const auto& told) { return told.messages.size() == 2; }));
}

TEST(BrokerLinkTls, stop_leavesNoWill)
{
    const MosquittoBroker broker(secureOptions());
    MqttPeer peer(broker.getSettings());
    peer.subscribe("#");
    PatientLink quick(broker.getSettings());
    ASSERT_TRUE(quick.listener.awaitConnections(1));
    quick.publish(Kind::State, "last", "x");
    quick.link.stop();
    EXPECT_TRUE(peer.await("last"));
    EXPECT_FALSE(peer.await("will", std::chrono::milliseconds(100)));
}

TEST(BrokerLinkTls, wrongAuthority_isToldAndTakenWhenMended)
{
    const MosquittoBroker broker(secureOptions());
    const TestAuthority other;
    const TemporaryFile file(contentOf(other.getFile()));
    BrokerSettings settings = broker.getSettings();
    settings.authorityFile = file.getPath();
    PatientLink quick(settings);
    ASSERT_TRUE(quick.listener.awaitReasons(2));
    EXPECT_EQ(quick.listener.get().disconnected[0],
              "the broker's certificate is not of an authority in " + file.getPath());
    file.write(contentOf(getAuthority().getFile()));
    EXPECT_TRUE(quick.listener.awaitConnections(1));
}

TEST(BrokerLinkTls, authorityThatTheSystemDoesNotKnow_isTold)
{
    const MosquittoBroker broker(secureOptions());
    BrokerSettings settings = broker.getSettings();
    settings.authorityFile.clear();
    PatientLink quick(settings);
    ASSERT_TRUE(quick.listener.awaitReasons(1));
    EXPECT_EQ(quick.listener.get().disconnected[0],
              "the broker's certificate is not of an authority that this system knows");
}

TEST(BrokerLinkTls, certificateForAnotherName_isRefused)
{
    MosquittoBroker::Options options = secureOptions();
    options.certificateNames = "DNS:elsewhere.example";
    const MosquittoBroker broker(options);
    BrokerSettings settings = broker.getSettings();
    PatientLink byNumber(settings);
    settings.address = "localhost";
    PatientLink byName(settings);
    ASSERT_TRUE(byNumber.listener.awaitReasons(1));
    EXPECT_EQ(byNumber.listener.get().disconnected[0], "the broker's certificate is not for 127.0.0.1");
    ASSERT_TRUE(byName.listener.awaitReasons(1));
    EXPECT_EQ(byName.listener.get().disconnected[0], "the broker's certificate is not for localhost");
}

TEST(BrokerLinkTls, certificateForTheNameAlone_isTakenByName)
{
    MosquittoBroker::Options options = secureOptions();
    options.certificateNames = "DNS:localhost";
    const MosquittoBroker broker(options);
    BrokerSettings settings = broker.getSettings();
    settings.address = "localhost";
    PatientLink quick(settings);
    EXPECT_TRUE(quick.listener.awaitConnections(1));
}

TEST(BrokerLinkTls, ownCertificate_isPresented)
{
    MosquittoBroker::Options options = secureOptions();
    options.wantsCertificates = true;
    const MosquittoBroker broker(options);
    const TestAuthority::Certificate own = getAuthority().sign("host");
    BrokerSettings settings = broker.getSettings();
    settings.certificateFile = own.file;
    settings.keyFile = own.keyFile;
    PatientLink quick(settings);
    EXPECT_TRUE(quick.listener.awaitConnections(1));
}

TEST(BrokerLinkTls, missingOwnCertificate_isTold)
{
    MosquittoBroker::Options options = secureOptions();
    options.wantsCertificates = true;
    const MosquittoBroker broker(options);
    PatientLink quick(broker.getSettings());
    // Unless it is lost, as the broker closes the connection right behind it.
    EXPECT_TRUE(quick.listener.awaitReason("the broker wants a certificate of this host"));
    EXPECT_THAT(quick.listener.get().disconnected, Each(HasSubstr(" a certificate of this host")));
}

TEST(BrokerLinkTls, ownCertificateOfAnotherAuthority_isTold)
{
    MosquittoBroker::Options options = secureOptions();
    options.wantsCertificates = true;
    const MosquittoBroker broker(options);
    const TestAuthority other;
    const TestAuthority::Certificate own = other.sign("host");
    BrokerSettings settings = broker.getSettings();
    settings.certificateFile = own.file;
    settings.keyFile = own.keyFile;
    PatientLink quick(settings);
    EXPECT_TRUE(quick.listener.awaitReason("the broker does not accept this host's certificate in " + own.file));
    EXPECT_THAT(quick.listener.get().disconnected, Each(HasSubstr("certificate in " + own.file)));
}

TEST(BrokerLinkTls, filesThatAreNoGood_areNamed)
{
    const MosquittoBroker broker(secureOptions());
    const TestAuthority::Certificate own = getAuthority().sign("host");
    const TestAuthority::Certificate another = getAuthority().sign("another");
    const TemporaryFile nothing("nothing");
    const TemporaryFolder folder;
    const auto reasonOf = [&](const auto& change) {
        BrokerSettings settings = broker.getSettings();
        change(settings);
        PatientLink quick(settings);
        EXPECT_TRUE(quick.listener.awaitReasons(1));
        return quick.listener.get().disconnected.at(0);
    };
    EXPECT_EQ(reasonOf([&](BrokerSettings& settings) { settings.authorityFile = "/none"; }),
              "the authority's certificate in /none can't be read: No such file or directory");
    EXPECT_EQ(reasonOf([&](BrokerSettings& settings) { settings.authorityFile = folder.getPath(); }),
              "the authority's certificate in " + folder.getPath() + " can't be read: it is no regular file");
    EXPECT_THAT(reasonOf([&](BrokerSettings& settings) { settings.authorityFile = nothing.getPath(); }),
                StartsWith("there is no authority's certificate in " + nothing.getPath() + ": "));
    EXPECT_EQ(reasonOf([&](BrokerSettings& settings) { settings.certificateFile = own.file; }),
              "a certificate of this host needs its key, and a key its certificate");
    EXPECT_THAT(
        reasonOf([&](BrokerSettings& settings) {
            settings.certificateFile = own.file;
            settings.keyFile = another.keyFile;
        }),
        StartsWith("there is no key in " + another.keyFile + " that fits " + own.file + " and needs no password: "));
}

TEST(BrokerLinkTls, portWithoutTls_isTold)
{
    const MosquittoBroker broker;
    BrokerSettings settings = broker.getSettings();
    settings.usesTls = true;
    PatientLink quick(settings);
    ASSERT_TRUE(quick.listener.awaitReasons(2));
    EXPECT_EQ(quick.listener.get().disconnected[0],
              "the broker does not speak TLS on this port, or ended the connection in the middle of it");
}

TEST(BrokerLinkTls, portWithTls_isToldToWhoSpeaksNone)
{
    const MosquittoBroker broker(secureOptions());
    BrokerSettings settings = broker.getSettings();
    settings.usesTls = false;
    PatientLink quick(settings);
    ASSERT_TRUE(quick.listener.awaitReasons(2));
    EXPECT_THAT(quick.listener.get().disconnected[0], HasSubstr("It may expect TLS on this port"));
}

TEST(BrokerLinkTls, portThatSaysNothing_isGivenUp)
{
    const StubbornPort port(StubbornPort::Manner::SaysNothing);
    BrokerSettings settings;
    settings.port = port.getPort();
    settings.usesTls = true;
    QuickLink quick(settings);
    ASSERT_TRUE(quick.listener.awaitReasons(1));
    EXPECT_EQ(
        quick.listener.get().disconnected[0],
        "127.0.0.1 takes the connection and then says nothing of MQTT within 1 s: does it speak TLS on this port?");
}

TEST(BrokerLinkTls, portOfSomethingElse_isToldToBeThat)
{
    StubbornPort port(StubbornPort::Manner::SpeaksNonsense);
    BrokerSettings settings;
    settings.port = port.getPort();
    settings.usesTls = true;
    PatientLink quick(settings);
    port.accept();
    ASSERT_TRUE(quick.listener.awaitReasons(1));
    EXPECT_EQ(quick.listener.get().disconnected[0],
              "the broker does not speak TLS on this port, or ended the connection in the middle of it");
}

TEST(BrokerLinkTls, name_isToldToABrokerOfSeveral)
{
    StubbornPort port(StubbornPort::Manner::SaysNothing);
    BrokerSettings settings;
    settings.port = port.getPort();
    settings.usesTls = true;
    settings.address = "localhost";
    PatientLink byName(settings);
    EXPECT_THAT(port.accept(), HasSubstr("localhost"));
}

TEST(BrokerLinkTls, number_isNotToldAsAName)
{
    StubbornPort port(StubbornPort::Manner::SaysNothing);
    BrokerSettings settings;
    settings.port = port.getPort();
    settings.usesTls = true;
    PatientLink byNumber(settings);
    const std::string hello = port.accept();
    EXPECT_GT(hello.size(), 100U);
    EXPECT_THAT(hello, testing::Not(HasSubstr("127.0.0.1")));
}

} // namespace

} // namespace Vantor

#include "panel2mqtt/settings/SettingsCheck.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/unit/settings/Listener.h"
#include "tests/unit/settings/PemFiles.h"

#include <string>
#include <vector>

#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {
namespace {

using std::chrono::hours;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

constexpr hours day(24);

// Settings with which nothing is wrong.
class SettingsCheckTest : public testing::Test {
protected:
    SettingsCheckTest()
    {
        m_settings.host = "shop-17";
        m_settings.broker.port = m_broker.getPort();
        m_settings.broker.usesTls = true;
        m_settings.broker.authorityFile = put("ca.pem", m_key.makeCertificate(-day, 100 * day));
        m_settings.broker.certificateFile = put("host.pem", m_key.makeCertificate(-day, 100 * day));
        m_settings.broker.keyFile = put("host.key", m_key.asPem());
        m_settings.broker.user = "shop-17";
        m_settings.broker.passwordFile = put("password", "secret\n");
        m_settings.firmwareFolder = m_folder / "firmware";
        EXPECT_EQ(mkdir(m_settings.firmwareFolder.c_str(), 0755), 0);
    }

    std::string put(const std::string& name, const std::string& content, mode_t mode = 0640)
    {
        const std::string path = m_folder / name;
        writeFile(path, content);
        EXPECT_EQ(chmod(path.c_str(), mode), 0);
        return path;
    }

    // "wrong: …" or "doubtful: …", the temporary folder as "~". Each has a remedy of a line.
    std::vector<std::string> check() const
    {
        std::vector<std::string> texts;
        bool isWrong = false;
        const auto findings = SettingsCheck::run(m_settings);
        for (const SettingsCheck::Finding& finding : findings) {
            std::string text = finding.text;
            for (std::size_t at = 0; (at = text.find(m_folder.getPath())) != std::string::npos;)
                text.replace(at, m_folder.getPath().size(), "~");
            texts.push_back((finding.isWrong ? "wrong: " : "doubtful: ") + text);
            isWrong = isWrong || finding.isWrong;
            EXPECT_FALSE(finding.remedy.empty()) << text;
            EXPECT_EQ((finding.text + finding.remedy).find('\n'), std::string::npos) << text;
        }
        EXPECT_EQ(SettingsCheck::getExitCode(findings), isWrong ? 1 : 0);
        return texts;
    }

    const TemporaryFolder m_folder;
    const Listener m_broker;
    const PemKey m_key;
    Settings m_settings;
};

TEST_F(SettingsCheckTest, allInOrder_nothing)
{
    EXPECT_THAT(check(), IsEmpty());
}

TEST_F(SettingsCheckTest, filesMissing_areAllTold)
{
    for (const char* const name : {"ca.pem", "host.pem", "host.key", "password", "firmware"})
        std::filesystem::remove(m_folder / name);
    EXPECT_THAT(check(),
                ElementsAre("wrong: broker.authority: '~/ca.pem' can't be read: No such file or directory",
                            "wrong: broker.certificate: '~/host.pem' can't be read: No such file or directory",
                            "wrong: broker.key: '~/host.key' can't be read: No such file or directory",
                            "wrong: broker.password_file: '~/password' can't be read: No such file or directory",
                            "wrong: firmware.folder: '~/firmware' can't be looked into: No such file or "
                            "directory"));
}

TEST_F(SettingsCheckTest, noRegularFile_isTold)
{
    std::filesystem::remove(m_folder / "password");
    ASSERT_EQ(mkfifo((m_folder / "password").c_str(), 0600), 0);
    m_settings.broker.keyFile = m_folder.getPath();
    EXPECT_THAT(check(), ElementsAre("wrong: broker.key: '~' is no regular file",
                                     "wrong: broker.password_file: '~/password' is no regular file"));
}

TEST_F(SettingsCheckTest, secretsOpenToAll_areTold)
{
    put("host.key", m_key.asPem(), 0644);
    put("password", "secret\n", 0604);
    ASSERT_EQ(chmod(m_settings.firmwareFolder.c_str(), 0777), 0);
    EXPECT_THAT(check(), ElementsAre("wrong: broker.key: everybody can read '~/host.key'",
                                     "wrong: broker.password_file: everybody can read '~/password'",
                                     "wrong: firmware.folder: everybody can put files into '~/firmware'"));
}

TEST_F(SettingsCheckTest, contentThatIsNone_isTold)
{
    put("ca.pem", m_key.asPem());
    put("host.pem", "");
    put("password", "\nsecret\n");
    m_settings.firmwareFolder = m_folder / "ca.pem";
    EXPECT_THAT(check(), ElementsAre("wrong: broker.authority: there is no certificate in '~/ca.pem'",
                                     "wrong: broker.certificate: there is no certificate in '~/host.pem'",
                                     "wrong: broker.password_file: the first line of '~/password' is empty",
                                     "wrong: firmware.folder: '~/ca.pem' is no folder"));
}

TEST_F(SettingsCheckTest, anotherKeyOrAnEncryptedOne_isTold)
{
    put("host.key", PemKey().asPem());
    EXPECT_THAT(check(), ElementsAre("wrong: broker.key: not the key of the certificate in '~/host.pem'"));
    put("host.key", m_key.asPem("secret"));
    EXPECT_THAT(check(),
                ElementsAre("wrong: broker.key: there is no key in '~/host.key' that can be used without a password"));
}

TEST_F(SettingsCheckTest, certificateOutOfItsTime_isTold)
{
    put("host.pem", m_key.makeCertificate(-3 * day, -day - hours(1)));
    EXPECT_THAT(check(), ElementsAre("wrong: broker.certificate: expired 1 day ago"));
    put("host.pem", m_key.makeCertificate(2 * day + hours(1), 100 * day));
    EXPECT_THAT(check(), ElementsAre("wrong: broker.certificate: not valid yet, for 2 days"));
    put("host.pem", m_key.makeCertificate(-day, 29 * day + hours(1)));
    EXPECT_THAT(check(), ElementsAre("doubtful: broker.certificate: expires in 29 days"));
}

TEST_F(SettingsCheckTest, authoritiesOfWhichOneIsGood_areGood)
{
    const std::string old = m_key.makeCertificate(-3 * day, -2 * day - hours(1));
    put("ca.pem", old + m_key.makeCertificate(-day, 100 * day));
    EXPECT_THAT(check(), IsEmpty());
    put("ca.pem", old + old);
    EXPECT_THAT(check(), ElementsAre("wrong: broker.authority: expired 2 days ago"));
}

TEST_F(SettingsCheckTest, halfOfAnAccount_isDoubtful)
{
    m_settings.broker.user.clear();
    EXPECT_THAT(check(), ElementsAre("doubtful: broker.user: none, but a password"));
    m_settings.broker.user = "u";
    m_settings.broker.passwordFile.clear();
    EXPECT_THAT(check(), ElementsAre("doubtful: broker.user: without a password"));
    m_settings.broker.user.clear();
    m_settings.broker.certificateFile.clear();
    m_settings.broker.keyFile.clear();
    EXPECT_THAT(check(), ElementsAre("doubtful: broker: neither a certificate nor a user, so the broker can't tell "
                                     "this host from others"));
}

TEST_F(SettingsCheckTest, certificatesWithoutTls_areDoubtful)
{
    m_settings.broker.usesTls = false;
    EXPECT_THAT(check(), ElementsAre("doubtful: broker.tls: false, so the certificates are not used"));
}

TEST_F(SettingsCheckTest, brokerAway_isTold)
{
    m_settings.broker.port = findClosedPort();
    EXPECT_THAT(check(), ElementsAre("wrong: broker: nothing answers at '127.0.0.1', port " +
                                     std::to_string(m_settings.broker.port) + ": Connection refused"));
    m_settings.broker.address = "no..name";
    EXPECT_THAT(check(), ElementsAre(StartsWith("wrong: broker.address: 'no..name' has no address: ")));
}

// Whoever listens there on this machine: the address has none.
TEST_F(SettingsCheckTest, portOfTheOtherKind_isDoubtful)
{
    m_settings.broker.address = "no..name";
    m_settings.broker.port = 1883;
    EXPECT_THAT(check(), ElementsAre("doubtful: broker.port: 1883 is the port without TLS", StartsWith("wrong: ")));
    m_settings.broker = BrokerSettings();
    m_settings.broker.address = "no..name";
    m_settings.broker.port = 8883;
    EXPECT_THAT(check(), ElementsAre("doubtful: broker.port: 8883 is the port of TLS", StartsWith("wrong: ")));
}

} // namespace
} // namespace Vantor

#include "panel2mqtt/settings/SettingsCheck.h"

#include "panel2mqtt/settings/BrokerProbe.h"
#include "panel2mqtt/settings/Certificate.h"
#include "panelctl/terminal/Wording.h"

#include <algorithm>
#include <cerrno>
#include <fstream>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Vantor {

namespace {

using Clock = std::chrono::system_clock;

constexpr auto soon = std::chrono::hours(24 * 30);
constexpr std::uint16_t plainPort = 1883;
constexpr std::uint16_t tlsPort = 8883;

class Checkup {
public:
    Checkup(const Settings& settings, std::chrono::milliseconds limit)
        : m_settings(settings), m_broker(settings.broker), m_limit(limit)
    {}

    std::vector<SettingsCheck::Finding> run();

private:
    void checkTls();
    void checkAuthority();
    void checkCertificate();
    void checkDates(const std::string& key, const Certificate& certificate);
    void checkPassword();
    void checkFirmware();
    void checkPort();
    void checkReach();

    bool isReadable(const std::string& key, const std::string& file, const std::string& content);
    void requireSecret(const std::string& key, const std::string& file);
    std::uint16_t getPort() const;

    void tellWrong(const std::string& text, const std::string& remedy) { m_findings.push_back({true, text, remedy}); }
    void tellDoubtful(const std::string& text, const std::string& remedy)
    {
        m_findings.push_back({false, text, remedy});
    }

    const Settings& m_settings;
    const BrokerSettings& m_broker;
    const std::chrono::milliseconds m_limit;
    std::vector<SettingsCheck::Finding> m_findings;
};

std::vector<SettingsCheck::Finding> Checkup::run()
{
    checkTls();
    checkAuthority();
    checkCertificate();
    checkPassword();
    checkFirmware();
    checkPort();
    checkReach();
    return std::move(m_findings);
}

void Checkup::checkTls()
{
    if (!m_broker.usesTls &&
        (!m_broker.authorityFile.empty() || !m_broker.certificateFile.empty() || !m_broker.keyFile.empty()))
        tellDoubtful("broker.tls: false, so the certificates are not used", "set it to true, or take them away");
    if (m_broker.usesTls && m_broker.certificateFile.empty() && m_broker.user.empty())
        tellDoubtful("broker: neither a certificate nor a user, so the broker can't tell this host from others",
                     "name broker.certificate and broker.key, or broker.user and broker.password_file");
}

void Checkup::checkAuthority()
{
    const char* const key = "broker.authority";
    const std::string& file = m_broker.authorityFile;
    if (file.empty() || !isReadable(key, file, "the certificate of the broker's authority"))
        return;
    const std::vector<Certificate> all = Certificate::readAll(file);
    if (all.empty())
        tellWrong(std::string(key) + ": there is no certificate in " + quote(file),
                  "put the certificate of the broker's authority there, as PEM");
    // One of several may be a predecessor.
    else if (std::all_of(all.begin(), all.end(), [](const Certificate& one) { return one.getEnd() < Clock::now(); }))
        checkDates(key, all.front());
}

void Checkup::checkCertificate()
{
    const std::string& file = m_broker.certificateFile;
    const std::string& keyFile = m_broker.keyFile;
    const bool isThere = !file.empty() && isReadable("broker.certificate", file, "this host's certificate");
    const bool isKeyThere = !keyFile.empty() && isReadable("broker.key", keyFile, "the key of this host's certificate");
    if (isKeyThere)
        requireSecret("broker.key", keyFile);
    if (!isThere)
        return;
    const std::vector<Certificate> all = Certificate::readAll(file);
    if (all.empty()) {
        tellWrong("broker.certificate: there is no certificate in " + quote(file),
                  "put this host's certificate there, as PEM");
        return;
    }
    checkDates("broker.certificate", all.front());
    const Certificate::Fit fit = isKeyThere ? all.front().compareKey(keyFile) : Certificate::Fit::Fits;
    if (fit == Certificate::Fit::NoKey)
        tellWrong("broker.key: there is no key in " + quote(keyFile) + " that can be used without a password",
                  "put the key of this host's certificate there, as PEM, not encrypted");
    if (fit == Certificate::Fit::OtherKey)
        tellWrong("broker.key: not the key of the certificate in " + quote(file),
                  "put the key there that the certificate was made for");
}

void Checkup::checkDates(const std::string& key, const Certificate& certificate)
{
    const Clock::time_point now = Clock::now();
    const auto daysTo = [now](Clock::time_point time) {
        const auto hours = std::chrono::duration_cast<std::chrono::hours>(time > now ? time - now : now - time);
        return formatNumber(static_cast<std::uint64_t>(hours.count() / 24), "day");
    };
    if (certificate.getEnd() < now)
        tellWrong(key + ": expired " + daysTo(certificate.getEnd()) + " ago", "renew it, and look at the clock");
    else if (certificate.getBegin() > now)
        tellWrong(key + ": not valid yet, for " + daysTo(certificate.getBegin()), "set this host's clock");
    else if (certificate.getEnd() < now + soon)
        tellDoubtful(key + ": expires in " + daysTo(certificate.getEnd()), "renew it");
}

void Checkup::checkPassword()
{
    const char* const key = "broker.password_file";
    const std::string& file = m_broker.passwordFile;
    if (file.empty()) {
        if (!m_broker.user.empty())
            tellDoubtful("broker.user: without a password",
                         std::string("name its file in ") + key + "; a service's credential is the service's alone");
        return;
    }
    if (m_broker.user.empty())
        tellDoubtful("broker.user: none, but a password", "name the user; most brokers refuse a password alone");
    if (!isReadable(key, file, "the password"))
        return;
    requireSecret(key, file);
    std::ifstream content(file);
    const int first = content.get();
    if (first == '\n' || first == '\r' || first == std::ifstream::traits_type::eof())
        tellWrong(std::string(key) + ": the first line of " + quote(file) + " is empty", "put the password there");
}

void Checkup::checkFirmware()
{
    const std::string& folder = m_settings.firmwareFolder;
    if (folder.empty())
        return;
    const std::string key = "firmware.folder: ";
    struct stat facts {};
    if (stat(folder.c_str(), &facts) != 0)
        tellWrong(key + quote(folder) + " can't be looked into: " + describeError(errno),
                  "make it, or take the line away");
    else if (!S_ISDIR(facts.st_mode))
        tellWrong(key + quote(folder) + " is no folder", "name a folder, or take the line away");
    else if (access(folder.c_str(), R_OK | X_OK) != 0)
        tellWrong(key + quote(folder) + " can't be looked into: " + describeError(errno),
                  "let the gateway's user read it");
    else if ((facts.st_mode & S_IWOTH) != 0)
        tellWrong(key + "everybody can put files into " + quote(folder), "chmod o-w " + quote(folder));
}

void Checkup::checkPort()
{
    if (m_broker.usesTls && getPort() == plainPort)
        tellDoubtful("broker.port: 1883 is the port without TLS", "take the line away, for 8883");
    if (!m_broker.usesTls && getPort() == tlsPort)
        tellDoubtful("broker.port: 8883 is the port of TLS", "set broker.tls to true, or take the line away");
}

void Checkup::checkReach()
{
    const BrokerProbe probe = BrokerProbe::run(m_broker.address, getPort(), m_limit);
    if (probe.outcome == BrokerProbe::Outcome::NoSuchName)
        tellWrong("broker.address: " + quote(m_broker.address) + " has no address: " + probe.reason,
                  "correct it, or this host's name server");
    if (probe.outcome == BrokerProbe::Outcome::NotReached)
        tellWrong("broker: nothing answers at " + quote(m_broker.address) + ", port " + std::to_string(getPort()) +
                      ": " + probe.reason,
                  "start the broker, correct broker.address and broker.port, or let its firewall pass this host");
}

// A folder would be opened, and a pipe would block whoever reads it.
bool Checkup::isReadable(const std::string& key, const std::string& file, const std::string& content)
{
    const int descriptor = open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0) {
        const int error = errno;
        tellWrong(key + ": " + quote(file) + " can't be read: " + describeError(error),
                  error == EACCES ? "let the gateway's user read it"
                                  : "put " + content + " there, or correct the name");
        return false;
    }
    struct stat facts {};
    const bool isFile = fstat(descriptor, &facts) == 0 && S_ISREG(facts.st_mode);
    close(descriptor);
    if (!isFile)
        tellWrong(key + ": " + quote(file) + " is no regular file", "put " + content + " there, or correct the name");
    return isFile;
}

void Checkup::requireSecret(const std::string& key, const std::string& file)
{
    struct stat facts {};
    if (stat(file.c_str(), &facts) == 0 && (facts.st_mode & S_IROTH) != 0)
        tellWrong(key + ": everybody can read " + quote(file), "chmod o-r " + quote(file) + ", and make another");
}

std::uint16_t Checkup::getPort() const
{
    if (m_broker.port != 0)
        return m_broker.port;
    return m_broker.usesTls ? tlsPort : plainPort;
}

} // namespace

std::vector<SettingsCheck::Finding> SettingsCheck::run(const Settings& settings, std::chrono::milliseconds limit)
{
    return Checkup(settings, limit).run();
}

int SettingsCheck::getExitCode(const std::vector<Finding>& findings)
{
    return std::any_of(findings.begin(), findings.end(), [](const Finding& one) { return one.isWrong; }) ? 1 : 0;
}

} // namespace Vantor

#include "tests/mqtt/MosquittoBroker.h"

#include <chrono>
#include <cstdlib>
#include <regex>
#include <stdexcept>
#include <thread>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Vantor {

namespace {

// Of a program that ends by itself; its output goes into a file.
pid_t spawn(std::vector<std::string> command, const std::string& output)
{
    std::vector<char*> arguments;
    for (std::string& argument : command)
        arguments.push_back(argument.data());
    arguments.push_back(nullptr);
    const pid_t parent = getpid();
    const pid_t process = fork();
    if (process == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const int file = open(output.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        if (getppid() != parent || dup2(file, STDOUT_FILENO) < 0 || dup2(file, STDERR_FILENO) < 0)
            _exit(126);
        execv(arguments[0], arguments.data());
        _exit(127);
    }
    return process;
}

void runToEnd(const std::vector<std::string>& command)
{
    const TemporaryFolder folder;
    int status = 0;
    const pid_t process = spawn(command, folder / "output");
    if (process < 0 || waitpid(process, &status, 0) != process || status != 0)
        throw std::runtime_error(command[0] + " has failed: " + contentOf(folder / "output"));
}

sockaddr_in loopbackAddress(std::uint16_t port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

std::uint16_t findFreePort()
{
    const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopbackAddress(0);
    socklen_t size = sizeof address;
    const bool isFound = bind(probe, reinterpret_cast<sockaddr*>(&address), size) == 0 &&
                         getsockname(probe, reinterpret_cast<sockaddr*>(&address), &size) == 0;
    close(probe);
    if (!isFound)
        throw std::runtime_error("no free port");
    return ntohs(address.sin_port);
}

} // namespace

TestAuthority::TestAuthority() : m_folder(), m_file(m_folder / "authority.pem")
{
    runToEnd({"/usr/bin/openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
              "-days", "2", "-subj", "/CN=Authority", "-keyout", m_folder / "authority.key", "-out", m_file});
}

TestAuthority::Certificate TestAuthority::sign(const std::string& name, const std::string& names) const
{
    const Certificate certificate = {m_folder / (name + ".pem"), m_folder / (name + ".key")};
    runToEnd({"/usr/bin/openssl",
              "req",
              "-x509",
              "-newkey",
              "ec",
              "-pkeyopt",
              "ec_paramgen_curve:prime256v1",
              "-nodes",
              "-days",
              "2",
              "-subj",
              "/CN=" + name,
              "-addext",
              "subjectAltName=" + names,
              "-addext",
              "basicConstraints=CA:FALSE",
              "-CA",
              m_file,
              "-CAkey",
              m_folder / "authority.key",
              "-keyout",
              certificate.keyFile,
              "-out",
              certificate.file});
    return certificate;
}

MosquittoBroker::MosquittoBroker(const Options& options) : m_options(options)
{
    if (!m_options.user.empty())
        setPassword(m_options.user, m_options.password);
    if (!m_options.accessList.empty())
        setAccessList(m_options.accessList);
    // Somebody else may take the port before it does.
    for (int tries = 0; tries < 5; ++tries) {
        m_port = findFreePort();
        configure();
        if (tryStart())
            return;
    }
    throw std::runtime_error("mosquitto does not start: " + readLog());
}

MosquittoBroker::~MosquittoBroker()
{
    if (m_process > 0)
        stop(SIGKILL);
}

void MosquittoBroker::configure()
{
    if (!m_options.whole.empty()) {
        writeFile(pathOf("mosquitto.conf"),
                  std::regex_replace(m_options.whole, std::regex("PORT"), std::to_string(m_port)));
        return;
    }
    std::string text = "listener " + std::to_string(m_port) + " 127.0.0.1\nset_tcp_nodelay true\nlog_dest stderr\n";
    text += m_options.user.empty() ? "allow_anonymous true\n"
                                   : "allow_anonymous false\npassword_file " + pathOf("passwords") + "\n";
    // Started as root it would become another user, who may not read the folder.
    if (geteuid() == 0)
        text += "user root\n";
    if (!m_options.accessList.empty())
        text += "acl_file " + pathOf("acl") + "\n";
    if (m_options.persists)
        text += "persistence true\nautosave_on_changes true\nautosave_interval 1\npersistence_location " +
                m_folder.getPath() + "/\n";
    if (m_options.authority != nullptr) {
        const auto own = m_options.authority->sign("broker", m_options.certificateNames);
        text +=
            "cafile " + m_options.authority->getFile() + "\ncertfile " + own.file + "\nkeyfile " + own.keyFile + "\n";
        if (m_options.wantsCertificates)
            text += "require_certificate true\n";
    }
    writeFile(pathOf("mosquitto.conf"), text + m_options.further);
}

bool MosquittoBroker::tryStart()
{
    m_process = spawn({"/usr/sbin/mosquitto", "-c", pathOf("mosquitto.conf")}, pathOf("log"));
    for (int tries = 0; tries < 1000; ++tries) {
        if (isListening())
            return true;
        if (waitpid(m_process, nullptr, WNOHANG) == m_process) {
            m_process = -1;
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    stop(SIGKILL);
    return false;
}

void MosquittoBroker::start()
{
    if (!tryStart())
        throw std::runtime_error("mosquitto does not come back: " + readLog());
}

void MosquittoBroker::stop(int signal)
{
    tell(signal);
    waitpid(m_process, nullptr, 0);
    m_process = -1;
}

void MosquittoBroker::tell(int signal) const
{
    kill(m_process, signal);
}

void MosquittoBroker::setPassword(const std::string& user, const std::string& password) const
{
    std::ofstream(pathOf("passwords"), std::ios::app).flush();
    runToEnd({"/usr/bin/mosquitto_passwd", "-b", pathOf("passwords"), user, password});
    writeFile(pathOf("password"), password + "\n");
}

void MosquittoBroker::setAccessList(const std::string& lines) const
{
    writeFile(pathOf("acl"), lines);
}

BrokerSettings MosquittoBroker::getSettings() const
{
    BrokerSettings settings;
    settings.port = m_port;
    settings.user = m_options.user;
    if (!m_options.user.empty())
        settings.passwordFile = pathOf("password");
    if (m_options.authority != nullptr) {
        settings.usesTls = true;
        settings.authorityFile = m_options.authority->getFile();
    }
    return settings;
}

bool MosquittoBroker::isListening() const
{
    const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopbackAddress(m_port);
    const bool isAnswered = connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    close(probe);
    return isAnswered;
}

} // namespace Vantor

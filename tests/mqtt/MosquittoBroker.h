#pragma once

#include "panel2mqtt/broker/BrokerSettings.h"
#include "tests/support/TemporaryFolder.h"

#include <csignal>
#include <cstdint>
#include <string>
#include <vector>

#include <sys/types.h>

namespace Vantor {

// An authority and what it has signed, each a pair of PEM files, made by openssl.
class TestAuthority {
public:
    TestAuthority();

    const std::string& getFile() const { return m_file; }

    struct Certificate {
        std::string file;
        std::string keyFile;
    };
    // `names` as openssl has them: "DNS:localhost,IP:127.0.0.1".
    Certificate sign(const std::string& name, const std::string& names = "DNS:localhost,IP:127.0.0.1") const;

private:
    const TemporaryFolder m_folder;
    const std::string m_file;
};

// A mosquitto on a port of loopback of its own, with its files in a folder of its own. It
// runs from construction on.
//
// Threads: one. Lifetime: destruction kills it; so does the end of the test's process.
class MosquittoBroker {
public:
    struct Options {
        std::string user; // and password: needed to connect, when set
        std::string password;
        std::string accessList;                   // lines of an ACL file
        bool persists = false;                    // each change at once
        const TestAuthority* authority = nullptr; // with TLS
        std::string certificateNames = "DNS:localhost,IP:127.0.0.1";
        bool wantsCertificates = false; // of clients, too
        std::string further;            // lines of its configuration
        std::string whole;              // its configuration in place of all this, PORT for its port
    };

    MosquittoBroker() : MosquittoBroker(Options()) {}
    explicit MosquittoBroker(const Options& options);
    ~MosquittoBroker();
    MosquittoBroker(const MosquittoBroker&) = delete;
    MosquittoBroker& operator=(const MosquittoBroker&) = delete;

    // On the same port, with what it has kept.
    void start();
    // Waits for its end.
    void stop(int signal = SIGTERM);
    // Does not wait: SIGSTOP, SIGCONT, SIGHUP to read its password and ACL files anew.
    void tell(int signal) const;

    void setPassword(const std::string& user, const std::string& password) const;
    void setAccessList(const std::string& lines) const;

    std::uint16_t getPort() const { return m_port; }
    // What a client needs, with its password in a file.
    BrokerSettings getSettings() const;
    std::string pathOf(const std::string& name) const { return m_folder / name; }
    std::string readLog() const { return contentOf(pathOf("log")); }

private:
    void configure();
    bool isListening() const;
    bool tryStart();

    const Options m_options;
    const TemporaryFolder m_folder;
    std::uint16_t m_port = 0;
    pid_t m_process = -1;
};

} // namespace Vantor

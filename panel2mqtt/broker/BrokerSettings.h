#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace Vantor {

// Where the broker is, and how this host is known to it. Empty texts: not set.
//
// Threads: a plain value.
struct BrokerSettings {
    std::string address = "127.0.0.1"; // name or address
    std::uint16_t port = 0;            // 0: 8883 with TLS, else 1883
    bool usesTls = false;              // must be, unless the broker is on loopback
    std::string authorityFile;         // PEM; empty: the system's authorities
    std::string certificateFile;       // PEM, of this host
    std::string keyFile;               // PEM
    std::string user;
    std::string passwordFile;                                  // its first line; systemd's credentials are such files
    std::chrono::seconds keepAlive = std::chrono::seconds(30); // 5 s at the least
};

} // namespace Vantor

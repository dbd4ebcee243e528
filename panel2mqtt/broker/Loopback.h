#pragma once

#include <string>

struct sockaddr;

namespace Vantor {

// Whether what is sent there stays on this machine, so that a broker may be spoken to
// without TLS: 127.0.0.0/8, ::1, and the name "localhost".
bool isLoopback(const std::string& address);
bool isLoopback(const sockaddr& address);

} // namespace Vantor

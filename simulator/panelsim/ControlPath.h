#pragma once

#include "simulator/panelsim/Descriptor.h"

#include <string>
#include <vector>

#include <sys/types.h>

namespace Vantor {

// Where control sockets lie, and which of them are alive.
namespace ControlPath {

// In which the program that panelsim runs finds the socket.
constexpr char variable[] = "PANELSIM_CONTROL";

// One that listens.
struct Running {
    std::string path;
    pid_t process;
    std::string command; // its command line, as it can be shown
};

// Throws std::runtime_error for a path that is too long for a socket.
void check(const std::string& path);

// A connection; below 0, with errno, when there is none. Does not wait for one to be
// accepted, and fails with EAGAIN where too many wait already.
Descriptor connect(const std::string& path);

// The user's folder for sockets, whether it exists or not: in $XDG_RUNTIME_DIR or
// /run/user/UID, whichever of them is this user's own, or else in /tmp.
std::string folder();

// A path for this process's socket in the folder, which is made when it is missing. Throws
// std::runtime_error when it isn't this user's alone.
std::string make(const std::string& folder);

// Those in the folder, by their paths; the sockets of processes that have been killed are
// removed.
std::vector<Running> find(const std::string& folder);

// A socket that nobody listens at any more is removed. Throws std::runtime_error, the
// cause alone, when somebody does or it is something else.
void clear(const std::string& path);

} // namespace ControlPath

} // namespace Vantor

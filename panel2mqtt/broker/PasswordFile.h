#pragma once

#include <string>

namespace Vantor {

// The first line of a file, as systemd's credentials and all password files have it. Throws
// std::runtime_error: what is wrong, with the file's name and nothing of its content.
std::string readPassword(const std::string& file);

// A regular file that can be read, and so neither a pipe that blocks nor a folder. Throws
// as above; `what` is what the file holds.
void requireReadable(const std::string& file, const std::string& what);

} // namespace Vantor

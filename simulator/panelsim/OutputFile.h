#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace Vantor {

// Files that the simulator writes under names that anybody can foresee, perhaps as root:
// never through a symbolic link, which somebody else may have put there.
namespace OutputFile {

// Begins an ordinary file anew, or makes it; what is no ordinary file (a terminal, a pipe
// that somebody reads) is written to as it is. Never waits. Throws std::runtime_error with the cause alone.
std::FILE* open(const std::string& path);

// Replaces a file as a whole: it is the old one until the new one is complete. Throws
// std::runtime_error with the cause alone, and leaves nothing behind then.
void replace(const std::string& path, const std::vector<std::uint8_t>& bytes);

} // namespace OutputFile

} // namespace Vantor

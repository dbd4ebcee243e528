#pragma once

#include <cstddef>
#include <string>

namespace Vantor {

// So many random hexadecimal digits, of the kernel's best. Throws std::system_error when it has none.
std::string makeRandomText(std::size_t digits);

} // namespace Vantor

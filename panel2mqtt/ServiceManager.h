#pragma once

#include <string_view>

namespace Vantor::ServiceManager {

// Tells systemd, as sd_notify(3) has it: "READY=1". Does nothing where no service manager asks
// for it. Any thread.
void notify(std::string_view state);

} // namespace Vantor::ServiceManager

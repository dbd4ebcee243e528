#pragma once

#include "panel2mqtt/broker/BrokerSettings.h"

#include <string>

namespace Vantor {

// "ADDRESS[:PORT]", as it is given on a command line: the port stays what it was when there is
// none in it. An IPv6 address has brackets where a port follows. Throws std::invalid_argument
// when it is no port.
void setBrokerAddress(BrokerSettings& settings, const std::string& text);

} // namespace Vantor

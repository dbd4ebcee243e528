#pragma once

#include "panel2mqtt/broker/BrokerSettings.h"

#include <string>

namespace Vantor {

// What went wrong with a broker, in words that name what can be put right. Pure.

// The broker's answer to a connection.
std::string describeRefusal(int reasonCode, const BrokerSettings& settings);

// A connection that was up has ended: MQTT's reason codes are the broker's, those below 128
// libmosquitto's; `error` is errno.
std::string describeEnd(int code, int error);

// A connection that never came up; `complaints` are libmosquitto's.
std::string describeFailure(int code, int error, const std::string& complaints, const BrokerSettings& settings);

// A message that the broker, or MQTT, doesn't take.
std::string describeRefusedMessage(int reasonCode);

} // namespace Vantor

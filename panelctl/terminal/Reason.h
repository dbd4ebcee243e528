#pragma once

#include <optional>
#include <string>

namespace Vantor {

class JsonObject;

// Why a panel is dead: what a DeviceFailure says, for those that do not know the library.
struct Reason {
    std::string operation;
    int code;
    std::string text; // of both
};

// As the member "failure"; null for none.
void addReason(JsonObject& object, const std::optional<Reason>& reason);

} // namespace Vantor

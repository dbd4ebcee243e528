#include "panelctl/terminal/Reason.h"

#include "panelctl/terminal/JsonObject.h"

namespace Vantor {

void addReason(JsonObject& object, const std::optional<Reason>& reason)
{
    if (!reason) {
        object.add("failure", nullptr);
        return;
    }
    JsonObject failure;
    failure.add("operation", reason->operation).add("code", reason->code).add("text", reason->text);
    object.add("failure", failure);
}

} // namespace Vantor

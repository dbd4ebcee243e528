#pragma once

#include "panelctl/terminal/JsonObject.h"

#include <string>

namespace Vantor {

// Something that has happened, in both forms in which it is told: the one place where it
// becomes text or JSON. Commands build one and give it to Output, which knows what is wanted.
class Report {
public:
    virtual ~Report() = default;

    // Whole lines for people; may be empty.
    virtual std::string asText() const = 0;

    // For programs: one of the objects of docs/json.md.
    virtual JsonObject asJson() const = 0;
};

} // namespace Vantor

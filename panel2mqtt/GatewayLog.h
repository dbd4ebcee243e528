#pragma once

#include <string>

namespace Vantor {

// What the gateway says of itself: on standard error, a line each, or as JSON; where that is
// the journal, with the priority that it understands in front.
//
// Threads: any; may be a log sink of the library's.
class GatewayLog {
public:
    enum class Level { Error, Warning, Info };

    explicit GatewayLog(bool isJson);

    void say(Level level, const std::string& text) const;

private:
    const bool m_isJson;
    const bool m_isJournal;
};

} // namespace Vantor

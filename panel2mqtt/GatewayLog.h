#pragma once

#include <string>

namespace Vantor {

// What the gateway says of itself: on standard error, a line each; with the priority that the
// journal understands, or as JSON.
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

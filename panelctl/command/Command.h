#pragma once

#include <set>
#include <string>

namespace Vantor {

class Output;
class Session;

// One subcommand with its arguments, checked.
class Command {
public:
    virtual ~Command() = default;

    // Does the work; throws Failure for everything that ends in an exit code but 0.
    virtual void run(Session& session, Output& output) = 0;

    // Whether run fetches packets from the session.
    virtual bool wantsPackets() const { return false; }

    // Lines of the library's log that are no news with this command.
    virtual std::set<std::string> getExpectedLogLines() const { return {}; }
};

} // namespace Vantor

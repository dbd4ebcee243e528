#pragma once

#include <set>
#include <string>

namespace Vantor {

class NoLibusb;
class Output;
class Session;

// One subcommand with its arguments, checked.
class Command {
public:
    virtual ~Command() = default;

    // Does the work; throws Failure for everything that ends in an exit code but 0.
    virtual void run(Session& session, Output& output) = 0;

    // Before the library is started.
    virtual void beforeStart() {}

    // In place of run, when the library can't be started. False: it is needed.
    virtual bool runWithoutLibrary(const NoLibusb& /*failure*/, Output& /*output*/) { return false; }

    // Whether run fetches packets from the session.
    virtual bool wantsPackets() const { return false; }

    // Lines of the library's log that are no news with this command.
    virtual std::set<std::string> getExpectedLogLines() const { return {}; }
};

} // namespace Vantor

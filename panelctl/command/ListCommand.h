#pragma once

#include "panelctl/command/Command.h"

#include <chrono>

namespace Vantor {

// `panelctl list`: one row for each panel attached.
class ListCommand : public Command {
public:
    explicit ListCommand(std::chrono::nanoseconds timeout) : m_timeout(timeout) {}
    void run(Session& session, Output& output) override;

private:
    std::chrono::nanoseconds m_timeout;
};

} // namespace Vantor

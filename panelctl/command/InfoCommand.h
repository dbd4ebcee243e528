#pragma once

#include "panelctl/command/Command.h"

#include <chrono>
#include <optional>
#include <string>
#include <utility>

namespace Vantor {

// `panelctl info`: what is known of one panel.
class InfoCommand : public Command {
public:
    InfoCommand(std::chrono::nanoseconds timeout, std::optional<std::string> panel)
        : m_timeout(timeout), m_panel(std::move(panel))
    {}
    void run(Session& session, Output& output) override;

private:
    std::chrono::nanoseconds m_timeout;
    std::optional<std::string> m_panel;
};

} // namespace Vantor

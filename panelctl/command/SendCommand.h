#pragma once

#include "panelctl/command/Command.h"
#include "panelctl/session/Panel.h"
#include "protocol/PacketType.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Vantor {

// `panelctl send`: one record, once or again and again, each waited for.
class SendCommand : public Command {
public:
    struct Options {
        int type = 0;
        std::optional<unsigned int> key;
        std::optional<std::string> hex; // the payload, one of the two
        std::optional<std::string> file;
        std::optional<std::string> panel;
        std::uint64_t repeat = 1;
    };

    // Reads the payload; throws Failure when it can't be had, or sent to no panel.
    SendCommand(std::chrono::nanoseconds timeout, const Options& options);
    void run(Session& session, Output& output) override;

private:
    void refuseTooLarge(const Panel& panel) const;
    void sendOnce(Session& session, const Panel& panel, std::uint64_t sent) const;

    std::chrono::nanoseconds m_timeout;
    Options m_options;
    std::vector<std::uint8_t> m_payload;
};

} // namespace Vantor

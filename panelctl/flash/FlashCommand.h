#pragma once

#include "panelctl/command/Command.h"
#include "panelctl/flash/FirmwareImages.h"
#include "panelctl/session/Panel.h"

#include <chrono>
#include <optional>
#include <set>
#include <string>

namespace Vantor {

// `panelctl flash`: new firmware for a panel, from the question to the proof.
class FlashCommand : public Command {
public:
    struct Options {
        std::optional<std::string> mainFile; // at least one of the two
        std::optional<std::string> servoFile;
        std::optional<std::string> panel;
        std::chrono::nanoseconds informationLimit{}; // longest wait for it at the start
        std::chrono::nanoseconds patience{};         // longest time without progress, and for an answer at the end
        bool isConfirmed = false;                    // do not ask
    };

    // A healthy upgrade stands still where it goes from one image to the other: for 0.7 s,
    // and as long as a panel takes for a chunk that it has to erase for.
    static constexpr std::chrono::seconds shortestPatience{3};

    // Checks the files; throws Failure (usage).
    explicit FlashCommand(const Options& options);
    void run(Session& session, Output& output) override;
    bool wantsPackets() const override { return true; }
    std::set<std::string> getExpectedLogLines() const override;

private:
    // All that comes before anything is sent.
    Panel prepare(Session& session, Output& output) const;
    void refuseUnflashable(const Panel& panel) const;
    void confirm(Output& output) const;
    void requireUnchanged(const Panel& panel) const;
    void write(Session& session, Output& output, const Panel& panel) const;
    void requireAnswer(Session& session, Output& output, const std::string& panel, const std::string& place) const;

    Options m_options;
    FirmwareImages m_images;
};

} // namespace Vantor

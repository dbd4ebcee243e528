#pragma once

#include "demo/DemoAccounts.h"
#include "panelctl/command/Command.h"
#include "panelctl/session/Session.h"

namespace Vantor {

// Finds panels, measures latency and throughput, receives, goes on
// while a panel is unplugged and plugged back, and draws pictures. Meant for
// simulated panels, as its records mean nothing.
class DemoCommand : public Command {
public:
    // `anyPanel`: also with panels that do not say that they are simulated.
    explicit DemoCommand(bool anyPanel);
    void run(Session& session, Output& output) override;
    bool wantsPackets() const override { return true; }

private:
    void findPanels(Session& session, Output& output);
    void refuseRealPanels(const Session& session) const;
    void measureLatency(Session& session, Output& output);
    void measureThroughput(Session& session, Output& output);
    void receive(Session& session, Output& output);
    void summarise(Output& output) const;

    bool m_anyPanel;
    DemoAccounts m_accounts;
};

} // namespace Vantor

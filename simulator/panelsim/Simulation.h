#pragma once

#include "simulator/bus/PanelBus.h"
#include "simulator/panelsim/CaptureFile.h"
#include "simulator/panelsim/CaptureUse.h"
#include "simulator/panelsim/ControlSocket.h"
#include "simulator/panelsim/FlashFolder.h"
#include "simulator/panelsim/LogFile.h"
#include "simulator/panelsim/PanelsimOptions.h"
#include "simulator/panelsim/WebView.h"

#include <memory>
#include <string>
#include <vector>

namespace Vantor {

// What the subcommands of panelsim have in common: what happens to a bus before and after
// whoever uses it. In this order.
//
// Threads: one at a time. Lifetime: outlives the bus; the options outlive it.
class Simulation {
public:
    // Before anything runs, so that a wrong folder or script costs nobody a long run: throws
    // std::runtime_error for one that can't be made, written to or read, for a file that is
    // to be two things, and for a capture that is of no use.
    explicit Simulation(const PanelsimOptions& options);

    // Throws std::runtime_error for a log or a capture that can't be written.
    void setUp(PanelBus::Options& bus);

    // Flash memory, panels, and the orders for time 0: they have happened before anyone
    // sees the bus.
    void begin(PanelBus& bus);

    // The other orders, counted from now, as the times in the log are.
    void schedule(PanelBus& bus);

    // Carries out a line of the command language: why not, and empty when it could be. What the
    // bus complains of goes where that always goes.
    static std::string carryOut(PanelBus& bus, const std::string& line);

    // The same with what the bus complains of, which goes nowhere else but to the log.
    static std::string answer(PanelBus& bus, const std::string& line);

    // For commands of `panelsim tell`. Null, after a complaint, when there can be no socket and
    // nobody has asked for one; throws std::runtime_error when somebody has.
    std::unique_ptr<ControlSocket> openControl(const ControlConnection::Execute& execute) const;

    // Serves the page, and says where it is; null when nobody has asked for it. Throws
    // std::runtime_error when it can't be served.
    std::unique_ptr<WebView::Server> openWeb(const WebView::UseBus& useBus, const WebView::Execute& execute);

    // Reports orders that were never due, violations, upgrades and differences, writes flash memory and pictures. A
    // PanelsimExit for what was wrong with what the host did, or 0. Throws
    // std::runtime_error when not all of it could be written.
    int finish(PanelBus& bus);

private:
    const PanelsimOptions& m_options;
    CaptureUse m_captures;
    const std::vector<TimedOrder> m_orders;     // of --at, then of the script
    std::unique_ptr<FlashFolder> m_flashFolder; // null when flash is not kept in files
    std::unique_ptr<LogFile> m_log;             // null without one
    std::unique_ptr<CaptureFile> m_capture;     // null without one
    std::unique_ptr<WebView> m_web;             // null without one
};

} // namespace Vantor

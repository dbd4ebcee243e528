#pragma once

#include "libMorvaneHostUsb/ThreadAnnotations.h"
#include "panel2mqtt/GatewayLog.h"
#include "panel2mqtt/Inbox.h"
#include "panel2mqtt/LossReport.h"
#include "panel2mqtt/broker/BrokerLink.h"
#include "panel2mqtt/desk/Desk.h"
#include "panel2mqtt/desk/HostPresence.h"
#include "panel2mqtt/desk/Outbox.h"
#include "panel2mqtt/panels/FirmwareFolder.h"
#include "panel2mqtt/panels/PanelEvents.h"
#include "panel2mqtt/panels/PanelRoster.h"
#include "panel2mqtt/settings/Settings.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

namespace Vantor {

// The gateway as it runs: the broker's link on one side, the library on the other, the desk
// between them on the caller's thread.
//
// Threads: construction and run on one thread. Lifetime: one in a process, as the library.
class Gateway : private BrokerLink::Listener, private Outbox {
public:
    Gateway(const Settings& settings, const GatewayLog& log);
    ~Gateway() override;

    // Until the descriptor can be read. Blocks.
    void run(int signals);

private:
    using Clock = std::chrono::steady_clock;
    using Level = GatewayLog::Level;

    static constexpr std::chrono::seconds shortestToldPatience{10};
    static constexpr std::chrono::minutes longestToldPatience{5};

    // The link's thread.
    Plan planConnection() override;
    void onConnected(const std::vector<std::string>& refused) override;
    void onDisconnected(const std::string& reason) override;
    void onMessage(Message message) override;
    void onRefused(const std::string& topic, const std::string& reason) override;

    // Any thread.
    void publish(Outbox::Kind kind, Message message) override;

    void pass();
    void handle(Inbox::Connecting& news);
    void handle(Inbox::Connected& news);
    void handle(Inbox::Disconnected& news);
    void handle(Message& message);
    void follow(HostPresence::Stage before);
    void lookForTold(Clock::time_point now);
    void feedWatchdog();
    void tellReady();
    void tellLosses(const std::optional<std::string>& line) const;
    LossReport::Losses sumLosses() const;
    std::string describeState() const;
    int timeToNextDue();
    std::string topicOf(const char* rest) const;
    std::string writeStatistics() const;

    const Settings m_settings;
    const GatewayLog& m_log;
    const std::string m_run; // another one after each start
    Inbox m_inbox;
    PanelEvents m_events;

    std::atomic<std::uint64_t> m_busy{0}; // messages for which the inbox had no room

    std::mutex m_presenceMutex;
    HostPresence m_presence MORVANE_GUARDED_BY(m_presenceMutex);

    UsbManager* const m_manager;
    FirmwareFolder m_shelf;
    Desk m_desk;
    PanelRoster m_roster;
    BrokerLink m_link;

    LossReport m_losses;
    bool m_isReady = false;
    bool m_isYielding = false;
    std::string m_lastReason; // of a disconnection, told once
    std::uint64_t m_seenPasses = 0;
    std::uint64_t m_seenLinkPasses = 0;
    Clock::time_point m_nextFeed;
    Clock::time_point m_toldDue = Clock::time_point::max(); // when it is amiss that nothing was told
    Clock::time_point m_toldEnd;                            // the latest for that
    Clock::duration m_toldPatience = shortestToldPatience;
    bool m_isUnheard = false; // it has been amiss, and been said
    bool m_isEndingItself = false;
};

} // namespace Vantor

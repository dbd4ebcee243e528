#pragma once

#include "libMorvaneHostUsb/ThreadAnnotations.h"
#include "panel2mqtt/broker/BackOff.h"
#include "panel2mqtt/broker/BrokerConnection.h"
#include "panel2mqtt/broker/BrokerLink.h"
#include "panel2mqtt/broker/LookUp.h"
#include "panel2mqtt/broker/OutgoingQueue.h"
#include "panel2mqtt/broker/WakeUp.h"

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace Vantor {

// What BrokerLink says, on its thread: from one try to the next, looking up the name, its
// addresses one by one, the connection.
//
// Threads: as BrokerLink has it. Connection, look-up and libmosquitto are the thread's alone.
class BrokerLink::Worker final : public BrokerConnection::Owner {
public:
    Worker(BrokerSettings settings, std::string name, Listener& listener, const BrokerPace& pace);
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    void start();
    void publish(Kind kind, Message message);
    void subscribe(std::vector<Subscription> subscriptions);
    void reconnectIn(double seconds);
    void stop();
    Counts getCounts() const;

private:
    using Clock = std::chrono::steady_clock;
    using Item = OutgoingQueue::Item;

    void onAccepted() override;
    void onUp(const std::vector<std::string>& refused) override;
    void onReceived(Message message) override;
    void onCompleted(const Item& item, int reasonCode) override;
    void onNotSubscribed(const std::string& filter, int reasonCode) override;

    void run();
    void step(Clock::time_point now);
    void obeyReconnect(Clock::time_point now);
    void beginTry(Clock::time_point now);
    void awaitAddresses(Clock::time_point now);
    void tryNextAddress(Clock::time_point now);
    void tend(Clock::time_point now);
    void pump();
    void reportRefusal(const std::string& topic, int reasonCode);
    std::optional<Item> takeNext();
    void conclude(Clock::time_point now);
    void retrieveUnconfirmed();
    void fail(const std::string& reason, Clock::duration upTime, Clock::time_point now);
    void wait(Clock::time_point now);
    std::chrono::milliseconds getPatience(Clock::time_point now) const;
    bool hasDrained() const;
    void finishStopping();
    void countDropped(const OutgoingQueue::Dropped& dropped) MORVANE_REQUIRES(m_mutex);
    std::string makeClientId() const;
    std::uint16_t getPort() const;

    const BrokerSettings m_settings;
    const std::string m_name;
    Listener& m_listener;
    const BrokerPace m_pace;
    const std::shared_ptr<const WakeUp> m_wakeUp;
    std::atomic<bool> m_isStopping{false};

    // The thread's.
    BackOff m_backOff;
    Clock::time_point m_nextTry;
    Clock::time_point m_lookUpEnd;
    std::optional<LookUp> m_lookUp;
    std::vector<std::string> m_addresses; // still to be tried, the next one last
    std::unique_ptr<BrokerConnection> m_connection;
    std::map<int, Clock::time_point> m_reported; // refusals, by reason

    mutable std::mutex m_mutex; // over all below
    OutgoingQueue m_queue MORVANE_GUARDED_BY(m_mutex);
    Counts m_counts MORVANE_GUARDED_BY(m_mutex);
    bool m_isAccepting MORVANE_GUARDED_BY(m_mutex) = false;
    std::optional<double> m_reconnectIn MORVANE_GUARDED_BY(m_mutex);
    std::vector<Subscription> m_subscriptions MORVANE_GUARDED_BY(m_mutex); // still to be asked for

    std::thread m_thread;
};

} // namespace Vantor

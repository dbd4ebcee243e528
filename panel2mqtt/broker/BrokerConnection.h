#pragma once

#include "panel2mqtt/broker/BrokerPace.h"
#include "panel2mqtt/broker/EchoProbe.h"
#include "panel2mqtt/broker/MosquittoClient.h"
#include "panel2mqtt/broker/PublishWindow.h"
#include "panel2mqtt/broker/TlsContext.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Vantor {

// One try at one address of the broker, and the connection that may come of it.
//
// Threads: one, on which its owner is called, too. Lifetime: one connection; the files that
// the settings name are read at construction.
class BrokerConnection final : private MosquittoClient::Events {
public:
    using Clock = std::chrono::steady_clock;
    using Item = OutgoingQueue::Item;
    using Plan = BrokerLink::Listener::Plan;

    class Owner {
    public:
        // From here on what is published goes out with this connection.
        virtual void onAccepted() = 0;
        virtual void onUp(const std::vector<std::string>& refused) = 0;
        virtual void onReceived(Message message) = 0;
        // 0, or why the broker, or MQTT, doesn't take it.
        virtual void onCompleted(const Item& item, int reasonCode) = 0;
        // Of those that were asked for when it was up.
        virtual void onNotSubscribed(const std::string& filter, int reasonCode) = 0;

    protected:
        ~Owner() = default;
    };

    // Throws std::runtime_error with what is wrong in the settings or their files.
    BrokerConnection(const BrokerSettings& settings, const BrokerPace& pace, const std::string& clientId,
                     const Plan& plan, Owner& owner);

    // Begins; goes on in the next two. `address` is a number.
    void connect(const std::string& address, std::uint16_t port, Clock::time_point now);
    // Of poll.
    void onReady(short events, Clock::time_point now);
    // At least once a second.
    void tick(Clock::time_point now);

    // -1: there is nothing to poll.
    int getSocket() const { return m_client.getSocket(); }
    short getEvents() const;

    // It is up by then, or over.
    Clock::time_point getDeadline() const { return isUp() ? Clock::time_point::max() : m_deadline; }
    bool isUp() const { return m_stage == Stage::Up; }
    bool isOver() const { return m_stage == Stage::Over; }
    // Somebody answers at the address.
    bool wasReached() const { return m_wasReached; }
    const std::string& getReason() const { return m_reason; }
    Clock::duration getUpTime(Clock::time_point now) const { return m_upSince ? now - *m_upSince : Clock::duration{}; }

    bool hasRoomFor(std::size_t size, bool isBusy) const { return isUp() && m_window.hasRoomFor(size, isBusy); }
    bool hasLater(const Item& state) const { return m_window.hasLater(state); }
    bool hasUnconfirmed() const { return !m_window.isEmpty(); }
    void publish(Item item);
    void subscribe(const std::vector<BrokerLink::Subscription>& subscriptions);
    std::vector<Item> takeUnconfirmed() { return m_window.takeAll(); }

    // Orderly, without the will.
    void end(const std::string& reason);
    // As a process that dies does: the broker publishes the will.
    void abandon(const std::string& reason) { finish(reason); }

private:
    enum class Stage { Reaching, Greeting, Subscribing, Up, Over };

    void onAnswered(int reasonCode, std::uint32_t largestPacket) override;
    void onSubscribed(int id, int reasonCode) override;
    void onPublished(int id, int reasonCode) override;
    void onReceived(Message message) override;
    void onEnded(int code) override;

    void read();
    void tendUp(Clock::time_point now);
    void checkConfirmed(Clock::time_point now);
    void tryEcho(Clock::time_point now);
    void checkReached(short events);
    void refuse(const std::string& filter, int reasonCode);
    void checkSubscribed(Clock::time_point now);
    void check(int code);
    void finish(const std::string& reason);
    void finishUnanswered();
    std::string describe(int code, int error) const;

    const BrokerSettings m_settings;
    const BrokerPace m_pace;
    Owner& m_owner;
    const std::vector<BrokerLink::Subscription> m_subscriptions;
    const std::optional<TlsContext> m_tls;
    const Message m_echo; // no topic: none
    MosquittoClient m_client;
    PublishWindow m_window;
    EchoProbe m_probe;
    Stage m_stage = Stage::Over;
    bool m_wasReached = false;
    std::string m_reason;
    Clock::time_point m_deadline; // of the stages before it is up
    std::optional<Clock::time_point> m_upSince;
    Clock::time_point m_lastWriting;         // when something was still to be written
    std::map<int, std::string> m_unanswered; // filters, by the id of their subscription
    std::vector<std::string> m_refused;
    std::size_t m_largestPacket = 0;
    std::optional<Item> m_handingOver; // to libmosquitto, at this moment
    int m_handingOverId = 0;
};

} // namespace Vantor

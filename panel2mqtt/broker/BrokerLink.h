#pragma once

#include "panel2mqtt/broker/BrokerPace.h"
#include "panel2mqtt/broker/BrokerSettings.h"
#include "panel2mqtt/desk/Message.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Vantor {

// The connection to the broker, kept up by a thread of its own: it connects, comes back with
// a back-off that has jitter, and takes a mended password, certificate or address at the next
// try. Every connection is a new session with a client id of its own.
//
// Threads: construction, start and stop on one thread; all else on any. The listener is called
// on the link's thread and must only hand on: while it is busy no ping is answered.
// Lifetime: the listener outlives it. The destructor stops it. libmosquitto has the process
// ignore SIGPIPE.
class BrokerLink {
public:
    struct Subscription {
        std::string filter;
        int qos = 0;
        bool leavesOutRetained = false; // what was retained before is not handed over
        bool leavesOutOwn = false;      // nor what this connection itself publishes
    };

    class Listener {
    public:
        virtual ~Listener() = default;

        // The connection that is about to be made: its last will, none if that has no topic,
        // and what it subscribes to.
        struct Plan {
            Message will;
            std::vector<Subscription> subscriptions;
            // One of those, of QoS 1 and with what is its own, which the client may also write:
            // there it is tried whether the broker still delivers. Empty: it is not tried.
            std::string echoTopic = {};
        };
        virtual Plan planConnection() = 0;

        // All subscriptions are granted, or `refused` names those that are not.
        virtual void onConnected(const std::vector<std::string>& refused) = 0;
        // After onConnected, or in its place: why. Not for a connection that `stop` ends.
        virtual void onDisconnected(const std::string& reason) = 0;
        // The retain flag is as it was published. What is retained comes while subscriptions
        // are granted: some of it after planConnection and before onConnected.
        virtual void onMessage(Message message) = 0;
        // A message that the broker doesn't take, by the reason once a minute at the most.
        virtual void onRefused(const std::string& topic, const std::string& reason) { (void)topic, (void)reason; }
    };

    // What waits for the broker.
    enum class Kind {
        Busy,   // an answer that says no more: goes behind all else, and is dropped first, the oldest first
        Event,  // dropped next
        Answer, // dropped when nothing but answers waits
        State,  // retained: the latest of a topic counts, none is dropped
    };

    struct Counts {
        std::uint64_t published = 0; // written to the broker
        std::uint64_t received = 0;
        std::uint64_t droppedEvents = 0; // for want of room, or of a connection
        std::uint64_t droppedAnswers = 0;
        std::uint64_t refused = 0; // not authorised, too large, no topic of MQTT's
        std::uint64_t connections = 0;
        std::uint64_t waiting = 0;
        std::uint64_t passes = 0; // of its thread's loop: once a second at the least while it moves
    };

    // The client id begins with `name`.
    BrokerLink(BrokerSettings settings, std::string name, Listener& listener, const BrokerPace& pace = {});
    ~BrokerLink();
    BrokerLink(const BrokerLink&) = delete;
    BrokerLink& operator=(const BrokerLink&) = delete;

    void start();

    // Never blocks: what there is no room for is dropped and counted. Of what waits when a
    // connection is lost, states are published with the next one, the rest is dropped.
    void publish(Kind kind, Message message);

    // With the present connection, and forgotten with it; nothing without one. What is
    // published afterwards goes out behind it. A refusal is told as that of a message is.
    void subscribe(std::vector<Subscription> subscriptions);

    // Ends the present connection orderly, without the will, and makes the next one after
    // `seconds`. The listener is told of that end, too.
    void reconnectIn(double seconds);

    // What waits gets a second, then the connection ends: orderly, without the will, unless a
    // state has not reached the broker, which the will must make good. Returns within a second
    // and a half, whatever the broker does. Not to be started again.
    void stop();

    Counts getCounts() const;

private:
    class Worker;
    const std::unique_ptr<Worker> m_worker;
};

} // namespace Vantor

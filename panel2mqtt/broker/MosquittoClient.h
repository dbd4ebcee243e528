#pragma once

#include "panel2mqtt/broker/BrokerLink.h"

#include <cstdint>
#include <string>
#include <vector>

#include <mosquitto.h>

namespace Vantor {

class TlsContext;

// libmosquitto's client, for one connection, driven from outside: nothing in it blocks, and
// it has no thread.
//
// Threads: one, on which it is called back, too. Lifetime: that of one connection; the
// events and the TLS context outlive it.
class MosquittoClient {
public:
    // Numbers above 127 are MQTT's reason codes, those below libmosquitto's.
    class Events {
    public:
        virtual void onAnswered(int reasonCode, std::uint32_t largestPacket) = 0;
        virtual void onSubscribed(int id, int reasonCode) = 0;
        virtual void onPublished(int id, int reasonCode) = 0;
        virtual void onReceived(Message message) = 0;
        virtual void onEnded(int code) = 0;

    protected:
        ~Events() = default;
    };

    // What is announced to the broker: it leaves out what is larger.
    static constexpr std::uint32_t maxPacketSize = 17U << 20U;

    // Throws std::runtime_error, as do the next three.
    MosquittoClient(const std::string& id, Events& events);
    ~MosquittoClient();
    MosquittoClient(const MosquittoClient&) = delete;
    MosquittoClient& operator=(const MosquittoClient&) = delete;

    void setWill(const Message& will);
    void logIn(const std::string& user, const std::string& password);
    void secure(const TlsContext& context);

    // All of these return libmosquitto's code, 0 when it went well. `address` is a number.
    int connect(const std::string& address, std::uint16_t port, int keepAlive);
    int read();
    int write();
    int keepAlive();
    int subscribe(const BrokerLink::Subscription& subscription, int& id);
    // May call onPublished before it returns; `id` is set by then.
    int publish(const Message& message, int& id);

    // The broker is told, and what it sends meanwhile is read, for `patience` at the most:
    // a connection that is closed with something unread is one that died, to the broker,
    // which then publishes the will.
    void disconnect(int patienceMilliseconds);

    int getSocket() const; // -1: none
    bool wantsToWrite() const;

    // What libmosquitto said was wrong, TLS's own texts among it.
    const std::string& getComplaints() const { return m_complaints; }

private:
    static void onConnect(mosquitto*, void* self, int code, int, const mosquitto_property* properties) noexcept;
    static void onSubscribe(mosquitto*, void* self, int id, int count, const int* codes,
                            const mosquitto_property*) noexcept;
    static void onPublish(mosquitto*, void* self, int id, int code, const mosquitto_property*) noexcept;
    static void onMessage(mosquitto*, void* self, const mosquitto_message* message,
                          const mosquitto_property* properties) noexcept;
    static void onDisconnect(mosquitto*, void* self, int code, const mosquitto_property*) noexcept;
    static void onLog(mosquitto*, void* self, int level, const char* text) noexcept;

    void setCallbacks();

    Events& m_events;
    mosquitto* const m_client;
    int m_maxQos = 2;
    std::string m_complaints;
};

} // namespace Vantor

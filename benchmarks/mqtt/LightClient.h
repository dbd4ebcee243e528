#pragma once

#include "panel2mqtt/desk/Message.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Vantor {

// A client of a broker on loopback, with as much of MQTT 5 as a load needs. It has a socket
// and two buffers and nothing else, so that its own time and memory hardly count, and some
// thousands go into a process, which libmosquitto's do not with their three descriptors each.
//
// Threads: one. Nothing blocks. What goes wrong ends the connection, and throws nothing.
class LightClient {
public:
    struct Subscription {
        std::string filter;
        int qos = 0;
        bool leavesOutRetained = false;
        bool leavesOutOwn = false;
    };
    struct Options {
        std::string id;
        std::optional<Message> will;
        std::vector<Subscription> subscriptions;
        std::uint16_t keepAlive = 0; // seconds; 0: none
    };
    using Receive = std::function<void(Message&&)>;

    LightClient(std::uint16_t port, Options options, Receive receive);
    ~LightClient();
    LightClient(const LightClient&) = delete;
    LightClient& operator=(const LightClient&) = delete;

    // Begins. A connection that was there is cut, without a farewell.
    void connect();
    void cut();

    int getSocket() const { return m_socket; } // -1: no connection
    bool wantsWrite() const { return !m_out.empty(); }
    bool isUp() const { return m_isGreeted && m_granted == m_options.subscriptions.size(); }
    std::size_t getWaitingBytes() const { return m_out.size(); }
    std::uint64_t getConfirmed() const { return m_confirmed; } // of QoS 1, since the connection

    // Written at once, as far as the socket takes it.
    void publish(const Message& message);
    void ping();

    // When the socket can be read, or written. The handler is called within.
    void onReady();

private:
    void greet();
    void subscribe();
    void send(std::uint8_t kind, const std::string& body);
    void flush();
    bool takePacket();
    void handle(std::uint8_t kind, std::string_view body);
    void handlePublish(std::uint8_t kind, std::string_view body);

    const std::uint16_t m_port;
    const Options m_options;
    const Receive m_receive;
    int m_socket = -1;
    bool m_isGreeted = false;
    std::size_t m_granted = 0;
    std::uint16_t m_lastId = 0;
    std::uint64_t m_confirmed = 0;
    std::string m_in;
    std::size_t m_inBegin = 0; // what is before it has been handled
    std::string m_out;
};

// Until the socket has something, or that many milliseconds are over; then the client is served.
void tendClient(LightClient& client, int milliseconds);

// Connects until it is up; throws std::runtime_error after some seconds.
void bringUp(LightClient& client);

} // namespace Vantor

#pragma once

#include "panel2mqtt/desk/Message.h"
#include "tests/mqtt/MosquittoBroker.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/ToolRun.h"

#include <chrono>
#include <csignal>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace Vantor {

class MqttPeer;

// A host: simulated panels, and a gateway that is started anew whenever it ends.
//
// Threads: one. Lifetime: the broker outlives it.
class GatewayHost {
public:
    struct Options {
        std::string name = "shop";
        unsigned int panels = 1;
        std::vector<std::string> bus; // of `panelsim run`
        std::string settings;         // lines of the configuration, behind the broker's
        std::string environment = {}; // of the gateway: "A=1 B=2", as a shell has them
        std::uint16_t port = 0;       // in place of the broker's
    };

    GatewayHost(const MosquittoBroker& broker, const Options& options);
    ~GatewayHost();
    GatewayHost(const GatewayHost&) = delete;
    GatewayHost& operator=(const GatewayHost&) = delete;

    // Of this host: "shop", "1-1/do/send/5".
    std::string topicOf(const std::string& rest) const { return "panel/1/" + m_options.name + "/" + rest; }

    // Until all its panels are told to be there, by the gateway that runs now. Subscribes the peer
    // to their states.
    void awaitPanels(MqttPeer& peer) const;

    // The gateway's process. Another one once killed.
    int getProcess() const;
    void kill();

    // Ends it, and waits for that: its exit code, or 128 and the signal. No other is started until start.
    int stop(int signal = SIGTERM);
    void start();

    // Commands of `panelsim tell`.
    void tell(const std::vector<std::string>& commands) const;
    void tell(const std::string& command) const { tell(std::vector<std::string>{command}); }

    // Lines of the configuration for the gateways that are started from now on.
    void configure(const std::string& settings) const;

    // Orderly; what the LCDs show is in pathOf("pngs") then.
    void end();

    // Payloads of the records that a panel has had under a type, in order; of long ones the beginning.
    std::vector<std::string> readRecords(unsigned int panel, unsigned int type) const;
    std::string readErrors() const { return contentOf(pathOf("errors")); }
    std::string pathOf(const std::string& name) const { return m_folder / name; }

private:
    std::size_t countExits() const;

    const Options m_options;
    const std::uint16_t m_port;
    const TemporaryFolder m_folder;
    std::unique_ptr<ToolRun> m_run;
    mutable int m_awaited = 0;         // the gateway that was waited for last
    mutable std::uint64_t m_epoch = 0; // the last of which it has told its panels
    bool m_isKilled = false;
};

// Looks again and again, for 40 s at the most. False: it never was so.
bool eventually(const std::function<bool()>& isSo);

// Of a process, in KiB; 0: there is none.
std::size_t memoryOf(int process);
std::size_t countDescriptorsOf(int process);

// What a broker retains below a filter, by topic.
std::map<std::string, std::string> readRetained(const MosquittoBroker& broker, const std::string& filter);

// A number in JSON, as it stands there; "none".
std::string fieldOf(const std::string& json, const std::string& name);

std::size_t countOf(const std::string& text, const std::string& part);

// What a test publishes: with an id, and answers to panel/1/HOST/answer/test.
Message makeCommand(const GatewayHost& host, const std::string& rest, const std::string& payload,
                    const std::string& id);

// "taken" and so on; the whole payload when it is none.
std::string wordOf(const Message& answer);

// The next answer to the id: its word, or "none".
std::string awaitAnswer(MqttPeer& peer, const std::string& id,
                        std::chrono::milliseconds time = std::chrono::seconds(40));

} // namespace Vantor

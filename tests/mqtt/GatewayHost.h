#pragma once

#include "panel2mqtt/desk/Message.h"
#include "tests/mqtt/MosquittoBroker.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/ToolRun.h"

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
    };

    GatewayHost(const MosquittoBroker& broker, const Options& options);
    ~GatewayHost();
    GatewayHost(const GatewayHost&) = delete;
    GatewayHost& operator=(const GatewayHost&) = delete;

    // Of this host: "shop", "1-1/do/send/5".
    std::string topicOf(const std::string& rest) const { return "panel/1/" + m_options.name + "/" + rest; }

    // Until all its panels are told to be there. Subscribes the peer to their states.
    void awaitPanels(MqttPeer& peer) const;

    // The gateway's process. Another one once killed.
    int getProcess() const;
    void kill();

    // A command of `panelsim tell`.
    void tell(const std::string& command) const;

    // Orderly; what the LCDs show is in pathOf("pngs") then.
    void end();

    // Payloads of the records that a panel has had under a type, in order; of long ones the beginning.
    std::vector<std::string> readRecords(unsigned int panel, unsigned int type) const;
    std::string readErrors() const { return contentOf(pathOf("errors")); }
    std::string pathOf(const std::string& name) const { return m_folder / name; }

private:
    const Options m_options;
    const TemporaryFolder m_folder;
    std::unique_ptr<ToolRun> m_run;
    bool m_isKilled = false;
};

// What a test publishes: with an id, and answers to panel/1/HOST/answer/test.
Message makeCommand(const GatewayHost& host, const std::string& rest, const std::string& payload,
                    const std::string& id);

// "taken" and so on; the whole payload when it is none.
std::string wordOf(const Message& answer);

// The next answer to the id: its word, or "none".
std::string awaitAnswer(MqttPeer& peer, const std::string& id);

} // namespace Vantor

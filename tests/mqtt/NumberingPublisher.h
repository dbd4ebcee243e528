#pragma once

#include "panel2mqtt/desk/Message.h"
#include "tests/mqtt/GatewayHost.h"
#include "tests/mqtt/MqttPeer.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace Vantor {

// Publishes numbered records to panels, all of one type, and repeats what is not answered.
//
// Threads: one, each its own.
class NumberingPublisher {
public:
    NumberingPublisher(const MosquittoBroker& broker, char name) : m_broker(broker), m_name(name) {}

    // A window of so many records at a time to each of the hosts' panels, one record after the
    // other for each.
    void run(const std::vector<const GatewayHost*>& hosts, unsigned int panels, unsigned int type, unsigned int end,
             unsigned int begin = 0);

    // By host and panel: the records that were answered "taken".
    std::map<std::string, std::vector<std::string>> taken;

private:
    void connect(const std::vector<const GatewayHost*>& hosts);
    std::string idOf(const GatewayHost& host, unsigned int panel, unsigned int number) const;
    Message makeRecord(const GatewayHost& host, unsigned int panel, unsigned int type, unsigned int number) const;
    void settle(std::map<std::string, Message>& open, const std::vector<const GatewayHost*>& hosts);
    bool takeAnswer(std::map<std::string, Message>& open);

    const MosquittoBroker& m_broker;
    const char m_name;
    std::unique_ptr<MqttPeer> m_peer;
};

// Only this publisher's.
std::vector<std::string> ofPublisher(const std::vector<std::string>& records, char publisher);

std::vector<std::string> withoutDoubles(const std::vector<std::string>& records);

} // namespace Vantor

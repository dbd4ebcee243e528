#include "tests/mqtt/NumberingPublisher.h"

#include <chrono>
#include <set>
#include <stdexcept>
#include <thread>
#include <utility>

#include <gtest/gtest.h>

namespace Vantor {

namespace {

constexpr std::chrono::milliseconds quiet{150};

// "b-17"
std::string nameOf(char publisher, unsigned int number)
{
    return std::string{publisher, '-'} + std::to_string(number);
}

} // namespace

void NumberingPublisher::run(const std::vector<const GatewayHost*>& hosts, unsigned int panels, unsigned int type,
                             unsigned int end, unsigned int begin)
{
    connect(hosts);
    for (unsigned int number = begin; number < end; ++number) {
        std::map<std::string, Message> open;
        for (const GatewayHost* const host : hosts) {
            for (unsigned int panel = 0; panel < panels; ++panel)
                open.emplace(idOf(*host, panel, number), makeRecord(*host, panel, type, number));
        }
        settle(open, hosts);
    }
}

void NumberingPublisher::connect(const std::vector<const GatewayHost*>& hosts)
{
    for (int time = 0;; ++time) {
        try {
            m_peer = std::make_unique<MqttPeer>(m_broker.getSettings());
            for (const GatewayHost* const host : hosts)
                m_peer->subscribe(host->topicOf("answer/") + m_name);
            return;
        } catch (const std::runtime_error&) {
            if (time == 100)
                throw;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
    }
}

std::string NumberingPublisher::idOf(const GatewayHost& host, unsigned int panel, unsigned int number) const
{
    return host.topicOf(std::to_string(panel)) + " " + nameOf(m_name, number);
}

Message NumberingPublisher::makeRecord(const GatewayHost& host, unsigned int panel, unsigned int type,
                                       unsigned int number) const
{
    const std::string place = "1-" + std::to_string(panel + 1);
    Message record = makeCommand(host, place + "/do/send/" + std::to_string(type), nameOf(m_name, number),
                                 idOf(host, panel, number));
    record.responseTopic = host.topicOf("answer/") + m_name;
    return record;
}

void NumberingPublisher::settle(std::map<std::string, Message>& open, const std::vector<const GatewayHost*>& hosts)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!open.empty()) {
        ASSERT_LT(std::chrono::steady_clock::now(), end) << open.begin()->first << " is not taken";
        const std::size_t before = open.size();
        try {
            for (const auto& [id, record] : open)
                m_peer->publish(record, quiet);
            while (!open.empty() && takeAnswer(open)) {
            }
        } catch (const std::runtime_error&) {
            // The connection is lost; so it is, perhaps, when nobody answers.
        }
        if (open.size() == before)
            connect(hosts);
    }
}

// False: none has come for a while.
bool NumberingPublisher::takeAnswer(std::map<std::string, Message>& open)
{
    const auto answer = m_peer->await([](const Message& message) { return message.correlation.has_value(); }, quiet);
    if (!answer)
        return false;
    const auto known = open.find(*answer->correlation);
    if (known == open.end())
        return true;
    if (wordOf(*answer) != "taken") { // for good: what follows is a new attempt
        auto again = open.extract(known);
        again.key() += '+';
        again.mapped().correlation = again.key();
        open.insert(std::move(again));
        return true;
    }
    taken[known->first.substr(0, known->first.find(' '))].push_back(known->second.payload);
    open.erase(known);
    return true;
}

std::vector<std::string> ofPublisher(const std::vector<std::string>& records, char publisher)
{
    std::vector<std::string> own;
    for (const std::string& record : records) {
        if (record[0] == publisher)
            own.push_back(record);
    }
    return own;
}

std::vector<std::string> withoutDoubles(const std::vector<std::string>& records)
{
    std::vector<std::string> once;
    std::set<std::string> seen;
    for (const std::string& record : records) {
        if (seen.insert(record).second)
            once.push_back(record);
    }
    return once;
}

} // namespace Vantor

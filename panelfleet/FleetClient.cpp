#include "panelfleet/FleetClient.h"

#include "panel2mqtt/desk/DeskJson.h"

#include <cstdio>
#include <random>
#include <utility>

namespace Vantor {

namespace {

std::string makeRunName()
{
    std::random_device device;
    char text[32];
    std::snprintf(text, sizeof text, "panelfleet-%08x%08x", device(), device());
    return text;
}

BrokerPace fleetPace()
{
    BrokerPace pace;
    pace.lastDelay = std::chrono::seconds(10);
    pace.refusalInterval = std::chrono::milliseconds(0); // each panel is to be told of its own
    return pace;
}

BrokerLink::Subscription fleetSubscription(const std::string& filter)
{
    BrokerLink::Subscription subscription;
    subscription.filter = filter;
    return subscription;
}

} // namespace

FleetClient::FleetClient(const BrokerSettings& settings, Selection selection, const std::string& id,
                         std::vector<std::string> rests)
    : m_run(makeRunName()), m_answerTopic("answer/" + m_run), m_view(std::move(selection), id),
      m_reader(m_view, std::move(rests), m_run), m_lastHeard(Clock::now()),
      m_link(settings, "panelfleet", *this, fleetPace())
{}

FleetClient::~FleetClient()
{
    m_link.stop();
}

FleetClient::News FleetClient::takeNews()
{
    m_wakeUp.clear();
    const std::lock_guard<std::mutex> lock(m_mutex);
    return std::exchange(m_news, {});
}

FleetClient::Clock::time_point FleetClient::getLastHeard() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_lastHeard;
}

void FleetClient::look(const std::function<void(const FleetView&)>& with) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    with(m_view);
}

void FleetClient::command(const std::string& host, const std::string& place, Message message)
{
    message.topic = "panel/1/" + host + "/" + place + "/do/flash";
    message.qos = 1;
    message.responseTopic = "panel/1/all/" + m_answerTopic;
    message.correlation = host + "/" + place;
    // As a state, of which none is left out for its size.
    m_link.publish(BrokerLink::Kind::State, std::move(message));
}

BrokerLink::Listener::Plan FleetClient::planConnection()
{
    Plan plan;
    plan.subscriptions = {fleetSubscription("panel/1/+/state"), fleetSubscription(FleetReader::markerTopic),
                          fleetSubscription("panel/1/+/" + m_answerTopic)};
    plan.subscriptions[1].leavesOutRetained = true;
    plan.subscriptions[2].qos = 1;
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_view.beginTelling(); // some of it comes before the connection is told to be there
    return plan;
}

void FleetClient::onConnected(const std::vector<std::string>& refused)
{
    FleetReader::Step step;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_lastHeard = Clock::now();
        if (!refused.empty())
            m_news.refusal = "the broker refuses the subscription to " + refused.front();
        step = m_reader.begin();
    }
    carryOut(step);
    m_wakeUp.ring();
}

void FleetClient::onDisconnected(const std::string& reason)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_reader.end();
        m_news.isLost = true;
        m_news.isComplete = false;
        m_news.reason = reason;
    }
    m_wakeUp.ring();
}

void FleetClient::onMessage(Message message)
{
    FleetReader::Step step;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_lastHeard = Clock::now();
        if (message.topic.size() > m_answerTopic.size() &&
            message.topic.compare(message.topic.size() - m_answerTopic.size(), std::string::npos, m_answerTopic) == 0) {
            addReply(message);
        } else {
            const bool wasComplete = m_reader.isComplete();
            step = m_reader.receive(message.topic, message.payload);
            if (m_reader.isComplete() && !wasComplete)
                m_news.isComplete = true;
        }
    }
    carryOut(step);
    m_wakeUp.ring();
}

void FleetClient::onRefused(const std::string& topic, const std::string& reason)
{
    constexpr const char* rest = "/do/flash";
    const std::string root = "panel/1/";
    const std::size_t end = topic.rfind(rest);
    const std::size_t slash = topic.find('/', root.size());
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (end == std::string::npos || slash == std::string::npos || slash >= end)
            m_news.refusal = "the broker does not take " + topic + ": " + reason;
        else if (m_news.replies.size() < maxReplies)
            m_news.replies.push_back({topic.substr(root.size(), slash - root.size()),
                                      topic.substr(slash + 1, end - slash - 1),
                                      {Answer::Word::Refused, "the broker does not take the command: " + reason}});
    }
    m_wakeUp.ring();
}

// An answer names the panel that was asked by what it was asked with, and its host by the topic.
void FleetClient::addReply(const Message& message)
{
    const std::string name = message.correlation.value_or("");
    const std::size_t slash = name.find('/');
    const auto answer =
        message.payload.size() <= FleetView::maxPayload ? DeskJson::readAnswer(message.payload) : std::nullopt;
    if (!answer || slash == std::string::npos || m_news.replies.size() == maxReplies ||
        message.topic != "panel/1/" + name.substr(0, slash) + "/" + m_answerTopic)
        return;
    m_news.replies.push_back({name.substr(0, slash), name.substr(slash + 1), *answer});
}

void FleetClient::carryOut(const FleetReader::Step& step)
{
    if (!step.filters.empty()) {
        std::vector<BrokerLink::Subscription> subscriptions;
        for (const std::string& filter : step.filters)
            subscriptions.push_back(fleetSubscription(filter));
        m_link.subscribe(std::move(subscriptions));
    }
    if (step.marker.empty())
        return;
    Message marker;
    marker.topic = FleetReader::markerTopic;
    marker.payload = step.marker;
    marker.qos = 1; // so that a refusal is told
    m_link.publish(BrokerLink::Kind::Answer, std::move(marker));
}

} // namespace Vantor

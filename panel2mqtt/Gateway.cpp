#include "panel2mqtt/Gateway.h"

#include "libMorvaneHostUsb/Version.h"
#include "panel2mqtt/ServiceManager.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <memory>
#include <random>
#include <utility>

#include <nlohmann/json.hpp>
#include <poll.h>

namespace Vantor {

namespace {

constexpr double secondsToYield = 30;

// Mistakes of clients, a line each: not more than the log bears.
class LineLimit {
public:
    bool allows()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto now = std::chrono::steady_clock::now();
        if (now >= m_end) {
            m_end = now + std::chrono::minutes(1);
            m_left = linesAMinute;
        }
        return m_left != 0 && m_left-- != 0;
    }

private:
    static constexpr unsigned int linesAMinute = 30;

    std::mutex m_mutex;
    std::chrono::steady_clock::time_point m_end MORVANE_GUARDED_BY(m_mutex);
    unsigned int m_left MORVANE_GUARDED_BY(m_mutex) = 0;
};

std::uint64_t millisecondsSince1970()
{
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

std::string timeOfDay()
{
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    gmtime_r(&now, &parts);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text.data();
}

std::string makeRun()
{
    std::random_device device;
    std::array<char, 17> text{};
    std::snprintf(text.data(), text.size(), "%08x%08x", device(), device());
    return text.data();
}

Desk::Options deskOptions(const Settings& settings, const std::string& run, const GatewayLog& log, FirmwareShelf& shelf)
{
    Desk::Options options;
    options.host = settings.host;
    options.run = run;
    if (settings.gotTypes)
        options.got.emplace(settings.gotTypes->begin(), settings.gotTypes->end());
    options.gotQos = settings.gotQos;
    options.statsEvery = settings.statsEvery;
    options.forgetAfter = settings.forgetAfter;
    options.wait = settings.wait;
    options.clock = timeOfDay;
    options.complain = [&log, limit = std::make_shared<LineLimit>()](const std::string& text) {
        if (limit->allows())
            log.say(GatewayLog::Level::Warning, text);
    };
    options.say = [&log](bool isWrong, const std::string& text) {
        log.say(isWrong ? GatewayLog::Level::Warning : GatewayLog::Level::Info, text);
    };
    options.shelf = &shelf;
    return options;
}

BrokerLink::Kind linkKindOf(Outbox::Kind kind)
{
    switch (kind) {
    case Outbox::Kind::Busy:
        return BrokerLink::Kind::Busy;
    case Outbox::Kind::Event:
        return BrokerLink::Kind::Event;
    case Outbox::Kind::Answer:
        return BrokerLink::Kind::Answer;
    case Outbox::Kind::State:
        break;
    }
    return BrokerLink::Kind::State;
}

} // namespace

Gateway::Gateway(const Settings& settings, const GatewayLog& log)
    : m_settings(settings), m_log(log), m_run(makeRun()),
      m_presence(settings.host, m_run, MORVANE_VERSION_STRING, millisecondsSince1970(), *this),
      m_manager(UsbManager::getUsbManager()), m_shelf(settings.firmwareFolder),
      m_desk(deskOptions(settings, m_run, log, m_shelf), *this,
             [this](const std::string& place, const PanelDesk::Counts& counts) {
                 return place.empty() ? writeStatistics()
                                      : PanelRoster::writeStatistics(*m_manager, m_settings.host, place, counts);
             }),
      m_roster(*m_manager, m_desk, [this](const std::string& text) { m_log.say(Level::Info, text); }),
      m_link(settings.broker, "panel2mqtt-" + settings.host, *this)
{}

Gateway::~Gateway()
{
    m_link.stop();
    UsbManager::destroyUsbManager(); // lets transfers under way end, and releases the panels
}

std::string Gateway::topicOf(const char* rest) const
{
    return "panel/1/" + m_settings.host + "/" + rest;
}

BrokerLink::Listener::Plan Gateway::planConnection()
{
    m_inbox.add(Inbox::Connecting{});
    Plan plan;
    {
        const std::lock_guard<std::mutex> lock(m_presenceMutex);
        plan.will = m_presence.planWill(millisecondsSince1970());
    }
    for (const std::string& host : {m_settings.host, std::string("all")}) {
        // Of QoS 1 for the broker's sake: mosquitto keeps some 20 of these under way. Others it gives to
        // a socket until 1,000 packets wait there, and then drops its own confirmations, too.
        plan.subscriptions.push_back({"panel/1/" + host + "/+/do/#", 1, true, false});
        plan.subscriptions.push_back({"panel/1/" + host + "/+/want/#", 0, false, false});
    }
    for (const char* const own : {"state", "claim", "+/state", "+/info", "+/job/+"})
        plan.subscriptions.push_back({topicOf(own), 0, false, true});
    plan.echoTopic = topicOf("told");
    plan.subscriptions.push_back({plan.echoTopic, 1, true, false});
    return plan;
}

void Gateway::onConnected(const std::vector<std::string>& refused)
{
    m_inbox.add(Inbox::Connected{refused});
}

void Gateway::onDisconnected(const std::string& reason)
{
    m_inbox.add(Inbox::Disconnected{reason});
}

void Gateway::onMessage(Message message)
{
    if (m_inbox.addMessage(message))
        return;
    ++m_busy;
    m_desk.refuseBusy(message);
    // A wish that is not kept is told again with the next connection.
    if (message.topic.find("/do/") == std::string::npos)
        m_link.reconnectIn(1);
}

void Gateway::onRefused(const std::string& topic, const std::string& reason)
{
    m_log.say(Level::Warning, "the broker does not take a message for " + topic + ": " + reason);
}

void Gateway::publish(Outbox::Kind kind, Message message)
{
    m_link.publish(linkKindOf(kind), std::move(message));
}

std::string Gateway::writeStatistics() const
{
    const BrokerLink::Counts link = m_link.getCounts();
    return nlohmann::ordered_json{{"host", m_settings.host},
                                  {"panels", m_roster.getPanels()},
                                  {"connections", link.connections},
                                  {"received", link.received},
                                  {"published", link.published},
                                  {"waiting", link.waiting},
                                  {"droppedEvents", link.droppedEvents},
                                  {"droppedAnswers", link.droppedAnswers},
                                  {"droppedRecords", m_events.getDropped()},
                                  {"busy", m_busy.load()},
                                  {"refused", link.refused}}
        .dump();
}

void Gateway::run(int signals)
{
    m_manager->registerObserver(&m_events);
    m_manager->registerSendObserver(&m_events);
    m_manager->initialise();
    m_link.start();
    std::array<pollfd, 3> waited{
        {{signals, POLLIN, 0}, {m_inbox.getSignal(), POLLIN, 0}, {m_events.getSignal(), POLLIN, 0}}};
    while (waited[0].revents == 0) {
        pass();
        poll(waited.data(), waited.size(), timeToNextDue());
    }
    ServiceManager::notify("STOPPING=1");
    m_desk.leave();
    tellLosses(m_losses.finish(sumLosses()));
    const std::lock_guard<std::mutex> lock(m_presenceMutex);
    m_presence.leave();
}

void Gateway::pass()
{
    for (Inbox::Item& item : m_inbox.take())
        std::visit([this](auto& news) { handle(news); }, item);
    const auto now = Clock::now();
    m_roster.handle(m_events.take(), now);
    HostPresence::Stage before{};
    {
        const std::lock_guard<std::mutex> lock(m_presenceMutex);
        before = m_presence.getStage();
        m_presence.poll(now);
    }
    follow(before);
    m_desk.poll(now);
    lookForTold(now);
    tellLosses(m_losses.look(sumLosses(), now));
    tellReady();
    feedWatchdog();
}

// What is amiss with the access list is mended while this runs: the broker is asked anew, and
// tells anew what it retains, each time with more patience, as a slow line may need it.
void Gateway::lookForTold(Clock::time_point now)
{
    if (m_toldDue > now)
        return;
    m_toldDue = Clock::time_point::max();
    if (!std::exchange(m_isUnheard, true))
        m_log.say(Level::Error, "the broker does not deliver what is published to " + topicOf("told") +
                                    ", and nothing is served: let this host read and write " + topicOf("#"));
    m_toldPatience = std::min<Clock::duration>(2 * m_toldPatience, longestToldPatience);
    m_isEndingItself = true;
    m_link.reconnectIn(1);
}

void Gateway::handle(Inbox::Connecting& /*news*/)
{
    const std::lock_guard<std::mutex> lock(m_presenceMutex);
    m_presence.beginConnection();
    m_desk.beginConnection();
}

void Gateway::handle(Inbox::Connected& news)
{
    m_lastReason.clear();
    if (!m_isUnheard)
        m_log.say(Level::Info, "connected with the broker");
    for (const std::string& filter : news.refused)
        m_log.say(Level::Error, "the broker refuses the subscription to " + filter);
    HostPresence::Stage before{};
    {
        const std::lock_guard<std::mutex> lock(m_presenceMutex);
        before = m_presence.getStage();
        m_presence.onConnected(Clock::now());
    }
    follow(before);
    // Comes back behind all that is retained.
    Message told;
    told.topic = topicOf("told");
    told.payload = m_run;
    publish(Outbox::Kind::Answer, std::move(told));
    m_toldDue = Clock::now() + m_toldPatience;
    m_toldEnd = Clock::now() + 6 * m_toldPatience;
}

void Gateway::handle(Inbox::Disconnected& news)
{
    {
        const std::lock_guard<std::mutex> lock(m_presenceMutex);
        m_presence.onDisconnected();
    }
    const bool isOwnDoing = std::exchange(m_isEndingItself, false);
    if (news.reason != m_lastReason && !m_isYielding && !isOwnDoing)
        m_log.say(Level::Warning, "no connection with the broker: " + news.reason);
    m_lastReason = news.reason;
    m_toldDue = Clock::time_point::max();
}

void Gateway::handle(Message& message)
{
    if (message.topic == topicOf("told") && message.payload != m_run)
        return; // of another gateway, or of who checks
    const auto now = Clock::now();
    if (message.isRetained && m_toldDue != Clock::time_point::max())
        m_toldDue = std::min(now + m_toldPatience, m_toldEnd); // it is still telling, or others publish
    HostPresence::Stage before{};
    bool isPresence = false;
    const bool isTold = message.topic == topicOf("told");
    {
        const std::lock_guard<std::mutex> lock(m_presenceMutex);
        before = m_presence.getStage();
        if (isTold)
            m_presence.endTelling(now);
        else
            isPresence = m_presence.receive(message, now);
    }
    follow(before);
    if (isTold) {
        m_toldDue = Clock::time_point::max();
        m_toldPatience = shortestToldPatience;
        m_isUnheard = false;
        m_desk.endTelling(now);
    } else if (!isPresence) {
        m_desk.receive(message, now);
    }
}

// What the presence has decided.
void Gateway::follow(HostPresence::Stage before)
{
    HostPresence::Stage stage{};
    std::uint64_t epoch = 0;
    {
        const std::lock_guard<std::mutex> lock(m_presenceMutex);
        stage = m_presence.getStage();
        epoch = m_presence.getEpoch();
    }
    if (stage == before)
        return;
    if (stage == HostPresence::Stage::Serving) {
        m_isYielding = false;
        m_log.say(Level::Info, "serves the panels of this host as " + topicOf(""));
        m_desk.serve(epoch, Clock::now());
    } else if (stage == HostPresence::Stage::Yielding) {
        if (!m_isYielding)
            m_log.say(Level::Error, "another gateway serves " + topicOf("") + "; this one waits until it has gone");
        m_isYielding = true;
        m_link.reconnectIn(secondsToYield);
    } else if (stage == HostPresence::Stage::Renewing) {
        m_link.reconnectIn(0.1);
    }
}

void Gateway::tellReady()
{
    if (m_isReady)
        return;
    const std::lock_guard<std::mutex> lock(m_presenceMutex);
    if (m_presence.getStage() != HostPresence::Stage::Serving)
        return;
    m_isReady = true;
    ServiceManager::notify("READY=1");
}

LossReport::Losses Gateway::sumLosses() const
{
    const BrokerLink::Counts link = m_link.getCounts();
    return {link.droppedEvents, link.droppedAnswers, m_events.getDropped(), m_busy};
}

void Gateway::tellLosses(const std::optional<std::string>& line) const
{
    if (line)
        m_log.say(Level::Warning, *line + "; " + topicOf("stats") + " has the sums");
}

// While the library's worker, the link's thread and this one move.
void Gateway::feedWatchdog()
{
    const auto now = Clock::now();
    const std::uint64_t passes = m_manager->getStatistics().passes;
    const std::uint64_t linkPasses = m_link.getCounts().passes;
    if (now < m_nextFeed || passes == m_seenPasses || linkPasses == m_seenLinkPasses)
        return;
    ServiceManager::notify("WATCHDOG=1\nSTATUS=" + describeState());
    m_seenPasses = passes;
    m_seenLinkPasses = linkPasses;
    m_nextFeed = now + std::chrono::seconds(1);
}

// For whoever asks the service manager.
std::string Gateway::describeState() const
{
    if (m_isYielding)
        return "another gateway serves " + topicOf("");
    if (!m_lastReason.empty())
        return "no connection with the broker: " + m_lastReason;
    if (!m_isReady)
        return "waits for what the broker has retained";
    return std::to_string(m_roster.getPanels()) + " panels";
}

int Gateway::timeToNextDue()
{
    Clock::time_point due = m_desk.getNextDue();
    {
        const std::lock_guard<std::mutex> lock(m_presenceMutex);
        due = std::min(due, m_presence.getNextDue());
    }
    constexpr std::chrono::milliseconds longest(1000); // for the watchdog
    const auto left = due - std::min(due, Clock::now());
    return static_cast<int>(
        std::chrono::ceil<std::chrono::milliseconds>(std::min<Clock::duration>(left, longest)).count());
}

} // namespace Vantor

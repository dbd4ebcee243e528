#include "panel2mqtt/broker/BrokerWorker.h"

#include "panel2mqtt/broker/BrokerReasons.h"
#include "panel2mqtt/broker/Loopback.h"

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <exception>
#include <random>
#include <utility>

#include <mqtt_protocol.h>
#include <poll.h>
#include <pthread.h>

namespace Vantor {

namespace {

// A pass of the thread at the least, also when nothing happens.
constexpr std::chrono::milliseconds longestWait(500);

constexpr std::size_t maxClientId = 64;

double draw()
{
    std::random_device device;
    return static_cast<double>(device()) / (static_cast<double>(std::random_device::max()) + 1);
}

// Signals are other threads' business.
class SignalsBlocked {
public:
    SignalsBlocked()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &m_before);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t m_before;
};

} // namespace

BrokerLink::Worker::Worker(BrokerSettings settings, std::string name, Listener& listener, const BrokerPace& pace)
    : m_settings(std::move(settings)), m_name(std::move(name)), m_listener(listener), m_pace(pace),
      m_wakeUp(std::make_shared<WakeUp>()), m_backOff(pace, draw)
{}

BrokerLink::Worker::~Worker()
{
    stop();
}

void BrokerLink::Worker::start()
{
    const SignalsBlocked blocked;
    m_thread = std::thread([this] { run(); });
    pthread_setname_np(m_thread.native_handle(), "broker");
}

void BrokerLink::Worker::publish(Kind kind, Message message)
{
    bool isFirst = false;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_isAccepting && kind != Kind::State) {
            ++(kind == Kind::Event ? m_counts.droppedEvents : m_counts.droppedAnswers);
            return;
        }
        isFirst = m_queue.getCount() == 0 || (kind != Kind::Busy && m_queue.isNextBusy());
        if (kind == Kind::State)
            m_refusedStates.erase(message.topic);
        countDropped(m_queue.add(kind, std::move(message)));
    }
    // Of what else waits, the thread knows.
    if (isFirst)
        m_wakeUp->ring();
}

void BrokerLink::Worker::subscribe(std::vector<Subscription> subscriptions)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_isAccepting)
            return;
        for (Subscription& subscription : subscriptions)
            m_subscriptions.push_back(std::move(subscription));
    }
    m_wakeUp->ring();
}

void BrokerLink::Worker::reconnectIn(double seconds)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_reconnectIn = std::clamp(seconds, 0.0, 86400.0);
    }
    m_wakeUp->ring();
}

void BrokerLink::Worker::stop()
{
    if (!m_thread.joinable())
        return;
    m_isStopping = true;
    m_wakeUp->ring();
    m_thread.join();
}

BrokerLink::Counts BrokerLink::Worker::getCounts() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    Counts counts = m_counts;
    counts.waiting = m_queue.getCount();
    return counts;
}

void BrokerLink::Worker::onAccepted()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_isAccepting = true;
    ++m_counts.connections;
}

void BrokerLink::Worker::onUp(const std::vector<std::string>& refused)
{
    m_listener.onConnected(refused);
}

void BrokerLink::Worker::onReceived(Message message)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ++m_counts.received;
    }
    m_listener.onMessage(std::move(message));
}

void BrokerLink::Worker::onCompleted(const Item& item, int reasonCode)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ++(reasonCode == 0 ? m_counts.published : m_counts.refused);
        const bool isState = item.kind == Kind::State && item.message.isRetained;
        const bool isRefused = isState && reasonCode == MQTT_RC_NOT_AUTHORIZED;
        if (isRefused && !m_queue.hasState(item.message.topic) && !m_connection->hasLater(item))
            m_refusedStates.insert_or_assign(item.message.topic, item);
        else if (isState)
            m_refusedStates.erase(item.message.topic);
    }
    if (reasonCode != 0)
        reportRefusal(item.message.topic, reasonCode);
}

void BrokerLink::Worker::onNotSubscribed(const std::string& filter, int reasonCode)
{
    reportRefusal(filter, reasonCode);
}

void BrokerLink::Worker::reportRefusal(const std::string& topic, int reasonCode)
{
    const Clock::time_point now = Clock::now();
    const auto [reported, isNew] = m_reported.try_emplace(reasonCode, now);
    if (!isNew && now - reported->second < m_pace.refusalInterval)
        return;
    reported->second = now;
    m_listener.onRefused(topic, describeRefusedMessage(reasonCode));
}

void BrokerLink::Worker::run()
{
    m_nextTry = Clock::now();
    while (!m_isStopping) {
        step(Clock::now());
        wait(Clock::now());
    }
    finishStopping();
}

void BrokerLink::Worker::step(Clock::time_point now)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ++m_counts.passes;
    }
    obeyReconnect(now);
    if (m_connection)
        tend(now);
    else if (m_lookUp)
        awaitAddresses(now);
    else if (now >= m_nextTry)
        beginTry(now);
}

void BrokerLink::Worker::obeyReconnect(Clock::time_point now)
{
    std::optional<double> seconds;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        seconds = std::exchange(m_reconnectIn, std::nullopt);
    }
    if (!seconds)
        return;
    if (m_connection) {
        m_addresses.clear();
        m_connection->end("the connection is ended, to come back later");
        conclude(now);
    }
    m_lookUp.reset();
    m_nextTry = now + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(*seconds));
}

void BrokerLink::Worker::beginTry(Clock::time_point now)
{
    if (!m_settings.usesTls && !isLoopback(m_settings.address)) {
        fail("without TLS a broker must be on this machine, and " + m_settings.address + " is not", {}, now);
        return;
    }
    try {
        m_lookUpEnd = now + m_pace.lookUpTime;
        m_lookUp.emplace(m_settings.address, !m_settings.usesTls, m_wakeUp);
    } catch (const std::exception& error) {
        m_lookUp.reset();
        fail(error.what(), {}, now);
        return;
    }
    awaitAddresses(now);
}

void BrokerLink::Worker::awaitAddresses(Clock::time_point now)
{
    std::optional<LookUp::Result> result = m_lookUp->poll();
    if (!result && now < m_lookUpEnd)
        return;
    m_lookUp.reset();
    if (!result) {
        fail("no address of " + m_settings.address + " is found: no name server answers", {}, now);
    } else if (result->addresses.empty()) {
        fail(result->reason, {}, now);
    } else {
        m_addresses.assign(result->addresses.rbegin(), result->addresses.rend());
        tryNextAddress(now);
    }
}

void BrokerLink::Worker::tryNextAddress(Clock::time_point now)
{
    const std::string address = m_addresses.back();
    m_addresses.pop_back();
    try {
        m_connection =
            std::make_unique<BrokerConnection>(m_settings, m_pace, makeClientId(), m_listener.planConnection(), *this);
    } catch (const std::exception& error) {
        m_addresses.clear();
        fail(error.what(), {}, now);
        return;
    }
    m_connection->connect(address, getPort(), now);
    if (m_connection->isOver())
        conclude(now);
}

void BrokerLink::Worker::tend(Clock::time_point now)
{
    m_connection->tick(now);
    if (now >= m_nextRefusedTry)
        putBackRefused(now);
    pump();
    if (m_connection->isOver())
        conclude(now);
}

// The access list may have been mended meanwhile.
void BrokerLink::Worker::putBackRefused(Clock::time_point now)
{
    m_nextRefusedTry = now + m_pace.refusalInterval;
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (auto& [topic, item] : std::exchange(m_refusedStates, {}))
        m_queue.putBack(std::move(item));
}

void BrokerLink::Worker::pump()
{
    if (m_connection->isUp()) {
        std::vector<Subscription> subscriptions;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            subscriptions.swap(m_subscriptions);
        }
        m_connection->subscribe(subscriptions);
    }
    while (std::optional<Item> item = takeNext())
        m_connection->publish(std::move(*item));
}

std::optional<BrokerLink::Worker::Item> BrokerLink::Worker::takeNext()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const std::optional<std::size_t> size = m_queue.getNextSize();
    if (!size || !m_connection->hasRoomFor(*size, m_queue.isNextBusy()))
        return std::nullopt;
    return m_queue.take();
}

void BrokerLink::Worker::conclude(Clock::time_point now)
{
    retrieveUnconfirmed();
    const std::unique_ptr<BrokerConnection> over = std::move(m_connection);
    if (!over->wasReached() && !m_addresses.empty())
        tryNextAddress(now);
    else
        fail(over->getReason(), over->getUpTime(now), now);
}

void BrokerLink::Worker::retrieveUnconfirmed()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_isAccepting = false;
    m_subscriptions.clear();
    OutgoingQueue::Dropped dropped = m_queue.dropAllButStates();
    for (Item& item : m_connection->takeUnconfirmed()) {
        if (item.kind == Kind::State)
            m_queue.putBack(std::move(item));
        else
            ++(item.kind == Kind::Event ? dropped.events : dropped.answers);
    }
    countDropped(dropped);
}

void BrokerLink::Worker::fail(const std::string& reason, Clock::duration upTime, Clock::time_point now)
{
    m_nextTry = now + m_backOff.getDelayAfter(upTime);
    m_listener.onDisconnected(reason);
}

void BrokerLink::Worker::wait(Clock::time_point now)
{
    pollfd entries[2] = {{m_wakeUp->getDescriptor(), POLLIN, 0}, {-1, 0, 0}};
    if (m_connection) {
        entries[1].fd = m_connection->getSocket();
        entries[1].events = m_connection->getEvents();
    }
    if (poll(entries, 2, static_cast<int>(getPatience(now).count())) <= 0)
        return;
    if (entries[0].revents != 0)
        m_wakeUp->clear();
    if (entries[1].revents != 0)
        m_connection->onReady(entries[1].revents, Clock::now());
}

std::chrono::milliseconds BrokerLink::Worker::getPatience(Clock::time_point now) const
{
    Clock::time_point end = now + longestWait;
    if (m_lookUp)
        end = std::min(end, m_lookUpEnd);
    else if (m_connection)
        end = std::min(end, m_connection->getDeadline());
    else
        end = std::min(end, m_nextTry);
    return std::max(std::chrono::ceil<std::chrono::milliseconds>(end - now), std::chrono::milliseconds(0));
}

bool BrokerLink::Worker::hasDrained() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_queue.getCount() == 0 && !m_connection->hasUnconfirmed();
}

bool BrokerLink::Worker::hasStates() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_queue.hasStates();
}

void BrokerLink::Worker::finishStopping()
{
    Clock::time_point now = Clock::now();
    const Clock::time_point end = now + m_pace.stopTime;
    while (m_connection && m_connection->isUp() && now < end) {
        m_connection->tick(now);
        pump();
        if (hasDrained())
            break;
        wait(now);
        now = Clock::now();
    }
    if (!m_connection)
        return;
    retrieveUnconfirmed();
    // What it has not got of the states, the will says.
    if (hasStates())
        m_connection->abandon("stopped");
    else
        m_connection->end("stopped");
    m_connection.reset();
}

void BrokerLink::Worker::countDropped(const OutgoingQueue::Dropped& dropped)
{
    m_counts.droppedEvents += dropped.events;
    m_counts.droppedAnswers += dropped.answers;
}

std::string BrokerLink::Worker::makeClientId() const
{
    std::random_device device;
    char chance[17] = {};
    std::snprintf(chance, sizeof chance, "%08x%04x", device(), device() & 0xFFFFU);
    return m_name.substr(0, maxClientId - 13) + "-" + chance;
}

std::uint16_t BrokerLink::Worker::getPort() const
{
    if (m_settings.port != 0)
        return m_settings.port;
    return m_settings.usesTls ? 8883 : 1883;
}

} // namespace Vantor

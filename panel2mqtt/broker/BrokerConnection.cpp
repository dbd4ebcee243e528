#include "panel2mqtt/broker/BrokerConnection.h"

#include "panel2mqtt/broker/BrokerReasons.h"
#include "panel2mqtt/broker/PasswordFile.h"

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include <linux/tcp.h>
#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

namespace Vantor {

namespace {

constexpr int lingerMilliseconds = 200;
constexpr int mostPacketsAtOnce = 16;

// So that somebody has taken the connection, though it may be over since.
bool hasSentAnything(int socket)
{
    tcp_info info = {};
    socklen_t size = sizeof info;
    return getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size) == 0 && info.tcpi_data_segs_out > 0;
}

std::optional<TlsContext> makeTls(const BrokerSettings& settings)
{
    if (!settings.usesTls)
        return std::nullopt;
    return std::optional<TlsContext>(std::in_place, settings);
}

std::string secondsOf(BrokerPace::Duration time)
{
    return std::to_string(std::chrono::ceil<std::chrono::seconds>(time).count()) + " s";
}

bool isReadable(int socket)
{
    pollfd entry = {socket, POLLIN, 0};
    return poll(&entry, 1, 0) == 1;
}

Message makeEcho(const std::string& topic, const std::string& clientId)
{
    Message echo;
    echo.topic = topic;
    echo.payload = "echo " + clientId;
    echo.qos = 1;
    return echo;
}

// What was wrong with the connection itself, asked for once.
int takeSocketError(int socket)
{
    int error = 0;
    socklen_t size = sizeof error;
    if (getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size) != 0)
        return errno;
    return error;
}

} // namespace

BrokerConnection::BrokerConnection(const BrokerSettings& settings, const BrokerPace& pace, const std::string& clientId,
                                   const Plan& plan, Owner& owner)
    : m_settings(settings), m_pace(pace), m_owner(owner), m_subscriptions(plan.subscriptions), m_tls(makeTls(settings)),
      m_echo(makeEcho(plan.echoTopic, clientId)), m_client(clientId, *this), m_probe(pace)
{
    if (!plan.will.topic.empty())
        m_client.setWill(plan.will);
    const std::string password = settings.passwordFile.empty() ? std::string() : readPassword(settings.passwordFile);
    if (!settings.user.empty())
        m_client.logIn(settings.user, password);
    if (m_tls)
        m_client.secure(*m_tls);
}

void BrokerConnection::connect(const std::string& address, std::uint16_t port, Clock::time_point now)
{
    m_stage = Stage::Reaching;
    m_deadline = now + m_pace.connectTime;
    const int code = m_client.connect(address, port, static_cast<int>(m_settings.keepAlive.count()));
    const int error = errno;
    // So soon TLS may have had an answer; EPROTO is libmosquitto's for what fails there.
    if (code == MOSQ_ERR_TLS || (code == MOSQ_ERR_ERRNO && error == EPROTO)) {
        m_wasReached = true;
        finish(describe(code, error));
    } else if (code != MOSQ_ERR_SUCCESS) {
        finish(m_settings.address + " can't be reached: " +
               (code == MOSQ_ERR_ERRNO ? std::generic_category().message(error) : mosquitto_strerror(code)));
    }
}

short BrokerConnection::getEvents() const
{
    if (m_stage == Stage::Reaching)
        return POLLOUT;
    return static_cast<short>(m_client.wantsToWrite() ? POLLIN | POLLOUT : POLLIN);
}

void BrokerConnection::onReady(short events, Clock::time_point now)
{
    if (m_stage == Stage::Reaching)
        checkReached(events);
    // Before it is up, TLS may have to read for the sake of what can be written.
    if (!isOver() && (!isUp() || (events & ~POLLOUT) != 0))
        read();
    if (!isOver() && (events & POLLOUT) != 0)
        check(m_client.write());
    // libmosquitto takes a connection that is reset in the middle of the handshake for one
    // that only has nothing to say.
    if (!isOver() && !isUp() && (events & POLLHUP) != 0)
        finish(describe(MOSQ_ERR_CONN_LOST, 0));
    checkSubscribed(now);
}

// Some at once: a broker that is not read from fast enough drops what it has for us.
void BrokerConnection::read()
{
    for (int packets = 0; packets < mostPacketsAtOnce; ++packets) {
        check(m_client.read());
        if (!isUp() || !isReadable(getSocket()))
            return;
    }
}

void BrokerConnection::tick(Clock::time_point now)
{
    if (isUp())
        tendUp(now);
    else if (!isOver() && now >= m_deadline)
        finishUnanswered();
}

void BrokerConnection::tendUp(Clock::time_point now)
{
    check(m_client.keepAlive());
    if (m_client.wantsToWrite())
        m_lastWriting = now;
    checkConfirmed(now);
    if (!isOver())
        tryEcho(now);
}

// A broker that is behind with us drops its confirmations, too: with each the window would have
// room for one less. What else it has dropped nobody knows.
void BrokerConnection::checkConfirmed(Clock::time_point now)
{
    const Clock::time_point overtaken = m_window.getOldestOvertaken();
    if (overtaken != Clock::time_point::max() && now - overtaken >= m_pace.overtakenTime)
        finish("the broker has dropped what it had for this host");
    const Clock::time_point oldest = m_window.getOldest();
    if (oldest != Clock::time_point::max() && now - std::max(oldest, m_lastWriting) >= m_pace.confirmTime)
        finish("the broker has not confirmed what was published within " + secondsOf(m_pace.confirmTime));
}

// Of QoS 1 a broker keeps some under way, mosquitto those too that it has dropped: in the end it
// delivers no more.
void BrokerConnection::tryEcho(Clock::time_point now)
{
    const EchoProbe::Step step = m_echo.topic.empty() ? EchoProbe::Step::None : m_probe.poll(now, m_lastWriting);
    if (step == EchoProbe::Step::GiveUp)
        finish("the broker no longer delivers what is published to " + m_echo.topic);
    if (step != EchoProbe::Step::Send)
        return;
    int id = 0;
    check(m_client.publish(m_echo, id));
}

void BrokerConnection::publish(Item item)
{
    if (OutgoingQueue::sizeOf(item.message) > m_largestPacket) {
        m_owner.onCompleted(item, MOSQ_ERR_OVERSIZE_PACKET);
        return;
    }
    m_handingOver = std::move(item);
    const int code = m_client.publish(m_handingOver->message, m_handingOverId);
    const int error = errno;
    if (!m_handingOver) // completed at once
        return;
    Item handedOver = std::move(*std::exchange(m_handingOver, std::nullopt));
    switch (code) {
    case MOSQ_ERR_SUCCESS:
        m_window.add(m_handingOverId, std::move(handedOver), Clock::now());
        break;
    case MOSQ_ERR_INVAL:
    case MOSQ_ERR_MALFORMED_UTF8:
    case MOSQ_ERR_PAYLOAD_SIZE:
    case MOSQ_ERR_OVERSIZE_PACKET:
        m_owner.onCompleted(handedOver, code);
        break;
    default:
        m_window.add(-1, std::move(handedOver), Clock::now()); // no id of MQTT's
        finish(describe(code, error));
    }
}

void BrokerConnection::end(const std::string& reason)
{
    const bool isConnected = m_stage != Stage::Over && m_stage != Stage::Reaching;
    finish(reason);
    if (isConnected)
        m_client.disconnect(lingerMilliseconds);
}

void BrokerConnection::onAnswered(int reasonCode, std::uint32_t largestPacket)
{
    if (reasonCode != MQTT_RC_SUCCESS) {
        finish(describeRefusal(reasonCode, m_settings));
        return;
    }
    m_largestPacket = largestPacket;
    m_stage = Stage::Subscribing;
    m_owner.onAccepted();
    subscribe(m_subscriptions);
}

void BrokerConnection::subscribe(const std::vector<BrokerLink::Subscription>& subscriptions)
{
    for (const BrokerLink::Subscription& subscription : subscriptions) {
        int id = 0;
        if (m_client.subscribe(subscription, id) == MOSQ_ERR_SUCCESS)
            m_unanswered.emplace(id, subscription.filter);
        else
            refuse(subscription.filter, MQTT_RC_UNSPECIFIED);
    }
}

void BrokerConnection::refuse(const std::string& filter, int reasonCode)
{
    if (isUp())
        m_owner.onNotSubscribed(filter, reasonCode);
    else
        m_refused.push_back(filter);
}

void BrokerConnection::onSubscribed(int id, int reasonCode)
{
    const auto filter = m_unanswered.extract(id);
    if (!filter.empty() && reasonCode >= MQTT_RC_UNSPECIFIED)
        refuse(filter.mapped(), reasonCode);
}

void BrokerConnection::onPublished(int id, int reasonCode)
{
    // What went well in other ways is no refusal: nobody may have subscribed.
    const int refusal = reasonCode >= MQTT_RC_UNSPECIFIED ? reasonCode : 0;
    if (m_handingOver && id == m_handingOverId) {
        m_owner.onCompleted(*std::exchange(m_handingOver, std::nullopt), refusal);
        return;
    }
    const std::optional<Item> item = m_window.complete(id);
    for (const Item& overtaken : m_window.takeOvertaken(Clock::now()))
        m_owner.onCompleted(overtaken, 0);
    if (item)
        m_owner.onCompleted(*item, refusal);
}

void BrokerConnection::onReceived(Message message)
{
    // The echo, or others that are not dropped as those of QoS 0 are: it is at most behind, not deaf.
    if (message.qos > 0 || message.isRetained)
        m_probe.noteDelivery();
    if (message.topic == m_echo.topic && message.payload == m_echo.payload)
        return;
    m_probe.countReceived();
    m_owner.onReceived(std::move(message));
}

void BrokerConnection::onEnded(int code)
{
    finish(describe(code, errno));
}

void BrokerConnection::checkReached(short events)
{
    if ((events & (POLLOUT | POLLERR | POLLHUP)) == 0)
        return;
    const int error = takeSocketError(getSocket());
    if ((error == 0 && (events & POLLHUP) == 0) || hasSentAnything(getSocket())) {
        m_wasReached = true;
        m_stage = Stage::Greeting;
        return;
    }
    // Without an error, it was told when TLS first tried to write.
    finish(m_settings.address +
           " can't be reached: " + std::generic_category().message(error == 0 ? ECONNREFUSED : error));
}

// Not from within a callback: the owner publishes now.
void BrokerConnection::checkSubscribed(Clock::time_point now)
{
    if (m_stage != Stage::Subscribing || !m_unanswered.empty())
        return;
    m_stage = Stage::Up;
    m_upSince = now;
    m_probe.begin(now);
    m_owner.onUp(m_refused);
}

void BrokerConnection::check(int code)
{
    const int error = errno;
    if (code != MOSQ_ERR_SUCCESS || getSocket() < 0)
        finish(describe(code, error));
}

void BrokerConnection::finish(const std::string& reason)
{
    if (m_stage == Stage::Over)
        return;
    m_stage = Stage::Over;
    m_reason = reason;
}

void BrokerConnection::finishUnanswered()
{
    const std::string time = secondsOf(m_pace.connectTime);
    if (m_stage == Stage::Reaching)
        finish(m_settings.address + " can't be reached: nothing answers within " + time);
    else if (m_stage == Stage::Subscribing)
        finish("the broker does not answer subscriptions within " + time);
    else
        finish(m_settings.address + " takes the connection and then says nothing of MQTT within " + time +
               (m_tls ? ": does it speak TLS on this port?" : ": does it expect TLS on this port?"));
}

std::string BrokerConnection::describe(int code, int error) const
{
    if (m_tls && !m_tls->getComplaint().empty())
        return m_tls->getComplaint();
    if (m_upSince)
        return describeEnd(code, error);
    return describeFailure(code, error, m_client.getComplaints(), m_settings);
}

} // namespace Vantor

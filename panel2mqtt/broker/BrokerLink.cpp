#include "panel2mqtt/broker/BrokerLink.h"

#include "panel2mqtt/broker/BrokerWorker.h"

#include <utility>

namespace Vantor {

BrokerLink::BrokerLink(BrokerSettings settings, std::string name, Listener& listener, const BrokerPace& pace)
    : m_worker(std::make_unique<Worker>(std::move(settings), std::move(name), listener, pace))
{}

BrokerLink::~BrokerLink() = default;

void BrokerLink::start()
{
    m_worker->start();
}

void BrokerLink::publish(Kind kind, Message message)
{
    m_worker->publish(kind, std::move(message));
}

void BrokerLink::subscribe(std::vector<Subscription> subscriptions)
{
    m_worker->subscribe(std::move(subscriptions));
}

void BrokerLink::reconnectIn(double seconds)
{
    m_worker->reconnectIn(seconds);
}

void BrokerLink::stop()
{
    m_worker->stop();
}

BrokerLink::Counts BrokerLink::getCounts() const
{
    return m_worker->getCounts();
}

} // namespace Vantor

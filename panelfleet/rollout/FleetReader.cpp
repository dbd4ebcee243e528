#include "panelfleet/rollout/FleetReader.h"

#include <utility>

namespace Vantor {

FleetReader::FleetReader(FleetView& view, std::vector<std::string> rests, std::string run)
    : m_view(view), m_rests(std::move(rests)), m_run(std::move(run))
{}

FleetReader::Step FleetReader::begin()
{
    end();
    m_marker = m_run + "-" + std::to_string(++m_markers);
    return {{}, m_marker};
}

void FleetReader::end()
{
    m_read.clear();
    m_isComplete = false;
    m_marker.clear();
}

FleetReader::Step FleetReader::receive(const std::string& topic, const std::string& payload)
{
    if (topic == markerTopic)
        return !m_marker.empty() && payload == m_marker ? readOn() : Step();
    Step step;
    if (!m_view.receive(topic, payload) || !m_isComplete)
        return step;
    // A host that came later.
    const std::size_t begin = std::string("panel/1/").size();
    const std::string host = topic.substr(begin, topic.find('/', begin) - begin);
    if (m_read.insert(host).second)
        addFilters(host, step);
    return step;
}

FleetReader::Step FleetReader::readOn()
{
    Step step;
    std::size_t hosts = 0;
    // In order: hosts that come meanwhile among those that were read are found in the next round.
    for (const auto& [name, host] : m_view.getHosts()) {
        if (hosts == hostsAtATime)
            break;
        if (!m_read.insert(name).second)
            continue;
        ++hosts;
        addFilters(name, step);
    }
    if (step.filters.empty()) {
        m_isComplete = true;
        m_marker.clear();
        m_view.endTelling();
        return step;
    }
    m_marker = m_run + "-" + std::to_string(++m_markers);
    step.marker = m_marker;
    return step;
}

void FleetReader::addFilters(const std::string& host, Step& step) const
{
    const std::string root = "panel/1/" + host + "/";
    for (const std::string& rest : m_rests)
        step.filters.push_back(root + rest);
}

} // namespace Vantor

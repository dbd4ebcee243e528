#include "panel2mqtt/desk/Ledger.h"

#include <algorithm>
#include <utility>

namespace Vantor {

namespace {

constexpr std::size_t longestId = 64;
constexpr std::size_t longestAddress = 1024;

std::size_t digestOf(const Message& command)
{
    return std::hash<std::string>()(command.topic) * 31 + std::hash<std::string>()(command.payload);
}

// Only where the answer goes is needed later.
Message askerOf(const Message& command)
{
    Message asker;
    asker.topic = command.topic;
    asker.responseTopic = command.responseTopic;
    asker.correlation = command.correlation;
    return asker;
}

bool isSameAsker(const Message& one, const Message& other)
{
    return one.responseTopic == other.responseTopic && one.correlation == other.correlation;
}

} // namespace

std::string Ledger::idOf(const Message& command)
{
    const std::string* const named = command.findProperty("id");
    return named != nullptr ? *named : command.correlation.value_or("");
}

std::optional<std::uint64_t> Ledger::open(const Message& command, TimePoint now)
{
    forget(now);
    const std::string id = idOf(command);
    if (id.size() > longestId) {
        m_reply(command, {Answer::Word::Refused, "the id has more than 64 bytes"});
        return std::nullopt;
    }
    if (command.responseTopic.size() + command.correlation.value_or("").size() > longestAddress) {
        m_reply(command, {Answer::Word::Refused, "the response topic and the correlation data have more than " +
                                                     std::to_string(longestAddress) + " bytes"});
        return std::nullopt;
    }
    const std::size_t digest = digestOf(command);
    const auto known = id.empty() ? m_byId.end() : m_byId.find(id);
    if (known != m_byId.end())
        return repeat(m_entries.at(known->second), command, digest);
    const std::uint64_t ticket = ++m_last;
    m_entries[ticket] = {id, digest, {askerOf(command)}, std::nullopt, {}};
    if (!id.empty())
        m_byId[id] = ticket;
    return ticket;
}

std::optional<std::uint64_t> Ledger::repeat(Entry& entry, const Message& command, std::size_t digest)
{
    if (entry.digest != digest) {
        m_reply(command, {Answer::Word::Refused, "another command had this id"});
    } else if (entry.answer) {
        m_reply(command, *entry.answer);
    } else if (std::none_of(entry.askers.begin(), entry.askers.end(),
                            [&command](const Message& asker) { return isSameAsker(asker, command); })) {
        if (entry.askers.size() < mostAskers)
            entry.askers.push_back(askerOf(command));
        else
            m_reply(command, {Answer::Word::Busy, "too many wait for the answer to this"});
    }
    return std::nullopt;
}

void Ledger::close(std::uint64_t ticket, const Answer& answer, bool isRemembered, TimePoint now)
{
    const auto found = m_entries.find(ticket);
    if (found == m_entries.end() || found->second.answer)
        return;
    Entry& entry = found->second;
    const std::vector<Message> askers = std::exchange(entry.askers, {});
    if (isRemembered && !entry.id.empty()) {
        entry.answer = answer;
        entry.answered = now;
        m_remembered.push_back(ticket);
        forget(now);
    } else {
        drop(ticket);
    }
    for (const Message& asker : askers)
        m_reply(asker, answer);
}

void Ledger::forget(TimePoint now)
{
    while (!m_remembered.empty() &&
           (m_remembered.size() > mostRemembered || now - m_entries.at(m_remembered.front()).answered >= memory)) {
        drop(m_remembered.front());
        m_remembered.pop_front();
    }
}

void Ledger::drop(std::uint64_t ticket)
{
    const auto found = m_entries.find(ticket);
    m_byId.erase(found->second.id);
    m_entries.erase(found);
}

} // namespace Vantor

#include "panel2mqtt/desk/Desk.h"

#include <algorithm>
#include <utility>

namespace Vantor {

namespace {

constexpr std::string_view allHosts = "panel/1/all/";

bool beginsWith(std::string_view text, std::string_view beginning)
{
    return text.substr(0, beginning.size()) == beginning;
}

Message makeMessage(std::string topic, std::string payload, int qos, bool isRetained)
{
    Message message;
    message.topic = std::move(topic);
    message.payload = std::move(payload);
    message.qos = qos;
    message.isRetained = isRetained;
    return message;
}

} // namespace

Desk::Desk(Options options, Outbox& outbox, Statistics statistics)
    : m_options(std::move(options)), m_root("panel/1/" + m_options.host + "/"), m_outbox(outbox),
      m_statistics(std::move(statistics))
{}

void Desk::beginConnection()
{
    m_isServing = false;
    m_isTold = false;
    m_nextStats = TimePoint::max();
    m_leftOver.clear();
    m_wishes.beginTelling();
}

void Desk::serve(std::uint64_t epoch, TimePoint now)
{
    m_epoch = epoch;
    m_isServing = true;
    for (auto& [name, place] : m_places) {
        place.state.epoch = epoch;
        publishPlace(name, place);
        place.flash->publishAll();
    }
    if (m_options.statsEvery != Duration::zero())
        m_nextStats = now + m_options.statsEvery;
    settle(now);
}

void Desk::leave()
{
    for (auto& [name, place] : m_places) {
        if (place.desk->isThere()) {
            place.state = {false, m_epoch, m_options.clock(), "the gateway has ended"};
            publishPlace(name, place);
        }
    }
    m_isServing = false;
}

void Desk::endTelling(TimePoint now)
{
    m_isTold = true;
    m_wishes.endTelling();
    settle(now);
}

void Desk::settle(TimePoint now)
{
    if (!m_isTold || !m_isServing)
        return;
    m_hasSettled = true;
    for (const auto& [topic, place] : std::exchange(m_leftOver, {})) {
        if (m_places.count(place) == 0 || topic.find("/job/") != std::string::npos)
            m_outbox.publish(Outbox::Kind::State, makeMessage(topic, "", 1, true));
    }
    for (auto& [name, place] : m_places)
        place.desk->refreshWishes(now);
}

void Desk::receive(const Message& message, TimePoint now)
{
    // What an earlier run has left of its places.
    const std::string_view rest =
        beginsWith(message.topic, m_root) ? std::string_view(message.topic).substr(m_root.size()) : std::string_view();
    const std::size_t end = rest.find('/');
    if (end != std::string_view::npos && isPlace(rest.substr(0, end))) {
        const std::string_view kind = rest.substr(end + 1);
        if (beginsWith(kind, "job/")) {
            rememberJob(std::string(rest.substr(0, end)), std::string(kind.substr(4)), message.payload, now);
            return;
        }
        if (kind == "state" || kind == "info") {
            remember(std::string(rest.substr(0, end)), message, now);
            return;
        }
    }
    auto parsed = Order::parse(message.topic, m_options.host);
    if (const auto* const refusal = std::get_if<Answer>(&parsed)) {
        if (m_isServing)
            reply(message, *refusal, "");
        return;
    }
    const Order& order = std::get<Order>(parsed);
    if (order.isWish)
        wish(order, message, now);
    else if (m_isServing)
        obey(order, message, now);
}

void Desk::remember(const std::string& place, const Message& state, TimePoint now)
{
    if (state.payload.empty() || m_places.count(place) != 0)
        return;
    const std::string kind = state.topic.substr(m_root.size() + place.size() + 1);
    const auto known = DeskJson::readPlaceState(state.payload);
    Place* const made = kind == "state" && known ? makePlace(place) : nullptr;
    if (made == nullptr) {
        if (m_leftOver.size() < mostLeftOver)
            m_leftOver.emplace(state.topic, place);
        return;
    }
    made->state = {false, m_epoch, known->isOnline ? m_options.clock() : known->since,
                   "it was not there when the gateway came"};
    made->forgotten = now + m_options.forgetAfter;
    publishPlace(place, *made);
}

void Desk::rememberJob(const std::string& place, const std::string& id, const std::string& payload, TimePoint now)
{
    const auto known = m_places.find(place);
    if (known != m_places.end())
        known->second.flash->remember(id, payload, now);
    else if (!payload.empty() && m_leftOver.size() < mostLeftOver)
        m_leftOver.emplace(topicOf(place + "/job/" + id), place); // states are told before jobs
}

bool Desk::publishJob(const std::string& place, const std::string& id, const std::string& payload) const
{
    if (m_isServing) // else it is told when it does
        m_outbox.publish(Outbox::Kind::State, makeMessage(topicOf(place + "/job/" + id), payload, 1, true));
    return m_isServing;
}

void Desk::sayJob(const std::string& place, const std::string& id, const JobState& job) const
{
    if (!m_options.say)
        return;
    std::string text = place + ": upgrade " + id + ": " + job.state;
    if (!job.isOver())
        text += ", " + std::to_string(job.totalBytes) + " bytes";
    if (!job.reason.empty())
        text += ": " + job.reason;
    m_options.say(job.isOver() && job.state != "answering", text);
}

void Desk::flash(const std::string& place, const Message& message, TimePoint now)
{
    if (m_options.shelf == nullptr) {
        reply(message, {Answer::Word::Refused, "this gateway has no firmware upgrade"}, place);
        return;
    }
    const auto read = [this, &message] {
        if (!m_flashOrder)
            m_flashOrder = FlashOrder::read(message, *m_options.shelf);
        return *m_flashOrder;
    };
    m_places.at(place).flash->add(message, read, now);
}

void Desk::obey(const Order& order, const Message& message, TimePoint now)
{
    if (message.isRetained) {
        reply(message, {Answer::Word::Refused, "a retained command is not carried out; publish it without retain"},
              order.place);
        return;
    }
    const std::string* const run = message.findProperty("run");
    if (run != nullptr && *run != m_options.run) {
        reply(message, {Answer::Word::Unknown, "the gateway was started anew"}, order.place);
        return;
    }
    if (!order.place.empty()) {
        obeyAt(order.place, order, message, now);
        m_flashOrder.reset();
        return;
    }
    const bool areAway = order.verb == Order::Verb::Forget; // it is for no others
    std::vector<std::string> places;
    for (const auto& [name, place] : m_places) {
        if (place.desk->isThere() != areAway)
            places.push_back(name);
    }
    if (places.empty() && areAway)
        reply(message, {Answer::Word::Refused, "no panel is away"}, "");
    else if (places.empty())
        reply(message, {Answer::Word::Offline, "no panel is there"}, "");
    for (const std::string& place : places)
        obeyAt(place, order, message, now);
    m_flashOrder.reset();
}

void Desk::obeyAt(const std::string& place, const Order& order, const Message& message, TimePoint now)
{
    const auto known = m_places.find(place);
    if (known == m_places.end()) {
        reply(message, {Answer::Word::Offline, ""}, place);
        return;
    }
    switch (order.verb) {
    case Order::Verb::Send:
    case Order::Verb::Set:
    case Order::Verb::Draw:
        known->second.desk->add(order, message, now);
        break;
    case Order::Verb::Flash:
        flash(place, message, now);
        break;
    case Order::Verb::Stats:
        publishStats(place, &message);
        break;
    case Order::Verb::Forget:
        if (known->second.desk->isThere()) {
            reply(message, {Answer::Word::Refused, "the panel is there"}, place);
            break;
        }
        if (known->second.flash->isBusy()) {
            reply(message, {Answer::Word::Busy, "an upgrade of this panel is not over"}, place);
            break;
        }
        forget(place);
        reply(message, {Answer::Word::Taken, ""}, place);
        break;
    }
}

void Desk::wish(const Order& order, const Message& message, TimePoint now)
{
    const char* const refusal = !message.isRetained             ? "a wish must be retained"
                                : !m_wishes.put(order, message) ? "there are too many wishes"
                                                                : nullptr;
    if (refusal != nullptr) {
        if (m_isServing)
            reply(message, {Answer::Word::Refused, refusal}, order.place);
        return;
    }
    if (!m_isTold || !m_isServing)
        return; // another one may win
    for (auto& [name, place] : m_places) {
        if (order.place.empty() || order.place == name)
            place.desk->refreshWish(order.getSubject(), now);
    }
}

void Desk::refuseBusy(const Message& command) const
{
    reply(command, {Answer::Word::Busy, "the gateway has too much to do"}, "");
}

Desk::Place* Desk::makePlace(const std::string& place)
{
    const auto known = m_places.find(place);
    if (known != m_places.end())
        return &known->second;
    if (m_places.size() == mostPlaces)
        return nullptr;
    Place made;
    made.desk = std::make_unique<PanelDesk>(
        place, m_wishes, m_options.wait,
        [this, place](const Message& command, const Answer& answer) { reply(command, answer, place); });
    made.flash = std::make_unique<FlashDesk>(
        m_options.run, m_options.clock,
        [this, place](const Message& command, const Answer& answer) { reply(command, answer, place); },
        [this, place](const std::string& id, const std::string& payload) { return publishJob(place, id, payload); },
        [this, place](const std::string& id, const JobState& job) { sayJob(place, id, job); });
    return &m_places.emplace(place, std::move(made)).first->second;
}

// A panel that is there counts for more than one that is away.
Desk::Place* Desk::makeRoomFor(const std::string& place)
{
    if (Place* const made = makePlace(place))
        return made;
    const auto first = std::min_element(m_places.begin(), m_places.end(), [](const auto& one, const auto& other) {
        return one.second.forgotten < other.second.forgotten;
    });
    if (first->second.desk->isThere() || first->second.flash->isBusy())
        return nullptr;
    forget(std::string(first->first));
    return makePlace(place);
}

void Desk::onPanelReady(const std::string& place, std::shared_ptr<PanelLine> line, const PanelInfo& info, TimePoint now)
{
    Place* const made = makeRoomFor(place);
    if (made == nullptr)
        return;
    made->state = {true, m_epoch, m_options.clock(), ""};
    made->info = DeskJson::write(place, info);
    made->forgotten = TimePoint::max();
    publishPlace(place, *made);
    made->desk->arrive(line, now);
    if (m_hasSettled)
        made->desk->refreshWishes(now);
    made->flash->arrive(std::move(line), now);
}

void Desk::onPanelAway(const std::string& place, const std::string& reason, TimePoint now)
{
    Place* const made = makePlace(place);
    if (made == nullptr)
        return;
    made->state = {false, m_epoch, m_options.clock(), reason};
    made->forgotten = now + m_options.forgetAfter;
    publishPlace(place, *made);
    made->desk->leave(now);
    made->flash->leave(now);
}

void Desk::publishPlace(const std::string& name, const Place& place)
{
    if (!m_isServing)
        return; // told when it does
    m_outbox.publish(Outbox::Kind::State, makeMessage(topicOf(name + "/state"), DeskJson::write(place.state), 1, true));
    if (!place.info.empty())
        m_outbox.publish(Outbox::Kind::State, makeMessage(topicOf(name + "/info"), place.info, 1, true));
}

void Desk::forget(const std::string& place)
{
    m_places.at(place).flash->clear();
    for (const char* const kind : {"/state", "/info"}) {
        if (m_isServing) // else it is found again when it does
            m_outbox.publish(Outbox::Kind::State, makeMessage(topicOf(place + kind), "", 1, true));
    }
    m_places.erase(place);
}

void Desk::onRecord(const std::string& place, unsigned int type, std::string payload)
{
    const bool isWanted = m_options.got ? m_options.got->count(type) != 0 : type != 0;
    const auto known = m_places.find(place);
    if (known != m_places.end())
        known->second.flash->onRecord(type, payload);
    if (!isWanted || !m_isServing || known == m_places.end())
        return;
    Message message =
        makeMessage(topicOf(place + "/got/" + std::to_string(type)), std::move(payload), m_options.gotQos, false);
    message.userProperties.emplace_back("n", std::to_string(++known->second.records));
    m_outbox.publish(Outbox::Kind::Event, std::move(message));
}

void Desk::onProgress(const std::string& place, TimePoint now)
{
    const auto known = m_places.find(place);
    if (known != m_places.end())
        known->second.desk->poll(now);
}

void Desk::publishStats(const std::string& place, const Message* question)
{
    std::string text = m_statistics(place, m_places.at(place).desk->getCounts());
    if (question != nullptr && !question->responseTopic.empty()) {
        if (const auto topic = answerTopicOf(*question)) {
            Message answer = makeMessage(*topic, text, 1, false);
            answer.correlation = question->correlation;
            m_outbox.publish(Outbox::Kind::Answer, std::move(answer));
        }
    }
    m_outbox.publish(Outbox::Kind::Event, makeMessage(topicOf(place + "/stats"), std::move(text), 0, false));
}

void Desk::poll(TimePoint now)
{
    std::vector<std::string> forgotten;
    for (auto& [name, place] : m_places) {
        place.desk->poll(now);
        place.flash->poll(now);
        if (m_isServing && place.forgotten <= now && !place.flash->isBusy())
            forgotten.push_back(name);
    }
    for (const std::string& name : forgotten)
        forget(name);
    if (m_nextStats > now)
        return;
    m_nextStats = now + m_options.statsEvery;
    m_outbox.publish(Outbox::Kind::Event, makeMessage(topicOf("stats"), m_statistics("", {}), 0, false));
    for (const auto& [name, place] : m_places) {
        if (place.desk->isThere())
            publishStats(name, nullptr);
    }
}

Desk::TimePoint Desk::getNextDue() const
{
    TimePoint due = m_nextStats;
    for (const auto& [name, place] : m_places)
        due = std::min({due, m_isServing && !place.flash->isBusy() ? place.forgotten : TimePoint::max(),
                        place.desk->getNextDue(), place.flash->getNextDue()});
    return due;
}

// Where an answer may go: this gateway's own topics are no place for it, lest somebody has it
// say what it does not mean.
std::optional<std::string> Desk::answerTopicOf(const Message& command) const
{
    const std::string& topic = command.responseTopic;
    if (topic.empty() || topic.find_first_of("+#") != std::string::npos)
        return std::nullopt;
    if (beginsWith(topic, std::string(allHosts) + "answer/"))
        return m_root + topic.substr(allHosts.size());
    if (beginsWith(topic, "panel/") && !beginsWith(topic, m_root + "answer/"))
        return std::nullopt;
    return topic;
}

void Desk::reply(const Message& command, const Answer& answer, const std::string& place) const
{
    const bool isWrong = answer.word == Answer::Word::Refused || answer.word == Answer::Word::TooLarge;
    // Whoever published a wish may be gone long since, and who names no topic is not told.
    const bool isHeard = !command.responseTopic.empty() && command.topic.find("/want/") == std::string::npos;
    if (isWrong && m_options.complain && !isHeard)
        m_options.complain(command.topic + (place.empty() ? "" : ", for " + place) + ": " +
                           DeskJson::nameOf(answer.word) + ": " + answer.reason);
    const auto topic = answerTopicOf(command);
    if (!topic)
        return;
    Message message = makeMessage(*topic, DeskJson::write(answer, m_options.host, place), 1, false);
    message.correlation = command.correlation;
    const bool isBusy = answer.word == Answer::Word::Busy;
    m_outbox.publish(isBusy ? Outbox::Kind::Busy : Outbox::Kind::Answer, std::move(message));
}

} // namespace Vantor

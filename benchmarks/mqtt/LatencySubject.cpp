// One command at a time, and the same payload to others: how long until the answer.
#include "benchmarks/mqtt/Load.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <random>
#include <stdexcept>

namespace Vantor {

namespace {

const std::string s_answers = "bench/answers";
const std::string s_self = "bench/self";

struct Exchange {
    std::string payloadName;
    std::string contender;
    std::string payload;
};

// Waits for each answer.
class Asker {
public:
    explicit Asker(std::uint16_t port)
        : m_client(port, {"load-asker", {}, {{s_answers, 1, false, false}, {s_self, 1, false, false}}, 0},
                   [this](Message&& message) {
                       m_answered = Clock::now();
                       m_answer = std::move(message);
                   })
    {
        bringUp(m_client);
    }

    void ask(const Exchange& exchange, const Message& message)
    {
        m_answer.reset();
        const auto sent = Clock::now();
        const auto end = sent + std::chrono::seconds(10);
        m_client.publish(message);
        while (!m_answer || m_answer->correlation != message.correlation) {
            if (Clock::now() > end || m_client.getSocket() < 0)
                throw std::runtime_error("no answer of " + exchange.contender);
            tendClient(m_client, 1000);
        }
        std::printf("%s\t%s\t%lld\t%lld\t%s\n", exchange.payloadName.c_str(), exchange.contender.c_str(),
                    static_cast<long long>(nanosecondsOf(sent)), static_cast<long long>(nanosecondsOf(m_answered)),
                    wordOf(*m_answer).c_str());
    }

private:
    std::optional<Message> m_answer;
    Clock::time_point m_answered;
    LightClient m_client;
};

std::vector<Exchange> makeExchanges(const std::string& png)
{
    std::vector<Exchange> exchanges;
    for (const auto& [name, payload] : std::map<std::string, std::string>{
             {"16 bytes", std::string(16, 'x')}, {"1 KiB", std::string(1024, 'x')}, {"picture", png}}) {
        for (const char* const contender : {"gateway", "echo", "broker"})
            exchanges.push_back({name, contender, payload});
    }
    return exchanges;
}

Message makeMessage(const Exchange& exchange, const Arguments& arguments, std::uint64_t number)
{
    const std::string verb = exchange.payloadName == "picture" ? "/do/draw/0" : "/do/send/5";
    Message message =
        makeCommand(arguments.at(1), arguments.at(2) + verb, exchange.payload, s_answers, std::to_string(number));
    if (exchange.contender == "echo")
        message.topic = arguments.at(5);
    else if (exchange.contender == "broker")
        message.topic = s_self;
    return message;
}

} // namespace

void measureLatency(const Arguments& arguments)
{
    const unsigned long rounds = std::stoul(arguments.at(3));
    std::vector<Exchange> exchanges = makeExchanges(contentOf(arguments.at(4)));
    Asker asker(portOf(arguments.at(0)));
    std::mt19937 chance(1);
    std::uint64_t number = 0;
    for (unsigned long round = 0; round < rounds; ++round) {
        std::shuffle(exchanges.begin(), exchanges.end(), chance);
        for (const Exchange& exchange : exchanges) {
            Message message = makeMessage(exchange, arguments, ++number);
            alternate(message, round);
            asker.ask(exchange, message);
        }
    }
}

void runEcho(const Arguments& arguments)
{
    const std::string text = R"({"answer":"taken","host":"shop","place":"1-1"})"; // as long as a gateway's
    std::vector<Message> questions;
    LightClient client(portOf(arguments.at(0)), {"load-echo", {}, {{arguments.at(1), 1, false, false}}, 0},
                       [&questions](Message&& question) { questions.push_back(std::move(question)); });
    bringUp(client);
    std::puts("ready");
    std::fflush(stdout);
    while (client.getSocket() >= 0) {
        tendClient(client, 1000);
        for (const Message& question : questions) {
            Message answer;
            answer.topic = question.responseTopic;
            answer.payload = text;
            answer.qos = 1;
            answer.correlation = question.correlation;
            client.publish(answer);
        }
        questions.clear();
    }
}

} // namespace Vantor

// Many commands at a time: at a pace, as a flood, or as many as are answered.
#include "benchmarks/mqtt/Load.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <utility>

namespace Vantor {

namespace {

Clock::duration secondsOf(const std::string& text)
{
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(std::stod(text)));
}

Clock::time_point dueOf(Clock::time_point start, std::uint64_t number, double rate)
{
    return start + std::chrono::duration_cast<Clock::duration>(
                       std::chrono::duration<double>(static_cast<double>(number) / rate));
}

int millisecondsUntil(Clock::time_point due)
{
    return static_cast<int>(
        std::chrono::ceil<std::chrono::milliseconds>(std::max(due - Clock::now(), Clock::duration::zero())).count());
}

std::string describe(const std::map<std::string, std::uint64_t>& words)
{
    std::string text;
    for (const auto& [word, count] : words)
        text += (text.empty() ? "\"" : ", \"") + word + "\": " + std::to_string(count);
    return "{" + text + "}";
}

// Keeps a number of commands under way to each of some topics.
class Window {
public:
    Window(std::uint16_t port, const std::string& name, const std::string& answers, std::vector<std::string> topics,
           std::string payload)
        : m_answers(answers), m_topics(std::move(topics)), m_payload(std::move(payload)),
          m_client(port, {"load-" + name, {}, {{answers, 1, false, false}}, 0},
                   [this](const Message& answer) { onAnswer(answer); })
    {
        bringUp(m_client);
    }

    void run(unsigned long window, Clock::duration time)
    {
        const auto start = Clock::now();
        m_end = start + time;
        for (unsigned long number = 0; number < window; ++number) {
            for (std::size_t topic = 0; topic < m_topics.size(); ++topic)
                send(topic);
        }
        while (Clock::now() < m_end && m_client.getSocket() >= 0)
            tendClient(m_client, 10);
        const auto until = Clock::now() + std::chrono::seconds(5); // what is still under way
        while (m_underWay > 0 && Clock::now() < until && m_client.getSocket() >= 0)
            tendClient(m_client, 10);
        std::printf("{\"seconds\": %.6f, \"sent\": %llu, \"unanswered\": %llu, \"answers\": %s}\n",
                    std::chrono::duration<double>(time).count(), static_cast<unsigned long long>(m_number),
                    static_cast<unsigned long long>(m_underWay), describe(m_words).c_str());
    }

private:
    void send(std::size_t topic)
    {
        Message command;
        command.topic = m_topics[topic];
        command.payload = m_payload;
        command.qos = 1;
        command.responseTopic = m_answers;
        command.correlation = std::to_string(topic) + ":" + std::to_string(++m_number);
        alternate(command, m_turns[topic]++);
        ++m_underWay;
        m_client.publish(command);
    }

    void onAnswer(const Message& answer)
    {
        --m_underWay;
        if (Clock::now() >= m_end)
            return;
        ++m_words[wordOf(answer)];
        if (answer.correlation)
            send(std::stoul(*answer.correlation));
    }

    const std::string m_answers;
    const std::vector<std::string> m_topics;
    const std::string m_payload;
    Clock::time_point m_end;
    std::uint64_t m_number = 0;
    std::uint64_t m_underWay = 0;
    std::map<std::size_t, std::uint64_t> m_turns;
    std::map<std::string, std::uint64_t> m_words;
    LightClient m_client;
};

// "16" is so many bytes; else it is a picture's file.
std::string payloadOf(const std::string& text)
{
    return text.find_first_not_of("0123456789") == std::string::npos ? std::string(std::stoul(text), 'x')
                                                                     : contentOf(text);
}

} // namespace

void measureThrough(const Arguments& arguments)
{
    const std::uint16_t port = portOf(arguments.at(0));
    const std::string& host = arguments.at(1);
    const std::string payload = payloadOf(arguments.at(5));
    const std::string root = "panel/1/" + host + "/";
    std::vector<std::string> topics;
    for (const std::string& place : awaitPlaces(port, host, std::stoul(arguments.at(2))))
        topics.push_back(root + place + (payload[0] == 'x' ? "/do/send/5" : "/do/draw/0"));
    Window window(port, "window", "bench/window", topics, payload);
    window.run(std::stoul(arguments.at(3)), secondsOf(arguments.at(4)));
}

void measureBroker(const Arguments& arguments)
{
    // Its own topic: what comes back is the question, and counts as an answer all the same.
    const std::string& topic = arguments.at(1);
    const std::string answers = topic == "self" ? "bench/self" : "bench/window";
    Window window(portOf(arguments.at(0)), "window", answers, {topic == "self" ? answers : topic},
                  payloadOf(arguments.at(4)));
    window.run(std::stoul(arguments.at(2)), secondsOf(arguments.at(3)));
}

void measurePaced(const Arguments& arguments)
{
    const double rate = std::stod(arguments.at(4));
    const std::string answers = "bench/paced";
    std::map<std::string, Clock::time_point> sent; // of those that are not answered
    LightClient client(portOf(arguments.at(0)), {"load-paced", {}, {{answers, 1, false, false}}, 0},
                       [&sent](const Message& answer) {
                           const auto known = sent.find(answer.correlation.value_or(""));
                           if (known == sent.end())
                               return;
                           std::printf("%lld\t%lld\t%s\n", static_cast<long long>(nanosecondsOf(known->second)),
                                       static_cast<long long>(nanosecondsOf(Clock::now())), wordOf(answer).c_str());
                           sent.erase(known);
                       });
    bringUp(client);
    const auto start = Clock::now();
    const auto end = start + secondsOf(arguments.at(3));
    for (std::uint64_t number = 0; Clock::now() < end;) {
        // Whether the earlier ones are answered or not.
        for (; dueOf(start, number, rate) <= Clock::now(); ++number) {
            const std::string id = std::to_string(nanosecondsOf(start)) + "-" + std::to_string(number);
            sent[id] = Clock::now();
            client.publish(makeCommand(arguments.at(1), arguments.at(2) + "/do/send/5", id, answers, id));
        }
        tendClient(client, millisecondsUntil(dueOf(start, number, rate)));
    }
    while (!sent.empty() && Clock::now() < end + std::chrono::seconds(5))
        tendClient(client, 10);
    for (const auto& [id, when] : sent)
        std::printf("%lld\t0\tnone\n", static_cast<long long>(nanosecondsOf(when)));
}

void runStream(const Arguments& arguments)
{
    const double rate = std::stod(arguments.at(5));
    std::map<std::string, std::uint64_t> words;
    std::vector<LightClient::Subscription> subscriptions;
    if (arguments.at(2) != "none")
        subscriptions.push_back({arguments.at(2), 1, false, false});
    LightClient client(portOf(arguments.at(0)), {"load-stream", {}, subscriptions, 0},
                       [&words](const Message& answer) { ++words[wordOf(answer)]; });
    bringUp(client);
    Message command;
    command.topic = arguments.at(1);
    command.payload = std::string(std::stoul(arguments.at(3)), 'f');
    command.qos = 1;
    if (!subscriptions.empty())
        command.responseTopic = arguments.at(2);
    const auto start = Clock::now();
    const auto end = start + secondsOf(arguments.at(4));
    std::uint64_t number = 0;
    const std::string run = std::to_string(nanosecondsOf(start)) + "-";
    while (Clock::now() < end && client.getSocket() >= 0) {
        // As a client that keeps to what the broker confirms.
        for (; dueOf(start, number, rate) <= Clock::now() && number < client.getConfirmed() + 1000; ++number) {
            command.correlation = run + std::to_string(number);
            client.publish(command);
        }
        tendClient(client, millisecondsUntil(dueOf(start, number + 1, rate)));
    }
    std::printf("{\"sent\": %llu, \"confirmed\": %llu, \"seconds\": %.3f, \"answers\": %s}\n",
                static_cast<unsigned long long>(number), static_cast<unsigned long long>(client.getConfirmed()),
                std::chrono::duration<double>(Clock::now() - start).count(), describe(words).c_str());
}

} // namespace Vantor

#include "benchmarks/mqtt/Load.h"

#include <fstream>
#include <iterator>
#include <set>
#include <stdexcept>
#include <utility>

namespace Vantor {

std::int64_t nanosecondsOf(Clock::time_point time)
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(time.time_since_epoch()).count();
}

std::uint16_t portOf(const std::string& text)
{
    return static_cast<std::uint16_t>(std::stoul(text));
}

Message makeCommand(const std::string& host, const std::string& rest, std::string payload,
                    const std::string& answerTopic, std::string id)
{
    Message command;
    command.topic = "panel/1/" + host + "/" + rest;
    command.payload = std::move(payload);
    command.qos = 1;
    command.responseTopic = answerTopic;
    command.correlation = std::move(id);
    return command;
}

void alternate(Message& picture, std::uint64_t number)
{
    if (number % 2 != 0)
        picture.userProperties.emplace_back("invert", "yes");
}

std::string wordOf(const Message& answer)
{
    const std::string key = "\"answer\":\"";
    const std::size_t found = answer.payload.find(key);
    if (found == std::string::npos)
        return "none";
    const std::size_t begin = found + key.size();
    return answer.payload.substr(begin, answer.payload.find('"', begin) - begin);
}

std::string contentOf(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw std::runtime_error(path + " can't be read");
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::vector<std::string> awaitPlaces(std::uint16_t port, const std::string& host, std::size_t count)
{
    std::set<std::string> places;
    const std::string root = "panel/1/" + host + "/";
    LightClient client(port, {"load-places", {}, {{root + "+/info", 0, false, false}}, 0}, [&](const Message& message) {
        const std::string rest = message.topic.substr(root.size());
        places.insert(rest.substr(0, rest.find('/')));
    });
    bringUp(client);
    const auto end = Clock::now() + std::chrono::seconds(60);
    while (places.size() < count) {
        if (Clock::now() > end)
            throw std::runtime_error("of " + std::to_string(count) + " panels " + std::to_string(places.size()) +
                                     " have come");
        tendClient(client, 100);
    }
    return {places.begin(), places.end()};
}

} // namespace Vantor

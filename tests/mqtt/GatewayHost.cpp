#include "tests/mqtt/GatewayHost.h"

#include "tests/mqtt/MqttPeer.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <stdexcept>
#include <thread>

#include <gtest/gtest.h>

namespace Vantor {

namespace {

using Clock = std::chrono::steady_clock;

void waitFor(const std::function<bool()>& condition, const char* what)
{
    if (!eventually(condition))
        throw std::runtime_error(std::string("waited in vain for ") + what);
}

std::string linesWith(const std::string& text, const std::string& part)
{
    std::string found;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        found += line.find(part) == std::string::npos ? "" : line + '\n';
    return found;
}

} // namespace

GatewayHost::GatewayHost(const MosquittoBroker& broker, const Options& options)
    : m_options(options), m_port(options.port != 0 ? options.port : broker.getPort())
{
    configure(options.settings);
    const std::string exported = options.environment.empty() ? "" : "export " + options.environment + "; ";
    std::ofstream(pathOf("serve")) << "while [ ! -e '" << pathOf("stop") << "' ]; do\n"
                                   << "[ ! -e '" << pathOf("hold") << "' ] || { sleep 0.02; continue; }\n"
                                   << "sh -c 'echo $$ > " << pathOf("process.new") << "; mv " << pathOf("process.new")
                                   << ' ' << pathOf("process") << "; " << exported
                                   << "exec " MORVANE_PANEL2MQTT " run --config " << pathOf("panel2mqtt.toml")
                                   << " 2>> " << pathOf("errors") << "'\necho $? >> '" << pathOf("exits")
                                   << "'\ndone\n";
    std::vector<std::string> bus{
        "--panels",    std::to_string(options.panels), "--log", pathOf("log"), "--control", pathOf("control"), "--png",
        pathOf("pngs")};
    bus.insert(bus.end(), options.bus.begin(), options.bus.end());
    m_run = std::make_unique<ToolRun>(onBus(bus, {"sh", pathOf("serve")}));
}

GatewayHost::~GatewayHost()
{
    if (m_run)
        end();
}

void GatewayHost::awaitPanels(MqttPeer& peer) const
{
    peer.subscribe(topicOf("+/state"));
    // What the one before told may still be on its way.
    const int process = getProcess();
    const std::uint64_t least = process == m_awaited ? 0 : m_epoch + 1;
    m_awaited = process;
    std::set<std::string> places;
    while (places.size() < m_options.panels) {
        const auto state = peer.await([this, least](const Message& message) {
            if (message.payload.find("\"online\":true") == std::string::npos ||
                message.topic.find("/state") == std::string::npos)
                return false;
            const std::uint64_t epoch = std::stoull(fieldOf(message.payload, "epoch"));
            m_epoch = std::max(m_epoch, epoch);
            return epoch >= least;
        });
        if (!state)
            throw std::runtime_error("the panels have not come: " + readErrors());
        places.insert(state->topic);
    }
}

int GatewayHost::getProcess() const
{
    int process = 0;
    waitFor([&] { return !contentOf(pathOf("process")).empty(); }, "the gateway's process");
    std::istringstream(contentOf(pathOf("process"))) >> process;
    return process;
}

void GatewayHost::kill()
{
    const int process = getProcess();
    ::kill(process, SIGKILL);
    m_isKilled = true;
    waitFor([&] { return getProcess() != process; }, "another gateway");
}

int GatewayHost::stop(int signal)
{
    const std::size_t exits = countExits();
    std::ofstream(pathOf("hold")).close();
    ::kill(getProcess(), signal);
    waitFor([&] { return countExits() > exits; }, "the gateway's end");
    m_isKilled = m_isKilled || signal == SIGKILL;
    const std::string all = contentOf(pathOf("exits"));
    return std::stoi(all.substr(all.rfind('\n', all.size() - 2) + 1)); // npos + 1 is the beginning
}

void GatewayHost::start()
{
    const int before = getProcess();
    std::filesystem::remove(pathOf("hold"));
    waitFor([&] { return getProcess() != before; }, "another gateway");
}

std::size_t GatewayHost::countExits() const
{
    const std::string all = contentOf(pathOf("exits"));
    return static_cast<std::size_t>(std::count(all.begin(), all.end(), '\n'));
}

void GatewayHost::configure(const std::string& settings) const
{
    std::ofstream(pathOf("panel2mqtt.toml"))
        << "host = \"" << m_options.name << "\"\n[broker]\nport = " << m_port << '\n'
        << settings;
}

void GatewayHost::tell(const std::vector<std::string>& commands) const
{
    std::vector<std::string> line{MORVANE_PANELSIM, "tell", "--to", pathOf("control")};
    line.insert(line.end(), commands.begin(), commands.end());
    const ToolResult result = runTool(line);
    if (result.exitCode != 0)
        throw std::runtime_error("panelsim tell " + commands.front() + ": " + result.errors);
}

void GatewayHost::end()
{
    std::ofstream(pathOf("stop")).close();
    if (!std::filesystem::exists(pathOf("hold")))
        ::kill(getProcess(), SIGTERM);
    const int exitCode = m_run->finish();
    const std::string violations = linesWith(contentOf(pathOf("log")), "violation: ");
    // Of a process that is killed while its transfer is read the bus gets zeros.
    const std::string zeros = linesWith(violations, "byte 0: packet length 0 is less than its header of 8 bytes");
    const bool isForgiven = m_isKilled && exitCode == 120 && violations == zeros;
    EXPECT_TRUE(exitCode == 0 || isForgiven) << exitCode << ": " << violations << m_run->getErrors();
    m_run.reset();
}

std::vector<std::string> GatewayHost::readRecords(unsigned int panel, unsigned int type) const
{
    const std::string begin = "panel " + std::to_string(panel) + ": record type " + std::to_string(type) + ", ";
    std::vector<std::string> records;
    std::istringstream log(contentOf(pathOf("log")));
    for (std::string line; std::getline(log, line);) {
        const auto found = line.find(begin);
        if (found == std::string::npos)
            continue;
        std::istringstream bytes(line.substr(std::min(line.size(), line.find(": ", found + begin.size()) + 2)));
        std::string record;
        for (std::string byte; bytes >> byte && byte.size() == 2;) // of a long one the log has the beginning
            record += static_cast<char>(std::stoi(byte, nullptr, 16));
        records.push_back(record);
    }
    return records;
}

bool eventually(const std::function<bool()>& isSo)
{
    const auto end = Clock::now() + std::chrono::seconds(40);
    while (!isSo()) {
        if (Clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

std::size_t memoryOf(int process)
{
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string word; status >> word;) {
        std::size_t kibibytes = 0;
        if (word == "VmRSS:" && status >> kibibytes)
            return kibibytes;
    }
    return 0;
}

std::size_t countDescriptorsOf(int process)
{
    std::error_code none;
    const std::filesystem::directory_iterator all("/proc/" + std::to_string(process) + "/fd", none);
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

std::map<std::string, std::string> readRetained(const MosquittoBroker& broker, const std::string& filter)
{
    MqttPeer peer(broker.getSettings());
    peer.subscribe(filter);
    // What is retained comes before what is published later.
    peer.subscribe("end");
    Message end;
    end.topic = "end";
    end.qos = 1;
    peer.publish(end);
    if (!peer.await(end.topic))
        throw std::runtime_error("the broker does not tell what it retains");
    std::map<std::string, std::string> topics;
    for (const Message& message : peer.takeAll(std::chrono::milliseconds(0))) {
        if (message.isRetained && !message.payload.empty())
            topics[message.topic] = message.payload;
        else if (message.isRetained)
            topics.erase(message.topic);
    }
    return topics;
}

std::string fieldOf(const std::string& json, const std::string& name)
{
    std::smatch found;
    return std::regex_search(json, found, std::regex('"' + name + "\":([0-9]+)")) ? found[1].str() : "none";
}

std::size_t countOf(const std::string& text, const std::string& part)
{
    std::size_t count = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size()))
        ++count;
    return count;
}

Message makeCommand(const GatewayHost& host, const std::string& rest, const std::string& payload, const std::string& id)
{
    Message command;
    command.topic = host.topicOf(rest);
    command.payload = payload;
    command.qos = 1;
    command.responseTopic = host.topicOf("answer/test");
    command.correlation = id;
    return command;
}

std::string wordOf(const Message& answer)
{
    std::smatch found;
    return std::regex_search(answer.payload, found, std::regex("\"answer\":\"([a-z-]+)\"")) ? found[1].str()
                                                                                            : answer.payload;
}

std::string awaitAnswer(MqttPeer& peer, const std::string& id, std::chrono::milliseconds time)
{
    const auto answer = peer.await([&id](const Message& message) { return message.correlation == id; }, time);
    return answer ? wordOf(*answer) : "none";
}

} // namespace Vantor

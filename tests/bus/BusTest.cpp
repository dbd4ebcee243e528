#include "tests/bus/BusTest.h"

#include "tests/bus/TestRecord.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <regex>
#include <stdexcept>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace Vantor {

namespace {

constexpr int eventDescriptor = 3;

struct Pipe {
    Pipe()
    {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0)
            throw std::runtime_error("pipe");
        readEnd = ends[0];
        writeEnd = ends[1];
    }
    int readEnd;
    int writeEnd;
};

bool matchesAny(const std::string& line, const std::vector<std::string>& patterns)
{
    return std::any_of(patterns.begin(), patterns.end(),
                       [&line](const std::string& pattern) { return std::regex_match(line, std::regex(pattern)); });
}

// What the library prints at level 3 when all is well.
bool isSummary(const std::string& line)
{
    static const std::vector<std::string> summaries{
        R"(\[libusb\] Libusb version = 1\.0\.22)",
        R"(\[libusb\] >> New device: dead:beef bus=1 port=\d+ dev=0x[0-9a-f]+)",
        R"(\[libusb\] >> Device unplugged: dead:beef dev=0x[0-9a-f]+)",
    };
    return matchesAny(line, summaries);
}

// All but libusb's own tracing; of that, what it says when a handle is closed too early.
bool isTelling(const std::string& line)
{
    const bool isTrace =
        line.find("libusb: debug") != std::string::npos || line.find("libusb: info") != std::string::npos ||
        line.find("installing new context as implicit default") != std::string::npos ||
        line.find("facility level") != std::string::npos || line.find("[timestamp]") != std::string::npos ||
        line.find("-------------") != std::string::npos;
    return !isTrace || line.find("still being processed") != std::string::npos;
}

} // namespace

void BusTest::SetUp()
{
    std::signal(SIGPIPE, SIG_IGN); // of a client that has died
}

void BusTest::makeBus(UsbfsBus::Options options)
{
    options.log = [this](const std::string& line) {
        const std::lock_guard<std::mutex> lock(m_busLogMutex);
        m_busLog.push_back(line);
    };
    m_bus = std::make_unique<UsbfsBus>(options);
}

void BusTest::useClient(const std::string& program)
{
    m_program = program;
}

void BusTest::startClient()
{
    const Pipe commands;
    const Pipe events;
    const Pipe log;
    const Pipe errors;
    std::vector<std::string> environment = UsbfsBus::getClientEnvironment();
    environment.emplace_back("LIBUSB_DEBUG=4");
    ClientProcess::Signals signals{};
    pthread_sigmask(SIG_SETMASK, nullptr, &signals.blocked);
    m_client = std::make_unique<ClientProcess>(
        std::vector<std::string>{m_program}, environment, signals,
        std::vector<ClientProcess::Redirection>{
            {0, commands.readEnd}, {1, log.writeEnd}, {2, errors.writeEnd}, {eventDescriptor, events.writeEnd}});
    close(commands.readEnd);
    close(log.writeEnd);
    close(errors.writeEnd);
    close(events.writeEnd);
    m_commands = commands.writeEnd;
    m_events = std::make_unique<LineReader>(events.readEnd);
    m_log = std::make_unique<LineReader>(log.readEnd);
    m_errors = std::make_unique<LineReader>(errors.readEnd, isTelling);
    tell("start");
}

void BusTest::startClientWithPanel()
{
    makeBus();
    bus().plug(0);
    startClient();
    expectEvent("added 101");
}

void BusTest::execute(const std::string& command)
{
    const ParsedOrder parsed = parsePanelOrder(command);
    ASSERT_TRUE(parsed.order) << parsed.error;
    bus().execute(*parsed.order);
}

void BusTest::tell(const std::string& command)
{
    const std::string line = command + "\n";
    ASSERT_EQ(write(m_commands, line.data(), line.size()), static_cast<ssize_t>(line.size()));
}

void BusTest::expectEvent(const std::string& event)
{
    EXPECT_TRUE(m_events->take(event, patience)) << "the application was not told: " << event;
}

void BusTest::expectLog(const std::string& line)
{
    EXPECT_TRUE(m_log->take(line, patience)) << "the library did not print: " << line;
}

void BusTest::awaitBusLog(const std::string& text)
{
    const auto isThere = [this, &text] {
        const std::lock_guard<std::mutex> lock(m_busLogMutex);
        return std::any_of(m_busLog.begin(), m_busLog.end(),
                           [&text](const std::string& line) { return line.find(text) != std::string::npos; });
    };
    EXPECT_TRUE(waitUntil(isThere)) << "the bus did not log: " << text;
}

void BusTest::allowLogOfDeparture()
{
    allowLog(R"(\[libusb\] [RT]X LIBUSB_ERROR_NO_DEVICE( uid=\w+!)?)");
    allowLog(R"(\[libusb\] found dead device: .*)");
}

void BusTest::allowLog(const std::string& pattern)
{
    m_allowedLog.push_back(pattern);
}

void BusTest::allowLibusb(const std::string& pattern)
{
    m_allowedLibusb.push_back(pattern);
}

std::vector<std::string> BusTest::eventsOf(const std::string& firstWord) const
{
    std::vector<std::string> events;
    for (const std::string& line : m_events->getLines())
        if (line.compare(0, firstWord.size() + 1, firstWord + " ") == 0)
            events.push_back(line);
    return events;
}

std::vector<PanelModel::Record> BusTest::recordsOf(unsigned int panel, int type)
{
    std::vector<PanelModel::Record> records;
    bus().visit(panel, [&records, type](const PanelModel& model) {
        for (const PanelModel::Record& record : model.getRecords())
            if (record.type == static_cast<PacketType>(type))
                records.push_back(record);
    });
    return records;
}

std::vector<PanelModel::Record> BusTest::awaitRecords(unsigned int panel, int type, std::size_t count)
{
    EXPECT_TRUE(waitUntil([&] { return recordsOf(panel, type).size() >= count; }))
        << "panel " << panel << " got " << recordsOf(panel, type).size() << " of " << count << " records of type "
        << type;
    return recordsOf(panel, type);
}

void BusTest::expectRecords(unsigned int panel, int type, std::size_t size, std::size_t count)
{
    const auto records = awaitRecords(panel, type, count);
    ASSERT_EQ(records.size(), count);
    for (std::size_t number = 0; number < count; ++number)
        ASSERT_EQ(records[number].payload, testPayload(static_cast<std::uint32_t>(number), size))
            << "record " << number << " of type " << type;
}

bool BusTest::waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit)
{
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

void BusTest::signalClient(int number)
{
    m_client->sendSignal(number);
}

void BusTest::endClient()
{
    close(std::exchange(m_commands, -1));
    if (!waitUntil([this] { return m_client->hasEnded(); })) {
        ADD_FAILURE() << "the application does not end";
        m_client->sendSignal(SIGKILL);
        waitUntil([this] { return m_client->hasEnded(); });
    }
    EXPECT_EQ(m_client->getExitCode(), 0) << "exit code of the application";
}

void BusTest::TearDown()
{
    if (m_client) {
        endClient();
        checkLogs();
    }
    if (m_bus) {
        EXPECT_EQ(m_bus->getViolations(), std::vector<std::string>());
        if (HasFailure())
            describeRun();
    }
    m_client.reset();
    m_bus.reset();
}

void BusTest::checkLogs()
{
    for (const std::string& line : m_log->takeRest())
        EXPECT_TRUE(isSummary(line) || matchesAny(line, m_allowedLog)) << "the library said: " << line;
    std::string errors;
    for (const std::string& line : m_errors->takeRest())
        if (!matchesAny(line, m_allowedLibusb))
            errors += line + "\n";
    EXPECT_EQ(errors, "") << "from libusb or a sanitizer";
    static const std::vector<std::string> expected{"begin .*", "packet .*", "end .*", "counters .*", "statistics .*"};
    for (const std::string& event : m_events->takeRest())
        EXPECT_TRUE(matchesAny(event, expected)) << "the application was told: " << event;
}

void BusTest::describeRun()
{
    const std::lock_guard<std::mutex> lock(m_busLogMutex);
    std::puts("--- on the bus:");
    for (const std::string& line : m_busLog)
        std::puts(line.c_str());
}

std::string packetEvent(const std::string& uid, int type, const Bytes& payload)
{
    std::string line = "packet " + uid + " " + std::to_string(type) + " ";
    for (const std::uint8_t byte : payload) {
        char text[3];
        std::snprintf(text, sizeof text, "%02x", byte);
        line += text;
    }
    return line;
}

} // namespace Vantor

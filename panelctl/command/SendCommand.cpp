#include "panelctl/command/SendCommand.h"

#include "panelctl/command/Delivery.h"
#include "panelctl/command/HexText.h"
#include "panelctl/session/PanelJson.h"
#include "panelctl/session/Session.h"
#include "panelctl/terminal/Failure.h"
#include "panelctl/terminal/Interrupt.h"
#include "panelctl/terminal/Output.h"
#include "panelctl/terminal/Report.h"
#include "panelctl/terminal/Wording.h"
#include "protocol/PacketHeader.h"
#include "wire/RecordHeader.h"

#include <cerrno>
#include <cstdio>
#include <limits>
#include <memory>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace Vantor {

namespace {

// No payload can be longer: a packet's length has 16 bits, and counts both headers.
constexpr std::size_t longestPayload =
    std::numeric_limits<std::uint16_t>::max() - sizeof(PacketHeader) - sizeof(RecordHeader);

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

// "-" is standard input; null when it can't be opened, with errno set.
File openFile(const std::string& path)
{
    if (path != "-")
        return {std::fopen(path.c_str(), "rbe"), std::fclose};
    const int descriptor = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0);
    return {descriptor < 0 ? nullptr : fdopen(descriptor, "rb"), std::fclose};
}

// At most one byte more than a payload can have; nothing on an error, with errno set.
std::optional<std::vector<std::uint8_t>> readBytes(int descriptor)
{
    std::vector<std::uint8_t> bytes(longestPayload + 1);
    std::size_t size = 0;
    while (size < bytes.size()) {
        Interrupt::await(descriptor, POLLIN); // a read itself would outlast a Ctrl-C
        const ssize_t length = read(descriptor, bytes.data() + size, bytes.size() - size);
        if (length < 0)
            return std::nullopt;
        if (length == 0)
            break;
        size += static_cast<std::size_t>(length);
    }
    bytes.resize(size);
    return bytes;
}

std::vector<std::uint8_t> readFile(const std::string& path)
{
    const std::string name = path == "-" ? "standard input" : quote(path);
    const File file = openFile(path);
    const std::optional<std::vector<std::uint8_t>> bytes = file ? readBytes(fileno(file.get())) : std::nullopt;
    const int error = errno;
    if (!bytes)
        throw Failure(ExitCode::Usage, "--file: " + name + " can't be read: " + describeError(error) + ".");
    if (bytes->size() > longestPayload)
        throw Failure(ExitCode::Failed, FailureKind::tooLarge,
                      "the record is too large for any panel: " + name + " is longer than " +
                          std::to_string(longestPayload) +
                          " bytes, the largest payload that fits a packet.\n"
                          "It was not queued. Send it in smaller records.");
    return *bytes;
}

class SentReport final : public Report {
public:
    SentReport(const SendCommand::Options& options, std::size_t size, const Panel& panel, std::chrono::nanoseconds time)
        : m_options(options), m_size(size), m_panel(panel), m_time(time)
    {}

    std::string asText() const override
    {
        const std::string times = m_options.repeat == 1 ? "" : std::to_string(m_options.repeat) + " times ";
        const std::string key = m_options.key ? ", key " + std::to_string(*m_options.key) : "";
        const double milliseconds = std::chrono::duration<double, std::milli>(m_time).count();
        return formatText("%s has taken %stype %d%s, %s, in %.1f ms\n", m_panel.getName().c_str(), times.c_str(),
                          m_options.type, key.c_str(), formatNumber(m_size, "payload byte").c_str(), milliseconds);
    }

    JsonObject asJson() const override
    {
        JsonObject object("sent");
        addName(object, m_panel);
        object.add("type", m_options.type)
            .add("key", m_options.key)
            .add("length", m_size)
            .add("records", m_options.repeat)
            .add("seconds", toSeconds(m_time));
        return object;
    }

private:
    const SendCommand::Options& m_options;
    const std::size_t m_size;
    const Panel& m_panel;
    const std::chrono::nanoseconds m_time;
};

} // namespace

SendCommand::SendCommand(std::chrono::nanoseconds timeout, const Options& options)
    : m_timeout(timeout), m_options(options),
      m_payload(options.hex ? HexText::parse(*options.hex) : readFile(*options.file))
{}

void SendCommand::run(Session& session, Output& output)
{
    const Panel panel = session.awaitInformation(session.choosePanel(m_options.panel), m_timeout);
    refuseTooLarge(panel);

    const auto start = Session::Clock::now();
    std::uint64_t sent = 0;
    try {
        for (; sent < m_options.repeat; ++sent)
            sendOnce(session, panel, sent);
    } catch (const Interrupted& interrupted) {
        throw Interrupted(interrupted.getSignal(),
                          "interrupted, when " + panel.getName() + " had taken " + std::to_string(sent) + " of " +
                              formatNumber(m_options.repeat, "record") +
                              ".\nOne more was on its way: whether the panel has got it is not known.");
    }
    output.report(SentReport(m_options, m_payload.size(), panel, Session::Clock::now() - start));
}

void SendCommand::refuseTooLarge(const Panel& panel) const
{
    if (m_payload.size() <= panel.getPayloadLimit())
        return;
    throw Failure(ExitCode::Failed, FailureKind::tooLarge,
                  "the record is too large for " + panel.getName() + ": " + std::to_string(m_payload.size()) +
                      " payload bytes, and its packet limit of " + std::to_string(panel.getPacketLimit()) +
                      " bytes leaves room for " + std::to_string(panel.getPayloadLimit()) +
                      ".\nIt would never leave and would hold back everything behind it, so it was "
                      "not queued. Send it in smaller records.");
}

// One at a time: a keyed record would otherwise be replaced by the next one, and
// of a single record it is certain when it has been taken.
void SendCommand::sendOnce(Session& session, const Panel& panel, std::uint64_t sent) const
{
    Delivery delivery(panel);
    delivery.add(static_cast<PacketType>(m_options.type), m_options.key, m_payload);
    delivery.await(session, m_timeout,
                   m_options.repeat == 1 ? ""
                                         : "\nTaken before that: " + std::to_string(sent) + " of " +
                                               std::to_string(m_options.repeat) + " records.");
}

} // namespace Vantor

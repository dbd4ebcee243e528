#include "panelctl/SendCommand.h"

#include "panelctl/Delivery.h"
#include "panelctl/Diagnosis.h"
#include "panelctl/Failure.h"
#include "panelctl/HexText.h"
#include "panelctl/Output.h"
#include "panelctl/Session.h"
#include "panelctl/Wording.h"
#include "protocol/PacketHeader.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <limits>
#include <memory>
#include <system_error>

namespace Vantor {

namespace {

// The library does not announce what has left, so its counter is read this often.
constexpr std::chrono::microseconds readStep{100};

// No payload can be longer: a packet's length has 16 bits, and counts both headers.
constexpr std::size_t longestPayload =
    std::numeric_limits<std::uint16_t>::max() - sizeof(PacketHeader) - sizeof(RecordHeader);

std::vector<std::uint8_t> readFile(const std::string& path)
{
    const auto fail = [&path](int error) {
        throw Failure(ExitCode::Usage,
                      "--file: '" + path + "' can't be read: " + std::generic_category().message(error) + ".");
    };
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rbe"), std::fclose);
    if (!file)
        fail(errno);
    std::vector<std::uint8_t> bytes(longestPayload + 1);
    bytes.resize(std::fread(bytes.data(), 1, bytes.size(), file.get()));
    if (std::ferror(file.get()) != 0)
        fail(errno);
    if (bytes.size() > longestPayload)
        throw Failure(ExitCode::Failed, "the record is too large for any panel: '" + path + "' is longer than " +
                                            std::to_string(longestPayload) +
                                            " bytes, the largest payload that fits a packet.\n"
                                            "It was not queued. Send it in smaller records.");
    return bytes;
}

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
    for (std::uint64_t sent = 0; sent < m_options.repeat; ++sent)
        sendOnce(session, panel, sent);
    const double milliseconds = std::chrono::duration<double, std::milli>(Session::Clock::now() - start).count();

    if (m_options.repeat == 1)
        output.line("%s has taken %s, in %.1f ms", panel.getName().c_str(), describe().c_str(), milliseconds);
    else
        output.line("%s has taken %" PRIu64 " times %s, in %.1f ms", panel.getName().c_str(), m_options.repeat,
                    describe().c_str(), milliseconds);
}

void SendCommand::refuseTooLarge(const Panel& panel) const
{
    if (m_payload.size() <= panel.getPayloadLimit())
        return;
    throw Failure(ExitCode::Failed, "the record is too large for " + panel.getName() + ": " +
                                        std::to_string(m_payload.size()) + " payload bytes, and its packet limit of " +
                                        std::to_string(panel.getPacketLimit()) + " bytes leaves room for " +
                                        std::to_string(panel.getPayloadLimit()) +
                                        ".\nIt would never leave and would hold back everything behind it, so it was "
                                        "not queued. Send it in smaller records.");
}

// One at a time: a keyed record would otherwise be replaced by the next one, and
// of a single record it is certain when it has been taken.
void SendCommand::sendOnce(Session& session, const Panel& panel, std::uint64_t sent) const
{
    const auto failure = [this, sent](ExitCode code, const std::string& text) {
        return Failure(code, m_options.repeat == 1 ? text
                                                   : text + "\nTaken before that: " + std::to_string(sent) + " of " +
                                                         std::to_string(m_options.repeat) + " records.");
    };
    Delivery delivery(panel);
    delivery.add(static_cast<PacketType>(m_options.type), m_options.key, m_payload);
    session.waitUntil(Session::Clock::now() + m_timeout, readStep,
                      [&] { return delivery.isTaken() || delivery.isCutShort() || !panel.isAlive(); });
    if (delivery.isTaken())
        return;
    if (delivery.isCutShort())
        throw failure(ExitCode::Failed,
                      explainCutShort(panel, "record's packet", delivery.getTakenBytes(), delivery.getLeastTotal()));
    if (!panel.isAlive())
        throw failure(ExitCode::PanelLeft,
                      explainLeft(panel) + "\nThe record was on its way: whether the panel has got it is not known.");
    throw failure(ExitCode::TimedOut, explainNotTaken(panel, "record", 0, delivery.getLeastTotal(), m_timeout));
}

std::string SendCommand::describe() const
{
    std::string text = "type " + std::to_string(m_options.type);
    if (m_options.key)
        text += ", key " + std::to_string(*m_options.key);
    return text + ", " + formatNumber(m_payload.size(), "payload byte");
}

} // namespace Vantor

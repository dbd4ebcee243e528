#include "simulator/usbip/UsbIpPanel.h"

#include "wire/PanelLink.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace Vantor {

namespace {

constexpr std::uint8_t endpointNumber = 0x0F; // of an endpoint's address

bool isBulk(const UsbIpMessage::Submit& request)
{
    const std::uint8_t address = request.isIn ? PanelLink::inEndpoint : PanelLink::outEndpoint;
    return request.endpoint == (address & endpointNumber);
}

LinkTap::Transfer describe(const UsbIpMessage::Submit& request)
{
    const auto endpoint = static_cast<std::uint8_t>(request.endpoint | (request.isIn ? CapturedUrb::inBit : 0U));
    return {request.sequence, endpoint, request.flags, request.length,
            request.endpoint == 0 ? std::optional(request.setup) : std::nullopt};
}

} // namespace

UsbIpPanel::UsbIpPanel(PanelModel& model, LinkTap tap) : m_model(model), m_tap(std::move(tap)), m_control(model, 0) {}

UsbIpPanel::~UsbIpPanel()
{
    m_model.closeOwner(this);
}

bool UsbIpPanel::receive(const std::uint8_t* data, std::size_t size)
{
    m_input.insert(m_input.end(), data, data + size);
    std::size_t used = 0;
    while (m_error.empty() && takeMessage(m_input.data(), m_input.size(), used)) {
    }
    m_input.erase(m_input.begin(), m_input.begin() + static_cast<std::ptrdiff_t>(used));
    return m_error.empty();
}

// False when there is no whole message from `used` on, or one that is refused.
bool UsbIpPanel::takeMessage(const std::uint8_t* data, std::size_t size, std::size_t& used)
{
    const std::size_t left = size - used;
    if (left < UsbIpMessage::headerSize)
        return false;
    const UsbIpMessage::ParsedRequest parsed = UsbIpMessage::parseRequest(data + used, left);
    if (!parsed.request)
        return fail(parsed.error);
    if (const auto* const request = std::get_if<UsbIpMessage::Unlink>(&*parsed.request)) {
        used += UsbIpMessage::headerSize;
        unlink(*request);
        return true;
    }
    const auto& request = std::get<UsbIpMessage::Submit>(*parsed.request);
    const std::size_t dataSize = request.isIn ? 0 : request.length;
    if (left - UsbIpMessage::headerSize < dataSize)
        return false;
    const std::uint8_t* const begin = data + used + UsbIpMessage::headerSize;
    used += UsbIpMessage::headerSize + dataSize;
    return submit(request, begin);
}

bool UsbIpPanel::fail(const std::string& error)
{
    m_error = error;
    return false;
}

bool UsbIpPanel::submit(const UsbIpMessage::Submit& request, const std::uint8_t* data)
{
    if (m_pending.count(request.sequence) != 0)
        return fail("sequence number " + std::to_string(request.sequence) + " again, its transfer is not done yet");
    if (m_tap.isOpen())
        m_tap.submit(describe(request), {data, data + (request.isIn ? 0 : request.length)});
    if (request.endpoint == 0)
        submitControl(request);
    else
        submitBulk(request, data);
    settle();
    return true;
}

void UsbIpPanel::submitControl(const UsbIpMessage::Submit& request)
{
    const bool wasConfigured = isConfigured();
    ControlEndpoint::Answer answer = m_control.answer(request.setup);
    if (isConfigured() && !wasConfigured)
        m_model.claimInterface(this, PanelLink::interfaceNumber);
    else if (!isConfigured() && wasConfigured)
        m_model.releaseInterface(this, PanelLink::interfaceNumber);

    if (!request.isIn) // what there is of data in it has no meaning for a panel
        return finish(request, answer.status, answer.status == 0 ? request.length : 0, {});
    answer.data.resize(std::min<std::size_t>(answer.data.size(), request.length));
    finish(request, answer.status, static_cast<std::uint32_t>(answer.data.size()), answer.data);
}

void UsbIpPanel::submitBulk(const UsbIpMessage::Submit& request, const std::uint8_t* data)
{
    if (!isBulk(request))
        return finish(request, -ENOENT, 0, {});
    if (!isConfigured()) // a device does not answer there
        return finish(request, -EPROTO, 0, {});
    m_pending.emplace(request.sequence, request);
    const bool isMarked = (request.flags & UsbIpMessage::zeroPacket) != 0;
    const int result = request.isIn
                           ? m_model.submitIn(this, request.sequence, request.length)
                           : m_model.submitOut(this, request.sequence, {data, data + request.length}, isMarked);
    if (result == 0)
        return;
    m_pending.erase(request.sequence);
    finish(request, result, 0, {});
}

void UsbIpPanel::unlink(const UsbIpMessage::Unlink& request)
{
    settle(); // what is done already has its own reply
    const auto found = m_pending.find(request.target);
    const bool isPending = found != m_pending.end();
    if (isPending) {
        m_tap.complete(describe(found->second), -ECONNRESET, 0, {});
        m_pending.erase(found);
        m_model.cancel(request.target);
    }
    send(UsbIpMessage::makeUnlinkReply(request, isPending ? -ECONNRESET : 0));
    settle(); // what it held up
}

void UsbIpPanel::settle()
{
    for (auto completions = m_model.takeCompletions(); !completions.empty(); completions = m_model.takeCompletions()) {
        for (const PanelModel::Completion& completion : completions) {
            const auto found = m_pending.find(completion.urb);
            if (found == m_pending.end())
                continue; // unlinked
            const UsbIpMessage::Submit request = found->second;
            m_pending.erase(found);
            finish(request, completion.status, completion.actualLength, completion.data);
            const bool isWhole = completion.status == 0 && completion.actualLength == request.length;
            // A transfer in pieces: the kernel sends no more of it.
            if (!request.isIn && !isWhole)
                m_model.breakOffOut();
        }
    }
}

void UsbIpPanel::finish(const UsbIpMessage::Submit& request, int status, std::uint32_t actualLength,
                        const std::vector<std::uint8_t>& data)
{
    const bool isTooShort =
        status == 0 && request.isIn && actualLength < request.length && (request.flags & UsbIpMessage::shortNotOk) != 0;
    const int told = isTooShort ? -EREMOTEIO : status;
    m_tap.complete(describe(request), told, actualLength, data);
    send(UsbIpMessage::makeSubmitReply(request, told, actualLength, data));
}

void UsbIpPanel::send(const std::vector<std::uint8_t>& message)
{
    m_output.insert(m_output.end(), message.begin(), message.end());
}

std::vector<std::uint8_t> UsbIpPanel::takeOutput()
{
    return std::exchange(m_output, {});
}

} // namespace Vantor

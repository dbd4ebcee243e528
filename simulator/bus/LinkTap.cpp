#include "simulator/bus/LinkTap.h"

#include <utility>

namespace Vantor {

LinkTap::LinkTap(Listener listener, const Address& address, std::uint32_t plug)
    : m_listener(std::move(listener)), m_address(address), m_plug(plug)
{}

void LinkTap::submit(const Transfer& transfer, const std::vector<std::uint8_t>& data) const
{
    if (!isOpen())
        return;
    CapturedUrb urb = makeUrb(CapturedUrb::Event::Submit, transfer);
    urb.status = CapturedUrb::inProgress;
    urb.length = transfer.length;
    if (transfer.setup) {
        urb.setupFlag = CapturedUrb::follows;
        urb.setup = *transfer.setup;
    }
    if (urb.isIn())
        urb.dataFlag = CapturedUrb::noDataIn;
    else
        urb.data = data;
    m_listener(std::move(urb));
}

void LinkTap::complete(const Transfer& transfer, int status, std::uint32_t length,
                       const std::vector<std::uint8_t>& data) const
{
    if (!isOpen())
        return;
    CapturedUrb urb = makeUrb(CapturedUrb::Event::Complete, transfer);
    urb.status = status;
    urb.length = length;
    if (urb.isIn())
        urb.data = data;
    else
        urb.dataFlag = CapturedUrb::noDataOut;
    m_listener(std::move(urb));
}

void LinkTap::exchange(std::uint32_t id, const Setup& setup, const std::vector<std::uint8_t>& data,
                       const ControlEndpoint::Answer& answer) const
{
    const bool isIn = (setup[0] & CapturedUrb::inBit) != 0;
    const auto length = static_cast<std::uint32_t>(setup[6] | setup[7] << 8);
    const Transfer transfer{id, isIn ? CapturedUrb::inBit : std::uint8_t{0}, 0, length, setup};
    const auto taken = static_cast<std::uint32_t>(data.size());
    submit(transfer, data);
    complete(transfer, answer.status,
             isIn                 ? static_cast<std::uint32_t>(answer.data.size())
             : answer.status == 0 ? taken
                                  : 0,
             answer.data);
}

CapturedUrb LinkTap::makeUrb(CapturedUrb::Event event, const Transfer& transfer) const
{
    constexpr std::uint32_t kept = CapturedUrb::shortNotOk | CapturedUrb::zeroPacket;
    CapturedUrb urb;
    urb.id = std::uint64_t{m_plug} << 32 | transfer.id;
    urb.event = event;
    urb.transfer = transfer.setup ? CapturedUrb::Transfer::Control : CapturedUrb::Transfer::Bulk;
    urb.endpoint = transfer.endpoint;
    urb.device = m_address.device;
    urb.bus = m_address.bus;
    urb.flags = (transfer.flags & kept) | (urb.isIn() ? CapturedUrb::directionIn : 0);
    return urb;
}

} // namespace Vantor

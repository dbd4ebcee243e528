#include "tests/link/firmware/FirmwareFault.h"

#include <cerrno>

namespace Vantor::Test {

std::optional<BootFault> FirmwareFault::bootFault() const
{
    BootFault fault;
    switch (kind) {
    case Kind::SendLost:
        fault.kind = BootFault::Kind::Ignore;
        return fault;
    case Kind::ReplyLost:
        fault.kind = BootFault::Kind::Lose;
        return fault;
    case Kind::ReplyCorrupt:
        fault.kind = BootFault::Kind::Corrupt;
        fault.offset = value;
        return fault;
    case Kind::ReplyCode:
        fault.kind = BootFault::Kind::Reply;
        fault.code = static_cast<std::uint8_t>(value);
        return fault;
    case Kind::ReplyTwice:
        fault.kind = BootFault::Kind::Duplicate;
        return fault;
    case Kind::ReplyLate:
        fault.kind = BootFault::Kind::Delay;
        fault.delay = delay;
        return fault;
    default:
        return std::nullopt;
    }
}

std::optional<PanelFault> FirmwareFault::panelFault() const
{
    PanelFault fault;
    fault.direction = kind >= Kind::ReadStalled ? PanelFault::Direction::In : PanelFault::Direction::Out;
    switch (kind) {
    case Kind::SendCut:
    case Kind::ReadCut:
        fault.kind = PanelFault::Kind::Short;
        fault.bytes = value;
        return fault;
    case Kind::SendStalled:
    case Kind::ReadStalled:
        fault.kind = PanelFault::Kind::Stall;
        return fault;
    case Kind::SendRefused:
        fault.kind = PanelFault::Kind::Status;
        fault.status = -EOVERFLOW;
        return fault;
    case Kind::ReadFailed:
        fault.kind = PanelFault::Kind::Status;
        fault.status = -EPROTO;
        return fault;
    case Kind::SendHeld:
    case Kind::ReadHeld:
        fault.kind = PanelFault::Kind::Delay;
        fault.delay = delay;
        return fault;
    case Kind::SendTimedOut:
    case Kind::ReadTimedOut:
        fault.kind = PanelFault::Kind::NoAnswer;
        return fault;
    default:
        return std::nullopt;
    }
}

std::ostream& operator<<(std::ostream& out, const FirmwareFault& fault)
{
    static const char* const names[] = {"SendLost",   "SendCorrupt",  "SendCut",     "SendStalled",  "SendRefused",
                                        "SendHeld",   "SendTimedOut", "ReplyLost",   "ReplyCorrupt", "ReplyCode",
                                        "ReplyTwice", "ReplyLate",    "ReadStalled", "ReadFailed",   "ReadCut",
                                        "ReadHeld",   "ReadTimedOut"};
    return out << "{" << fault.packet << ", Kind::" << names[static_cast<int>(fault.kind)] << ", " << fault.value
               << ", " << fault.delay.count() / 1000000 << "ms}";
}

} // namespace Vantor::Test

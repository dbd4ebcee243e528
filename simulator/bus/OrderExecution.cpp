#include "simulator/bus/OrderExecution.h"

#include <chrono>
#include <cstdio>
#include <cstring>

namespace Vantor {

namespace {

// "250", "0.5"
std::string formatMilliseconds(std::chrono::nanoseconds time)
{
    char text[32];
    std::snprintf(text, sizeof text, "%lld.%06lld", static_cast<long long>(time.count() / 1'000'000),
                  static_cast<long long>(time.count() % 1'000'000));
    std::string number = text;
    number.erase(number.find_last_not_of('0') + 1);
    if (number.back() == '.')
        number.pop_back();
    return number;
}

std::string nameOf(const PanelFault& fault)
{
    switch (fault.kind) {
    case PanelFault::Kind::Stall:
        return "stall";
    case PanelFault::Kind::Short:
        return "short=" + std::to_string(fault.bytes);
    case PanelFault::Kind::NoAnswer:
        return "silent";
    case PanelFault::Kind::Status:
        return std::string("status=") + strerrorname_np(-fault.status);
    case PanelFault::Kind::Delay:
        return "delay=" + formatMilliseconds(fault.delay);
    }
    return {};
}

std::string nameOf(const BootFault& fault)
{
    switch (fault.kind) {
    case BootFault::Kind::Reply:
        return "reply=" + formatHex(fault.code);
    case BootFault::Kind::Lose:
        return "lose";
    case BootFault::Kind::Ignore:
        return "ignore";
    case BootFault::Kind::Delay:
        return "delay=" + formatMilliseconds(fault.delay);
    case BootFault::Kind::Duplicate:
        return "duplicate";
    case BootFault::Kind::Corrupt:
        return "corrupt=" + std::to_string(fault.offset);
    case BootFault::Kind::Unplug:
        return "unplug";
    }
    return {};
}

const char* howLong(bool sticky)
{
    return sticky ? " sticky" : " once";
}

struct Words {
    std::string operator()(const PlugOrder& /*command*/) const { return "plug"; }
    std::string operator()(const UnplugOrder& /*command*/) const { return "unplug"; }
    std::string operator()(const FaultOrder& command) const
    {
        const bool isOut = command.fault.direction == PanelFault::Direction::Out;
        return (isOut ? "fault out " : "fault in ") + nameOf(command.fault) + howLong(command.fault.sticky);
    }
    std::string operator()(const BootFaultOrder& command) const
    {
        const std::string skip = command.fault.skip != 0 ? " skip=" + std::to_string(command.fault.skip) : "";
        return "fault boot " + nameOf(command.fault) + skip + howLong(command.fault.sticky);
    }
    std::string operator()(const ClearFaultsOrder& /*command*/) const { return "fault clear"; }
    std::string operator()(const EmitOrder& command) const
    {
        return "emit type " + std::to_string(static_cast<int>(command.type)) + ", " +
               formatBytes(command.payload.size());
    }
};

} // namespace

unsigned int OrderExecution::panelOf(const PanelOrder& command)
{
    return std::visit([](const auto& alternative) { return alternative.panel; }, command);
}

std::string OrderExecution::describe(const PanelOrder& command)
{
    return std::visit(Words{}, command);
}

std::string formatBytes(std::size_t number)
{
    return std::to_string(number) + (number == 1 ? " byte" : " bytes");
}

std::string formatHex(std::uint8_t byte)
{
    char text[3];
    std::snprintf(text, sizeof text, "%02x", byte);
    return text;
}

} // namespace Vantor

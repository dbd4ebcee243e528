#include "simulator/panel/ControlEndpoint.h"

#include "wire/PanelLink.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <linux/usb/ch9.h>

namespace Vantor {

namespace {

constexpr std::ptrdiff_t deviceDescriptorSize = 18;

constexpr std::uint8_t selfPowered = 1 << USB_DEVICE_SELF_POWERED; // as the configuration says
constexpr std::uint8_t halted = 1 << USB_ENDPOINT_HALT;

const ControlEndpoint::Answer stalled{-EPIPE, {}};

std::uint16_t valueOf(const ControlEndpoint::Setup& setup)
{
    return static_cast<std::uint16_t>(setup[2] | setup[3] << 8);
}

std::uint16_t indexOf(const ControlEndpoint::Setup& setup)
{
    return static_cast<std::uint16_t>(setup[4] | setup[5] << 8);
}

// Endpoint 0, in either direction.
bool isControl(std::uint16_t endpoint)
{
    return (endpoint & ~USB_DIR_IN) == 0;
}

} // namespace

ControlEndpoint::ControlEndpoint(PanelModel& model, std::uint8_t configuration)
    : m_model(model), m_descriptors(model.getDescriptors()), m_configuration(configuration)
{}

std::uint8_t ControlEndpoint::getConfiguration() const
{
    return m_configuration;
}

ControlEndpoint::Answer ControlEndpoint::answer(const Setup& setup)
{
    const std::uint8_t requestType = setup[0];
    if ((requestType & USB_TYPE_MASK) != USB_TYPE_STANDARD)
        return stalled;
    if ((requestType & USB_DIR_IN) == 0)
        return set(setup) ? Answer{0, {}} : stalled;
    Answer answer = read(setup);
    const auto limit = static_cast<std::size_t>(setup[6] | setup[7] << 8);
    answer.data.resize(std::min(answer.data.size(), limit));
    return answer;
}

ControlEndpoint::Answer ControlEndpoint::read(const Setup& setup) const
{
    const unsigned int recipient = setup[0] & USB_RECIP_MASK;
    switch (setup[1]) {
    case USB_REQ_GET_DESCRIPTOR:
        return recipient == USB_RECIP_DEVICE ? describe(setup[3], setup[2]) : stalled;
    case USB_REQ_GET_STATUS:
        return readStatus(setup);
    case USB_REQ_GET_CONFIGURATION:
        return recipient == USB_RECIP_DEVICE ? Answer{0, {m_configuration}} : stalled;
    case USB_REQ_GET_INTERFACE: // which has but one setting
        return recipient == USB_RECIP_INTERFACE && indexOf(setup) == PanelLink::interfaceNumber && m_configuration != 0
                   ? Answer{0, {0}}
                   : stalled;
    default:
        return stalled;
    }
}

ControlEndpoint::Answer ControlEndpoint::describe(std::uint8_t type, std::uint8_t index) const
{
    const auto configuration = m_descriptors.begin() + deviceDescriptorSize;
    if (type == USB_DT_DEVICE)
        return {0, {m_descriptors.begin(), configuration}};
    if (type == USB_DT_CONFIG && index == 0)
        return {0, {configuration, m_descriptors.end()}};
    if (type == USB_DT_STRING) {
        std::vector<std::uint8_t> text = m_model.getString(index);
        return text.empty() ? stalled : Answer{0, std::move(text)};
    }
    return stalled; // a device qualifier, too: the panel knows no other speed
}

ControlEndpoint::Answer ControlEndpoint::readStatus(const Setup& setup) const
{
    const std::uint16_t index = indexOf(setup);
    switch (setup[0] & USB_RECIP_MASK) {
    case USB_RECIP_DEVICE:
        return {0, {selfPowered, 0}};
    case USB_RECIP_INTERFACE:
        return index == PanelLink::interfaceNumber ? Answer{0, {0, 0}} : stalled;
    case USB_RECIP_ENDPOINT:
        if (isControl(index))
            return {0, {0, 0}};
        if (index != PanelLink::outEndpoint && index != PanelLink::inEndpoint)
            return stalled;
        return {0, {m_model.isHalted(static_cast<std::uint8_t>(index)) ? halted : std::uint8_t{0}, 0}};
    default:
        return stalled;
    }
}

bool ControlEndpoint::set(const Setup& setup)
{
    const unsigned int recipient = setup[0] & USB_RECIP_MASK;
    switch (setup[1]) {
    case USB_REQ_SET_CONFIGURATION:
        return recipient == USB_RECIP_DEVICE && setConfiguration(valueOf(setup));
    case USB_REQ_SET_INTERFACE:
        return recipient == USB_RECIP_INTERFACE && setInterface(indexOf(setup), valueOf(setup));
    case USB_REQ_CLEAR_FEATURE:
        return recipient == USB_RECIP_ENDPOINT && valueOf(setup) == USB_ENDPOINT_HALT && clearHalt(indexOf(setup));
    default:
        return false;
    }
}

bool ControlEndpoint::setConfiguration(std::uint16_t value)
{
    if (value > onlyConfiguration)
        return false;
    // A halt asked for before the host has found the panel is meant for what comes then.
    if (m_configuration != 0)
        clearHalts();
    m_configuration = static_cast<std::uint8_t>(value);
    return true;
}

bool ControlEndpoint::setInterface(std::uint16_t number, std::uint16_t setting)
{
    if (m_configuration == 0 || number != PanelLink::interfaceNumber || setting != 0)
        return false;
    clearHalts();
    return true;
}

// Endpoint 0 does not halt.
bool ControlEndpoint::clearHalt(std::uint16_t endpoint)
{
    return isControl(endpoint) || (endpoint <= 0xFF && m_model.clearHalt(static_cast<std::uint8_t>(endpoint)) == 0);
}

void ControlEndpoint::clearHalts()
{
    m_model.clearHalt(PanelLink::outEndpoint);
    m_model.clearHalt(PanelLink::inEndpoint);
}

} // namespace Vantor

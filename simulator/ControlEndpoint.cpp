#include "simulator/ControlEndpoint.h"

#include "simulator/PanelDescriptors.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <linux/usb/ch9.h>

namespace Vantor {

namespace {

constexpr std::ptrdiff_t deviceDescriptorSize = 18;

constexpr std::uint8_t selfPowered = 1 << USB_DEVICE_SELF_POWERED; // as the configuration says

const ControlEndpoint::Answer stalled{-EPIPE, {}};

} // namespace

ControlEndpoint::ControlEndpoint(std::vector<std::uint8_t> descriptors) : m_descriptors(std::move(descriptors)) {}

ControlEndpoint::Answer ControlEndpoint::answer(const std::vector<std::uint8_t>& setup) const
{
    const std::uint8_t requestType = setup[0];
    const std::uint8_t request = setup[1];
    const auto limit = static_cast<std::size_t>(setup[6] | setup[7] << 8);
    if ((requestType & USB_TYPE_MASK) != USB_TYPE_STANDARD || (requestType & USB_DIR_IN) == 0)
        return stalled;

    Answer answer = stalled;
    if (request == USB_REQ_GET_DESCRIPTOR && (requestType & USB_RECIP_MASK) == USB_RECIP_DEVICE)
        answer = describe(setup[3], setup[2]);
    else if (request == USB_REQ_GET_STATUS)
        answer = {0, {(requestType & USB_RECIP_MASK) == USB_RECIP_DEVICE ? selfPowered : std::uint8_t{0}, 0}};
    else if (request == USB_REQ_GET_CONFIGURATION)
        answer = {0, {1}};
    answer.data.resize(std::min(answer.data.size(), limit));
    return answer;
}

ControlEndpoint::Answer ControlEndpoint::describe(std::uint8_t type, std::uint8_t index) const
{
    const auto configuration = m_descriptors.begin() + deviceDescriptorSize;
    if (type == USB_DT_DEVICE)
        return {0, {m_descriptors.begin(), configuration}};
    if (type == USB_DT_CONFIG && index == 0)
        return {0, {configuration, m_descriptors.end()}};
    if (type == USB_DT_STRING) {
        std::vector<std::uint8_t> text = makePanelString(index);
        return text.empty() ? stalled : Answer{0, std::move(text)};
    }
    return stalled;
}

} // namespace Vantor

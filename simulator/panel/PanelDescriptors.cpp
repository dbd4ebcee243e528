#include "simulator/panel/PanelDescriptors.h"

#include "wire/PanelLink.h"

#include <cstddef>
#include <string_view>

namespace Vantor {

namespace {

constexpr std::uint8_t low(std::uint16_t value)
{
    return static_cast<std::uint8_t>(value & 0xFF);
}

constexpr std::uint8_t high(std::uint16_t value)
{
    return static_cast<std::uint8_t>(value >> 8);
}

constexpr std::uint8_t deviceDescriptor = 1;
constexpr std::uint8_t configurationDescriptor = 2;
constexpr std::uint8_t stringDescriptor = 3;
constexpr std::uint8_t interfaceDescriptor = 4;
constexpr std::uint8_t endpointDescriptor = 5;
constexpr std::uint8_t vendorSpecific = 0xFF;
constexpr std::uint8_t bulk = 2;
constexpr std::uint16_t usbRelease = 0x0200;
constexpr std::uint16_t deviceRelease = 0x0100;
constexpr std::uint16_t bulkPacket = 512;
constexpr std::uint8_t controlPacket = 64;
constexpr std::uint16_t configurationSize = 9 + 9 + 7 + 7;
constexpr std::uint8_t manufacturerIndex = 1;
constexpr std::uint8_t productIndex = 2;
constexpr std::uint16_t english = 0x0409;

// UTF-16 of what is ASCII.
std::vector<std::uint8_t> makeString(std::string_view text)
{
    std::vector<std::uint8_t> bytes{static_cast<std::uint8_t>(2 + 2 * text.size()), stringDescriptor};
    for (const char character : text) {
        bytes.push_back(static_cast<std::uint8_t>(character));
        bytes.push_back(0);
    }
    return bytes;
}

constexpr std::size_t deviceSize = 18;
constexpr std::size_t configurationHeaderSize = 9;
constexpr std::size_t interfaceSize = 9;
constexpr std::size_t endpointSize = 7;

std::uint16_t wordAt(const std::vector<std::uint8_t>& bytes, std::size_t offset)
{
    return static_cast<std::uint16_t>(bytes[offset] | bytes[offset + 1] << 8);
}

// Whether a descriptor of this kind begins here, of at least its standard size.
bool isDescriptor(const std::vector<std::uint8_t>& bytes, std::size_t offset, std::uint8_t kind, std::size_t size)
{
    return offset + size <= bytes.size() && bytes[offset] >= size && bytes[offset + 1] == kind;
}

} // namespace

bool arePanelDescriptors(const std::vector<std::uint8_t>& bytes)
{
    const std::size_t interface = deviceSize + configurationHeaderSize;
    if (!isDescriptor(bytes, 0, deviceDescriptor, deviceSize) || bytes[0] != deviceSize ||
        wordAt(bytes, 10) != PanelLink::productId || bytes[17] != 1 ||
        !isDescriptor(bytes, deviceSize, configurationDescriptor, configurationHeaderSize) ||
        bytes[deviceSize] != configurationHeaderSize || wordAt(bytes, deviceSize + 2) != bytes.size() - deviceSize ||
        bytes[deviceSize + 5] != 1 || !isDescriptor(bytes, interface, interfaceDescriptor, interfaceSize) ||
        bytes[interface + 2] != PanelLink::interfaceNumber)
        return false;
    bool hasOut = false;
    bool hasIn = false;
    std::size_t offset = interface;
    for (; offset + 2 <= bytes.size() && bytes[offset] >= 2; offset += bytes[offset]) {
        if (!isDescriptor(bytes, offset, endpointDescriptor, endpointSize) || bytes[offset + 3] != bulk)
            continue;
        hasOut = hasOut || bytes[offset + 2] == PanelLink::outEndpoint;
        hasIn = hasIn || bytes[offset + 2] == PanelLink::inEndpoint;
    }
    return hasOut && hasIn && offset == bytes.size();
}

std::vector<std::uint8_t> makePanelDescriptors(std::uint16_t vendorId, std::uint16_t productId)
{
    // clang-format off
    return {
        // class, subclass and protocol are the interface's; no serial number; 1 configuration
        18, deviceDescriptor, low(usbRelease), high(usbRelease), 0, 0, 0, controlPacket,
        low(vendorId), high(vendorId), low(productId), high(productId), low(deviceRelease), high(deviceRelease),
        manufacturerIndex, productIndex, 0, 1,
        // 1 interface; configuration 1; self-powered, no remote wake-up, 0 mA from the bus
        9, configurationDescriptor, low(configurationSize), high(configurationSize), 1, 1, 0, 0xC0, 0,
        9, interfaceDescriptor, PanelLink::interfaceNumber, 0, 2, vendorSpecific, 0, 0, 0,
        7, endpointDescriptor, PanelLink::outEndpoint, bulk, low(bulkPacket), high(bulkPacket), 0,
        7, endpointDescriptor, PanelLink::inEndpoint, bulk, low(bulkPacket), high(bulkPacket), 0,
    };
    // clang-format on
}

std::vector<std::uint8_t> makePanelString(std::uint8_t index)
{
    switch (index) {
    case 0:
        return {4, stringDescriptor, low(english), high(english)};
    case manufacturerIndex:
        return makeString(PanelStrings::manufacturer);
    case productIndex:
        return makeString(PanelStrings::product);
    default:
        return {};
    }
}

std::string readPanelString(const std::vector<std::uint8_t>& descriptor)
{
    std::string text;
    for (std::size_t i = 2; i + 1 < descriptor.size(); i += 2)
        if (descriptor[i + 1] == 0 && descriptor[i] >= ' ' && descriptor[i] <= '~')
            text += static_cast<char>(descriptor[i]);
    return text;
}

} // namespace Vantor

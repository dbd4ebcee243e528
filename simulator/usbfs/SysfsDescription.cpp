#include "simulator/usbfs/SysfsDescription.h"

#include "simulator/bus/PanelBus.h"
#include "simulator/panel/PanelDescriptors.h"

#include <cstdio>
#include <utility>

namespace Vantor::SysfsDescription {

namespace {

constexpr char rootHubPath[] = "/devices/platform/panelsim/usb1";

// A USB 2.0 hub with one interrupt endpoint, as the kernel presents a high-speed root hub.
// clang-format off
const std::vector<std::uint8_t> rootHubDescriptors{
    18, 1, 0x00, 0x02, 9, 0, 1, 64, 0x6B, 0x1D, 0x02, 0x00, 0x01, 0x06, 0, 0, 0, 1,
    9, 2, 25, 0, 1, 1, 0, 0xE0, 0,
    9, 4, 0, 0, 1, 9, 0, 0, 0,
    7, 5, 0x81, 3, 4, 0, 12,
};
// clang-format on

constexpr std::size_t configurationOffset = 18; // behind the device descriptor

template <typename... Values> std::string format(const char* text, Values... values)
{
    char buffer[256];
    std::snprintf(buffer, sizeof buffer, text, values...);
    return buffer;
}

std::string hexOf(const std::vector<std::uint8_t>& bytes)
{
    std::string hex;
    for (const std::uint8_t byte : bytes)
        hex += format("%02x", byte);
    return hex;
}

unsigned int word(const std::vector<std::uint8_t>& descriptors, std::size_t offset)
{
    return static_cast<unsigned int>(descriptors[offset] | descriptors[offset + 1] << 8);
}

using NamesAndValues = std::vector<std::pair<const char*, std::string>>;

std::string properties(const NamesAndValues& list)
{
    std::string lines;
    for (const auto& [name, value] : list)
        lines += std::string("E: ") + name + "=" + value + "\n";
    return lines;
}

// As umockdev reads it. A panel of a capture may be called anything.
std::string escaped(const std::string& text)
{
    std::string result;
    for (const char character : text)
        result += character == '\\' ? std::string("\\\\") : std::string(1, character);
    return result;
}

// Each value ends in an (escaped) newline, as the kernel's do; libusb insists on it.
std::string attributes(const NamesAndValues& list)
{
    std::string lines;
    for (const auto& [name, value] : list)
        lines += std::string("A: ") + name + "=" + escaped(value) + "\\n\n";
    return lines;
}

std::string describe(const std::string& path, const UsbfsPanel::Address& address, unsigned int ports,
                     const std::vector<std::uint8_t>& descriptors, const NamesAndValues& moreAttributes)
{
    const unsigned int vendor = word(descriptors, 8);
    const unsigned int product = word(descriptors, 10);
    const unsigned int release = word(descriptors, 12);
    const std::uint8_t* const configuration = &descriptors[configurationOffset];
    const NamesAndValues propertyList{
        {"SUBSYSTEM", "usb"},
        {"DEVTYPE", "usb_device"},
        {"DEVNAME", nodePath(address)},
        {"BUSNUM", format("%03u", address.bus)},
        {"DEVNUM", format("%03u", address.device)},
        {"PRODUCT", format("%x/%x/%x", vendor, product, release)},
    };
    const NamesAndValues attributeList{
        {"busnum", std::to_string(address.bus)},
        {"devnum", std::to_string(address.device)},
        {"devpath", std::to_string(address.port)},
        {"speed", "480"},
        {"version", " 2.00"},
        {"bConfigurationValue", "1"},
        {"bNumConfigurations", "1"},
        {"maxchild", std::to_string(ports)},
        {"idVendor", format("%04x", vendor)},
        {"idProduct", format("%04x", product)},
        {"bcdDevice", format("%04x", release)},
        {"bDeviceClass", format("%02x", descriptors[4])},
        {"bDeviceSubClass", format("%02x", descriptors[5])},
        {"bDeviceProtocol", format("%02x", descriptors[6])},
        {"bMaxPacketSize0", std::to_string(descriptors[7])},
        {"bNumInterfaces", format("%2u", configuration[4])},
        {"bmAttributes", format("%02x", configuration[7])},
        {"bMaxPower", format("%umA", configuration[8] * 2U)},
        {"configuration", ""},
        {"rx_lanes", "1"},
        {"tx_lanes", "1"},
    };
    return "P: " + path + "\n" + properties(propertyList) + attributes(attributeList) + attributes(moreAttributes) +
           "H: descriptors=" + hexOf(descriptors) + "\n\n";
}

// The first interface of a device, which is its only one here.
std::string describeOnlyInterface(const std::string& path, const std::vector<std::uint8_t>& descriptors,
                                  const std::string& driver)
{
    const std::uint8_t* const configuration = &descriptors[configurationOffset];
    const std::uint8_t* const interface = configuration + configuration[0];
    const NamesAndValues attributeList{
        {"bInterfaceNumber", format("%02x", interface[2])},   {"bAlternateSetting", format("%2u", interface[3])},
        {"bNumEndpoints", format("%02x", interface[4])},      {"bInterfaceClass", format("%02x", interface[5])},
        {"bInterfaceSubClass", format("%02x", interface[6])}, {"bInterfaceProtocol", format("%02x", interface[7])},
    };
    return "P: " + path + "\n" + properties({{"SUBSYSTEM", "usb"}, {"DEVTYPE", "usb_interface"}}) +
           attributes(attributeList) +
           (driver.empty() ? "" : "L: driver=../../../../bus/usb/drivers/" + driver + "\n") + "\n";
}

} // namespace

std::string describeRootHub()
{
    return describe(rootHubPath, {1, 0, 1}, PanelBus::maxPanels, rootHubDescriptors, {}) +
           describeOnlyInterface(rootHubPath + std::string("/1-0:1.0"), rootHubDescriptors, "");
}

std::string describePanel(const UsbfsPanel::Address& address, const PanelModel& model, bool isSuspendable)
{
    const std::vector<std::uint8_t> descriptors = model.getDescriptors();
    NamesAndValues more{{"power/control", isSuspendable ? "auto" : "on"}};
    for (const auto& [name, indexOffset] : {std::pair("manufacturer", 14), std::pair("product", 15)}) {
        const std::string text = readPanelString(model.getString(descriptors[static_cast<std::size_t>(indexOffset)]));
        if (!text.empty())
            more.emplace_back(name, text);
    }
    return describe(panelPath(address), address, 0, descriptors, more);
}

std::string describeInterface(const UsbfsPanel::Address& address, const PanelModel& model, const std::string& driver)
{
    return describeOnlyInterface(interfacePath(address), model.getDescriptors(), driver);
}

std::string panelPath(const UsbfsPanel::Address& address)
{
    return rootHubPath + format("/%u-%u", address.bus, address.port);
}

std::string interfacePath(const UsbfsPanel::Address& address)
{
    return panelPath(address) + format("/%u-%u:1.0", address.bus, address.port);
}

std::string nodePath(const UsbfsPanel::Address& address)
{
    return format("/dev/bus/usb/%03u/%03u", address.bus, address.device);
}

} // namespace Vantor::SysfsDescription

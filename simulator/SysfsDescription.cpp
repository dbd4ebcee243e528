#include "simulator/SysfsDescription.h"

#include <cstdio>

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

std::string property(const char* name, const std::string& value)
{
    return std::string("E: ") + name + "=" + value + "\n";
}

// Ends in an (escaped) newline, as the kernel's attributes do; libusb insists on it.
std::string attribute(const char* name, const std::string& value)
{
    return std::string("A: ") + name + "=" + value + "\\n\n";
}

std::string describe(const std::string& path, const VirtualPanel::Address& address, unsigned int ports,
                     const std::vector<std::uint8_t>& descriptors)
{
    const unsigned int vendor = word(descriptors, 8);
    const unsigned int product = word(descriptors, 10);
    const unsigned int release = word(descriptors, 12);
    return "P: " + path + "\n" +                                
           property("SUBSYSTEM", "usb") +                       
           property("DEVTYPE", "usb_device") +                  
           property("DEVNAME", nodePath(address)) +             
           property("BUSNUM", format("%03u", address.bus)) +    
           property("DEVNUM", format("%03u", address.device)) + 
           property("PRODUCT", format("%x/%x/%x", vendor, product, release)) +
           attribute("busnum", std::to_string(address.bus)) +   
           attribute("devnum", std::to_string(address.device)) +
           attribute("devpath", std::to_string(address.port)) + 
           attribute("speed", "480") +                          
           attribute("version", " 2.00") +                      
           attribute("bConfigurationValue", "1") +              
           attribute("bNumConfigurations", "1") +               
           attribute("maxchild", std::to_string(ports)) +       
           attribute("idVendor", format("%04x", vendor)) +      
           attribute("idProduct", format("%04x", product)) +    
           attribute("bcdDevice", format("%04x", release)) +    
           attribute("bDeviceClass", format("%02x", descriptors[4])) +
           "H: descriptors=" + hexOf(descriptors) + "\n\n";
}

} // namespace

std::string describeRootHub()
{
    return describe(rootHubPath, {0, 1, 0, 1}, VirtualPanel::maxPort, rootHubDescriptors);
}

std::string describePanel(const VirtualPanel::Address& address, const std::vector<std::uint8_t>& descriptors)
{
    std::string panel = describe(panelPath(address), address, 0, descriptors);
    // Read by lsusb and its like, though the panel has no string descriptors.
    panel.insert(panel.find("A: "), attribute("manufacturer", "panelsim") + attribute("product", "Simulated panel"));
    return panel;
}

std::string panelPath(const VirtualPanel::Address& address)
{
    return rootHubPath + format("/%u-%u", address.bus, address.port);
}

std::string nodePath(const VirtualPanel::Address& address)
{
    return format("/dev/bus/usb/%03u/%03u", address.bus, address.device);
}

} // namespace Vantor::SysfsDescription

#include "panelctl/session/UsbNode.h"

#include <cstdio>
#include <fstream>

namespace Vantor::UsbNode {

std::string locate(const std::string& place, const std::string& sysfs, const std::string& dev)
{
    const std::string folder = sysfs + "/" + place + "/";
    int bus = 0;
    int number = 0;
    if (!(std::ifstream(folder + "busnum") >> bus) || !(std::ifstream(folder + "devnum") >> number))
        return "";
    char node[40];
    std::snprintf(node, sizeof node, "/bus/usb/%03d/%03d", bus, number);
    return dev + node;
}

} // namespace Vantor::UsbNode

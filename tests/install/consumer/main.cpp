// Uses a bit of every public header, and both libraries, without a panel.

#include "libMorvaneHostUsb/Log.h"
#include "libMorvaneHostUsb/PriorityPacker.h"
#include "libMorvaneHostUsb/UsbDevice.h"
#include "libMorvaneHostUsb/UsbManager.h"
#include "protocol/PackedPacketParser.h"
#include "protocol/PanelLink.h"

#include <cstdio>
#include <cstring>

using namespace Vantor;

namespace {

class Application : public UsbManager::Observer, public PackedPacketParser::Observer {
public:
    void onDeviceAdded(std::uint16_t) override {}
    void onDeviceRemoved(std::uint16_t) override {}
    void onParsedPacket(std::uint16_t, const PacketType&, const DataPacketUnion&, unsigned int) override {}

    void handleParsedPacket(unsigned short, const PacketType& type, const DataPacketUnion& data,
                            unsigned int size) override
    {
        m_isSeen = type == static_cast<PacketType>(5) && size == 2 && std::memcmp(data.bytes, "ok", 2) == 0;
    }

    bool m_isSeen = false;
};

// Never true for the compiler: the calls must link, and not run without a bus.
bool isBusWanted(int argumentCount)
{
    return argumentCount > 1000;
}

void usePanels(Application& application)
{
    UsbManager* const manager = UsbManager::getUsbManager();
    manager->registerObserver(&application);
    manager->initialise();
    for (const auto& device : manager->getDeviceListSafe())
        device->getPacker().addStructData("ok", 2, static_cast<PacketType>(5));
    UsbManager::destroyUsbManager();
}

} // namespace

int main(int argumentCount, char**)
{
    Application application;
    if (isBusWanted(argumentCount))
        usePanels(application);

    setLogLevel(LogLevel::Error);
    PriorityPacker packer(1024);
    packer.addStructData("ok", 2, static_cast<PacketType>(5));
    packer.prepareNextPacket();
    PackedPacketParser parser(&application);
    parser.parse(packer.getPacket(), packer.getPacketSize());

    const bool isRight = application.m_isSeen && UsbManager::getVersion() == "1.2.1+" && logLevel == LogLevel::Error;
    std::puts(isRight ? "the installed package works" : "the installed package does not work");
    return isRight ? 0 : 1;
}

// Uses a bit of every public header, and both libraries, without a panel.

#include "libMorvaneHostUsb/LcdHelper.h"
#include "libMorvaneHostUsb/Log.h"
#include "libMorvaneHostUsb/PriorityPacker.h"
#include "libMorvaneHostUsb/UsbDevice.h"
#include "libMorvaneHostUsb/UsbManager.h"
#include "protocol/PackedPacketParser.h"
#include "wire/PanelLink.h"

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
        m_isSeen = type == static_cast<PacketType>(5) && size == 2 && std::memcmp(payloadOf(data), "ok", 2) == 0;
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

bool drawsADarkPixel()
{
    const unsigned char black = 0;
    LcdBitmap lcd{};
    LcdHelper::compositeToLcd(&lcd, &black, 1, 1, 0, 0, 128);
    unsigned char grey = 100;
    const BitmapImage image{&grey, 1, 1, BitmapImage::Gray8, 128};
    return lcd.data[0] == 1 && image.get1BitPixel(0, 0) == 1;
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

    const bool isRight = application.m_isSeen && drawsADarkPixel() && UsbManager::getVersion() == "1.2.1+" &&
                         logLevel == LogLevel::Error;
    std::puts(isRight ? "the installed package works" : "the installed package does not work");
    return isRight ? 0 : 1;
}

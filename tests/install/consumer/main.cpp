// Uses a bit of every public header, and both libraries. With the argument "drive" it
// also wants a panel, tells it something, draws on it and prints what it says of itself.

#include "libMorvaneHostUsb/LcdHelper.h"
#include "libMorvaneHostUsb/Log.h"
#include "libMorvaneHostUsb/PriorityPacker.h"
#include "libMorvaneHostUsb/UsbDevice.h"
#include "libMorvaneHostUsb/UsbManager.h"
#include "protocol/PackedPacketParser.h"
#include "protocol/ReqDeviceInfo.h"
#include "wire/PanelLink.h"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <future>
#include <string>
#include <utility>

using namespace Vantor;

namespace {

// Of a packer's output.
class Reader : public PackedPacketParser::Observer {
public:
    void handleParsedPacket(unsigned short, const PacketType& type, const DataPacketUnion& data,
                            unsigned int size) override
    {
        m_isSeen = type == static_cast<PacketType>(5) && size == 2 && std::memcmp(payloadOf(data), "ok", 2) == 0;
    }

    bool m_isSeen = false;
};

class Application : public UsbManager::Observer {
public:
    void onDeviceAdded(std::uint16_t) override {}
    void onDeviceRemoved(std::uint16_t) override {}

    void onParsedPacket(std::uint16_t uid, const PacketType& type, const DataPacketUnion& data, unsigned int) override
    {
        if (type != PacketType::DeviceInformation || m_isAnswered)
            return;
        m_isAnswered = true;
        const auto* const text = reinterpret_cast<const char*>(data.deviceInformation.description);
        m_answer.set_value({uid, std::string(text, strnlen(text, sizeof data.deviceInformation.description))});
    }

    // False: no panel, or none that answers.
    bool drive()
    {
        UsbManager* const manager = UsbManager::getUsbManager();
        manager->registerObserver(this);
        manager->initialise();
        const auto panels = manager->getDeviceListSafe();
        const bool isDriven = !panels.empty() && tell(*panels.front());
        UsbManager::destroyUsbManager();
        return isDriven;
    }

private:
    bool tell(UsbDevice& panel)
    {
        panel.getPacker().addData(ReqDeviceInfo{1});
        auto answer = m_answer.get_future();
        if (answer.wait_for(std::chrono::seconds(10)) != std::future_status::ready)
            return false;
        panel.getPacker().addStructData("ok", 2, static_cast<PacketType>(5));
        ClientLcdBitmap layer(8, 1, 1);
        layer.data()[0] = 0xff;
        panel.getPacker().drawBitmapData(std::move(layer));
        panel.sync(5);
        const auto [uid, name] = answer.get();
        std::printf("panel %04x: %s\n", static_cast<unsigned int>(uid), name.c_str());
        return true;
    }

    bool m_isAnswered = false;
    std::promise<std::pair<std::uint16_t, std::string>> m_answer;
};

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

int main(int argumentCount, char** arguments)
{
    setLogLevel(LogLevel::Error);
    PriorityPacker packer(1024);
    packer.addStructData("ok", 2, static_cast<PacketType>(5));
    packer.prepareNextPacket();
    Reader reader;
    PackedPacketParser parser(&reader);
    parser.parse(packer.getPacket(), packer.getPacketSize());

    bool isRight =
        reader.m_isSeen && drawsADarkPixel() && UsbManager::getVersion() == "1.2.1+" && logLevel == LogLevel::Error;
    if (argumentCount == 2 && std::strcmp(arguments[1], "drive") == 0) {
        Application application;
        isRight = application.drive() && isRight;
    }
    std::puts(isRight ? "the installed package works" : "the installed package does not work");
    return isRight ? 0 : 1;
}

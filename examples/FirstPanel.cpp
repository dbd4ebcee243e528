// Asks the first panel what it is, and prints the answer.

#include "libMorvaneHostUsb/UsbManager.h"
#include "protocol/ReqDeviceInfo.h"

#include <chrono>
#include <cstdio>
#include <future>

using namespace Vantor;

// What panels send arrives here, on a thread of the library.
class Answer : public UsbManager::Observer {
public:
    void onDeviceAdded(std::uint16_t /*uid*/) override {}
    void onDeviceRemoved(std::uint16_t /*uid*/) override {}

    void onParsedPacket(std::uint16_t uid, const PacketType& type, const DataPacketUnion& data,
                        unsigned int /*length*/) override
    {
        if (type != PacketType::DeviceInformation || m_isHere)
            return;
        std::printf("panel %04x: %.80s\n", uid, reinterpret_cast<const char*>(data.deviceInformation.description));
        m_isHere = true;
        m_arrival.set_value();
    }

    bool comesWithin(std::chrono::seconds time)
    {
        return m_arrival.get_future().wait_for(time) == std::future_status::ready;
    }

private:
    bool m_isHere = false;
    std::promise<void> m_arrival;
};

int main()
{
    // The README shows the lines from here
    Answer answer;
    UsbManager* const manager = UsbManager::getUsbManager();
    manager->registerObserver(&answer);
    manager->initialise(); // opens the panels that are attached
    const auto panels = manager->getDeviceListSafe();
    if (!panels.empty())
        panels.front()->getPacker().addData(ReqDeviceInfo{1}); // for other records: addStructData(data, size, type)
    const bool isAnswered = !panels.empty() && answer.comesWithin(std::chrono::seconds(5));
    UsbManager::destroyUsbManager();
    // to here.

    if (!isAnswered)
        std::puts(panels.empty() ? "no panel is attached" : "the panel has not answered");
    return isAnswered ? 0 : 1;
}

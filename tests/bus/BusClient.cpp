// The application of the bus tests: uses the library as any program would, does what
// the lines on its standard input say, and reports on descriptor 3.
//
//   start                     registers the observer and initialises
//   startBusily               initialises, without an observer, while one thread adds to every packer there is and
//                             another closes all devices, again and again: "started"
//   add UID TYPE SIZE COUNT   queues records 0 to COUNT - 1 (see TestRecord.h)
//   set UID TYPE KEY SIZE N   writes record N under a key
//   load UID TYPE SIZE        queues such records from a thread until stop or destroy
//   stop                      "stopped"
//   drain UID                 waits until the packer is empty: "drained UID"
//   counters UID              "counters UID SENT RECEIVED", decimal
//   draw UID LCD WIDTH HEIGHT draws a picture of 8 bits a pixel
//   statistics UID            "statistics NAME=COUNT ...", those that the test compares
//   list                      "list UID ...", in order of arrival
//   hold                      keeps the device list: "held NUMBER"
//   touch                     calls every device that is held: "touched NUMBER"
//   drop                      lets go of them: "dropped"
//   upgrade UID MAIN SERVO    upgrades the firmware from two files, "-" is none, once the
//                             panel has told its limit: "upgraded UID", or "gone UID"
//   closeAll                  "closed"
//   destroy                   "destroyed"
//   exit, or the end of the input
//
// Uids are hexadecimal. What the observer is told: "added UID", "removed UID",
// "begin UID", "packet UID TYPE HEX", "end UID".
#include "libMorvaneHostUsb/UsbManager.h"
#include "tests/bus/TestRecord.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <iostream>
#include <map>
#include <numeric>
#include <sstream>
#include <string>
#include <thread>

using namespace Vantor;

namespace {

constexpr int eventDescriptor = 3;

std::string hex(unsigned int value)
{
    char text[12];
    std::snprintf(text, sizeof text, "%x", value);
    return text;
}

void report(const std::string& line)
{
    dprintf(eventDescriptor, "%s\n", line.c_str());
}

class Reporter : public UsbManager::Observer {
public:
    void onDeviceAdded(std::uint16_t uid) override { report("added " + hex(uid)); }
    void onDeviceRemoved(std::uint16_t uid) override { report("removed " + hex(uid)); }
    void onMessageBegin(std::uint16_t uid, const UsbMessage& /*message*/) override { report("begin " + hex(uid)); }
    void onMessageEnd(std::uint16_t uid) override { report("end " + hex(uid)); }

    void onParsedPacket(std::uint16_t uid, const PacketType& type, const DataPacketUnion& data,
                        unsigned int length) override
    {
        const unsigned char* const bytes = payloadOf(data);
        std::string line = "packet " + hex(uid) + " " + std::to_string(static_cast<int>(type)) + " ";
        for (unsigned int i = 0; i < length; ++i) {
            char byte[3];
            std::snprintf(byte, sizeof byte, "%02x", bytes[i]);
            line += byte;
        }
        report(line);
    }
};

class Application {
public:
    ~Application()
    {
        stop();
        destroy();
    }

    // False when it is time to go.
    bool obey(const std::string& line)
    {
        std::istringstream words(line);
        std::string command;
        words >> command;
        if (command == "exit")
            return false;
        const std::map<std::string, void (Application::*)(std::istringstream&)> commands{
            {"start", &Application::start},
            {"startBusily", &Application::startBusily},
            {"add", &Application::add},
            {"set", &Application::set},
            {"load", &Application::load},
            {"drain", &Application::drain},
            {"counters", &Application::counters},
            {"draw", &Application::draw},
            {"statistics", &Application::statistics},
            {"list", &Application::list},
            {"hold", &Application::hold},
            {"touch", &Application::touch},
            {"drop", &Application::drop},
            {"stop", &Application::stopLoad},
            {"upgrade", &Application::upgrade},
            {"closeAll", &Application::closeAll},
            {"destroy", &Application::destroyNow},
        };
        const auto found = commands.find(command);
        if (found == commands.end())
            report("unknown command " + command);
        else
            (this->*found->second)(words);
        return true;
    }

private:
    using Words = std::istringstream;

    std::shared_ptr<UsbDevice> deviceOf(Words& words)
    {
        unsigned int uid = 0;
        words >> std::hex >> uid >> std::dec;
        auto device = m_manager->getDevice(static_cast<unsigned short>(uid));
        if (!device)
            report("no device " + hex(uid));
        return device;
    }

    static PacketType typeOf(Words& words)
    {
        int type = 0;
        words >> type;
        return static_cast<PacketType>(type);
    }

    void start(Words& /*words*/)
    {
        m_manager = UsbManager::getUsbManager();
        m_manager->registerObserver(&m_reporter);
        m_manager->initialise();
    }

    void startBusily(Words& /*words*/)
    {
        m_manager = UsbManager::getUsbManager();
        std::atomic<bool> busy{true};
        std::thread adding([this, &busy] {
            while (busy) {
                for (const auto& device : m_manager->getDeviceListSafe())
                    device->getPacker().addData(ReqDeviceInfo{1});
            }
        });
        std::thread closing([this, &busy] {
            while (busy)
                m_manager->closeAllDevices();
        });
        m_manager->initialise();
        busy = false;
        adding.join();
        closing.join();
        report("started");
    }

    void add(Words& words)
    {
        const auto device = deviceOf(words);
        const PacketType type = typeOf(words);
        unsigned int size = 0;
        std::uint32_t count = 0;
        words >> size >> count;
        for (std::uint32_t number = 0; device && number < count; ++number)
            device->getPacker().addStructData(testPayload(number, size).data(), size, type);
    }

    void set(Words& words)
    {
        const auto device = deviceOf(words);
        const PacketType type = typeOf(words);
        unsigned int key = 0;
        unsigned int size = 0;
        std::uint32_t number = 0;
        words >> key >> size >> number;
        if (device)
            device->getPacker().addStructData(testPayload(number, size).data(), size, type, key);
    }

    // Half a thousand records wait at most.
    void load(Words& words)
    {
        stop();
        const auto device = deviceOf(words);
        const PacketType type = typeOf(words);
        unsigned int size = 0;
        words >> size;
        if (!device)
            return;
        m_loading = true;
        m_loader = std::thread([this, device, type, size] {
            for (std::uint32_t number = 0; m_loading; ++number) {
                device->getPacker().addStructData(testPayload(number, size).data(), size, type);
                if (number % 500 == 499)
                    waitForRoom(*device);
            }
        });
    }

    void waitForRoom(UsbDevice& device) const
    {
        while (m_loading && device.getPacker().hasMoreData())
            std::this_thread::sleep_for(std::chrono::microseconds(200));
    }

    void stopLoad(Words& /*words*/)
    {
        stop();
        report("stopped");
    }

    void stop()
    {
        m_loading = false;
        if (m_loader.joinable())
            m_loader.join();
    }

    void drain(Words& words)
    {
        const auto device = deviceOf(words);
        while (device && device->getPacker().hasMoreData())
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        if (device)
            report("drained " + hex(device->getUid()));
    }

    void counters(Words& words)
    {
        if (const auto device = deviceOf(words))
            report("counters " + hex(device->getUid()) + " " +
                   std::to_string(__atomic_load_n(&device->getSentData(), __ATOMIC_RELAXED)) + " " +
                   std::to_string(__atomic_load_n(&device->getReceivedData(), __ATOMIC_RELAXED)));
    }

    void draw(Words& words)
    {
        const auto device = deviceOf(words);
        unsigned short lcd = 0;
        unsigned int width = 0;
        unsigned int height = 0;
        words >> lcd >> width >> height;
        if (!device)
            return;
        ClientLcdBitmap picture(static_cast<unsigned char>(width), static_cast<unsigned char>(height), 8);
        picture.lcd = lcd;
        device->getPacker().drawBitmapData(picture);
    }

    void statistics(Words& words)
    {
        const auto device = deviceOf(words);
        if (!device)
            return;
        const DeviceStatistics all = device->getStatistics();
        const SendStatistics& sent = all.sent;
        const ReceiveStatistics& received = all.received;
        std::ostringstream line;
        line << "statistics packets=" << sent.packets << " bytes=" << sent.bytes << " records=" << sent.records
             << " slices=" << sent.slices << " pictureBytes=" << sent.pictureBytes << " pictures=" << sent.pictures
             << " cutPackets=" << sent.cutPackets << " cutRecords=" << sent.cutRecords
             << " stalled=" << sent.failures.stalled << " timedOut=" << sent.failures.timedOut
             << " lostBytes=" << sent.failures.lostBytes << " buffers=" << received.buffers
             << " receivedBytes=" << received.bytes << " receivedPackets=" << received.packets
             << " receivedRecords=" << received.records << " malformed=" << received.malformedPackets
             << " refused=" << received.refusedRecords << " readsStalled=" << received.failures.stalled
             << " readsFailed=" << received.failures.failed << " readsTimedOut=" << received.failures.timedOut
             << " waiting=" << all.highPriorityRecords.now + all.normalRecords.now + all.pictures.now
             << " timed=" << std::accumulate(all.timesToTaken.begin(), all.timesToTaken.end(), std::uint64_t{0});
        report(line.str());
    }

    void list(Words& /*words*/)
    {
        std::string line = "list";
        for (const auto& device : m_manager->getDeviceListSafe())
            line += " " + hex(device->getUid());
        report(line);
    }

    void hold(Words& /*words*/)
    {
        m_held = m_manager->getDeviceListSafe();
        report("held " + std::to_string(m_held.size()));
    }

    void touch(Words& /*words*/)
    {
        for (const auto& device : m_held) {
            device->getPortNumbers();
            device->getDeviceInfo();
            device->isUpdating();
            device->sync(1);
            const std::uint32_t value = 0;
            device->getPacker().addStructData(&value, sizeof value, static_cast<PacketType>(5));
        }
        report("touched " + std::to_string(m_held.size()));
    }

    void drop(Words& /*words*/)
    {
        m_held.clear();
        report("dropped");
    }

    void upgrade(Words& words)
    {
        const auto device = deviceOf(words);
        std::string main;
        std::string servo;
        words >> main >> servo;
        if (!device)
            return;
        const auto waitFor = [this, &device](const std::function<bool()>& condition) {
            while (!condition() && m_manager->getDevice(device->getUid()) == device)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            return condition();
        };
        device->getPacker().addData(ReqDeviceInfo{1});
        bool isDone = waitFor([&device] { return device->getDeviceInfo() != nullptr; });
        if (isDone) {
            device->startFirmwareUpgrade(main, servo, {});
            isDone = waitFor([&device] { return !device->isUpdating(); });
        }
        report((isDone ? "upgraded " : "gone ") + hex(device->getUid()));
    }

    void closeAll(Words& /*words*/)
    {
        m_manager->closeAllDevices();
        report("closed");
    }

    void destroyNow(Words& /*words*/)
    {
        destroy();
        report("destroyed");
    }

    void destroy()
    {
        if (m_manager != nullptr)
            UsbManager::destroyUsbManager();
        m_manager = nullptr;
    }

    Reporter m_reporter;
    UsbManager* m_manager = nullptr;
    std::vector<std::shared_ptr<UsbDevice>> m_held;
    std::atomic<bool> m_loading{false};
    std::thread m_loader;
};

} // namespace

int main()
{
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    Application application;
    std::string line;
    while (std::getline(std::cin, line) && application.obey(line)) {
    }
    return 0;
}

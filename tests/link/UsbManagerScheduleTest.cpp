// Short lives of a manager under random schedules, each from one seed.
#include "tests/support/ManagerRig.h"
#include "tests/support/Random.h"
#include "tests/support/Seeds.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <set>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace Vantor::Test {

namespace {

class Schedule {
public:
    explicit Schedule(unsigned int seed) : m_random(seed)
    {
        LinkRig::setLevel(0);
        if (chance(20))
            m_rig.usb.honourTimeouts(true);
        for (int count = pick(3); count > 0; --count)
            m_panels.push_back(m_rig.usb.attach(randomPanel()));
        if (chance(5))
            m_rig.observer.whenRemoved = [this](std::uint16_t) { m_rig.manager->closeAllDevices(); };
        m_rig.start();
    }

    void run()
    {
        for (int steps = 5 + pick(40); steps > 0; --steps)
            step();
        if (chance(50))
            m_held.clear();
        checkRegistry();
        m_rig.stop();
        m_held.clear();
        m_rig.log.take();
    }

private:
    int pick(int below) { return static_cast<int>(m_random.below(static_cast<unsigned int>(below))); }
    bool chance(int percent) { return pick(100) < percent; }

    FakeLibusb::Panel randomPanel()
    {
        FakeLibusb::Panel panel;
        panel.port = static_cast<std::uint8_t>(4 + pick(3)); // collisions wanted
        if (chance(10))
            panel.productId = 0x1234;
        return panel;
    }

    libusb_device* anyPanel()
    {
        if (m_panels.empty())
            m_panels.push_back(m_rig.usb.plug(randomPanel()));
        return m_panels[static_cast<std::size_t>(pick(static_cast<int>(m_panels.size())))];
    }

    void drop(libusb_device* panel) { m_panels.erase(std::find(m_panels.begin(), m_panels.end(), panel)); }

    std::uint8_t anyEndpoint() { return chance(50) ? FakeLibusb::inEndpoint : FakeLibusb::outEndpoint; }

    void step()
    {
        const int kind = pick(100);
        if (kind < 30)
            pass();
        else if (kind < 50)
            send();
        else if (kind < 70)
            end();
        else if (kind < 85)
            plugOrUnplug();
        else if (kind < 90)
            hold();
        else if (kind < 93)
            m_rig.closeAllDevices();
        else
            disturb();
    }

    void pass()
    {
        if (chance(50))
            m_rig.usb.pass();
        else
            m_rig.usb.passAfter(std::chrono::milliseconds(pick(6001)));
    }

    void send()
    {
        const auto devices = m_rig.manager->getDeviceListSafe();
        const Bytes payload(static_cast<std::size_t>(pick(1200))); // some too large
        for (const auto& device : devices)
            device->getPacker().addStructData(payload.data(), static_cast<unsigned int>(payload.size()),
                                              static_cast<PacketType>(pick(47)));
    }

    void end()
    {
        libusb_device* const panel = anyPanel();
        if (chance(30))
            m_rig.usb.receive(panel, randomBytes());
        else if (chance(50))
            m_rig.usb.completeSend(panel);
        else
            m_rig.usb.complete(panel, anyEndpoint(), pick(8), pick(64));
    }

    Bytes randomBytes()
    {
        // Sometimes a packet, more often noise.
        Bytes bytes = m_random.bytes(m_random.below(120));
        if (bytes.size() >= 12 && chance(60)) {
            bytes[0] = static_cast<std::uint8_t>(bytes.size());
            bytes[1] = 0;
            bytes[8] = chance(50) ? 0 : 40;
            bytes[9] = static_cast<std::uint8_t>(bytes.size() - 11);
            bytes[10] = 0;
        }
        return bytes;
    }

    void plugOrUnplug()
    {
        if (chance(50)) {
            m_panels.push_back(chance(80) ? m_rig.usb.plug(randomPanel()) : m_rig.usb.attach(randomPanel()));
            return;
        }
        libusb_device* const panel = anyPanel();
        if (chance(80)) {
            m_rig.usb.unplug(panel);
            drop(panel);
        } else if (chance(50)) {
            m_rig.usb.vanish(panel);
            drop(panel);
        } else {
            m_rig.usb.announce(panel,
                               chance(50) ? LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED : LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT);
        }
    }

    void hold()
    {
        if (chance(40))
            m_held.clear();
        for (const auto& device : m_rig.manager->getDeviceListSafe())
            m_held.push_back(device);
    }

    void disturb()
    {
        static const char* const functions[] = {"open",
                                                "claim_interface",
                                                "submit_transfer 0x02",
                                                "cancel_transfer",
                                                "get_device_list",
                                                "submit_transfer 0x81",
                                                "clear_halt",
                                                "release_interface"};
        m_rig.usb.script(functions[pick(8)], -1 - pick(12));
    }

    // Uids and ids are unique, and a uid finds its device.
    void checkRegistry()
    {
        std::set<std::uint16_t> uids;
        std::set<std::uint32_t> ids;
        const auto devices = m_rig.manager->getDeviceListSafe();
        for (const auto& device : devices) {
            EXPECT_TRUE(uids.insert(device->getUid()).second);
            EXPECT_TRUE(ids.insert(device->getId()).second);
            EXPECT_EQ(m_rig.manager->getDevice(device->getUid()), device);
        }
        EXPECT_EQ(m_rig.manager->getDeviceList(), devices);
    }

    Random m_random;
    ManagerRig m_rig;
    std::vector<libusb_device*> m_panels;
    std::vector<std::shared_ptr<UsbDevice>> m_held;
};

} // namespace

// The rig checks after every run that nothing was misused and every reference dropped.
TEST(UsbManagerSchedule, randomSchedule_endsClean)
{
    runSeeds(slowBuild ? 400 : 3000, [](unsigned int seed) { Schedule(seed).run(); });
}

// Application threads beside the worker and the receive thread; the order is the system's.
TEST(UsbManagerSchedule, applicationThreads_mayDoEverythingAtOnce)
{
    for (int round = 0; round < 5; ++round) {
        ManagerRig rig;
        LinkRig::setLevel(0);
        rig.start();
        rig.usb.honourTimeouts(true);
        libusb_device* panel = rig.arrive();
        std::atomic<bool> stop{false};
        std::vector<std::thread> threads;
        for (int i = 0; i < 3; ++i) {
            threads.emplace_back([&rig, &stop, i] {
                const std::uint8_t payload[64] = {};
                while (!stop) {
                    for (const auto& device : rig.manager->getDeviceListSafe()) {
                        device->getPacker().addStructData(payload, 64u, static_cast<PacketType>(5 + i), 7u);
                        device->getPortNumbers();
                        device->getDeviceInfo();
                        device->isUpdating();
                        rig.manager->getDevice(device->getUid());
                    }
                    std::this_thread::yield();
                }
            });
        }
        for (int i = 0; i < 60; ++i) {
            rig.usb.completeSend(panel);
            rig.usb.receive(panel, {12, 0, 1, 0, 0, 0, 0, 0, 5, 1, 0, 42});
            rig.usb.passAfter(1ms);
            if (i % 20 == 19) {
                rig.usb.unplug(panel);
                panel = rig.usb.plug({});
            }
        }
        rig.closeAllDevices();
        stop = true;
        for (auto& thread : threads)
            thread.join();
        rig.stop();
        rig.log.take();
    }
}

} // namespace Vantor::Test

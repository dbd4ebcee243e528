// The progress callback: what it is told, and what it may call.
#include "tests/link/firmware/FirmwareRig.h"

#include <gmock/gmock.h>

using namespace std::chrono_literals;
using testing::ElementsAre;

namespace Vantor::Test {

// The level plays no part here.
class UsbDeviceFirmwareProgress : public testing::Test {
protected:
    std::vector<FirmwareRig::Progress> m_seen;
};

TEST_F(UsbDeviceFirmwareProgress, bothImages_riseByEachChunk)
{
    FirmwareRig rig(1, threeChunks(), twoChunks());
    rig.device->startFirmwareUpgrade(rig.main.getPath(), rig.servo.getPath(), [this](const auto& step) {
        m_seen.emplace_back(step.bytesWritten, step.totalBytes);
    });
    rig.pollAfter(1s);
    for (const std::uint32_t address : {0u, 0x1000u, 0x2000u})
        rig.acknowledgeAfter(100ms, mainMcu, address, 1);
    rig.pollAfter(700ms);
    rig.pollAfter(0s);
    for (const std::uint32_t address : {0u, 0x1000u})
        rig.acknowledgeAfter(100ms, servoMcu, address, 1);
    rig.pollAfter(700ms);
    rig.pollAfter(0s);
    EXPECT_FALSE(rig.device->isUpdating());
    EXPECT_THAT(m_seen, ElementsAre(std::pair(0, 14097), std::pair(4096, 14097), std::pair(8192, 14097),
                                    std::pair(10000, 14097), std::pair(14096, 14097), std::pair(14097, 14097)))
        << "and no call at the end";
    rig.leaveUnseen();
}

TEST_F(UsbDeviceFirmwareProgress, callback_mayUseTheDevice)
{
    FirmwareRig rig(1, Bytes(9, 1), {});
    const Bytes payload = {1, 2, 3};
    rig.device->startFirmwareUpgrade(rig.main.getPath(), rig.servo.getPath(), [&](const auto& step) {
        m_seen.emplace_back(step.bytesWritten, step.totalBytes);
        EXPECT_TRUE(rig.device->isUpdating());
        EXPECT_EQ(rig.device->getUid(), 260);
        EXPECT_EQ(rig.device->getId(), 0u);
        EXPECT_EQ(rig.device->getPortNumbers(), Bytes{4});
        EXPECT_NE(rig.device->getDeviceInfo(), nullptr);
        rig.device->getPacker().addStructData(payload.data(), 3u, static_cast<PacketType>(5));
        rig.device->getPacker().addData(ReqDeviceInfo{1});
    });
    rig.pollAfter(1s);
    rig.acknowledgeAfter(100ms, mainMcu, 0, 9);
    EXPECT_THAT(m_seen, ElementsAre(std::pair(0, 9), std::pair(9, 9)));
    rig.leaveUnseen();
}

TEST_F(UsbDeviceFirmwareProgress, callback_mayAnswerToNobody)
{
    FirmwareRig rig(1, Bytes(9, 1), {});
    rig.device->startFirmwareUpgrade(rig.main.getPath(), rig.servo.getPath(), nullptr);
    rig.pollAfter(1s);
    rig.acknowledgeAfter(100ms, mainMcu, 0, 9);
    EXPECT_EQ(FirmwareState::of(*rig.device).mainOffset, 9u);
    rig.leaveUnseen();
}

} // namespace Vantor::Test

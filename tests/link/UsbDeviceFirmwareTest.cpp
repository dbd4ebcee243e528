// The firmware upgrade of one device: states, pacing, replies.
#include "tests/support/DeviceRig.h"

#include <cstdio>
#include <fstream>
#include <thread>

#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace Vantor::Test {

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint8_t mainMcu = 1;
constexpr std::uint8_t servoMcu = 0x0F;
constexpr int requestType = 41;
constexpr int chunkType = 44;

std::uint32_t word(const Bytes& bytes, std::size_t at)
{
    return static_cast<std::uint32_t>(bytes[at]) | static_cast<std::uint32_t>(bytes[at + 1]) << 8 |
           static_cast<std::uint32_t>(bytes[at + 2]) << 16 | static_cast<std::uint32_t>(bytes[at + 3]) << 24;
}

// One chunk as it stands in a packet of its own: 8 bytes of packet header, 3 of record
// header, then board, address, length, 4,096 bytes of data, checksum.
struct Chunk {
    explicit Chunk(const Bytes& packet)
        : board(packet.at(11)), address(word(packet, 12)), length(word(packet, 16)),
          data(packet.begin() + 20, packet.begin() + 20 + 4096), checksum(word(packet, 20 + 4096))
    {}

    std::uint8_t board;
    std::uint32_t address;
    std::uint32_t length;
    Bytes data;
    std::uint32_t checksum;
};

class ImageFile {
public:
    explicit ImageFile(const Bytes& content)
    {
        static int s_count = 0;
        m_path = testing::TempDir() + "image" + std::to_string(getpid()) + "-" + std::to_string(++s_count);
        std::ofstream(m_path, std::ios::binary)
            .write(reinterpret_cast<const char*>(content.data()), static_cast<std::streamsize>(content.size()));
    }
    ~ImageFile() { std::remove(m_path.c_str()); }
    ImageFile(const ImageFile&) = delete;
    ImageFile& operator=(const ImageFile&) = delete;

    const std::string& path() const { return m_path; }

private:
    std::string m_path;
};

// A device that takes packets of 8,192 bytes, with an upgrade of two images.
class FirmwareRig : public DeviceRig {
public:
    FirmwareRig(const Bytes& mainImage, const Bytes& servoImage) : main(mainImage), servo(servoImage)
    {
        open();
        DeviceInformation info{};
        info.maxPacketSize = 8192;
        device->setDeviceInfo(info);
        poll();
    }

    // The packets that go out, each taken by the panel.
    std::vector<Bytes> start()
    {
        device->startFirmwareUpgrade(main.path(), servo.path(), [this](const UsbDevice::FirmwareProgress& step) {
            EXPECT_EQ(step.reserved, 0u);
            progress.emplace_back(step.bytesWritten, step.totalBytes);
        });
        return flush();
    }

    std::vector<Bytes> step(std::chrono::nanoseconds later)
    {
        VirtualClock::advance(later);
        finishRead(LIBUSB_TRANSFER_TIMED_OUT, 0); // keeps the read's watchdog away
        poll();
        return flush();
    }

    std::vector<Bytes> reply(std::chrono::nanoseconds later, const FirmwareUpgradeCommand& command)
    {
        VirtualClock::advance(later);
        device->handleFirmwareUpgrade(command);
        return flush();
    }

    std::vector<Bytes> acknowledge(std::uint8_t board, std::uint32_t address)
    {
        return reply(100ms, {FirmwareUpgradeCommand::ChunkWritten, board, address, 0, 0});
    }

    // Starts, and goes on to the first chunk.
    std::vector<Bytes> startChunks()
    {
        start();
        return step(1s);
    }

    std::vector<Bytes> flush()
    {
        while (usb.inFlight(panel, FakeLibusb::outEndpoint) != nullptr)
            finishSend();
        std::vector<Bytes> packets;
        for (const auto& send : sends())
            packets.push_back(send.bytes);
        return packets;
    }

    ImageFile main;
    ImageFile servo;
    std::vector<std::pair<std::uint32_t, std::uint32_t>> progress;
};

const Bytes nineDigits = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};

Bytes imageOfThreeChunks()
{
    Bytes image(4096, 1);
    image.insert(image.end(), 4096, 2);
    image.insert(image.end(), 1808, 3);
    return image;
}

int typeOf(const Bytes& packet)
{
    return packet.at(8);
}

} // namespace

TEST(UsbDevice, firmwareStart_announcesBothImages)
{
    FirmwareRig rig(nineDigits, {});
    const auto packets = rig.start();
    // 0xCBF43926 is the CRC-32 of "123456789". The checksum is the sum of the bytes before
    // it: 9 + 0x26 + 0x39 + 0xF4 + 0xCB + 0x30 = 599.
    const Bytes request = {45, 0, 1,    0,    0,    0,    0,    0,    41, 34, 0, 0, 0, 0, 0, 0, 0, 0, 0,    0, 0, 9, 0,
                           0,  0, 0x26, 0x39, 0xF4, 0xCB, 0x00, 0x30, 0,  0,  0, 0, 0, 0, 0, 0, 0, 0, 0x57, 2, 0, 0};
    ASSERT_THAT(packets, SizeIs(1));
    EXPECT_EQ(packets[0], request);
    EXPECT_TRUE(rig.device->isUpdating());
    EXPECT_THAT(rig.progress, ElementsAre(std::make_pair(0u, 9u)));
}

TEST(UsbDevice, firmwareUpgrade_logsItsWholeCourse)
{
    for (const int level : {4, 3, 2}) {
        FirmwareRig rig(nineDigits, {7, 7, 7});
        const std::string text = rig.logged(level, [&] {
            rig.start();
            rig.step(1s);
            rig.reply(100ms, {FirmwareUpgradeCommand::ChunkWritten, mainMcu, 0, 9, 0});
            rig.step(600ms);
            rig.step(0s);
            rig.reply(100ms, {FirmwareUpgradeCommand::ChunkWritten, servoMcu, 0, 3, 0});
            rig.step(600ms);
            rig.step(0s);
        });
        std::string expected;
        if (level >= 4)
            expected += "[libusb] > Read file=" + rig.main.path() + " size=9 bytes\n" +
                        "[libusb] > Read file=" + rig.servo.path() + " size=3 bytes\n" +
                        "[libusb] Writing main:\n"
                        "[libusb] Re-sending Firmware upgrade packet at offset 0x0 uid 260\n"
                        "[libusb] Success! Wrote 9 bytes to board 1 address=0x0\n"
                        "[libusb] Writing main:\n"
                        "[libusb] Written total of 9 bytes to Main MCU\n"
                        "[libusb] Writing servo:\n"
                        "[libusb] Success! Wrote 3 bytes to board f address=0x0\n"
                        "[libusb] Writing servo:\n"
                        "[libusb] Written total of 3 bytes to Servo F1 MCU\n";
        if (level >= 3)
            expected += "[libusb] Firmware Upgrade Finished for uid=260 with 1 resend packets and 0 duplicate packets "
                        "detected during transfer.\n";
        if (level >= 4)
            expected += "[libusb] Finished!\n";
        EXPECT_EQ(text, expected);
        EXPECT_FALSE(rig.device->isUpdating());
        EXPECT_THAT(rig.progress,
                    ElementsAre(std::make_pair(0u, 12u), std::make_pair(9u, 12u), std::make_pair(12u, 12u)))
            << "no call at the end";
    }
}

TEST(UsbDevice, mainImageOf10000Bytes_goesOutInThreeChunks)
{
    FirmwareRig rig(imageOfThreeChunks(), {});
    auto packets = rig.startChunks();
    ASSERT_THAT(packets, SizeIs(1));
    EXPECT_EQ(packets[0].size(), 8u + 3u + 4109u);
    EXPECT_EQ(Bytes(packets[0].begin(), packets[0].begin() + 11),
              (Bytes{0x18, 0x10, 1, 0, 0, 0, 0, 0, chunkType, 0x0D, 0x10}));
    const Chunk first(packets[0]);
    EXPECT_EQ(first.board, mainMcu);
    EXPECT_EQ(first.address, 0u);
    EXPECT_EQ(first.length, 4096u);
    EXPECT_EQ(first.data, Bytes(4096, 1));
    EXPECT_EQ(first.checksum, 1u + 0x10u + 4096u);

    packets = rig.acknowledge(mainMcu, 0);
    ASSERT_THAT(packets, SizeIs(1));
    const Chunk second(packets[0]);
    EXPECT_EQ(second.address, 0x1000u);
    EXPECT_EQ(second.length, 4096u);
    EXPECT_EQ(second.data, Bytes(4096, 2));
    EXPECT_EQ(second.checksum, 1u + 0x10u + 0x10u + 2u * 4096u);

    packets = rig.acknowledge(mainMcu, 0x1000);
    ASSERT_THAT(packets, SizeIs(1));
    const Chunk third(packets[0]);
    EXPECT_EQ(third.address, 0x2000u);
    EXPECT_EQ(third.length, 1808u);
    Bytes data(1808, 3);
    data.insert(data.end(), 4096 - 1808, 2);
    EXPECT_EQ(third.data, data) << "behind its end stands what was there before";
    EXPECT_EQ(third.checksum, 1u + 0x20u + 0x10u + 0x07u + 3u * 1808u + 2u * 2288u);

    const std::string text = rig.logged(4, [&] { EXPECT_THAT(rig.acknowledge(mainMcu, 0x2000), IsEmpty()); });
    EXPECT_THAT(text, testing::EndsWith("[libusb] Written total of 10000 bytes to Main MCU\n"));
    EXPECT_THAT(rig.progress, ElementsAre(std::make_pair(0u, 10000u), std::make_pair(4096u, 10000u),
                                          std::make_pair(8192u, 10000u), std::make_pair(10000u, 10000u)));
}

TEST(UsbDevice, progress_countsTheHostsOwnChunkLength)
{
    FirmwareRig rig(nineDigits, {});
    rig.startChunks();
    rig.reply(100ms, {FirmwareUpgradeCommand::ChunkWritten, mainMcu, 0, 5, 0}); // the panel says 5
    EXPECT_EQ(rig.progress.back(), std::make_pair(9u, 9u));
}

TEST(UsbDevice, imageOfAWholeNumberOfChunks_endsWithAStepThatSendsNothing)
{
    FirmwareRig rig(Bytes(8192, 1), {});
    EXPECT_THAT(rig.startChunks(), SizeIs(1));
    EXPECT_THAT(rig.acknowledge(mainMcu, 0), SizeIs(1));
    const std::string text = rig.logged(4, [&] { EXPECT_THAT(rig.acknowledge(mainMcu, 0x1000), IsEmpty()); });
    EXPECT_EQ(text, "[libusb] Success! Wrote 0 bytes to board 1 address=0x1000\n"
                    "[libusb] Writing main:\n"
                    "[libusb] Written total of 8192 bytes to Main MCU\n");
    EXPECT_THAT(rig.step(600ms), IsEmpty());
    EXPECT_TRUE(rig.device->isUpdating());
    EXPECT_EQ(rig.logged(2, [&] { EXPECT_THAT(rig.step(0s), IsEmpty()); }), "");
    EXPECT_FALSE(rig.device->isUpdating());
}

TEST(UsbDevice, servoImageAlone_isAnnouncedWithAnEmptyMainImage)
{
    FirmwareRig rig({}, Bytes(4097, 1));
    auto packets = rig.start();
    ASSERT_THAT(packets, SizeIs(1));
    ASSERT_EQ(typeOf(packets[0]), requestType);
    EXPECT_EQ(word(packets[0], 11 + 10), 0u) << "main size";
    EXPECT_EQ(word(packets[0], 11 + 14), 0u) << "CRC of no bytes";
    EXPECT_EQ(word(packets[0], 11 + 18), 0x3000u);
    EXPECT_EQ(word(packets[0], 11 + 22), 4097u) << "servo size";

    EXPECT_THAT(rig.step(1s - 1ns), IsEmpty());
    packets = rig.step(1ns);
    ASSERT_THAT(packets, SizeIs(1));
    EXPECT_EQ(Chunk(packets[0]).board, servoMcu);
    EXPECT_EQ(Chunk(packets[0]).address, 0u);
    EXPECT_EQ(Chunk(packets[0]).length, 4096u);
    packets = rig.acknowledge(servoMcu, 0);
    ASSERT_THAT(packets, SizeIs(1));
    EXPECT_EQ(Chunk(packets[0]).address, 0x1000u);
    EXPECT_EQ(Chunk(packets[0]).length, 1u);
    EXPECT_THAT(rig.acknowledge(servoMcu, 0x1000), IsEmpty());
    EXPECT_THAT(rig.step(600ms), IsEmpty());
    EXPECT_EQ(rig.logged(3, [&] { rig.step(0s); }),
              "[libusb] Firmware Upgrade Finished for uid=260 with 0 resend packets and 0 duplicate packets detected "
              "during transfer.\n");
}

TEST(UsbDevice, servoImageBehindAMainImage_isNotAnnouncedAgain)
{
    FirmwareRig rig(nineDigits, {7});
    rig.startChunks();
    rig.acknowledge(mainMcu, 0);
    EXPECT_THAT(rig.step(600ms - 1ns), IsEmpty());
    EXPECT_THAT(rig.step(1ns), IsEmpty()) << "the step that chooses the servo image";
    const auto packets = rig.step(0s);
    ASSERT_THAT(packets, SizeIs(1));
    ASSERT_EQ(typeOf(packets[0]), chunkType);
    EXPECT_EQ(Chunk(packets[0]).board, servoMcu);
}

TEST(UsbDevice, noImages_endsWithoutSending)
{
    FirmwareRig rig({}, {});
    EXPECT_THAT(rig.start(), IsEmpty());
    EXPECT_TRUE(rig.device->isUpdating());
    const std::string text = rig.logged(4, [&] { EXPECT_THAT(rig.step(0s), IsEmpty()); });
    EXPECT_EQ(text, "[libusb] Firmware Upgrade Finished for uid=260 with 0 resend packets and 0 duplicate packets "
                    "detected during transfer.\n[libusb] Finished!\n");
    EXPECT_FALSE(rig.device->isUpdating());
    EXPECT_THAT(rig.progress, ElementsAre(std::make_pair(0u, 0u)));
}

TEST(UsbDevice, firmwarePathThatCannotBeRead_isAnEmptyImage)
{
    for (const std::string& path : {std::string("/nonexistent/image"), testing::TempDir(), std::string()}) {
        for (const int level : {2, 1}) {
            FirmwareRig rig({}, {});
            const std::string line = "[libusb] > Error opening file=" + path + "\n";
            EXPECT_EQ(rig.logged(level, [&] { rig.device->startFirmwareUpgrade(path, path, nullptr); }),
                      level >= 2 ? line + line : "");
            EXPECT_TRUE(rig.device->isUpdating());
            rig.step(0s);
            EXPECT_FALSE(rig.device->isUpdating());
        }
    }
}

TEST(UsbDevice, secondFirmwareStart_isRefusedAndChangesNothing)
{
    for (const int level : {2, 1}) {
        FirmwareRig rig(nineDigits, {});
        rig.start();
        bool called = false;
        EXPECT_EQ(rig.logged(level,
                             [&] {
                                 rig.device->startFirmwareUpgrade("/nonexistent", "/nonexistent",
                                                                  [&called](const auto&) { called = true; });
                             }),
                  level >= 2 ? "[libusb] Trying to update during an update!\n" : "");
        EXPECT_THAT(rig.step(1s), SizeIs(1)) << "the first goes on";
        rig.acknowledge(mainMcu, 0);
        EXPECT_FALSE(called) << "the new callback is not taken";
        EXPECT_THAT(rig.progress, SizeIs(2));
    }
}

TEST(UsbDevice, firstChunk_goesOutOneSecondAfterTheRequest)
{
    FirmwareRig rig(nineDigits, {});
    rig.start();
    EXPECT_THAT(rig.step(1s - 1ns), IsEmpty());
    const auto packets = rig.step(1ns);
    ASSERT_THAT(packets, SizeIs(1));
    EXPECT_EQ(typeOf(packets[0]), chunkType);
}

TEST(UsbDevice, replyWithinATenthOfASecond_leavesTheNextChunkToThePoll)
{
    FirmwareRig rig(Bytes(5000, 1), {});
    rig.startChunks();
    EXPECT_THAT(rig.reply(100ms - 1ns, {FirmwareUpgradeCommand::ChunkWritten, mainMcu, 0, 0, 0}), IsEmpty());
    const auto packets = rig.step(1ns);
    ASSERT_THAT(packets, SizeIs(1));
    EXPECT_EQ(Chunk(packets[0]).address, 0x1000u);
}

TEST(UsbDevice, unansweredChunk_isSentAgainAfterSevenTenthsOfASecond)
{
    FirmwareRig rig(nineDigits, {});
    const auto first = rig.startChunks();
    EXPECT_THAT(rig.step(700ms - 1ns), IsEmpty());
    for (const int level : {4, 3}) {
        const std::string text = rig.logged(level, [&] { EXPECT_EQ(rig.step(level == 4 ? 1ns : 700ms), first); });
        EXPECT_EQ(text, level >= 4 ? "[libusb] Writing main:\n"
                                     "[libusb] Re-sending Firmware upgrade packet at offset 0x0 uid 260\n"
                                   : "");
    }
}

TEST(UsbDevice, fiveUnansweredResends_announceTheUpgradeAgain)
{
    for (const int level : {2, 1}) {
        FirmwareRig rig(imageOfThreeChunks(), {});
        const auto request = rig.start();
        rig.step(1s);
        rig.acknowledge(mainMcu, 0);
        for (int i = 0; i < 5; ++i) {
            const auto packets = rig.step(700ms);
            ASSERT_THAT(packets, SizeIs(1));
            EXPECT_EQ(Chunk(packets[0]).address, 0x1000u);
        }
        std::vector<Bytes> packets;
        EXPECT_EQ(rig.logged(level, [&] { packets = rig.step(700ms); }),
                  level >= 2 ? "[libusb] Re-starting Firmware upgrade. offset 0x1000 uid 260\n" : "");
        EXPECT_EQ(packets, request) << "the same request";
        EXPECT_THAT(rig.step(1s - 1ns), IsEmpty());
        packets = rig.step(1ns);
        ASSERT_THAT(packets, SizeIs(1));
        EXPECT_EQ(Chunk(packets[0]).address, 0x1000u) << "it goes on where it stood";
    }
}

TEST(UsbDevice, firstChunkOfAFreshDevice_countsAsAResend)
{
    FirmwareRig rig(nineDigits, {});
    rig.startChunks();
    for (int i = 0; i < 4; ++i)
        EXPECT_THAT(rig.step(700ms), SizeIs(1));
    EXPECT_EQ(rig.logged(2, [&] { rig.step(700ms); }), "[libusb] Re-starting Firmware upgrade. offset 0x0 uid 260\n")
        << "one resend earlier";
}

TEST(UsbDevice, lastSentOffset_isKeptFromUpgradeToUpgrade)
{
    FirmwareRig rig(imageOfThreeChunks(), {});
    for (const char* const resends : {"1", "0"}) {
        rig.start();
        rig.step(1s);
        for (const std::uint32_t address : {0u, 0x1000u, 0x2000u})
            rig.acknowledge(mainMcu, address);
        rig.step(600ms);
        EXPECT_EQ(rig.logged(3, [&] { rig.step(0s); }),
                  std::string("[libusb] Firmware Upgrade Finished for uid=260 with ") + resends +
                      " resend packets and 0 duplicate packets detected during transfer.\n");
        EXPECT_FALSE(rig.device->isUpdating());
    }
}

TEST(UsbDevice, unansweredServoChunk_isSentAgainWithoutLimit)
{
    FirmwareRig rig({}, {7});
    rig.startChunks();
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(rig.logged(4, [&] { EXPECT_THAT(rig.step(700ms), SizeIs(1)); }), "[libusb] Writing servo:\n");
    }
}

TEST(UsbDevice, repeatedAcknowledgement_isADuplicateAndMovesNothing)
{
    for (const int level : {4, 3}) {
        FirmwareRig rig(imageOfThreeChunks(), {});
        rig.startChunks();
        rig.acknowledge(mainMcu, 0);
        rig.acknowledge(mainMcu, 0x1000);
        const auto before = rig.progress;
        const FirmwareUpgradeCommand again{FirmwareUpgradeCommand::ChunkWritten, mainMcu, 0x1000, 4096, 0xABCD};
        EXPECT_EQ(rig.logged(level, [&] { EXPECT_THAT(rig.reply(100ms, again), IsEmpty()); }),
                  level >= 4 ? "[libusb] Duplicate packet written to STM. Skipping increment. address=0x1000 "
                               "checksum=0xabcd previous address=0x1000 uid=260\n"
                             : "");
        EXPECT_EQ(rig.progress, before);
        rig.acknowledge(mainMcu, 0x2000);
        rig.step(600ms);
        EXPECT_EQ(rig.logged(3, [&] { rig.step(0s); }),
                  "[libusb] Firmware Upgrade Finished for uid=260 with 1 resend packets and 1 duplicate packets "
                  "detected during transfer.\n");
    }
}

TEST(UsbDevice, counts_startAgainWithTheNextUpgrade)
{
    FirmwareRig rig(imageOfThreeChunks(), {});
    for (const char* const counts :
         {"2 resend packets and 1 duplicate packets", "1 resend packets and 1 duplicate packets"}) {
        rig.startChunks();
        rig.acknowledge(mainMcu, 0);
        rig.step(700ms); // 0x1000 again
        rig.acknowledge(mainMcu, 0x1000);
        rig.acknowledge(mainMcu, 0x1000);
        rig.acknowledge(mainMcu, 0x2000);
        rig.step(600ms);
        EXPECT_EQ(rig.logged(3, [&] { rig.step(0s); }),
                  std::string("[libusb] Firmware Upgrade Finished for uid=260 with ") + counts +
                      " detected during transfer.\n");
    }
}

TEST(UsbDevice, repeatedAcknowledgementOfAddressZero_isNoDuplicate)
{
    FirmwareRig rig(imageOfThreeChunks(), {});
    rig.startChunks();
    EXPECT_THAT(rig.acknowledge(mainMcu, 0), SizeIs(1));
    const auto packets = rig.acknowledge(mainMcu, 0);
    ASSERT_THAT(packets, SizeIs(1));
    EXPECT_EQ(Chunk(packets[0]).address, 0x2000u);
}

TEST(UsbDevice, firmwareReply_hasTheStatedLineAndConsequence)
{
    const struct {
        int command;
        const char* line;
        bool sendsAgain;
    } rows[] = {
        {0, "[libusb] Invalid command 0\n", false},
        {2, "", true},
        {0xF0, "[libusb] Failed to write 77 bytes to board 1 address=0x1000 status=0xf0 uid=260\n\n", true},
        {0xF1, "[libusb] Failed to erase sector on board 1 address=0x1000 status=0xf1 uid=260\n\n", true},
        {0xF2, "", true},
        {3, "", false},
        {0xEF, "", false},
        {0xF3, "", false},
        {0xFF, "", false},
    };
    for (const auto& row : rows) {
        for (const int level : {2, 1}) {
            SCOPED_TRACE(row.command);
            FirmwareRig rig(imageOfThreeChunks(), {});
            rig.startChunks();
            const auto chunk = rig.acknowledge(mainMcu, 0);
            FirmwareUpgradeCommand command{};
            command.command = static_cast<std::uint8_t>(row.command);
            command.board = mainMcu;
            command.address = 0x1000;
            command.length = 77;
            std::vector<Bytes> packets;
            EXPECT_EQ(rig.logged(level, [&] { packets = rig.reply(100ms, command); }), level >= 2 ? row.line : "");
            EXPECT_EQ(packets, row.sendsAgain ? chunk : std::vector<Bytes>{});
        }
    }
}

TEST(UsbDevice, reportedFailures_areRepeatedWithoutLimit)
{
    FirmwareRig rig(imageOfThreeChunks(), {});
    rig.startChunks();
    for (int i = 0; i < 20; ++i)
        EXPECT_THAT(rig.reply(100ms, {FirmwareUpgradeCommand::SendAgain, mainMcu, 0, 0, 0}), SizeIs(1));
}

TEST(UsbDevice, acknowledgementWithoutAnUpgrade_movesNothing)
{
    FirmwareRig rig(nineDigits, {});
    EXPECT_THAT(rig.acknowledge(mainMcu, 0), IsEmpty());
    EXPECT_FALSE(rig.device->isUpdating());
    EXPECT_THAT(rig.progress, IsEmpty());
}

TEST(UsbDevice, chunkAboveThePacketLimit_waitsInTheQueue)
{
    FirmwareRig rig(nineDigits, {});
    DeviceInformation info{};
    info.maxPacketSize = 4119; // one byte less than a chunk's packet
    rig.device->setDeviceInfo(info);
    EXPECT_THAT(rig.start(), SizeIs(1)) << "the request fits";
    EXPECT_THAT(rig.step(1s), IsEmpty());
    EXPECT_TRUE(rig.device->getPacker().hasMoreData());
    info.maxPacketSize = 4120;
    rig.device->setDeviceInfo(info);
    EXPECT_THAT(rig.step(0s), SizeIs(1));
}

TEST(UsbDevice, pollDuringAProgressCallback_leavesTheFirmwareStepOut)
{
    FirmwareRig rig(nineDigits, {});
    bool polled = false;
    rig.device->startFirmwareUpgrade(rig.main.path(), rig.servo.path(), [&](const UsbDevice::FirmwareProgress&) {
        // The worker polls meanwhile; if it waited for the mutex it would not come back.
        std::thread([&rig] { rig.device->poll(VirtualClock::now()); }).join();
        polled = true;
    });
    EXPECT_TRUE(polled);
    EXPECT_THAT(rig.flush(), SizeIs(1)) << "the request, from the starting thread";
}

} // namespace Vantor::Test

#include "tests/unit/panel/PanelModelFixture.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <stdexcept>
#include <string>

namespace Vantor {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

using PanelModelTest = PanelModelFixture;

// 12 bytes, one record of type 5 with AA.
const Bytes small{12, 0, 1, 0, 0, 0, 0, 0, 5, 1, 0, 0xAA};
// 15 bytes, one record of type 1 with the 32-bit value 1.
const Bytes request{15, 0, 1, 0, 0, 0, 0, 0, 1, 4, 0, 1, 0, 0, 0};

// What the panel answers: 8 + 3 + 83 = 94 bytes, device id 1.
Bytes deviceInformation(const std::string& description, std::uint8_t sizeLow, std::uint8_t sizeHigh)
{
    Bytes bytes{94, 0, 1, 0, 1, 0, 0, 0, 0, 83, 0};
    bytes.resize(8 + 3 + 80, 0);
    std::copy(description.begin(), description.end(), bytes.begin() + 11);
    bytes.push_back(sizeLow);
    bytes.push_back(sizeHigh);
    bytes.push_back(0);
    return bytes;
}

TEST_F(PanelModelTest, records_keptWithTimeAndCounted)
{
    EXPECT_EQ(m_panel.submitOut(m_owner, 1, small, false), 0);
    m_now = 7ms;
    EXPECT_EQ(m_panel.submitOut(m_owner, 2, {14, 0, 2, 0, 0, 0, 0, 0, 200, 0, 0, 5, 0, 0}, false), 0);
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{1, 0, 12, {}}, Completion{2, 0, 14, {}}));
    EXPECT_THAT(m_panel.takeCompletions(), IsEmpty());

    const auto& records = m_panel.getRecords();
    ASSERT_EQ(records.size(), 3u);
    EXPECT_EQ(records[0].type, static_cast<PacketType>(5));
    EXPECT_THAT(records[0].payload, ElementsAre(0xAA));
    EXPECT_EQ(records[0].time, 0ms);
    EXPECT_EQ(records[1].type, static_cast<PacketType>(200));
    EXPECT_THAT(records[1].payload, IsEmpty());
    EXPECT_EQ(records[1].time, 7ms);

    const auto& statistics = m_panel.getStatistics();
    EXPECT_EQ(statistics.bytesReceived, 26u);
    EXPECT_EQ(statistics.packetsReceived, 2u);
    EXPECT_EQ(statistics.recordsReceived, 3u);
    EXPECT_THAT(statistics.recordsByType,
                ElementsAre(Pair(static_cast<PacketType>(5), 2u), Pair(static_cast<PacketType>(200), 1u)));
    EXPECT_THAT(m_panel.getViolations(), IsEmpty());
}

TEST_F(PanelModelTest, firmwareRecords_areRecordsLikeAnyOther)
{
    m_panel.submitOut(m_owner, 1, {8 + 2 * 3, 0, 2, 0, 0, 0, 0, 0, 41, 0, 0, 44, 0, 0}, false);
    EXPECT_EQ(m_panel.getRecords().size(), 2u);
    EXPECT_THAT(m_panel.getViolations(), IsEmpty());
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{1, 0, 14, {}}));
}

TEST_F(PanelModelTest, keepRecordsOff_countsAndObservesWithoutKeeping)
{
    PanelModel panel(options(8192, false), clock());
    int observed = 0;
    panel.setRecordObserver([&observed](const PanelModel::Record& record) {
        ++observed;
        EXPECT_THAT(record.payload, ElementsAre(0xAA));
    });
    for (PanelModel::UrbId urb = 1; urb <= 1000; ++urb)
        panel.submitOut(m_owner, urb, small, false);
    EXPECT_EQ(observed, 1000);
    EXPECT_THAT(panel.getRecords(), IsEmpty());
    EXPECT_EQ(panel.getStatistics().recordsReceived, 1000u);
}

TEST_F(PanelModelTest, deviceInformationRequest_answered)
{
    PanelModel::Options described = options(0x1234);
    described.description = "Bench 7";
    PanelModel panel(described, clock());
    panel.submitIn(m_owner, 1, 32768);
    EXPECT_THAT(panel.takeCompletions(), IsEmpty());
    panel.submitOut(m_owner, 2, request, false);
    EXPECT_THAT(panel.takeCompletions(),
                ElementsAre(Completion{2, 0, 15, {}}, Completion{1, 0, 94, deviceInformation("Bench 7", 0x34, 0x12)}));
    EXPECT_THAT(panel.getViolations(), IsEmpty());
    EXPECT_EQ(panel.getStatistics().bytesSent, 94u);
    EXPECT_EQ(panel.getStatistics().packetsSent, 1u);
    EXPECT_EQ(panel.getRecords().size(), 1u);
}

TEST_F(PanelModelTest, description_filledOrCutAt80Bytes)
{
    for (const std::size_t length : {80u, 81u, 300u}) {
        PanelModel::Options described = options();
        described.description = std::string(length, 'x');
        PanelModel panel(described, clock());
        panel.submitIn(m_owner, 1, 32768);
        panel.submitOut(m_owner, 2, request, false);
        const auto completions = panel.takeCompletions();
        ASSERT_EQ(completions.size(), 2u);
        EXPECT_EQ(completions[1].data, deviceInformation(std::string(80, 'x'), 0x00, 0x20)) << length;
    }
}

TEST_F(PanelModelTest, twoRequestsInOnePacket_twoAnswersInOneRead)
{
    m_panel.submitOut(m_owner, 1, {22, 0, 2, 0, 0, 0, 0, 0, 1, 4, 0, 1, 0, 0, 0, 1, 4, 0, 1, 0, 0, 0}, false);
    m_panel.submitIn(m_owner, 2, 32768);
    const auto completions = m_panel.takeCompletions();
    ASSERT_EQ(completions.size(), 2u);
    EXPECT_EQ(completions[1].actualLength, 188u);
    EXPECT_EQ(m_panel.getStatistics().packetsSent, 2u);
}

TEST_F(PanelModelTest, malformedRequest_violationAndNoAnswer)
{
    m_panel.submitIn(m_owner, 1, 512);
    m_panel.submitOut(m_owner, 2, {14, 0, 1, 0, 0, 0, 0, 0, 1, 3, 0, 1, 0, 0}, false);
    m_panel.submitOut(m_owner, 3, {16, 0, 1, 0, 0, 0, 0, 0, 1, 5, 0, 1, 0, 0, 0, 0}, false);
    m_panel.submitOut(m_owner, 4, {15, 0, 1, 0, 0, 0, 0, 0, 1, 4, 0, 1, 0, 0, 1}, false);
    EXPECT_THAT(m_panel.getViolations(),
                ElementsAre("OUT transfer 1, request for device information of 3 bytes, it has 4",
                            "OUT transfer 2, request for device information of 5 bytes, it has 4",
                            "OUT transfer 3, request for device information with value 16777217, expected 1"));
    EXPECT_EQ(m_panel.takeCompletions().size(), 3u);
    EXPECT_EQ(m_panel.getRecords().size(), 3u);
}

TEST_F(PanelModelTest, violations_nameTransferPlaceAndSizes)
{
    m_panel.submitOut(m_owner, 1, small, false);
    Bytes wrong = small;
    wrong[2] = 2;
    m_panel.submitOut(m_owner, 2, wrong, false);
    m_panel.submitOut(m_owner, 3, part(small, 0, 11), false);
    m_panel.submitOut(m_owner, 4, {}, false);
    m_panel.submitOut(m_owner, 5, small, false);
    EXPECT_THAT(m_panel.getViolations(), ElementsAre("OUT transfer 2, byte 0: packet counts 2 records, it holds 1",
                                                     "OUT transfer 3, byte 0: packet of 12 bytes, the transfer ends "
                                                     "after 11",
                                                     "OUT transfer 4, byte 0: transfer without bytes"));
    EXPECT_EQ(m_panel.getRecords().size(), 3u);
    EXPECT_EQ(m_panel.getStatistics().packetsReceived, 3u);
    EXPECT_EQ(m_panel.getStatistics().bytesReceived, 12u + 12u + 11u + 12u);
}

TEST_F(PanelModelTest, packetLimit_isWhatThePanelAnnouncesButNotBelow1100)
{
    struct Case {
        std::uint16_t announced;
        std::size_t limit;
    };
    for (const Case& c : {Case{0, 1100}, Case{1024, 1100}, Case{1101, 1101}, Case{2000, 2000}, Case{65535, 65535}}) {
        PanelModel panel(options(c.announced), clock());
        panel.submitOut(m_owner, 1, frame(c.limit), true);
        EXPECT_THAT(panel.getViolations(), IsEmpty()) << c.announced;
        if (c.limit == 65535)
            continue;
        panel.submitOut(m_owner, 2, frame(c.limit + 1), true);
        EXPECT_THAT(panel.getViolations(),
                    ElementsAre("OUT transfer 2, byte 0: packet of " + std::to_string(c.limit + 1) +
                                " bytes, the limit is " + std::to_string(c.limit)));
        EXPECT_EQ(panel.getRecords().size(), 2u);
    }
}

TEST_F(PanelModelTest, packetLimit_isTheAnnouncedOneASecondAfterTheHostHasReadIt)
{
    for (const auto announced : {std::uint16_t{1025}, std::uint16_t{1099}}) {
        PanelModel panel(options(announced), clock());
        panel.submitOut(m_owner, 1, request, true);
        m_now += 5s;
        panel.submitOut(m_owner, 2, frame(1100), true); // the answer has not been read
        panel.submitIn(m_owner, 3, 32768);
        m_now += 999ms;
        panel.submitOut(m_owner, 4, frame(1100), true);
        EXPECT_THAT(panel.getViolations(), IsEmpty()) << announced;
        m_now += 1ms;
        panel.submitOut(m_owner, 5, frame(announced), true);
        EXPECT_THAT(panel.getViolations(), IsEmpty()) << announced;
        panel.submitOut(m_owner, 6, frame(announced + 1u), true);
        EXPECT_THAT(panel.getViolations(),
                    ElementsAre("OUT transfer 5, byte 0: packet of " + std::to_string(announced + 1) +
                                " bytes, the limit is " + std::to_string(announced)));
    }
}

TEST_F(PanelModelTest, packetLimit_whatHostsDoNotHeedChangesNothing)
{
    PanelModel panel(options(1024), clock());
    panel.submitOut(m_owner, 1, request, true);
    panel.submitIn(m_owner, 2, 32768);
    m_now += 5s;
    panel.submitOut(m_owner, 3, frame(1100), true);
    EXPECT_THAT(panel.getViolations(), IsEmpty());
}

// A command may announce another limit, behind another packet.
TEST_F(PanelModelTest, packetLimit_emittedOneCountsLikeAnAnswer)
{
    Bytes information(83);
    information[80] = 0xD0; // 2000
    information[81] = 0x07;
    m_panel.emit(static_cast<PacketType>(12), {1});
    m_panel.emit(PacketType::DeviceInformation, information);
    m_panel.submitIn(m_owner, 1, 32768);
    m_now += 1s;
    m_panel.submitOut(m_owner, 2, frame(2001), true);
    EXPECT_THAT(m_panel.getViolations(),
                ElementsAre("OUT transfer 1, byte 0: packet of 2001 bytes, the limit is 2000"));
}

// What is judged is when the host has sent it, not when the panel takes it.
TEST_F(PanelModelTest, packetLimit_ofWhenThePacketWasSubmitted)
{
    PanelModel panel(options(1050), clock());
    panel.submitOut(m_owner, 1, request, true);
    PanelFault delay = fault(PanelFault::Direction::Out, PanelFault::Kind::Delay);
    delay.delay = 9s;
    panel.inject(delay);
    panel.submitOut(m_owner, 2, frame(1100), true);
    panel.submitIn(m_owner, 3, 32768);
    m_now += 9s;
    EXPECT_EQ(panel.takeCompletions().size(), 3u);
    EXPECT_EQ(panel.getRecords().size(), 2u);
    EXPECT_THAT(panel.getViolations(), IsEmpty());
}

TEST_F(PanelModelTest, violations_listedUpToTheirLimit)
{
    for (PanelModel::UrbId urb = 1; urb <= PanelModel::maxViolations + 5; ++urb)
        m_panel.submitOut(m_owner, urb, {}, false);
    const auto& violations = m_panel.getViolations();
    ASSERT_EQ(violations.size(), 1001u);
    EXPECT_EQ(violations[999], "OUT transfer 1000, byte 0: transfer without bytes");
    EXPECT_EQ(violations[1000], "more than 1000 violations, the rest is not listed");
}

TEST_F(PanelModelTest, emit_onePacketWithOneRecord)
{
    m_panel.submitIn(m_owner, 1, 512);
    m_panel.emit(PacketType::FirmwareUpgradeCommand, {0xDE, 0xAD});
    EXPECT_THAT(m_panel.takeCompletions(),
                ElementsAre(Completion{1, 0, 13, {13, 0, 1, 0, 1, 0, 0, 0, 40, 2, 0, 0xDE, 0xAD}}));
}

TEST_F(PanelModelTest, seed_isThePanelsDeviceIdOnTheWire)
{
    PanelModel::Options seeded = options();
    seeded.seed = 0x9988776655443322;
    PanelModel panel(seeded, clock());
    panel.submitIn(m_owner, 1, 512);
    panel.emit(static_cast<PacketType>(255), {});
    EXPECT_THAT(panel.takeCompletions(),
                ElementsAre(Completion{1, 0, 11, {11, 0, 1, 0, 0x22, 0x33, 0x44, 0x55, 255, 0, 0}}));
}

TEST_F(PanelModelTest, emitBeforeTheRead_waitsAndGoesOutTogether)
{
    m_panel.emit(static_cast<PacketType>(3), {1});
    m_panel.emitRaw({0xFF});
    EXPECT_THAT(m_panel.takeCompletions(), IsEmpty());
    EXPECT_EQ(m_panel.getStatistics().packetsSent, 0u);
    m_panel.submitIn(m_owner, 1, 512);
    EXPECT_THAT(m_panel.takeCompletions(),
                ElementsAre(Completion{1, 0, 13, {12, 0, 1, 0, 1, 0, 0, 0, 3, 1, 0, 1, 0xFF}}));
    EXPECT_EQ(m_panel.getStatistics().packetsSent, 2u);
    EXPECT_EQ(m_panel.getStatistics().bytesSent, 13u);
}

TEST_F(PanelModelTest, packetLargerThanARead_continuesInTheNext)
{
    m_panel.submitIn(m_owner, 1, 16384);
    m_panel.submitIn(m_owner, 2, 16384);
    m_panel.emitRaw(Bytes(20000, 7));
    EXPECT_THAT(m_panel.takeCompletions(),
                ElementsAre(Completion{1, 0, 16384, Bytes(16384, 7)}, Completion{2, 0, 3616, Bytes(3616, 7)}));
    EXPECT_EQ(m_panel.getStatistics().packetsSent, 1u);
    EXPECT_EQ(m_panel.getStatistics().bytesSent, 20000u);
}

TEST_F(PanelModelTest, packetLargerThanAReadOfOddSize_overflows)
{
    m_panel.submitIn(m_owner, 1, 1000);
    m_panel.emitRaw(Bytes(1001, 7));
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{1, -EOVERFLOW, 512, Bytes(512, 7)}));
    EXPECT_EQ(m_panel.getStatistics().packetsSent, 0u);
}

TEST_F(PanelModelTest, emit_largestPayloadFitsAndOneMoreThrows)
{
    m_panel.submitIn(m_owner, 1, 65536);
    EXPECT_THROW(m_panel.emit(static_cast<PacketType>(1), Bytes(65525)), std::length_error);
    EXPECT_THROW(m_panel.emit(static_cast<PacketType>(256), {}), std::invalid_argument);
    EXPECT_THROW(m_panel.emit(static_cast<PacketType>(-1), {}), std::invalid_argument);
    EXPECT_THAT(m_panel.takeCompletions(), IsEmpty());

    m_panel.emit(static_cast<PacketType>(1), Bytes(65524));
    const auto completions = m_panel.takeCompletions();
    ASSERT_EQ(completions.size(), 1u);
    EXPECT_EQ(completions[0].actualLength, 65535u);
    EXPECT_THAT(part(completions[0].data, 0, 11), ElementsAre(0xFF, 0xFF, 1, 0, 1, 0, 0, 0, 1, 0xF4, 0xFF));
}

TEST_F(PanelModelTest, observer_comesBeforeTheAnswerAndMayEmit)
{
    m_panel.submitIn(m_owner, 1, 512);
    m_panel.setRecordObserver([this](const PanelModel::Record& record) {
        EXPECT_EQ(record.type, static_cast<PacketType>(1));
        m_panel.emitRaw({0xEE});
    });
    m_panel.submitOut(m_owner, 2, request, false);
    const auto completions = m_panel.takeCompletions();
    ASSERT_EQ(completions.size(), 2u);
    EXPECT_EQ(completions[1].actualLength, 95u);
    EXPECT_EQ(completions[1].data[0], 0xEE);
    EXPECT_EQ(completions[1].data[1], 94);
}

TEST_F(PanelModelTest, observer_mayReplaceItself)
{
    int second = 0;
    m_panel.setRecordObserver([this, &second](const PanelModel::Record&) {
        m_panel.setRecordObserver([&second](const PanelModel::Record&) { ++second; });
    });
    m_panel.submitOut(m_owner, 1, small, false);
    EXPECT_EQ(second, 0);
    m_panel.submitOut(m_owner, 2, small, false);
    EXPECT_EQ(second, 1);
}

TEST_F(PanelModelTest, observerThatThrows_leavesAWorkingPanel)
{
    m_panel.setRecordObserver([](const PanelModel::Record&) { throw std::runtime_error("observer"); });
    EXPECT_THROW(m_panel.submitOut(m_owner, 1, small, false), std::runtime_error);
    m_panel.setRecordObserver(nullptr);
    m_panel.submitOut(m_owner, 2, small, false);
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{1, 0, 12, {}}, Completion{2, 0, 12, {}}));
    EXPECT_EQ(m_panel.getRecords().size(), 1u);
}

} // namespace
} // namespace Vantor

#include "tests/support/BootRecords.h"
#include "tests/unit/panel/PanelModelFixture.h"

#include <cerrno>
#include <stdexcept>

namespace Vantor {
namespace {

using namespace BootRecords;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

// "123456789" for the main MCU.
const Bytes digits{'1', '2', '3', '4', '5', '6', '7', '8', '9'};

class PanelModelFirmware : public PanelModelFixture {
protected:
    static Bytes packet(std::uint8_t type, const Bytes& payload)
    {
        const auto low = [](std::size_t size) { return static_cast<std::uint8_t>(size); };
        const std::size_t size = 11 + payload.size();
        return joined({{low(size), low(size >> 8), 1, 0, 0, 0, 0, 0, type},
                       {low(payload.size()), low(payload.size() >> 8)},
                       payload});
    }

    // From the panel, whose seed is 1.
    static Bytes answer(const Bytes& payload)
    {
        Bytes bytes = packet(40, payload);
        bytes[4] = 1;
        return bytes;
    }

    static Bytes announcement() { return packet(41, request(9, 0xCBF43926)); }
    static Bytes digitChunk() { return packet(44, chunk(mainBoard, 0, digits)); }
    static Bytes digitReply() { return answer(reply(1, mainBoard, 0, 9, checksumOf(chunk(mainBoard, 0, digits)))); }

    void open()
    {
        m_panel.submitOut(m_owner, 100, announcement(), false);
        m_now += 1s;
        m_panel.submitIn(m_owner, 101, 512);
        ASSERT_THAT(m_panel.takeCompletions(),
                    ElementsAre(Completion{100, 0, 45, {}}, Completion{101, 0, 25, answer(reply(2))}));
    }
};

TEST_F(PanelModelFirmware, upgrade_isAnsweredInItsTime)
{
    m_panel.submitIn(m_owner, 1, 512);
    m_panel.submitOut(m_owner, 2, announcement(), false);
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{2, 0, 45, {}}));
    EXPECT_EQ(m_panel.nextDeadline(), 10ms);
    m_now = 10ms - 1ns;
    EXPECT_THAT(m_panel.takeCompletions(), IsEmpty());
    m_now = 10ms;
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{1, 0, 25, answer(reply(2))}));

    m_panel.submitOut(m_owner, 3, digitChunk(), false);
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{3, 0, 4120, {}}));
    EXPECT_EQ(m_panel.nextDeadline(), 120ms);
    m_now = 120ms;
    EXPECT_THAT(m_panel.takeCompletions(), IsEmpty()); // nobody reads
    EXPECT_EQ(m_panel.nextDeadline(), std::nullopt);
    m_panel.submitIn(m_owner, 4, 512);
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{4, 0, 25, digitReply()}));
    EXPECT_EQ(m_panel.getBootLoader().getFlash().main.bytes, digits);
    EXPECT_EQ(m_panel.getBootLoader().getFlash().main.state, BootLoader::State::Verified);
    EXPECT_EQ(m_panel.getRecords().size(), 2u);
    EXPECT_THAT(m_panel.getViolations(), IsEmpty());
}

TEST_F(PanelModelFirmware, deadline_isTheEarliestOfAll)
{
    m_panel.submitOut(m_owner, 1, announcement(), false);
    PanelFault slow = fault(PanelFault::Direction::Out, PanelFault::Kind::Delay);
    slow.delay = 9ms;
    m_panel.inject(slow);
    m_panel.submitOut(m_owner, 2, frame(20), false);
    EXPECT_EQ(m_panel.nextDeadline(), 9ms);
    m_now = 9ms;
    m_panel.takeCompletions();
    EXPECT_EQ(m_panel.nextDeadline(), 10ms);
}

// One transfer may bring both.
TEST_F(PanelModelFirmware, requestAndChunkInOnePacket_areBothAnswered)
{
    const Bytes both = joined({{0x3D, 0x10, 2, 0, 0, 0, 0, 0, 41, 34, 0}, // 8 + 3 + 34 + 3 + 4109 = 4157 bytes
                               request(9, 0xCBF43926),
                               {44, 0x0D, 0x10},
                               chunk(mainBoard, 0, digits)});
    m_panel.submitOut(m_owner, 1, both, false);
    m_now = 120ms;
    m_panel.submitIn(m_owner, 2, 512);
    const Bytes expected = joined({answer(reply(2)), digitReply()});
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{1, 0, 4157, {}}, Completion{2, 0, 50, expected}));
}

TEST_F(PanelModelFirmware, observer_seesTheRecordBeforeItIsDone)
{
    m_panel.setRecordObserver([this](const PanelModel::Record& record) {
        EXPECT_EQ(record.type, static_cast<PacketType>(41));
        BootFault lose;
        lose.kind = BootFault::Kind::Lose;
        m_panel.inject(lose);
    });
    m_panel.submitOut(m_owner, 1, announcement(), false);
    EXPECT_EQ(m_panel.getBootLoader().getStatistics().records, 1u);
    m_now = 1s;
    m_panel.submitIn(m_owner, 2, 512);
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{1, 0, 45, {}}));
    EXPECT_EQ(m_panel.getBootLoader().getFlash().main.state, BootLoader::State::Incomplete);
}

TEST_F(PanelModelFirmware, observerThatUnplugs_losesTheRecord)
{
    m_panel.setRecordObserver([this](const PanelModel::Record&) { m_panel.unplug(); });
    m_panel.submitOut(m_owner, 1, announcement(), false);
    EXPECT_EQ(m_panel.getBootLoader().getStatistics().records, 0u);
    EXPECT_EQ(m_panel.nextDeadline(), std::nullopt);
}

TEST_F(PanelModelFirmware, clearFaults_clearsThoseOfTheBootLoader)
{
    BootFault ignore;
    ignore.sticky = true;
    m_panel.inject(ignore);
    m_panel.clearFaults();
    open();
}

TEST_F(PanelModelFirmware, unplugFault_pullsThePanelAtThatRecord)
{
    open();
    BootFault pull;
    pull.kind = BootFault::Kind::Unplug;
    pull.skip = 1;
    m_panel.inject(pull);
    m_panel.submitOut(m_owner, 1, digitChunk(), false);
    m_now += 1s;
    m_panel.submitIn(m_owner, 2, 512);
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{1, 0, 4120, {}}, Completion{2, 0, 25, digitReply()}));
    EXPECT_FALSE(m_panel.isUnplugged());

    m_panel.submitIn(m_owner, 3, 512);
    Bytes packet = joined({digitChunk(), {9, 1, 0, 0x5A}}); // one more record
    packet[0] = 0x1C;                                       // 4124 bytes, 2 records
    packet[2] = 2;
    m_panel.submitOut(m_owner, 4, packet, false);
    EXPECT_TRUE(m_panel.isUnplugged());
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{4, 0, 4124, {}}, Completion{3, -ESHUTDOWN, 0, {}}));
    EXPECT_EQ(m_panel.submitOut(m_owner, 5, announcement(), false), -ENODEV);
    EXPECT_EQ(m_panel.getStatistics().recordsReceived, 3u); // what came behind it did not arrive
    EXPECT_THAT(m_panel.getViolations(), IsEmpty());
    EXPECT_EQ(m_panel.getBootLoader().getFlash().main.bytes, digits);
    EXPECT_EQ(m_panel.getBootLoader().getStatistics().chunksWritten, 1u);
}

TEST_F(PanelModelFirmware, unplug_losesTheChunkUnderWay)
{
    open();
    m_panel.submitOut(m_owner, 1, digitChunk(), false);
    m_now += 110ms - 1ns;
    m_panel.unplug();
    EXPECT_EQ(m_panel.nextDeadline(), std::nullopt);
    EXPECT_THAT(m_panel.getBootLoader().getFlash().main.bytes, IsEmpty());
}

TEST_F(PanelModelFirmware, unplug_keepsTheChunkThatIsDone)
{
    open();
    m_panel.submitOut(m_owner, 1, digitChunk(), false);
    m_now += 110ms;
    m_panel.unplug();
    EXPECT_EQ(m_panel.getBootLoader().getFlash().main.bytes, digits);

    PanelModel next(options(), clock(), m_panel.takeFlash());
    EXPECT_EQ(next.getBootLoader().getFlash().main.bytes, digits);
    EXPECT_THAT(m_panel.getBootLoader().getFlash().main.bytes, IsEmpty());
}

TEST_F(PanelModelFirmware, options_reachTheBootLoader)
{
    PanelModel::Options tiny = options();
    tiny.bootLoader.mainCapacity = 8;
    BootLoader::Flash flash;
    flash.main.bytes.resize(9);
    EXPECT_THROW(PanelModel(tiny, clock(), flash), std::invalid_argument);
    PanelModel panel(tiny, clock());
    panel.submitOut(m_owner, 1, announcement(), false);
    m_now = 10ms;
    panel.submitIn(m_owner, 2, 512);
    EXPECT_THAT(panel.takeCompletions(), ElementsAre(Completion{1, 0, 45, {}}, Completion{2, 0, 25, answer(reply(0))}));
}

} // namespace
} // namespace Vantor

#include "simulator/web/PanelBoard.h"

#include "tests/unit/web/WebBus.h"

#include <gtest/gtest.h>

namespace Vantor {

using namespace std::chrono_literals;

class PanelBoardTest : public testing::Test {
protected:
    PanelBoard m_board;
    WebBus m_bus{m_board, {{2, {24, 8}}}};

    PanelBoard::Touched takeOnly()
    {
        const std::vector<PanelBoard::Touched> touched = m_board.takeTouched();
        EXPECT_EQ(touched.size(), 1U);
        return touched.empty() ? PanelBoard::Touched{} : touched.front();
    }

    static std::string text(const PanelBoard::Area& area)
    {
        return std::to_string(area.x) + "," + std::to_string(area.y) + " " + std::to_string(area.columns) + "x" +
               std::to_string(area.rows);
    }
};

TEST_F(PanelBoardTest, pluggedPanel_isDescribed)
{
    m_bus.plug(3);
    const std::vector<PanelBoard::Panel> panels = m_board.getPanels();
    ASSERT_EQ(panels.size(), 1U);
    EXPECT_EQ(panels[0].number, 3U);
    EXPECT_TRUE(panels[0].isPlugged);
    EXPECT_EQ(panels[0].vendorId, 0xDEAD);
    EXPECT_EQ(panels[0].productId, 0xBEEF);
    EXPECT_EQ(panels[0].maxPacketSize, 8192);
    ASSERT_EQ(panels[0].lcds.size(), 1U);
    EXPECT_EQ(panels[0].lcds[0].number, 2);
    EXPECT_EQ(panels[0].lcds[0].size.width, 24U);
    EXPECT_FALSE(panels[0].lcds[0].layer);
    EXPECT_EQ(text(takeOnly().area), "0,0 24x8");
}

TEST_F(PanelBoardTest, panelUnplugged_isAChangeOnce)
{
    m_bus.plug(0);
    const std::uint64_t change = m_board.getPanels().back().change;
    EXPECT_TRUE(m_board.getPanels(change).empty());
    m_bus.unplug(0);
    const std::vector<PanelBoard::Panel> panels = m_board.getPanels(change);
    ASSERT_EQ(panels.size(), 1U);
    EXPECT_FALSE(panels[0].isPlugged);
    m_board.onUnplugged(0);
    EXPECT_TRUE(m_board.getPanels(panels[0].change).empty());
}

TEST_F(PanelBoardTest, panelPluggedBack_hasALifeOfItsOwnAndBlankLcds)
{
    m_bus.plug(0);
    m_bus.draw(0, 7, 0, 0, 8, 1, {0xFF});
    const std::uint64_t life = m_board.getPanels()[0].life;
    m_bus.unplug(0);
    EXPECT_EQ(m_board.getPanels()[0].lcds.size(), 2U) << "what it showed";
    m_bus.plug(0);
    const PanelBoard::Panel panel = m_board.getPanels()[0];
    EXPECT_GT(panel.life, life);
    ASSERT_EQ(panel.lcds.size(), 1U);
    EXPECT_EQ(panel.lcds[0].number, 2);
    EXPECT_EQ(panel.lcds[0].slices, 0U);
}

TEST_F(PanelBoardTest, slices_touchWhatTheyCover)
{
    m_bus.plug(0);
    m_board.takeTouched();
    m_bus.draw(0, 2, 8, 1, 8, 2, {0xFF, 0xFF});
    PanelBoard::Touched touched = takeOnly();
    EXPECT_EQ(text(touched.area), "8,1 8x2");
    EXPECT_EQ(touched.panel, 0U);
    EXPECT_EQ(touched.lcd.slices, 1U);
    EXPECT_EQ(touched.lcd.bytes, 9U) << "7 of the header";
    EXPECT_TRUE(m_board.takeTouched().empty());
    m_bus.draw(0, 2, 0, 0, 8, 1, {0xFF});
    m_bus.draw(0, 2, 16, 6, 16, 4, {1, 2, 3, 4, 5, 6, 7, 8}); // 8 columns and 2 rows beyond the LCD
    EXPECT_EQ(text(takeOnly().area), "0,0 24x8");
    m_bus.draw(0, 2, 40, 0, 8, 1, {0xFF});
    EXPECT_TRUE(m_board.takeTouched().empty()) << "nothing of it is on the LCD";
}

TEST_F(PanelBoardTest, lcdDrawnOnFirst_isTouchedWhole)
{
    m_bus.plug(0);
    m_board.takeTouched();
    m_bus.draw(0, 9, 8, 8, 8, 1, {0xFF});
    const PanelBoard::Touched touched = takeOnly();
    EXPECT_EQ(touched.lcd.number, 9);
    EXPECT_EQ(text(touched.area), "0,0 144x168");
}

TEST_F(PanelBoardTest, pixel_isOfTheSliceThatDrewIt)
{
    m_bus.plug(0);
    m_bus.draw(0, 2, 8, 1, 8, 2, {0xFF, 0xFF});
    const auto slice = m_board.findSlice(0, 2, 9, 2);
    ASSERT_TRUE(slice);
    EXPECT_EQ(slice->y, 1);
    EXPECT_EQ(slice->rows, 2);
    EXPECT_FALSE(m_board.findSlice(0, 2, 7, 2));
    EXPECT_FALSE(m_board.findSlice(0, 3, 9, 2));
    EXPECT_FALSE(m_board.findSlice(1, 2, 9, 2));
}

TEST_F(PanelBoardTest, records_areToldFromANumberOn)
{
    m_bus.plug(0);
    m_bus.send(0, 5, {3, 4});
    m_bus.send(0, 6, {});
    m_bus.send(0, 5, WebBus::Bytes(40, 0xAB));
    const PanelBoard::Records all = m_board.getRecords(0, 10);
    EXPECT_EQ(all.missed, 0U);
    ASSERT_EQ(all.records.size(), 3U);
    EXPECT_EQ(all.records[0].number, 0U);
    EXPECT_EQ(all.records[0].entry.type, 5);
    EXPECT_EQ(all.records[0].entry.size, 2U);
    EXPECT_EQ(all.records[0].entry.bytes[1], 4);
    EXPECT_EQ(all.records[2].entry.size, 40U);
    EXPECT_EQ(all.records[2].entry.bytes[31], 0xAB);
    EXPECT_EQ(m_board.getRecords(2, 10).records.size(), 1U);
    EXPECT_TRUE(m_board.getRecords(3, 10).records.empty());
    const PanelBoard::Records last = m_board.getRecords(0, 1);
    EXPECT_EQ(last.missed, 2U);
    ASSERT_EQ(last.records.size(), 1U);
    EXPECT_EQ(last.records[0].number, 2U);
}

TEST_F(PanelBoardTest, tooManyRecords_oldestAreMissed)
{
    m_bus.plug(0);
    for (std::size_t i = 0; i < RecordRing::capacity + 5; ++i)
        m_bus.send(0, static_cast<std::uint8_t>(50 + i % 7), {});
    const PanelBoard::Records records = m_board.getRecords(2, 2 * RecordRing::capacity);
    EXPECT_EQ(records.missed, 3U);
    ASSERT_EQ(records.records.size(), RecordRing::capacity);
    EXPECT_EQ(records.records[0].number, 5U);
    EXPECT_EQ(records.records[0].entry.type, 55);
    EXPECT_EQ(m_board.getNextRecord(), RecordRing::capacity + 5);
}

TEST_F(PanelBoardTest, whatThePanelSends_isARecordWhenTheHostHasIt)
{
    m_board.onGiven(4, static_cast<PacketType>(12), {1});
    const PanelBoard::Records records = m_board.getRecords(0, 1);
    ASSERT_EQ(records.records.size(), 1U);
    EXPECT_EQ(records.records[0].entry.way, RecordRing::Way::In);
    EXPECT_EQ(records.records[0].entry.panel, 4);
}

TEST_F(PanelBoardTest, ordersBeforeTheBeginning_haveTime0)
{
    m_board.onOrder("unplug 0");
    ASSERT_EQ(m_board.getOrders().size(), 1U);
    EXPECT_EQ(m_board.getOrders()[0].time, 0ns);
    EXPECT_EQ(m_board.getOrders()[0].text, "unplug 0");
    m_board.begin();
    m_board.onOrder("plug 0");
    ASSERT_EQ(m_board.getOrders(1).size(), 1U);
    EXPECT_EQ(m_board.getOrders(1)[0].number, 1U);
    EXPECT_GT(m_board.getOrders(1)[0].time, 0ns);
}

TEST_F(PanelBoardTest, tooManyBytesOfOrders_oldestGo)
{
    const std::string order(PanelBoard::maxOrderBytes / 2, 'x');
    for (int i = 0; i < 3; ++i)
        m_board.onOrder(order);
    ASSERT_EQ(m_board.getOrders().size(), 2U);
    EXPECT_EQ(m_board.getOrders()[0].number, 1U);
}

TEST_F(PanelBoardTest, tooManyViolations_oldestGo)
{
    for (std::size_t i = 0; i <= PanelBoard::maxViolations; ++i)
        m_board.onViolation(1, "wrong " + std::to_string(i));
    const std::vector<PanelBoard::Line> violations = m_board.getViolations();
    ASSERT_EQ(violations.size(), PanelBoard::maxViolations);
    EXPECT_EQ(violations[0].text, "wrong 1");
    EXPECT_EQ(violations[0].panel, 1U);
    EXPECT_EQ(m_board.getViolations(PanelBoard::maxViolations).size(), 1U);
}

TEST_F(PanelBoardTest, violationOnTheBus_isTold)
{
    m_bus.plug(0);
    m_bus.write(0, {1, 2, 3});
    ASSERT_EQ(m_board.getViolations().size(), 1U);
    EXPECT_EQ(m_board.getViolations()[0].text.substr(0, 15), "OUT transfer 1,");
}

} // namespace Vantor

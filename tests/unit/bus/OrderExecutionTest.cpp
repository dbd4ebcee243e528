#include "simulator/bus/OrderExecution.h"

#include "tests/unit/panel/PanelModelFixture.h"

namespace Vantor {

class OrderExecutionTest : public PanelModelFixture {
protected:
    static PanelOrder parse(const std::string& line)
    {
        const ParsedOrder parsed = parsePanelOrder(line);
        EXPECT_TRUE(parsed.command) << parsed.error;
        return parsed.command.value_or(PlugOrder{99});
    }

    static std::string describe(const std::string& line) { return OrderExecution::describe(parse(line)); }
};

TEST_F(OrderExecutionTest, describe_usesTheWordsOfTheCommand)
{
    EXPECT_EQ(describe("plug 3"), "plug");
    EXPECT_EQ(describe("unplug"), "unplug");
    EXPECT_EQ(describe("fault clear"), "fault clear");
    for (const std::string line :
         {"fault out stall once", "fault in silent sticky", "fault in short=7 once", "fault out status=EPROTO once",
          "fault out delay=250 sticky", "fault in delay=0.5 once", "fault in delay=0 once", "fault boot reply=f0 once",
          "fault boot lose skip=2 sticky", "fault boot ignore once", "fault boot delay=5 once",
          "fault boot duplicate once", "fault boot corrupt=13 once", "fault boot unplug skip=9 once"})
        EXPECT_EQ(describe(line), line);
    EXPECT_EQ(describe("emit type=5 hex=01"), "emit type 5, 1 byte");
    EXPECT_EQ(describe("emit type=255 size=20"), "emit type 255, 20 bytes");
}

TEST_F(OrderExecutionTest, panelOf_isTheCommandsPanel)
{
    for (const std::string line :
         {"plug 7", "unplug 7", "fault 7 out stall", "fault 7 boot lose", "fault 7 clear", "emit 7 type=5 hex=01"})
        EXPECT_EQ(OrderExecution::panelOf(parse(line)), 7U) << line;
}

TEST_F(OrderExecutionTest, faultsAndNewEmissions_needAPanel)
{
    EXPECT_TRUE(OrderExecution::needsPanel(parse("fault out stall")));
    EXPECT_TRUE(OrderExecution::needsPanel(parse("fault boot lose")));
    EXPECT_FALSE(OrderExecution::needsPanel(parse("fault clear")));
    EXPECT_TRUE(OrderExecution::needsPanel(parse("emit type=5 hex=01")));
    const auto rest = OrderExecution::restOf(parse("emit type=5 hex=01 count=2"));
    ASSERT_TRUE(rest);
    EXPECT_FALSE(OrderExecution::needsPanel(*rest));
}

TEST_F(OrderExecutionTest, carryOut_doesItToTheModel)
{
    PanelModel panel(options(), [] { return std::chrono::nanoseconds(0); });
    OrderExecution::carryOut(parse("fault out stall sticky"), panel);
    EXPECT_TRUE(panel.isHalted(0x02));
    OrderExecution::carryOut(parse("fault clear"), panel);
    EXPECT_FALSE(panel.isHalted(0x02));
    OrderExecution::carryOut(parse("emit type=5 hex=0a count=3"), panel); // the first of them
    EXPECT_EQ(panel.submitIn(this, 1, 512), 0);
    const auto completions = panel.takeCompletions();
    ASSERT_EQ(completions.size(), 1U);
    EXPECT_THAT(completions[0].data, testing::ElementsAre(12, 0, 1, 0, 1, 0, 0, 0, 5, 1, 0, 0x0A));
    OrderExecution::carryOut(parse("unplug"), panel); // the bus's to do
    EXPECT_FALSE(panel.isUnplugged());
}

TEST_F(OrderExecutionTest, restOf_countsDown)
{
    const auto rest = OrderExecution::restOf(parse("emit 2 type=5 hex=0a count=3 every=10"));
    ASSERT_TRUE(rest);
    EXPECT_EQ(rest->panel, 2U);
    EXPECT_EQ(rest->count, 2U);
    EXPECT_EQ(rest->every, std::chrono::milliseconds(10));
    EXPECT_FALSE(OrderExecution::restOf(parse("emit type=5 hex=0a count=1 every=10")));
    EXPECT_FALSE(OrderExecution::restOf(parse("plug")));
}

TEST_F(OrderExecutionTest, record_isLoggedWithItsFirstBytes)
{
    const auto lineOf = [](std::size_t size) {
        return Vantor::describe(PanelModel::Record{PacketType{9}, Bytes(size, 0xAB), {}});
    };
    EXPECT_EQ(lineOf(0), "record type 9, 0 bytes:");
    EXPECT_EQ(lineOf(1), "record type 9, 1 byte: ab");
    EXPECT_EQ(lineOf(32).size(), std::string("record type 9, 32 bytes:").size() + 32 * 3);
    EXPECT_EQ(lineOf(33), lineOf(32).replace(15, 2, "33") + " ...");
}

} // namespace Vantor

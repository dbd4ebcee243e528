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

} // namespace Vantor

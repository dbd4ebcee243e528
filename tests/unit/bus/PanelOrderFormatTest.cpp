#include "simulator/bus/PanelOrder.h"

#include "tests/support/Random.h"
#include "tests/support/Seeds.h"

#include <cerrno>
#include <iterator>
#include <tuple>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {

// As tuples: a variant has no comparison of its own for these.
auto fieldsOf(const PanelFault& fault)
{
    return std::tie(fault.direction, fault.kind, fault.sticky, fault.bytes, fault.status, fault.delay);
}

auto fieldsOf(const BootFault& fault)
{
    return std::tie(fault.kind, fault.sticky, fault.skip, fault.code, fault.offset, fault.delay);
}

bool operator==(const PlugOrder& left, const PlugOrder& right)
{
    return left.panel == right.panel;
}

bool operator==(const UnplugOrder& left, const UnplugOrder& right)
{
    return left.panel == right.panel;
}

bool operator==(const ClearFaultsOrder& left, const ClearFaultsOrder& right)
{
    return left.panel == right.panel;
}

bool operator==(const FaultOrder& left, const FaultOrder& right)
{
    return left.panel == right.panel && fieldsOf(left.fault) == fieldsOf(right.fault);
}

bool operator==(const BootFaultOrder& left, const BootFaultOrder& right)
{
    return left.panel == right.panel && fieldsOf(left.fault) == fieldsOf(right.fault);
}

bool operator==(const EmitOrder& left, const EmitOrder& right)
{
    return std::tie(left.panel, left.type, left.payload, left.count, left.every, left.isBegun) ==
           std::tie(right.panel, right.type, right.payload, right.count, right.every, right.isBegun);
}

bool operator==(const EmitRawOrder& left, const EmitRawOrder& right)
{
    return left.panel == right.panel && left.bytes == right.bytes;
}

namespace {

PanelOrder parse(const std::string& line)
{
    const ParsedOrder parsed = parsePanelOrder(line);
    EXPECT_TRUE(parsed.order) << line << ": " << parsed.error;
    return parsed.order.value_or(PlugOrder{99});
}

// Every word, as the parser must take it, and as it is written in its plainest form.
struct Line {
    std::string given;
    std::string plain;
};

const Line lines[] = {
    {"plug", "plug 0"},
    {"plug 3", "plug 3"},
    {"emit raw hex=0xDE:ad", "emit 0 raw hex=dead"},
    {"emit 2 raw hex=00", "emit 2 raw hex=00"},
    {"unplug 4294967295", "unplug 4294967295"},
    {"fault out stall", "fault 0 out stall once"},
    {"fault 2 in silent sticky", "fault 2 in silent sticky"},
    {"fault out short=0 once", "fault 0 out short=0 once"},
    {"fault in short=4294967295", "fault 0 in short=4294967295 once"},
    {"fault in status=EREMOTEIO", "fault 0 in status=EREMOTEIO once"},
    {"fault out delay=250 sticky", "fault 0 out delay=250 sticky"},
    {"fault out delay=1.5s", "fault 0 out delay=1500 once"},
    {"fault out delay=0.5ms", "fault 0 out delay=0.5 once"},
    {"fault out delay=0.000000001s", "fault 0 out delay=0.000001 once"},
    {"fault out delay=0", "fault 0 out delay=0 once"},
    {"fault out delay=1000000s", "fault 0 out delay=1000000000 once"},
    {"fault boot reply=F", "fault 0 boot reply=0f once"},
    {"fault 1 boot lose skip=2 sticky", "fault 1 boot lose skip=2 sticky"},
    {"fault boot ignore skip=0", "fault 0 boot ignore once"},
    {"fault boot delay=5", "fault 0 boot delay=5 once"},
    {"fault boot duplicate skip=1000000000", "fault 0 boot duplicate skip=1000000000 once"},
    {"fault boot corrupt=0", "fault 0 boot corrupt=0 once"},
    {"fault boot corrupt=13", "fault 0 boot corrupt=13 once"},
    {"fault boot unplug skip=9", "fault 0 boot unplug skip=9 once"},
    {"fault 7 clear", "fault 7 clear"},
    {"emit type=0 size=0", "emit 0 type=0 size=0"},
    {"emit hex=0A:0b type=255", "emit 0 type=255 hex=0a0b"},
    {"emit 4 type=5 hex=000102", "emit 4 type=5 size=3"},
    {"emit type=5 size=3 count=1 every=0", "emit 0 type=5 size=3"},
    {"emit every=20 count=7 hex=ff type=5", "emit 0 type=5 hex=ff count=7 every=20"},
};

TEST(PanelOrderFormat, everyWord_isWrittenPlainly)
{
    for (const Line& line : lines) {
        EXPECT_EQ(formatPanelOrder(parse(line.given)), line.plain);
        EXPECT_EQ(formatPanelOrder(parse(line.plain)), line.plain);
        EXPECT_TRUE(parse(line.given) == parse(line.plain)) << line.given;
    }
}

TEST(PanelOrderFormat, everyStatus_isWrittenByItsName)
{
    for (const std::string name : {"EPROTO", "EILSEQ", "ETIME", "EPIPE", "ECOMM", "ENOSR", "EIO", "EREMOTEIO", "ENODEV",
                                   "EXDEV", "EINVAL", "EOVERFLOW", "ESHUTDOWN"})
        EXPECT_EQ(formatPanelOrder(parse("fault out status=" + name)), "fault 0 out status=" + name + " once");
}

TEST(PanelOrderFormat, description_isTheLineWithoutItsPanel)
{
    EXPECT_EQ(describe(parse("plug 3")), "plug");
    EXPECT_EQ(describe(parse("unplug")), "unplug");
    EXPECT_EQ(describe(parse("fault 3 clear")), "fault clear");
    EXPECT_EQ(describe(parse("fault 3 in delay=0.5 sticky")), "fault in delay=0.5 sticky");
    EXPECT_EQ(describe(parse("fault 3 boot reply=F0 skip=3")), "fault boot reply=f0 skip=3 once");
    EXPECT_EQ(describe(parse("emit type=5 hex=01")), "emit type 5, 1 byte");
    EXPECT_EQ(describe(parse("emit 3 type=255 size=20 count=2")), "emit type 255, 20 bytes");
    EXPECT_EQ(describe(parse("emit 3 raw hex=0102")), "emit raw, 2 bytes");
}

TEST(PanelOrderFormat, panelOf_isTheOrdersPanel)
{
    for (const std::string line :
         {"plug 7", "unplug 7", "fault 7 out stall", "fault 7 boot lose", "fault 7 clear", "emit 7 type=5 hex=01"})
        EXPECT_EQ(panelOf(parse(line)), 7U) << line;
}

TEST(PanelOrderFormat, verbs_areKnown)
{
    for (const std::string verb : {"plug", "unplug", "fault", "emit"})
        EXPECT_TRUE(isOrderVerb(verb)) << verb;
    EXPECT_FALSE(isOrderVerb("boot"));
    EXPECT_FALSE(isOrderVerb(""));
}

TEST(PanelOrderFormat, help_explainsWhatIsParsed)
{
    const std::string help = explainPanelOrders();
    EXPECT_THAT(help, testing::StartsWith(
                          "  plug [P]\n"
                          "  unplug [P]\n"
                          "  fault [P] out|in stall|silent|short=BYTES|status=ERRNO|delay=TIME [once|sticky]\n"
                          "  fault [P] boot "
                          "reply=CODE|lose|ignore|delay=TIME|duplicate|corrupt=OFFSET|unplug [skip=N] [once|sticky]\n"
                          "  fault [P] clear\n"
                          "  emit [P] type=T hex=HEX|size=N [count=C] [every=TIME]\n"
                          "  emit [P] raw hex=HEX\n"));
    EXPECT_THAT(help, testing::HasSubstr("\n  stall         the endpoint halts"));
    EXPECT_THAT(help, testing::HasSubstr("\n  status=ERRNO  the transfer fails: EPROTO, EILSEQ"));
    EXPECT_THAT(help, testing::HasSubstr("EOVERFLOW or ESHUTDOWN; out loses"));
    EXPECT_THAT(help, testing::HasSubstr("\n  corrupt=OFFSET  byte 0 to 13 of the answer is inverted\n"));
    EXPECT_THAT(help, testing::HasSubstr("\n  hex=HEX       its bytes, two digits each; 0x in front"));
}

// Any order that words can tell.
class RandomOrders {
public:
    explicit RandomOrders(unsigned int seed) : m_random(seed) {}

    void run()
    {
        for (int i = 0; i < 200; ++i) {
            const PanelOrder order = makeOrder();
            const std::string line = formatPanelOrder(order);
            const ParsedOrder parsed = parsePanelOrder(line);
            ASSERT_TRUE(parsed.order) << line << ": " << parsed.error;
            ASSERT_TRUE(*parsed.order == order) << line;
            ASSERT_EQ(formatPanelOrder(*parsed.order), line);
        }
    }

private:
    PanelOrder makeOrder()
    {
        const unsigned int panel = m_random.below(40);
        switch (m_random.below(7)) {
        case 0:
            return PlugOrder{panel};
        case 1:
            return UnplugOrder{panel};
        case 2:
            return ClearFaultsOrder{panel};
        case 3:
            return FaultOrder{panel, makeFault()};
        case 4:
            return BootFaultOrder{panel, makeBootFault()};
        case 5:
            return EmitRawOrder{panel, m_random.bytes(m_random.between(1, 40))};
        default:
            return makeEmission(panel);
        }
    }

    PanelFault makeFault()
    {
        using Kind = PanelFault::Kind;
        constexpr int statuses[] = {EPROTO,    EILSEQ, ETIME, EPIPE,  ECOMM,     ENOSR,    EIO,
                                    EREMOTEIO, ENODEV, EXDEV, EINVAL, EOVERFLOW, ESHUTDOWN};
        constexpr Kind kinds[] = {Kind::Stall, Kind::Short, Kind::NoAnswer, Kind::Status, Kind::Delay};
        PanelFault fault;
        fault.direction = m_random.oneIn(2) ? PanelFault::Direction::Out : PanelFault::Direction::In;
        fault.kind = kinds[m_random.below(std::size(kinds))];
        fault.sticky = m_random.oneIn(2);
        if (fault.kind == Kind::Short)
            fault.bytes = m_random.between(0, 1U << m_random.below(32));
        else if (fault.kind == Kind::Status)
            fault.status = -statuses[m_random.below(std::size(statuses))];
        else if (fault.kind == Kind::Delay)
            fault.delay = makeTime();
        return fault;
    }

    BootFault makeBootFault()
    {
        using Kind = BootFault::Kind;
        constexpr Kind kinds[] = {Kind::Reply,     Kind::Lose,    Kind::Ignore, Kind::Delay,
                                  Kind::Duplicate, Kind::Corrupt, Kind::Unplug};
        BootFault fault;
        fault.kind = kinds[m_random.below(std::size(kinds))];
        fault.sticky = m_random.oneIn(2);
        fault.skip = m_random.oneIn(2) ? 0 : m_random.between(1, 1'000'000'000);
        if (fault.kind == Kind::Reply)
            fault.code = static_cast<std::uint8_t>(m_random.below(256));
        else if (fault.kind == Kind::Corrupt)
            fault.offset = m_random.below(14);
        else if (fault.kind == Kind::Delay)
            fault.delay = makeTime();
        return fault;
    }

    EmitOrder makeEmission(unsigned int panel)
    {
        EmitOrder order;
        order.panel = panel;
        order.type = static_cast<PacketType>(m_random.below(256));
        order.payload = m_random.bytes(m_random.below(40));
        if (m_random.oneIn(3))
            for (std::size_t i = 0; i < order.payload.size(); ++i)
                order.payload[i] = static_cast<std::uint8_t>(i);
        order.count = m_random.oneIn(2) ? 1 : m_random.between(1, 1'000'000'000);
        order.every = m_random.oneIn(2) ? std::chrono::nanoseconds(0) : makeTime();
        return order;
    }

    // Of any size up to the longest.
    std::chrono::nanoseconds makeTime()
    {
        const auto seconds = std::chrono::seconds(m_random.between(0, 1'000'000 >> m_random.below(21)));
        const auto rest = std::chrono::nanoseconds(m_random.oneIn(2) ? 0 : m_random.below(1'000'000'000));
        return std::min<std::chrono::nanoseconds>(seconds + rest, std::chrono::seconds(1'000'000));
    }

    Random m_random;
};

TEST(PanelOrderFormat, anyOrder_parsesBackToItself)
{
    runSeeds(50, [](unsigned int seed) { RandomOrders(seed).run(); });
}

} // namespace
} // namespace Vantor

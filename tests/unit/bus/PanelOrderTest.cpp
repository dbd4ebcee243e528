#include "simulator/bus/PanelOrder.h"

#include "simulator/bus/QuantityText.h"

#include <cerrno>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

// The command of a line that must be one of this kind.
template <typename Command> Command parsed(const std::string& line)
{
    const ParsedOrder result = parsePanelOrder(line);
    EXPECT_EQ(result.error, "") << line;
    if (!result.order || !std::holds_alternative<Command>(*result.order)) {
        ADD_FAILURE() << "another command: " << line;
        return {};
    }
    return std::get<Command>(*result.order);
}

const std::string badTime = "expected a time such as 250ms, 2s, 1.5s or 250 (milliseconds), at most 1000000s, found ";

std::string errorOf(const std::string& line)
{
    const ParsedOrder result = parsePanelOrder(line);
    EXPECT_FALSE(result.order) << line;
    return result.error;
}

TEST(PanelOrder, plugAndUnplug_panelIsZeroUnlessGiven)
{
    EXPECT_EQ(parsed<PlugOrder>("plug").panel, 0u);
    EXPECT_EQ(parsed<PlugOrder>("plug 3").panel, 3u);
    EXPECT_EQ(parsed<UnplugOrder>("unplug").panel, 0u);
    EXPECT_EQ(parsed<UnplugOrder>(" \tunplug   12 \r\n").panel, 12u);
}

TEST(PanelOrder, fault_everyKind)
{
    auto fault = parsed<FaultOrder>("fault out stall").fault;
    EXPECT_EQ(fault.direction, PanelFault::Direction::Out);
    EXPECT_EQ(fault.kind, PanelFault::Kind::Stall);
    EXPECT_FALSE(fault.sticky);

    fault = parsed<FaultOrder>("fault in silent sticky").fault;
    EXPECT_EQ(fault.direction, PanelFault::Direction::In);
    EXPECT_EQ(fault.kind, PanelFault::Kind::NoAnswer);
    EXPECT_TRUE(fault.sticky);

    fault = parsed<FaultOrder>("fault out short=0 once").fault;
    EXPECT_EQ(fault.kind, PanelFault::Kind::Short);
    EXPECT_EQ(fault.bytes, 0u);
    EXPECT_FALSE(fault.sticky);
    EXPECT_EQ(parsed<FaultOrder>("fault out short=4294967295").fault.bytes, 4294967295u);

    EXPECT_EQ(parsed<FaultOrder>("fault in delay=1.5s").fault.delay, 1500ms);
    EXPECT_EQ(parsed<FaultOrder>("fault in delay=200ms").fault.delay, 200ms);
    fault = parsed<FaultOrder>("fault in delay=1500").fault;
    EXPECT_EQ(fault.kind, PanelFault::Kind::Delay);
    EXPECT_EQ(fault.delay, 1500ms);
}

TEST(PanelOrder, faultStatus_everyName)
{
    struct Case {
        const char* name;
        int status;
    };
    for (const Case& c : {Case{"EPROTO", -EPROTO}, Case{"EILSEQ", -EILSEQ}, Case{"ETIME", -ETIME},
                          Case{"EPIPE", -EPIPE}, Case{"ECOMM", -ECOMM}, Case{"ENOSR", -ENOSR}, Case{"EIO", -EIO},
                          Case{"EREMOTEIO", -EREMOTEIO}, Case{"ENODEV", -ENODEV}, Case{"EXDEV", -EXDEV},
                          Case{"EINVAL", -EINVAL}, Case{"EOVERFLOW", -EOVERFLOW}, Case{"ESHUTDOWN", -ESHUTDOWN}}) {
        const auto fault = parsed<FaultOrder>(std::string("fault in status=") + c.name).fault;
        EXPECT_EQ(fault.kind, PanelFault::Kind::Status);
        EXPECT_EQ(fault.status, c.status) << c.name;
    }
}

TEST(PanelOrder, bootFault_everyKind)
{
    auto fault = parsed<BootFaultOrder>("fault boot reply=f0").fault;
    EXPECT_EQ(fault.kind, BootFault::Kind::Reply);
    EXPECT_EQ(fault.code, 0xF0);
    EXPECT_EQ(fault.skip, 0u);
    EXPECT_FALSE(fault.sticky);
    EXPECT_EQ(parsed<BootFaultOrder>("fault boot reply=2").fault.code, 2);
    EXPECT_EQ(parsed<BootFaultOrder>("fault boot reply=00").fault.code, 0);

    EXPECT_EQ(parsed<BootFaultOrder>("fault boot lose").fault.kind, BootFault::Kind::Lose);
    EXPECT_EQ(parsed<BootFaultOrder>("fault boot ignore").fault.kind, BootFault::Kind::Ignore);
    EXPECT_EQ(parsed<BootFaultOrder>("fault boot duplicate").fault.kind, BootFault::Kind::Duplicate);
    EXPECT_EQ(parsed<BootFaultOrder>("fault boot unplug").fault.kind, BootFault::Kind::Unplug);

    EXPECT_EQ(parsed<BootFaultOrder>("fault boot delay=1.5s").fault.delay, 1500ms);
    fault = parsed<BootFaultOrder>("fault boot delay=1500").fault;
    EXPECT_EQ(fault.kind, BootFault::Kind::Delay);
    EXPECT_EQ(fault.delay, 1500ms);

    fault = parsed<BootFaultOrder>("fault boot corrupt=13").fault;
    EXPECT_EQ(fault.kind, BootFault::Kind::Corrupt);
    EXPECT_EQ(fault.offset, 13u);
    EXPECT_EQ(parsed<BootFaultOrder>("fault boot corrupt=0").fault.offset, 0u);
}

TEST(PanelOrder, bootFault_panelSkipAndDuration)
{
    const auto command = parsed<BootFaultOrder>("fault 3 boot lose skip=7 sticky");
    EXPECT_EQ(command.panel, 3u);
    EXPECT_EQ(command.fault.skip, 7u);
    EXPECT_TRUE(command.fault.sticky);
    EXPECT_FALSE(parsed<BootFaultOrder>("fault boot lose once").fault.sticky);
    EXPECT_FALSE(parsed<BootFaultOrder>("fault boot lose skip=1000000000 once").fault.sticky);
    EXPECT_TRUE(parsed<BootFaultOrder>("fault boot lose sticky").fault.sticky);
}

TEST(PanelOrder, badBootFault_errorNamesTheWordAndWhatIsAllowed)
{
    const std::string kinds =
        "expected reply=CODE, lose, ignore, delay=TIME, duplicate, corrupt=OFFSET or unplug, found ";
    EXPECT_EQ(errorOf("fault boot"), kinds + "the end");
    EXPECT_EQ(errorOf("fault boot stall"), kinds + "\"stall\"");
    EXPECT_EQ(errorOf("fault boot reply"), kinds + "\"reply\"");
    const std::string code = "expected reply= and one or two hexadecimal digits, found ";
    EXPECT_EQ(errorOf("fault boot reply="), code + "\"reply=\"");
    EXPECT_EQ(errorOf("fault boot reply=100"), code + "\"reply=100\"");
    EXPECT_EQ(errorOf("fault boot reply=0100"), code + "\"reply=0100\"");
    EXPECT_EQ(errorOf("fault boot reply=g"), code + "\"reply=g\"");
    EXPECT_EQ(errorOf("fault boot delay=-1"), badTime + "\"-1\"");
    EXPECT_EQ(errorOf("fault boot corrupt=14"), "expected corrupt=0 to 13, found \"corrupt=14\"");
    EXPECT_EQ(errorOf("fault boot lose skip=x"), "expected skip=0 to 1000000000, found \"skip=x\"");
    EXPECT_EQ(errorOf("fault boot lose twice"), "expected skip=N, once or sticky, found \"twice\"");
    EXPECT_EQ(errorOf("fault boot lose sticky skip=1"), "expected the end, found \"skip=1\"");
    EXPECT_EQ(errorOf("fault boot lose skip=1 skip=1"), "expected once or sticky, found \"skip=1\"");
}

TEST(PanelOrder, fault_panelAndClear)
{
    EXPECT_EQ(parsed<FaultOrder>("fault 2 in stall").panel, 2u);
    EXPECT_EQ(parsed<FaultOrder>("fault in stall").panel, 0u);
    EXPECT_EQ(parsed<ClearFaultsOrder>("fault 2 clear").panel, 2u);
    EXPECT_EQ(parsed<ClearFaultsOrder>("fault clear").panel, 0u);
}

TEST(PanelOrder, emit_hex)
{
    const auto emit = parsed<EmitOrder>("emit 1 type=40 hex=00fFA9");
    EXPECT_EQ(emit.panel, 1u);
    EXPECT_EQ(emit.type, PacketType::FirmwareUpgradeCommand);
    EXPECT_THAT(emit.payload, ElementsAre(0x00, 0xFF, 0xA9));
    EXPECT_EQ(emit.count, 1u);
    EXPECT_EQ(emit.every, 0ms);
}

TEST(PanelOrder, emit_hexAsPeopleCopyIt)
{
    for (const std::string hex : {"deAD01", "0xdead01", "0XDEAD01", "de:ad:01", "0xde:ad:01", "dead:01"})
        EXPECT_THAT(parsed<EmitOrder>("emit type=1 hex=" + hex).payload, ElementsAre(0xDE, 0xAD, 0x01)) << hex;
}

TEST(PanelOrder, emit_sizeCountsUpAndOrderIsFree)
{
    EXPECT_EQ(parsed<EmitOrder>("emit every=0.5s type=1 size=0").every, 500ms);
    const auto emit = parsed<EmitOrder>("emit every=20 count=7 size=258 type=255");
    EXPECT_EQ(emit.panel, 0u);
    EXPECT_EQ(emit.type, static_cast<PacketType>(255));
    ASSERT_EQ(emit.payload.size(), 258u);
    EXPECT_EQ(emit.payload[0], 0);
    EXPECT_EQ(emit.payload[255], 255);
    EXPECT_EQ(emit.payload[257], 1);
    EXPECT_EQ(emit.count, 7u);
    EXPECT_EQ(emit.every, 20ms);
    EXPECT_TRUE(parsed<EmitOrder>("emit type=0 size=0").payload.empty());
}

TEST(PanelOrder, emitRaw_takesBytesAlone)
{
    const auto emit = parsed<EmitRawOrder>("emit 1 raw hex=0d00ff");
    EXPECT_EQ(emit.panel, 1u);
    EXPECT_THAT(emit.bytes, ElementsAre(0x0D, 0x00, 0xFF));
    EXPECT_EQ(parsed<EmitRawOrder>("emit raw hex=00").panel, 0u);
    EXPECT_EQ(errorOf("emit raw"), "expected hex=HEX, found the end");
    EXPECT_EQ(errorOf("emit raw type=1"), "expected hex=HEX, found \"type=1\"");
    EXPECT_EQ(errorOf("emit raw hex=00 count=2"), "expected the end, found \"count=2\"");
}

TEST(PanelOrder, emit_largestPayload)
{
    EXPECT_EQ(parsed<EmitOrder>("emit type=0 size=65524").payload.size(), 65524u);
    EXPECT_EQ(errorOf("emit type=0 size=65525"), "expected size=0 to 65524, found \"size=65525\"");
    EXPECT_EQ(parsed<EmitOrder>("emit type=0 hex=" + std::string(131048, '0')).payload.size(), 65524u);
    EXPECT_NE(errorOf("emit type=0 hex=" + std::string(131050, '0')), "");
}

TEST(PanelOrder, errors_nameTheWordAndWhatIsAllowed)
{
    EXPECT_EQ(errorOf(""), "expected plug, unplug, fault or emit, found the end");
    EXPECT_EQ(errorOf("  "), "expected plug, unplug, fault or emit, found the end");
    EXPECT_EQ(errorOf("Plug"), "expected plug, unplug, fault or emit, found \"Plug\"");
    EXPECT_EQ(errorOf("plugs 1"), "expected plug, unplug, fault or emit, found \"plugs\"");
    EXPECT_EQ(errorOf("plug x"), "expected a panel's number or the end, found \"x\"");
    EXPECT_EQ(errorOf("plug -1"), "expected a panel's number or the end, found \"-1\"");
    EXPECT_EQ(errorOf("plug 1x"), "expected a panel's number, found \"1x\"");
    EXPECT_EQ(errorOf("unplug 4294967296"), "expected a panel's number, found \"4294967296\"");
    EXPECT_EQ(errorOf("unplug 1 2"), "expected a panel's number or the end, found \"2\"");
    EXPECT_EQ(errorOf("fault"), "expected out, in, boot or clear, found the end");
    EXPECT_EQ(errorOf("fault 0 both stall"), "expected out, in, boot or clear, found \"both\"");
    EXPECT_EQ(errorOf("fault out"), "expected stall, silent, short=BYTES, status=ERRNO or delay=TIME, found the end");
    EXPECT_EQ(errorOf("fault out short"),
              "expected stall, silent, short=BYTES, status=ERRNO or delay=TIME, found \"short\"");
    EXPECT_EQ(errorOf("fault out short="), "expected short=0 to 4294967295, found \"short=\"");
    EXPECT_EQ(errorOf("fault out short=4294967296"), "expected short=0 to 4294967295, found \"short=4294967296\"");
    EXPECT_EQ(errorOf("fault out delay=1m"), badTime + "\"1m\"");
    EXPECT_EQ(errorOf("fault out status=EWHAT"),
              "expected status=EPROTO, EILSEQ, ETIME, EPIPE, ECOMM, ENOSR, EIO, EREMOTEIO, ENODEV, EXDEV, EINVAL, "
              "EOVERFLOW or ESHUTDOWN, found \"status=EWHAT\"");
    EXPECT_EQ(errorOf("fault out stall twice"), "expected once or sticky, found \"twice\"");
    EXPECT_EQ(errorOf("fault out stall once sticky"), "expected the end, found \"sticky\"");
    EXPECT_EQ(errorOf("fault clear out"), "expected the end, found \"out\"");
    EXPECT_EQ(errorOf("emit"), "expected type=T, found the end");
    EXPECT_EQ(errorOf("emit hex=00"), "expected type=T, found the end");
    EXPECT_EQ(errorOf("emit type=1"), "expected hex=HEX or size=N, found the end");
    EXPECT_EQ(errorOf("emit type=256 size=0"), "expected type=0 to 255, found \"type=256\"");
    EXPECT_EQ(errorOf("emit type=1 size=0 count=0"), "expected count=1 to 1000000000, found \"count=0\"");
    EXPECT_EQ(errorOf("emit type=1 size=0 every=1000000001"), badTime + "\"1000000001\"");
}

TEST(PanelOrder, badHex_error)
{
    const std::string allowed = "expected hex= and 1 to 65524 bytes of two hexadecimal digits each, found ";
    EXPECT_EQ(errorOf("emit type=1 hex="), allowed + "\"hex=\"");
    EXPECT_EQ(errorOf("emit type=1 hex=0"), allowed + "\"hex=0\"");
    EXPECT_EQ(errorOf("emit type=1 hex=0g"), allowed + "\"hex=0g\"");
    EXPECT_EQ(errorOf("emit type=1 hex=0x"), allowed + "\"hex=0x\"");
    EXPECT_EQ(errorOf("emit type=1 hex=0x0x00"), allowed + "\"hex=0x0x00\"");
    EXPECT_EQ(errorOf("emit type=1 hex=00:0x01"), allowed + "\"hex=00:0x01\"");
    EXPECT_EQ(errorOf("emit type=1 hex=:00"), allowed + "\"hex=:00\"");
    EXPECT_EQ(errorOf("emit type=1 hex=00:"), allowed + "\"hex=00:\"");
    EXPECT_EQ(errorOf("emit type=1 hex=00::01"), allowed + "\"hex=00::01\"");
    EXPECT_EQ(errorOf("emit type=1 hex=0:0"), allowed + "\"hex=0:0\"");
    EXPECT_EQ(errorOf("emit type=1 hex=-1"), allowed + "\"hex=-1\"");
}

TEST(PanelOrder, emitWordTwiceOrUnknown_error)
{
    const std::string allowed = "expected type=T, hex=HEX or size=N, count=C, every=TIME, each once, found ";
    EXPECT_EQ(errorOf("emit type=1 type=1 size=0"), allowed + "\"type=1\"");
    EXPECT_EQ(errorOf("emit type=1 size=0 hex=00"), allowed + "\"hex=00\"");
    EXPECT_EQ(errorOf("emit type=1 size=0 count=1 count=1"), allowed + "\"count=1\"");
    EXPECT_EQ(errorOf("emit type=1 size=0 every=1 every=2"), allowed + "\"every=2\"");
    EXPECT_EQ(errorOf("emit type=1 size=0 key=4"), allowed + "\"key=4\"");
    EXPECT_EQ(errorOf("emit type=1 size=0 1"), allowed + "\"1\"");
}

TEST(PanelOrder, time_unitsAndPlaces)
{
    EXPECT_EQ(parseTime("250ms").time, 250ms);
    EXPECT_EQ(parseTime("2s").time, 2s);
    EXPECT_EQ(parseTime("1.5s").time, 1500ms);
    EXPECT_EQ(parseTime("2").time, 2s);
    EXPECT_EQ(parseTime("0.25").time, 250ms);
    EXPECT_EQ(parseTime("0").time, 0s);
    EXPECT_EQ(parseTime("1.05s").time, 1050ms);
    EXPECT_EQ(parseTime("0.5ms").time, 500us);
    EXPECT_EQ(parseTime("0.000000001s").time, 1ns);
    EXPECT_EQ(parseTime("1000000s").time, 1000000s);
    EXPECT_EQ(parseTime("1000000000ms").time, 1000000s);
    EXPECT_EQ(parseTime("2s").error, "");
}

TEST(PanelOrder, plainTime_isOfTheUnitAskedFor)
{
    EXPECT_EQ(parseTime("250", PlainTime::Milliseconds).time, 250ms);
    EXPECT_EQ(parseTime("0.5", PlainTime::Milliseconds).time, 500us);
    EXPECT_EQ(parseTime("2s", PlainTime::Milliseconds).time, 2s);
    EXPECT_EQ(parseTime("2ms", PlainTime::Milliseconds).time, 2ms);
    EXPECT_EQ(parseTime("1000000000", PlainTime::Milliseconds).time, 1000000s);
    EXPECT_FALSE(parseTime("1000000001", PlainTime::Milliseconds).time);
}

TEST(PanelOrder, longWord_isQuotedInPart)
{
    EXPECT_EQ(errorOf(std::string(81, 'x')),
              "expected plug, unplug, fault or emit, found \"" + std::string(80, 'x') + "...\"");
    EXPECT_EQ(errorOf("plug \x1B[31m"), "expected a panel's number or the end, found \"?[31m\"");
}

TEST(PanelOrder, badTime_error)
{
    for (const char* text : {"", "s", "ms", ".5", "5.", "-1", "+1", "1,5", "1 s", "1m", "1.5.5", "1e3", "s1", "1ss",
                             "0.0000000001s", "1000001", "1000000001ms", "99999999999999999999"}) {
        const ParsedTime result = parseTime(text);
        EXPECT_FALSE(result.time) << text;
        EXPECT_THAT(result.error, testing::StartsWith("expected a time such as 250ms, 2s, 1.5s or 2 (seconds)"))
            << text;
    }
    EXPECT_EQ(parseTime("1m").error,
              "expected a time such as 250ms, 2s, 1.5s or 2 (seconds), at most 1000000s, found \"1m\"");
}

} // namespace
} // namespace Vantor

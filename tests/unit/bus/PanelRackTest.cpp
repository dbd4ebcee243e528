#include "simulator/bus/PanelRack.h"

#include <memory>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using Bytes = std::vector<std::uint8_t>;

// A panel whose host reads and writes by itself: what completes is kept.
class FakePanel : public BusPanel {
public:
    FakePanel(PanelRack& rack, unsigned int number) : BusPanel(rack, number) {}

    bool isPlugged() const override { return !getModel().isUnplugged(); }

    // A read of the host, served without a settlement of its own.
    void read(PanelModel::UrbId urb) { servedModel().submitIn(this, urb, 512); }

    void write(const Bytes& bytes)
    {
        act([this, &bytes](PanelModel& model) { model.submitOut(this, 1, bytes, true); });
    }

    // Transfers without bytes.
    void violate(int times)
    {
        act([this, times](PanelModel& model) {
            for (int i = 0; i < times; ++i)
                model.submitOut(this, 1, {}, false);
        });
    }

    void unplug()
    {
        act([](PanelModel& model) { model.unplug(); });
    }

    std::vector<Bytes> given;  // to the host
    std::vector<int> statuses; // of what has completed

private:
    void handOn(PanelModel& model) override
    {
        for (const PanelModel::Completion& completion : model.takeCompletions()) {
            given.push_back(completion.data);
            statuses.push_back(completion.status);
        }
    }
};

class FakeBus : public PanelBus {
public:
    void setFlash(unsigned int /*panel*/, BootLoader::Flash /*flash*/) override {}
    void plug(unsigned int panel) override { calls.push_back("plug " + std::to_string(panel)); }
    void unplug(unsigned int panel) override { calls.push_back("unplug " + std::to_string(panel)); }
    void execute(const PanelOrder& /*order*/) override { calls.emplace_back("execute"); }
    void schedule(std::chrono::nanoseconds /*delay*/, const PanelOrder& /*order*/) override {}
    std::vector<TimedOrder> takePending() override { return {}; }
    bool visit(unsigned int /*panel*/, const std::function<void(PanelModel&)>& /*visitor*/) override { return false; }
    std::vector<std::string> getViolations() const override { return {}; }

    std::vector<std::string> calls;
};

// The rack in virtual time.
class PanelRackTest : public testing::Test {
protected:
    static PanelOrder parse(const std::string& line)
    {
        const ParsedOrder parsed = parsePanelOrder(line);
        EXPECT_TRUE(parsed.order) << parsed.error;
        return parsed.order.value_or(PlugOrder{99});
    }

    void execute(const std::string& line) { m_rack.execute(parse(line)); }
    void schedule(std::chrono::nanoseconds delay, const std::string& line) { m_rack.schedule(delay, parse(line)); }

    // Carries out what is due at that time.
    void runUntil(std::chrono::nanoseconds time)
    {
        m_now = time;
        while (const auto order = m_rack.takeDue())
            m_rack.execute(*order);
    }

    FakePanel& plug(unsigned int number)
    {
        m_panels.push_back(std::make_unique<FakePanel>(m_rack, number));
        return *m_panels.back();
    }

    static BootLoader::Flash flash(std::uint8_t byte)
    {
        BootLoader::Flash flash;
        flash.main.bytes = {byte};
        return flash;
    }

    static const Bytes& flashOf(const BusPanel& panel)
    {
        return panel.getModel().getBootLoader().getFlash().main.bytes;
    }

    PanelBus::Options options()
    {
        PanelBus::Options options;
        options.panel.seed = 7;
        options.log = [this](const std::string& line) { m_log.push_back(line); };
        options.complain = [this](const std::string& line) { m_complaints.push_back(line); };
        options.keepFlash = [this](unsigned int panel, const BootLoader::Flash& flash) {
            m_keptFlash.emplace_back(panel, flash.main.bytes);
        };
        return options;
    }

    std::chrono::nanoseconds m_now{0};
    std::vector<std::string> m_log;
    std::vector<std::string> m_complaints;
    std::vector<std::pair<unsigned int, Bytes>> m_keptFlash;
    PanelRack m_rack{options(), [this] { return m_now; }};
    std::vector<std::unique_ptr<FakePanel>> m_panels;
};

TEST_F(PanelRackTest, order_isLoggedCarriedOutAndHandedOn)
{
    FakePanel& panel = plug(2);
    panel.read(1);
    EXPECT_THAT(panel.given, IsEmpty());
    execute("emit 2 type=5 hex=0a");
    EXPECT_THAT(panel.given, ElementsAre(Bytes{12, 0, 1, 0, 9, 0, 0, 0, 5, 1, 0, 0x0A})); // device id: seed 7 + 2
    execute("fault 2 in stall sticky");
    EXPECT_TRUE(panel.getModel().isHalted(0x81));
    execute("fault 2 clear");
    EXPECT_FALSE(panel.getModel().isHalted(0x81));
    EXPECT_THAT(m_log,
                ElementsAre("panel 2: emit type 5, 1 byte", "panel 2: fault in stall sticky", "panel 2: fault clear"));
    EXPECT_THAT(m_complaints, IsEmpty());
}

TEST_F(PanelRackTest, fault_meetsThePendingReadAtOnce)
{
    FakePanel& panel = plug(0);
    panel.read(1);
    execute("fault in status=EPROTO");
    EXPECT_THAT(panel.statuses, ElementsAre(-EPROTO));
}

TEST_F(PanelRackTest, bootFault_reachesTheBootLoader)
{
    FakePanel& panel = plug(0);
    execute("fault boot unplug");
    // A firmware request, whatever is in it: type 41.
    panel.write({12, 0, 1, 0, 0, 0, 0, 0, 41, 1, 0, 0});
    EXPECT_TRUE(panel.getModel().isUnplugged());
}

TEST_F(PanelRackTest, visitor_isHandedOnAfter)
{
    FakePanel& panel = plug(3);
    panel.read(1);
    EXPECT_TRUE(m_rack.visit(3, [](PanelModel& model) { model.emit(PacketType{5}, {}); }));
    EXPECT_EQ(panel.given.size(), 1U);
    EXPECT_FALSE(m_rack.visit(0, [](PanelModel&) { FAIL(); }));
}

TEST_F(PanelRackTest, visitor_seesThePanelPluggedInLast)
{
    plug(1).unplug();
    const FakePanel& second = plug(1);
    m_rack.visit(1, [&second](PanelModel& model) { EXPECT_EQ(&model, &second.getModel()); });
}

TEST_F(PanelRackTest, delay_isHandedOnInItsTime)
{
    FakePanel& panel = plug(0);
    EXPECT_FALSE(m_rack.getNextTime());
    execute("fault out delay=3");
    panel.write({12, 0, 1, 0, 0, 0, 0, 0, 9, 1, 0, 0xAB});
    schedule(5ms, "fault clear");
    EXPECT_EQ(m_rack.getNextTime(), 3ms);
    m_now = 3ms;
    m_rack.settle();
    EXPECT_THAT(panel.statuses, ElementsAre(0));
    EXPECT_EQ(m_rack.getNextTime(), 5ms);
}

TEST_F(PanelRackTest, absentPanel_faultsAndNewEmissionsAreComplainedOf)
{
    plug(1).unplug();
    execute("fault 1 out stall");
    execute("fault boot lose");
    execute("emit type=5 size=2");
    execute("fault clear"); // no mistake, but told
    std::vector<std::string> lines{"panel 1: is not plugged: fault out stall once",
                                   "panel 0: is not plugged: fault boot lose once",
                                   "panel 0: is not plugged: emit type 5, 2 bytes"};
    EXPECT_EQ(m_complaints, lines);
    lines.emplace_back("panel 0: is not plugged: fault clear");
    EXPECT_EQ(m_log, lines);
}

TEST_F(PanelRackTest, repeatedEmission_goesOnInItsTime)
{
    FakePanel& panel = plug(0);
    for (PanelModel::UrbId urb = 1; urb <= 4; ++urb)
        panel.read(urb);
    execute("emit type=5 hex=0a count=3 every=10");
    EXPECT_EQ(panel.given.size(), 1U);
    EXPECT_EQ(m_rack.getNextTime(), 10ms);
    runUntil(10ms - 1ns);
    EXPECT_EQ(panel.given.size(), 1U);
    runUntil(10ms);
    EXPECT_EQ(panel.given.size(), 2U);
    runUntil(20ms);
    EXPECT_EQ(panel.given.size(), 3U);
    EXPECT_FALSE(m_rack.getNextTime());
}

TEST_F(PanelRackTest, repeatedEmission_outlivesThePanelWithoutAComplaint)
{
    FakePanel& panel = plug(0);
    execute("emit type=5 hex=0a count=3 every=10");
    panel.unplug();
    runUntil(10ms);
    EXPECT_EQ(m_log.back(), "panel 0: is not plugged: emit type 5, 1 byte");
    EXPECT_THAT(m_complaints, IsEmpty());
    FakePanel& next = plug(0);
    next.read(1);
    runUntil(20ms);
    EXPECT_EQ(next.given.size(), 1U);
}

TEST_F(PanelRackTest, orders_comeInTheirOrderAtTheirTime)
{
    const auto takeDue = [this](std::chrono::nanoseconds now) {
        m_now = now;
        const auto order = m_rack.takeDue();
        return order ? static_cast<int>(std::get<PlugOrder>(*order).panel) : -1;
    };
    EXPECT_EQ(takeDue(1ns), -1);
    schedule(20ns, "plug 2"); // counted from now
    schedule(10ns, "plug 1");
    schedule(20ns, "plug 3");
    EXPECT_EQ(m_rack.getNextTime(), 11ns);
    EXPECT_EQ(takeDue(10ns), -1);
    EXPECT_EQ(takeDue(11ns), 1);
    EXPECT_EQ(m_rack.getNextTime(), 21ns);
    EXPECT_EQ(takeDue(20ns), -1);
    EXPECT_EQ(takeDue(99ns), 2);
    EXPECT_EQ(takeDue(99ns), 3);
    EXPECT_EQ(takeDue(99ns), -1);
    EXPECT_FALSE(m_rack.getNextTime());
}

TEST_F(PanelRackTest, pendingOrders_areTakenWithTheirDelaysAndComeNoMore)
{
    plug(0);
    m_now = 7ms;
    schedule(20ms, "unplug");
    schedule(10ms, "fault clear");
    schedule(1ms, "emit type=5 size=1 count=3 every=10");
    schedule(20ms, "plug");
    runUntil(8ms); // one packet is out, the others come by themselves
    const auto pending = m_rack.takePending();
    ASSERT_EQ(pending.size(), 3U);
    EXPECT_EQ(formatPanelOrder(pending[0].order), "fault 0 clear");
    EXPECT_EQ(pending[0].time, 10ms);
    EXPECT_EQ(formatPanelOrder(pending[1].order), "unplug 0");
    EXPECT_EQ(formatPanelOrder(pending[2].order), "plug 0");
    EXPECT_EQ(pending[2].time, 20ms);
    EXPECT_FALSE(m_rack.getNextTime());
    EXPECT_TRUE(m_rack.takePending().empty());
}

TEST_F(PanelRackTest, logOrder_isTheWholeOrderButNotTheRestOfAnEmission)
{
    m_rack.logOrder(parse("emit type=5 hex=0a0b count=3 every=0.5"));
    m_rack.logOrder(parse("unplug"));
    EmitOrder rest;
    rest.isBegun = true;
    m_rack.logOrder(rest);
    EXPECT_THAT(m_log, ElementsAre("order: emit 0 type=5 hex=0a0b count=3 every=0.5", "order: unplug 0"));
}

TEST_F(PanelRackTest, plugAndUnplug_areTheBusesAffair)
{
    FakeBus bus;
    EXPECT_TRUE(PanelRack::plugOrUnplug(bus, parse("plug 4")));
    EXPECT_TRUE(PanelRack::plugOrUnplug(bus, parse("unplug 5")));
    EXPECT_FALSE(PanelRack::plugOrUnplug(bus, parse("fault clear")));
    EXPECT_THAT(bus.calls, ElementsAre("plug 4", "unplug 5"));
}

TEST_F(PanelRackTest, impossiblePlugs_areComplainedOf)
{
    EXPECT_TRUE(m_rack.canPlug(30));
    EXPECT_FALSE(m_rack.canUnplug(30));
    FakePanel& panel = plug(30);
    EXPECT_FALSE(m_rack.canPlug(30));
    EXPECT_TRUE(m_rack.canUnplug(30));
    EXPECT_FALSE(m_rack.canPlug(31));
    panel.unplug();
    EXPECT_TRUE(m_rack.canPlug(30));
    EXPECT_THAT(m_complaints,
                ElementsAre("panel 30: is not plugged", "panel 30: is plugged already", "panel 31: has no port"));
}

TEST_F(PanelRackTest, flash_goesFromPanelToPanel)
{
    m_rack.setFlash(0, flash(1));
    FakePanel& first = plug(0);
    EXPECT_THAT(flashOf(first), ElementsAre(1));
    EXPECT_THAT(flashOf(plug(1)), IsEmpty());
    first.unplug();
    EXPECT_THAT(flashOf(plug(0)), ElementsAre(1));
    EXPECT_THAT(flashOf(first), IsEmpty()); // there is one only
}

TEST_F(PanelRackTest, flash_ofAPanelThatIsNoMore_isTheNextOnes)
{
    m_rack.setFlash(0, flash(1));
    plug(0);
    m_panels.clear();
    EXPECT_THAT(flashOf(plug(0)), ElementsAre(1));
}

TEST_F(PanelRackTest, flash_staysWithALaterPanelWhenAnEarlierOneGoes)
{
    m_rack.setFlash(0, flash(1));
    plug(0).unplug();
    plug(0).unplug();
    m_panels.erase(m_panels.begin());
    EXPECT_THAT(flashOf(plug(0)), ElementsAre(1));
}

TEST_F(PanelRackTest, setFlash_replacesThatOfThePanelBefore)
{
    m_rack.setFlash(0, flash(1));
    plug(0).unplug();
    m_rack.setFlash(0, flash(2));
    EXPECT_THAT(flashOf(plug(0)), ElementsAre(2));
}

TEST_F(PanelRackTest, keepFlash_handsItOver)
{
    m_rack.setFlash(6, flash(1));
    m_rack.keepFlash(plug(6));
    EXPECT_THAT(m_keptFlash, ElementsAre(std::pair(6U, Bytes{1})));
    EXPECT_THAT(flashOf(*m_panels[0]), ElementsAre(1));
}

TEST_F(PanelRackTest, violations_areLoggedOnceAndListedWithTheNumber)
{
    FakePanel& panel = plug(3);
    panel.violate(2);
    panel.violate(1);
    const std::string line = "panel 3: OUT transfer 1, byte 0: transfer without bytes";
    EXPECT_THAT(m_rack.getViolations(), ElementsAre(line, "panel 3: OUT transfer 2, byte 0: transfer without bytes",
                                                    "panel 3: OUT transfer 3, byte 0: transfer without bytes"));
    ASSERT_EQ(m_log.size(), 3U);
    EXPECT_EQ(m_log[0], "panel 3: violation: OUT transfer 1, byte 0: transfer without bytes");
}

TEST_F(PanelRackTest, violationsOfDepartedPanels_stayInFront)
{
    plug(3).violate(1);
    plug(4).violate(1);
    m_panels.erase(m_panels.begin() + 1);
    EXPECT_THAT(m_rack.getViolations(), ElementsAre("panel 4: OUT transfer 1, byte 0: transfer without bytes",
                                                    "panel 3: OUT transfer 1, byte 0: transfer without bytes"));
    m_panels.clear();
    EXPECT_EQ(m_rack.getViolations().size(), 2U);
}

TEST_F(PanelRackTest, violationsOfDepartedPanels_areNoMoreThanThoseOfOne)
{
    for (int i = 0; i < 5; ++i) {
        plug(0).violate(600);
        m_panels.clear();
    }
    const auto violations = m_rack.getViolations();
    ASSERT_EQ(violations.size(), PanelModel::maxViolations + 1);
    EXPECT_EQ(violations[PanelModel::maxViolations - 1], "panel 0: OUT transfer 400, byte 0: transfer without bytes");
    EXPECT_EQ(violations.back(), "further violations of panels that were plugged back are not listed");
}

TEST_F(PanelRackTest, record_isLoggedWithItsFirstBytes)
{
    const auto lineOf = [this](std::uint8_t size) {
        m_panels.clear();
        Bytes packet{static_cast<std::uint8_t>(11 + size), 0, 1, 0, 0, 0, 0, 0, 9, size, 0};
        packet.insert(packet.end(), size, 0xAB);
        plug(8).write(packet);
        return m_log.back();
    };
    EXPECT_EQ(lineOf(0), "panel 8: record type 9, 0 bytes:");
    EXPECT_EQ(lineOf(1), "panel 8: record type 9, 1 byte: ab");
    EXPECT_EQ(lineOf(32).size(), std::string("panel 8: record type 9, 32 bytes:").size() + 32 * 3);
    EXPECT_EQ(lineOf(33), lineOf(32).replace(24, 2, "33") + " ...");
}

TEST_F(PanelRackTest, failedAttempt_isComplainedOf)
{
    bool isDone = false;
    m_rack.attempt(2, [&isDone] { isDone = true; });
    EXPECT_TRUE(isDone);
    EXPECT_THAT(m_complaints, IsEmpty());
    m_rack.attempt(2, [] { throw std::runtime_error("no free port"); });
    EXPECT_THAT(m_complaints, ElementsAre("panel 2: no free port"));
    EXPECT_THAT(m_log, ElementsAre("panel 2: no free port"));
}

TEST_F(PanelRackTest, nobodyListens_nothingIsSaid)
{
    PanelRack quiet(PanelBus::Options{}, [] { return 0ns; });
    FakePanel panel(quiet, 0);
    EXPECT_FALSE(quiet.isLogged());
    panel.violate(1);
    panel.write({12, 0, 1, 0, 0, 0, 0, 0, 9, 1, 0, 0xAB});
    EXPECT_FALSE(quiet.canUnplug(5));
    quiet.keepFlash(panel);
    EXPECT_EQ(quiet.getViolations().size(), 1U);
}

// As a bus has devices 1 to 127, and the root hub is the first.
TEST(PanelRack, linksOfPanels_getAddressesInTurn)
{
    std::vector<int> devices;
    std::vector<std::uint64_t> ids;
    PanelBus::Options options;
    options.record = [&devices, &ids](const CapturedUrb& urb) {
        devices.push_back(urb.device);
        ids.push_back(urb.id);
    };
    PanelRack rack(options);
    for (int i = 0; i < 127; ++i)
        rack.tapLink().submit({5, 0x81, 0, 512, std::nullopt}, {});
    rack.tapLink(LinkTap::Address{1, 77}).submit({5, 0x81, 0, 512, std::nullopt}, {});
    EXPECT_EQ(devices[0], 2);
    EXPECT_EQ(devices[1], 3);
    EXPECT_EQ(devices[125], 127);
    EXPECT_EQ(devices[126], 2);
    EXPECT_EQ(devices[127], 77);
    EXPECT_EQ(ids[0], 0x100000005U);
    EXPECT_EQ(ids[127], 0x8000000005U);
}

} // namespace Vantor

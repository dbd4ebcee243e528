#include "simulator/replay/Replay.h"
#include "simulator/bus/PanelRack.h"
#include "simulator/replay/SessionReader.h"
#include "tests/support/CaptureScript.h"

#include <map>
#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

// A panel on no bus, with a host that does as it is told.
class ReplayedPanel : public BusPanel {
public:
    ReplayedPanel(PanelRack& rack, unsigned int number) : BusPanel(rack, number) {}

    bool isPlugged() const override { return !getModel().isUnplugged(); }

    void read(std::uint32_t capacity = 512)
    {
        act([this, capacity](PanelModel& model) { model.submitIn(this, ++m_urb, capacity); });
    }
    void send(std::uint8_t type, const Bytes& payload)
    {
        act([this, type, &payload](PanelModel& model) {
            model.submitOut(this, ++m_urb, CaptureScript::packet(type, payload), true);
        });
    }

    std::vector<Bytes> given;
    std::vector<int> statuses;

private:
    void handOn(PanelModel& model) override
    {
        for (const PanelModel::Completion& completion : model.takeCompletions()) {
            if (!completion.data.empty())
                given.push_back(completion.data);
            statuses.push_back(completion.status);
        }
    }

    PanelModel::UrbId m_urb = 0;
};

// A replay on a rack in virtual time.
class ReplayTest : public testing::Test {
protected:
    void play(const CaptureScript& script, bool isFast = false)
    {
        panels.clear();
        SessionReader reader;
        for (const CapturedUrb& urb : script.urbs)
            reader.add(urb);
        m_session = reader.finish();
        replay = std::make_shared<Replay>(m_session, isFast, std::set<PacketType>{},
                                          [this](const std::string& line) { told.push_back(line); });
        PanelBus::Options options;
        options.script = replay;
        m_rack = std::make_unique<PanelRack>(options, [this] { return now; });
        for (const unsigned int panel : replay->getFirstPanels())
            plug(panel);
    }

    ReplayedPanel& plug(unsigned int panel)
    {
        panels[panel] = std::make_unique<ReplayedPanel>(*m_rack, panel);
        return *panels[panel];
    }

    // Whatever is due, as a bus does it.
    void settle()
    {
        m_rack->settle();
        while (const auto order = m_rack->takeDue())
            plug(std::get<PlugOrder>(*order).panel);
    }

    std::optional<std::chrono::nanoseconds> nextTime() const { return m_rack->getNextTime(); }

    std::chrono::nanoseconds now{5s};
    std::vector<std::string> told;
    std::shared_ptr<Replay> replay;

private:
    RecordedSession m_session;
    std::unique_ptr<PanelRack> m_rack;

protected:
    std::map<unsigned int, std::unique_ptr<ReplayedPanel>> panels; // before their rack at the end
};

TEST_F(ReplayTest, panel_presentsItselfAsInTheCapture)
{
    play(CaptureScript().enumerate().read());
    EXPECT_EQ(panels[0]->getModel().getDescriptors(), makePanelDescriptors(0x1234, 0xBEEF));
    EXPECT_EQ(panels[0]->getModel().getString(2), (Bytes{10, 3, 'R', 0, 'e', 0, 'a', 0, 'l', 0}));
    EXPECT_THAT(panels[0]->getModel().getString(1), IsEmpty());
    play(CaptureScript().send(5, {}));
    EXPECT_EQ(panels[0]->getModel().getDescriptors(), makePanelDescriptors(0xDEAD, 0xBEEF));
    EXPECT_EQ(panels[0]->getModel().getString(1), makePanelString(1));
}

TEST_F(ReplayTest, answers_comeFromTheCaptureAlone)
{
    play(CaptureScript().read().send(1, {1, 0, 0, 0}).at(100ms).answer({7}));
    panels[0]->read();
    panels[0]->send(1, {1, 0, 0, 0});
    EXPECT_THAT(panels[0]->given, IsEmpty());
    EXPECT_EQ(nextTime(), 5100ms);
    now = 5100ms;
    settle();
    panels[0]->read();
    panels[0]->send(1, {1, 0, 0, 0});
    panels[0]->send(41, Bytes(34, 0));
    now = 99s;
    settle();
    EXPECT_THAT(panels[0]->given, ElementsAre(Bytes{7}));
    EXPECT_EQ(nextTime(), std::nullopt);
}

// Each answer is a transfer as it was one.
TEST_F(ReplayTest, answers_areCutAsInTheCapture)
{
    play(CaptureScript().enumerate().read().answer({7}).read().answer({8, 9}).read().answer({}).read().answer({10}),
         true);
    for (int i = 0; i < 4; ++i)
        panels[0]->read();
    EXPECT_THAT(panels[0]->given, ElementsAre(Bytes{7}, Bytes{8, 9}, Bytes{10}));
    EXPECT_THAT(panels[0]->statuses, ElementsAre(0, 0, 0, 0));
}

// No zero-length packet is made up behind it: if there was one, it is in the capture.
TEST_F(ReplayTest, answerThatFillsItsRead_isFollowedByTheNext)
{
    play(CaptureScript().enumerate().read(512).answer(Bytes(512, 7)).read(512).answer({8}), true);
    panels[0]->read();
    panels[0]->read();
    EXPECT_THAT(panels[0]->given, ElementsAre(Bytes(512, 7), Bytes{8}));
}

TEST_F(ReplayTest, answerLargerThanTheRead_goesOnInTheNext)
{
    play(CaptureScript().enumerate().read().answer(Bytes(700, 7)).read().answer({8}), true);
    for (int i = 0; i < 3; ++i)
        panels[0]->read();
    EXPECT_THAT(panels[0]->given, ElementsAre(Bytes(512, 7), Bytes(188, 7), Bytes{8}));
}

TEST_F(ReplayTest, statuses_areGivenToTheHost)
{
    const Bytes packet = CaptureScript::packet(5, {1});
    play(CaptureScript().read().answer({1}, -EPROTO).read().answer({}, -EPIPE).write(packet).done(-EPIPE).send(5, {1}),
         true);
    panels[0]->read();
    panels[0]->read();
    panels[0]->send(5, {1});
    panels[0]->send(5, {1});
    EXPECT_THAT(panels[0]->statuses, ElementsAre(-EPROTO, -EPIPE, -EPIPE, 0));
    EXPECT_EQ(panels[0]->getModel().getStatistics().recordsReceived, 1U);
}

TEST_F(ReplayTest, slowTransfer_isSlow)
{
    play(CaptureScript().write(CaptureScript::packet(5, {1})).at(300ms).done());
    panels[0]->send(5, {1});
    EXPECT_THAT(panels[0]->statuses, IsEmpty());
    EXPECT_EQ(nextTime(), 5300ms);
    now = 5300ms;
    settle();
    EXPECT_THAT(panels[0]->statuses, ElementsAre(0));
}

TEST_F(ReplayTest, panel_leavesAndComesBack)
{
    play(CaptureScript()
             .enumerate()
             .read()
             .at(1s)
             .answer({}, -ESHUTDOWN)
             .at(3s)
             .device(6)
             .enumerate()
             .at(4s)
             .read()
             .answer({8}));
    panels[0]->read();
    now = 6s;
    settle();
    EXPECT_TRUE(panels[0]->getModel().isUnplugged());
    EXPECT_THAT(panels[0]->statuses, ElementsAre(-ESHUTDOWN));
    EXPECT_EQ(nextTime(), 8s);
    now = 8s;
    settle();
    EXPECT_FALSE(panels[0]->getModel().isUnplugged());
    panels[0]->read();
    now = 9s;
    settle();
    EXPECT_THAT(panels[0]->given, ElementsAre(Bytes{8}));
    EXPECT_THAT(replay->describeRest(), IsEmpty());
}

TEST_F(ReplayTest, panelThatLeavesFast_isBackAtOnce)
{
    play(CaptureScript().enumerate().read().at(1h).answer({}, -ESHUTDOWN).at(2h).device(6).enumerate().read(), true);
    panels[0]->read();
    EXPECT_TRUE(panels[0]->getModel().isUnplugged());
    EXPECT_EQ(nextTime(), 5s);
    settle();
    EXPECT_FALSE(panels[0]->getModel().isUnplugged());
}

TEST_F(ReplayTest, panelThatComesLater_isPluggedInAtItsTime)
{
    play(CaptureScript().enumerate().read().at(2s).device(6).enumerate().send(5, {1}));
    EXPECT_EQ(panels.count(1), 0U);
    EXPECT_EQ(nextTime(), std::nullopt); // the host has not begun
    panels[0]->read();
    EXPECT_EQ(nextTime(), 7s);
    now = 7s;
    settle();
    EXPECT_EQ(panels.count(1), 1U);
    EXPECT_EQ(nextTime(), std::nullopt);
}

TEST_F(ReplayTest, packetLimit_isThatOfTheCapture)
{
    Bytes info(83, 0);
    info[81] = 0x08; // 2048
    play(CaptureScript().read().answer(CaptureScript::packet(0, info, 1)), true);
    panels[0]->send(5, Bytes(2048 - 11, 0));
    EXPECT_THAT(panels[0]->getModel().getViolations(), IsEmpty());
    panels[0]->send(5, Bytes(2048 - 10, 0));
    EXPECT_EQ(panels[0]->getModel().getViolations().size(), 1U);
}

TEST_F(ReplayTest, rest_isDescribed)
{
    play(CaptureScript()
             .enumerate()
             .read()
             .answer({7})
             .read()
             .answer({8})
             .read()
             .answer({}, -ESHUTDOWN)
             .device(6)
             .enumerate(),
         true);
    panels[0]->read();
    EXPECT_THAT(replay->describeRest(),
                ElementsAre("panel 0: replay: it went no further than frame 12: of 3 answers, 1 was given"));
    panels[0]->read();
    panels[0]->read();
    EXPECT_THAT(replay->describeRest(), ElementsAre("panel 0: replay: of 2 times, it was plugged in 1"));
    settle();
    EXPECT_THAT(replay->describeRest(), IsEmpty());
}

TEST_F(ReplayTest, requestsBehindTheLastAnswer_areTold)
{
    play(CaptureScript().send(1, {1, 0, 0, 0}).read().answer({7}).read().answer({8}), true);
    panels[0]->send(1, {1, 0, 0, 0});
    panels[0]->read();
    now = 16200ms;
    panels[0]->read();
    panels[0]->send(5, {1}); // which no panel answers
    panels[0]->read();
    EXPECT_THAT(replay->describeRest(), IsEmpty());
    now = 20s;
    panels[0]->send(1, {1, 0, 0, 0});
    panels[0]->send(44, {1});
    panels[0]->send(44, {2});
    EXPECT_THAT(replay->describeRest(),
                ElementsAre("panel 0: replay: all 2 answers had been given by 16.200 s; the host has sent 1 of type 1 "
                            "(ReqDeviceInfo), 2 of type 44 (FirmwareData) after that"));
    play(CaptureScript().send(1, {1, 0, 0, 0}).read());
    panels[0]->send(1, {1, 0, 0, 0});
    EXPECT_THAT(replay->describeRest(), ElementsAre("panel 0: replay: the capture has no answer; the host has sent 1 "
                                                    "of type 1 (ReqDeviceInfo)"));
}

TEST_F(ReplayTest, recordsThatDoNotCome_areToldWithThePanel)
{
    play(CaptureScript().read().send(5, {1}).answer({7}));
    panels[0]->read();
    now = 99s;
    settle();
    EXPECT_THAT(told, ElementsAre(testing::StartsWith("panel 0: replay: waited 10 s in vain for 1 record of type 5,")));
}

TEST_F(ReplayTest, panelPluggedInByCommand_saysNothing)
{
    play(CaptureScript().enumerate().read().answer({7}), true);
    ReplayedPanel& other = plug(3);
    other.read();
    other.send(1, {1, 0, 0, 0});
    EXPECT_THAT(other.given, IsEmpty());
    EXPECT_EQ(other.statuses.size(), 1U);
}

} // namespace Vantor

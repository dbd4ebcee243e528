#include "simulator/replay/PanelPlayer.h"
#include "simulator/replay/SessionReader.h"
#include "tests/support/CaptureScript.h"

#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

// One life of a panel, played in virtual time by a host that always reads.
class PanelPlayerTest : public testing::Test {
protected:
    void play(const CaptureScript& script, bool isFast = false)
    {
        SessionReader reader;
        for (const CapturedUrb& urb : script.urbs)
            reader.add(urb);
        m_session = reader.finish();
        m_pace.isFast = isFast;
        m_player = std::make_unique<PanelPlayer>(m_session.panels.at(0).lives.at(0), m_pace,
                                                 [this](const std::string& line) { told.push_back(line); });
    }

    void hostBegins() { m_player->onTransfer(now); }
    void hostSends(int type) { m_player->onRecord(static_cast<PacketType>(type), now); }

    // The first byte of what is given now; "fault", "leave", or "" when there is nothing.
    std::string due()
    {
        const auto deed = m_player->takeDue(now, isReading);
        if (!deed)
            return "";
        if (const auto* const answer = std::get_if<PanelScript::Answer>(&*deed))
            return std::to_string(answer->data.at(0));
        return std::holds_alternative<PanelFault>(*deed) ? "fault" : "leave";
    }

    std::optional<std::chrono::nanoseconds> nextTime() const { return m_player->getNextTime(isReading); }

    static CaptureScript answerBehind(int type)
    {
        return CaptureScript().read().send(static_cast<std::uint8_t>(type), {1}).at(300ms).answer({7});
    }

    std::chrono::nanoseconds now{10s};
    bool isReading = true;
    std::vector<std::string> told;
    ReplayPace m_pace;
    std::unique_ptr<PanelPlayer> m_player;

private:
    RecordedSession m_session;
};

TEST_F(PanelPlayerTest, answer_isGivenAtItsTime)
{
    play(CaptureScript().enumerate().at(2s).read().at(2300ms).answer({7}).read().at(3s).answer({8}));
    EXPECT_EQ(due(), ""); // the host has not begun
    EXPECT_EQ(nextTime(), std::nullopt);
    hostBegins();
    EXPECT_EQ(nextTime(), 10300ms);
    now = 10300ms - 1ns;
    EXPECT_EQ(due(), "");
    now = 10300ms;
    EXPECT_EQ(due(), "7");
    EXPECT_EQ(due(), "");
    EXPECT_EQ(nextTime(), 11s);
    now = 12s;
    EXPECT_EQ(due(), "8");
    EXPECT_EQ(due(), "");
    EXPECT_EQ(nextTime(), std::nullopt);
}

TEST_F(PanelPlayerTest, answer_isAsLongAfterItsRequestAsInTheCapture)
{
    play(CaptureScript().read().at(5s).send(1, {1}).at(5300ms).answer({7}));
    hostBegins();
    for (const auto& requestTime : {11s, 15s}) { // sooner than there, or at its time
        now = requestTime;
        EXPECT_EQ(due(), "");
    }
    hostSends(1);
    EXPECT_EQ(nextTime(), 15300ms);
    now = 15300ms - 1ns;
    EXPECT_EQ(due(), "");
    now = 15300ms;
    EXPECT_EQ(due(), "7");
    EXPECT_THAT(told, IsEmpty());
}

TEST_F(PanelPlayerTest, hostThatIsQuicker_isNotKeptWaiting)
{
    play(CaptureScript().read().at(5s).send(1, {1}).at(5300ms).answer({7}).read().at(6s).answer({8}));
    hostBegins();
    hostSends(1);
    now = 10300ms;
    EXPECT_EQ(due(), "7");
    EXPECT_EQ(nextTime(), 11s); // 0.7 s after the answer before it
}

// What comes behind the answer does not catch up.
TEST_F(PanelPlayerTest, answerThatWasReadLate_movesWhatFollows)
{
    play(CaptureScript().enumerate().read().at(300ms).answer({7}).read().at(1s).answer({8}));
    hostBegins();
    now = 15s;
    EXPECT_EQ(due(), "7");
    EXPECT_EQ(nextTime(), 15700ms);
}

// Another record has come later, but had come earlier then.
TEST_F(PanelPlayerTest, time_isCountedFromTheSameRecordAsInTheCapture)
{
    play(CaptureScript().send(5, {}).at(1s).send(1, {}).at(1300ms).read().answer({7}));
    hostBegins();
    hostSends(1);
    now = 10200ms;
    hostSends(5);
    EXPECT_EQ(nextTime(), 10300ms);
}

TEST_F(PanelPlayerTest, fast_isAsSoonAsTheRequestHasCome)
{
    play(answerBehind(1), true);
    hostBegins();
    EXPECT_EQ(due(), "");
    hostSends(1);
    EXPECT_EQ(due(), "7");
}

// What is too much of one type is not what another lacks.
TEST_F(PanelPlayerTest, recordsOfOtherTypes_areNoRequest)
{
    play(answerBehind(1), true);
    hostBegins();
    hostSends(5);
    hostSends(5);
    EXPECT_EQ(due(), "");
}

TEST_F(PanelPlayerTest, everyRequest_isCounted)
{
    play(CaptureScript().send(44, {1}).send(44, {2}).read().answer({7}).send(44, {3}).read().answer({8}), true);
    hostBegins();
    hostSends(44);
    EXPECT_EQ(due(), "");
    hostSends(44);
    EXPECT_EQ(due(), "7");
    EXPECT_EQ(due(), "");
    hostSends(44);
    EXPECT_EQ(due(), "8");
}

TEST_F(PanelPlayerTest, slicesAndIgnoredTypes_areNotWaitedFor)
{
    for (const int type : {38, 46, 12}) {
        m_pace = {};
        m_pace.ignored = {static_cast<PacketType>(12)};
        play(answerBehind(type), true);
        hostBegins();
        EXPECT_EQ(due(), "7");
    }
}

TEST_F(PanelPlayerTest, answer_waitsForARead)
{
    play(CaptureScript().enumerate().read().at(300ms).answer({7}), true);
    hostBegins();
    isReading = false;
    now = 99s;
    EXPECT_EQ(due(), "");
    EXPECT_EQ(nextTime(), std::nullopt);
    isReading = true;
    EXPECT_EQ(due(), "7");
}

TEST_F(PanelPlayerTest, recordThatDoesNotCome_isGivenUpAfterTenSeconds)
{
    play(CaptureScript().read().send(1, {}).send(44, {}).send(44, {}).at(300ms).answer({7}).send(44, {}).read().answer(
             {8}),
         true);
    hostBegins();
    now = 11s;
    hostSends(44); // something happens: it is waited for anew
    EXPECT_EQ(nextTime(), 21s);
    now = 21s - 1ns;
    EXPECT_EQ(due(), "");
    now = 21s;
    EXPECT_EQ(due(), "7");
    EXPECT_THAT(told, ElementsAre("replay: waited 10 s in vain for 1 record of type 1 (ReqDeviceInfo), which the "
                                  "capture has before frame 8; it goes on without",
                                  "replay: waited 10 s in vain for 1 record of type 44 (FirmwareData), which the "
                                  "capture has before frame 8; it goes on without"));
    EXPECT_EQ(due(), "");
    hostSends(44); // as though the others had come
    EXPECT_EQ(due(), "8");
}

TEST_F(PanelPlayerTest, patience_beginsWhenTheAnswerIsDue)
{
    play(CaptureScript().read().send(1, {}).at(60s).answer({7}));
    hostBegins();
    EXPECT_EQ(nextTime(), 10s + 60s + 10s);
}

TEST_F(PanelPlayerTest, fault_isThereWhenTheRecordsBeforeItAre)
{
    const Bytes packet = CaptureScript::packet(5, {});
    play(CaptureScript().at(1s).send(5, {}).at(2s).write(packet).done(-EPIPE).write(packet).done(-EPROTO));
    EXPECT_EQ(due(), "");
    hostBegins();
    hostSends(5);
    EXPECT_EQ(due(), "fault");
    EXPECT_EQ(due(), "fault");
    EXPECT_EQ(due(), "");
}

TEST_F(PanelPlayerTest, faultOfTheFirstTransfer_isThereBeforeIt)
{
    play(CaptureScript().enumerate().write(CaptureScript::packet(5, {})).done(-EPIPE));
    EXPECT_EQ(due(), "fault");
}

TEST_F(PanelPlayerTest, delays_areNotPlayedFast)
{
    const CaptureScript slow = CaptureScript().write(CaptureScript::packet(5, {})).at(1s).done();
    play(slow);
    EXPECT_EQ(due(), "fault");
    play(slow, true);
    EXPECT_EQ(due(), "");
}

TEST_F(PanelPlayerTest, departure_endsARead)
{
    play(CaptureScript().send(5, {}).read().at(1s).answer({}, -ESHUTDOWN));
    hostBegins();
    hostSends(5);
    isReading = false;
    now = 11s;
    EXPECT_EQ(due(), "");
    EXPECT_EQ(m_player->getDeparture(), std::nullopt);
    isReading = true;
    EXPECT_EQ(due(), "leave");
    EXPECT_EQ(m_player->getDeparture(), 11s);
}

TEST_F(PanelPlayerTest, departureWithoutARead_waitsForNone)
{
    play(CaptureScript().send(5, {}).at(1s).write({1}).done(-ESHUTDOWN));
    hostBegins();
    hostSends(5);
    isReading = false;
    now = 11s;
    EXPECT_EQ(due(), "leave");
}

// The host has not found it again yet.
TEST_F(PanelPlayerTest, lifeThatTheHostHasNotBegun_waits)
{
    m_pace.start = 1s;
    play(CaptureScript().send(5, {}).read().at(1s).answer({}, -ESHUTDOWN));
    now = 99s;
    EXPECT_EQ(due(), "");
    EXPECT_EQ(nextTime(), std::nullopt);
    hostBegins();
    EXPECT_EQ(nextTime(), 110s); // 1 s, and the patience for a record
}

} // namespace Vantor

#include "panelfleet/rollout/Rollout.h"

#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>

namespace Vantor {
namespace {

using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;
using State = Rollout::State;
using Word = Answer::Word;

// Panels 1-1, 1-2 and so on of the host "a", there, until a test says otherwise. An image of
// 160 KiB: an answer has 30 s and 10 s.
class RolloutOfPanels : public testing::Test {
protected:
    static constexpr std::uint32_t imageSize = 163840;

    RolloutOfPanels()
    {
        m_options.selection.isAll = true;
        m_options.id = "j";
        m_options.atOnce = 2;
        m_options.imageSize = imageSize;
    }

    void host(bool isOnline, unsigned int epoch, const std::string& name = "a")
    {
        m_view.receive("panel/1/" + name + "/state", DeskJson::write(HostState{isOnline, epoch, "r", "v"}));
    }
    void place(const std::string& panel, bool isOnline, unsigned int epoch = 1)
    {
        m_view.receive("panel/1/" + panel + "/state", DeskJson::write(PlaceState{isOnline, epoch, "then", ""}));
    }
    void job(const std::string& panel, const std::string& state, std::uint32_t written = 0,
             const std::string& reason = "", std::uint32_t total = imageSize)
    {
        m_view.receive("panel/1/" + panel + "/job/j", DeskJson::write(JobState{state, written, total, state, reason}));
    }
    void haveThere(unsigned int panels)
    {
        host(true, 1);
        for (unsigned int panel = 1; panel <= panels; ++panel)
            place("a/1-" + std::to_string(panel), true);
    }
    void begin()
    {
        m_rollout = std::make_unique<Rollout>(m_options, m_view);
        m_rollout->resume(m_now);
    }

    // Who is asked at this moment.
    std::vector<std::string> ask()
    {
        m_rollout->poll(m_now);
        std::vector<std::string> asked;
        while (const Rollout::Panel* const panel = m_rollout->takeNext(m_now))
            asked.push_back(panel->getName());
        return asked;
    }
    std::vector<std::string> askAfter(Rollout::Duration time)
    {
        m_now += time;
        return ask();
    }
    void answer(const std::string& panel, Word word, const std::string& reason = "")
    {
        const std::size_t slash = panel.find('/');
        m_rollout->receiveAnswer(panel.substr(0, slash), panel.substr(slash + 1), {word, reason}, m_now);
    }
    const Rollout::Panel& at(std::size_t index) const { return m_rollout->getPanels().at(index); }
    State stateOf(std::size_t index) const { return at(index).state; }
    bool isOver() const { return m_rollout->isOver(m_now); }

    Rollout::TimePoint m_now{std::chrono::hours(1)};
    Rollout::Options m_options;
    FleetView m_view{[] {
                         Selection all;
                         all.isAll = true;
                         return all;
                     }(),
                     "j"};
    std::unique_ptr<Rollout> m_rollout;
};

} // namespace

TEST_F(RolloutOfPanels, nothingToDo_isOverAtOnce)
{
    begin();
    EXPECT_THAT(ask(), IsEmpty());
    EXPECT_TRUE(isOver());
}

TEST_F(RolloutOfPanels, window_slides)
{
    haveThere(4);
    begin();
    EXPECT_THAT(ask(), ElementsAre("a/1-1", "a/1-2"));
    EXPECT_THAT(ask(), IsEmpty());
    job("a/1-2", "queued");
    EXPECT_THAT(ask(), IsEmpty());
    job("a/1-2", "answering", imageSize);
    EXPECT_THAT(ask(), ElementsAre("a/1-3"));
    answer("a/1-1", Word::Taken);
    EXPECT_THAT(ask(), ElementsAre("a/1-4"));
    EXPECT_FALSE(isOver());
    job("a/1-3", "answering", imageSize);
    job("a/1-4", "answering", imageSize);
    EXPECT_THAT(ask(), IsEmpty());
    EXPECT_TRUE(isOver());
    EXPECT_EQ(m_rollout->count().done, 4u);
}

TEST_F(RolloutOfPanels, jobsOfAnEarlierRun_areCountedAndNotAskedAgain)
{
    m_options.stopAfter = 2;
    haveThere(5);
    job("a/1-1", "answering", imageSize);
    job("a/1-2", "failed", 5, "the panel left");
    job("a/1-3", "writing", 4096);
    begin();
    EXPECT_THAT(ask(), ElementsAre("a/1-4")); // with 1-3 two
    EXPECT_EQ(stateOf(0), State::Done);
    EXPECT_EQ(stateOf(1), State::Failed);
    EXPECT_EQ(at(1).reason, "the panel left");
    EXPECT_EQ(stateOf(2), State::UnderWay);
    job("a/1-3", "answering", imageSize);
    EXPECT_THAT(ask(), ElementsAre("a/1-5"));
}

TEST_F(RolloutOfPanels, failureOfAnEarlierRun_stops)
{
    haveThere(2);
    job("a/1-1", "interrupted", 5, "the gateway ended");
    begin();
    EXPECT_THAT(ask(), IsEmpty());
    EXPECT_TRUE(m_rollout->isStopped());
    EXPECT_TRUE(isOver());
    EXPECT_EQ(m_rollout->count().waiting, 1u);
}

TEST_F(RolloutOfPanels, failures_stopItAndWhatIsUnderWayIsWaitedFor)
{
    m_options.stopAfter = 2;
    m_options.atOnce = 3;
    haveThere(6);
    begin();
    EXPECT_THAT(ask(), ElementsAre("a/1-1", "a/1-2", "a/1-3"));
    job("a/1-1", "failed", 5, "flat");
    EXPECT_THAT(ask(), ElementsAre("a/1-4"));
    job("a/1-2", "interrupted", 5);
    EXPECT_THAT(ask(), IsEmpty());
    EXPECT_FALSE(isOver());
    EXPECT_EQ(at(1).reason, "interrupted");
    job("a/1-3", "answering", imageSize);
    job("a/1-4", "answering", imageSize);
    EXPECT_THAT(ask(), IsEmpty());
    EXPECT_TRUE(isOver());
    const Rollout::Counts counts = m_rollout->count();
    EXPECT_EQ(counts.done, 2u);
    EXPECT_EQ(counts.failed, 2u);
    EXPECT_EQ(counts.waiting, 2u);
}

TEST_F(RolloutOfPanels, busy_isTriedAgainLaterAndLetsOthersGoFirst)
{
    m_options.atOnce = 1;
    haveThere(2);
    begin();
    EXPECT_THAT(ask(), ElementsAre("a/1-1"));
    answer("a/1-1", Word::Busy, "job k is under way");
    EXPECT_THAT(ask(), ElementsAre("a/1-2"));
    answer("a/1-2", Word::Taken);
    EXPECT_THAT(askAfter(milliseconds(4999)), IsEmpty());
    EXPECT_FALSE(isOver());
    EXPECT_THAT(askAfter(milliseconds(1)), ElementsAre("a/1-1"));
    answer("a/1-1", Word::Busy);
    ask();
    EXPECT_THAT(askAfter(milliseconds(9999)), IsEmpty());
    EXPECT_EQ(at(0).reason, "busy");
    EXPECT_THAT(askAfter(milliseconds(1)), ElementsAre("a/1-1"));
}

TEST_F(RolloutOfPanels, busyForTenMinutes_isAFailure)
{
    haveThere(1);
    begin();
    std::vector<std::int64_t> delays;
    Rollout::TimePoint last = m_now;
    for (; stateOf(0) != State::Failed && m_now < last + minutes(2); m_now += seconds(1)) {
        if (ask().empty())
            continue;
        delays.push_back(std::chrono::duration_cast<seconds>(m_now - last).count());
        last = m_now;
        answer("a/1-1", Word::Busy, "plug the panel in anew");
        m_rollout->poll(m_now);
    }
    // 5 + 10 + 20 + 40 + 60 × 9 = 615
    EXPECT_THAT(delays, ElementsAre(0, 5, 10, 20, 40, 60, 60, 60, 60, 60, 60, 60, 60, 60));
    EXPECT_EQ(at(0).reason, "busy: plug the panel in anew (for 10 min)");
    EXPECT_TRUE(isOver());
}

TEST_F(RolloutOfPanels, noAnswer_isAskedAgainTwice)
{
    haveThere(1);
    begin();
    EXPECT_EQ(ask().size(), 1u);
    EXPECT_EQ(askAfter(milliseconds(39999)).size(), 0u);
    EXPECT_EQ(askAfter(milliseconds(1)).size(), 1u);
    EXPECT_EQ(askAfter(milliseconds(39999)).size(), 0u);
    EXPECT_EQ(askAfter(milliseconds(1)).size(), 1u);
    EXPECT_EQ(askAfter(milliseconds(39999)).size(), 0u);
    EXPECT_FALSE(isOver());
    EXPECT_EQ(askAfter(milliseconds(1)).size(), 0u);
    EXPECT_EQ(stateOf(0), State::Unknown);
    EXPECT_EQ(at(0).reason, "no answer");
    EXPECT_TRUE(isOver());
}

TEST_F(RolloutOfPanels, refusal_isAFailureAfterTheJobCouldHaveSaidMore)
{
    haveThere(1);
    begin();
    ask();
    answer("a/1-1", Word::Refused, "sha256 is missing");
    askAfter(milliseconds(999));
    EXPECT_EQ(stateOf(0), State::Asked);
    EXPECT_THAT(askAfter(milliseconds(1)), IsEmpty());
    EXPECT_EQ(stateOf(0), State::Failed);
    EXPECT_EQ(at(0).reason, "refused: sha256 is missing");
}

TEST_F(RolloutOfPanels, jobBehindItsAnswer_saysWhy)
{
    haveThere(2);
    begin();
    ask();
    job("a/1-1", "writing", 4096);
    job("a/1-2", "writing", 4096);
    ask();
    answer("a/1-1", Word::Offline);
    answer("a/1-2", Word::Expired);
    askAfter(milliseconds(500));
    job("a/1-1", "failed", 4096, "the panel left at 4096 of 163840 bytes");
    ask();
    EXPECT_EQ(at(0).reason, "the panel left at 4096 of 163840 bytes");
    EXPECT_EQ(stateOf(1), State::UnderWay);
    askAfter(milliseconds(500));
    EXPECT_EQ(stateOf(1), State::Failed);
    EXPECT_EQ(at(1).reason, "expired");
}

TEST_F(RolloutOfPanels, offlineWithoutAJob_isAwayAndNoFailure)
{
    haveThere(2);
    begin();
    ask();
    answer("a/1-1", Word::Offline);
    place("a/1-1", false);
    answer("a/1-2", Word::Taken);
    EXPECT_THAT(askAfter(seconds(1)), IsEmpty());
    EXPECT_TRUE(isOver());
    EXPECT_EQ(m_rollout->count().away, 1u);
    EXPECT_EQ(m_rollout->count().failed, 0u);
    EXPECT_EQ(m_rollout->explainAway(at(0)), "no panel is there");
}

TEST_F(RolloutOfPanels, awayAtFirst_isTakenWhenItComesBackMeanwhile)
{
    m_options.atOnce = 1;
    haveThere(2);
    place("a/1-2", false);
    begin();
    EXPECT_THAT(ask(), ElementsAre("a/1-1"));
    place("a/1-2", true);
    answer("a/1-1", Word::Taken);
    EXPECT_THAT(ask(), ElementsAre("a/1-2"));
}

TEST_F(RolloutOfPanels, wait_countsFromTheLastUpgrade)
{
    m_options.wait = seconds(90);
    haveThere(2);
    place("a/1-2", false);
    begin();
    ask();
    askAfter(seconds(20));
    job("a/1-1", "writing", 4096);
    askAfter(seconds(80)); // 100 s after the beginning
    job("a/1-1", "answering", imageSize);
    EXPECT_THAT(ask(), IsEmpty());
    EXPECT_THAT(askAfter(milliseconds(89999)), IsEmpty());
    EXPECT_FALSE(isOver());
    m_now += milliseconds(1);
    EXPECT_TRUE(isOver());
    place("a/1-2", true);
    EXPECT_FALSE(isOver());
}

TEST_F(RolloutOfPanels, panelOfAnEarlierConnection_isWaitedForALittle)
{
    haveThere(1);
    host(true, 2);
    begin();
    EXPECT_THAT(askAfter(milliseconds(4999)), IsEmpty());
    EXPECT_FALSE(isOver());
    m_now += milliseconds(1);
    EXPECT_TRUE(isOver());
    place("a/1-1", true, 2);
    EXPECT_THAT(ask(), ElementsAre("a/1-1"));
}

TEST_F(RolloutOfPanels, gatewayThatIsBackWithoutTheJob_isAskedAgain)
{
    haveThere(1);
    begin();
    ask();
    host(false, 1);
    EXPECT_THAT(askAfter(seconds(200)), IsEmpty()); // beyond the 40 s of an answer
    host(true, 2);
    place("a/1-1", true, 2);
    EXPECT_EQ(stateOf(0), State::Asked);
    EXPECT_THAT(ask(), ElementsAre("a/1-1"));
    EXPECT_THAT(ask(), IsEmpty());
}

TEST_F(RolloutOfPanels, gatewayThatConnectsAnew_isAskedAgainSoon)
{
    haveThere(1);
    begin();
    ask();
    host(true, 2);
    EXPECT_THAT(ask(), IsEmpty());
    EXPECT_THAT(askAfter(milliseconds(4999)), IsEmpty());
    EXPECT_THAT(askAfter(milliseconds(1)), ElementsAre("a/1-1"));
}

TEST_F(RolloutOfPanels, gatewayThatIsBackAndSaysInterrupted_hasFailed)
{
    haveThere(1);
    begin();
    ask();
    job("a/1-1", "writing", 4096);
    ask();
    host(false, 1);
    askAfter(seconds(299));
    EXPECT_EQ(stateOf(0), State::UnderWay);
    host(true, 2);
    job("a/1-1", "interrupted", 4096, "the gateway ended at 4096 of 163840 bytes");
    ask();
    EXPECT_EQ(stateOf(0), State::Failed);
}

TEST_F(RolloutOfPanels, gatewayThatStaysAway_isNotKnownAfterFiveMinutes)
{
    haveThere(2);
    begin();
    ask();
    job("a/1-1", "writing", 4096);
    ask();
    host(false, 1);
    ask();
    askAfter(milliseconds(299999));
    EXPECT_EQ(stateOf(0), State::UnderWay);
    EXPECT_EQ(stateOf(1), State::Asked);
    askAfter(milliseconds(1));
    EXPECT_EQ(stateOf(0), State::Unknown);
    EXPECT_EQ(stateOf(1), State::Unknown);
    EXPECT_EQ(m_rollout->count().unknown, 2u);
    EXPECT_TRUE(isOver());
}

TEST_F(RolloutOfPanels, jobThatSaysNothingNew_isNotKnownUntilItDoes)
{
    m_options.stopAfter = 2;
    haveThere(1);
    begin();
    ask();
    job("a/1-1", "writing", 4096);
    ask();
    askAfter(milliseconds(179999));
    job("a/1-1", "writing", 8192);
    ask();
    askAfter(milliseconds(179999));
    EXPECT_EQ(stateOf(0), State::UnderWay);
    askAfter(milliseconds(1));
    EXPECT_EQ(stateOf(0), State::Unknown);
    job("a/1-1", "answering", imageSize);
    ask();
    EXPECT_EQ(stateOf(0), State::Done);
}

TEST_F(RolloutOfPanels, jobOfAnotherImageOfTheSameSize_isAFailure)
{
    haveThere(3);
    m_options.mainSum = std::string(64, 'a');
    m_options.stopAfter = 9;
    const auto jobOf = [this](const std::string& panel, const std::string& mainSum, const std::string& servoSum) {
        m_view.receive("panel/1/" + panel + "/job/j",
                       DeskJson::write(JobState{"answering", imageSize, imageSize, "T", "", mainSum, servoSum}));
    };
    jobOf("a/1-1", std::string(64, 'b'), "");
    jobOf("a/1-2", "", std::string(64, 'a'));
    jobOf("a/1-3", std::string(64, 'a'), "");
    begin();
    EXPECT_THAT(ask(), IsEmpty());
    for (const std::size_t panel : {0U, 1U})
        EXPECT_EQ(at(panel).reason, "the id was used for another image, of " + std::to_string(imageSize) + " bytes");
    EXPECT_EQ(stateOf(2), State::Done);
}

TEST_F(RolloutOfPanels, jobOfAnotherSize_isAFailure)
{
    haveThere(2);
    job("a/1-1", "answering", 5, "", 5);
    begin();
    EXPECT_THAT(ask(), IsEmpty());
    EXPECT_EQ(at(0).reason, "the id was used for another image, of 5 bytes");
}

TEST_F(RolloutOfPanels, jobOfAnySize_isGoodForFilesOfTheHosts)
{
    m_options.imageSize.reset();
    haveThere(1);
    job("a/1-1", "answering", 5, "", 5);
    begin();
    EXPECT_EQ(stateOf(0), State::Done);
}

TEST_F(RolloutOfPanels, stop_beginsNothingAndAsksNobodyAgain)
{
    haveThere(3);
    begin();
    ask();
    m_rollout->stop();
    answer("a/1-1", Word::Taken);
    EXPECT_THAT(ask(), IsEmpty());
    EXPECT_FALSE(isOver());
    EXPECT_THAT(askAfter(seconds(40)), IsEmpty());
    EXPECT_EQ(stateOf(1), State::Unknown);
    EXPECT_TRUE(isOver());
}

TEST_F(RolloutOfPanels, withoutTheBroker_nothingHappens)
{
    haveThere(3);
    begin();
    ask();
    job("a/1-2", "writing", 4096);
    ask();
    m_rollout->pause();
    EXPECT_THAT(askAfter(minutes(60)), IsEmpty());
    EXPECT_EQ(stateOf(0), State::Asked);
    EXPECT_EQ(stateOf(1), State::UnderWay);
    EXPECT_FALSE(isOver());
    job("a/1-1", "answering", imageSize);
    m_rollout->resume(m_now);
    EXPECT_EQ(stateOf(0), State::Done);
    EXPECT_EQ(stateOf(1), State::UnderWay);
    EXPECT_THAT(ask(), ElementsAre("a/1-3"));
}

TEST_F(RolloutOfPanels, brokerThatIsBack_whoWasAskedIsAskedAgainSoon)
{
    haveThere(1);
    begin();
    ask();
    m_rollout->pause();
    m_now += seconds(1);
    m_rollout->resume(m_now);
    EXPECT_THAT(askAfter(milliseconds(4999)), IsEmpty());
    EXPECT_THAT(askAfter(milliseconds(1)), ElementsAre("a/1-1"));
}

TEST_F(RolloutOfPanels, brokerThatIsBackWithoutTheGateways_isNotTheEnd)
{
    haveThere(2);
    m_options.atOnce = 1;
    begin();
    ask();
    answer("a/1-1", Word::Taken);
    m_rollout->pause();
    m_view.beginTelling();
    m_view.endTelling();
    m_rollout->resume(m_now);
    EXPECT_THAT(askAfter(milliseconds(89999)), IsEmpty());
    EXPECT_FALSE(isOver());
    host(true, 2);
    place("a/1-2", true, 2);
    EXPECT_THAT(ask(), ElementsAre("a/1-2"));
    host(false, 2);
    answer("a/1-2", Word::Offline);
    askAfter(seconds(1));
    EXPECT_TRUE(isOver());
}

TEST_F(RolloutOfPanels, gatewayThatWasAwayBeforeTheBroker_hasItsTimeAgain)
{
    haveThere(1);
    begin();
    ask();
    host(false, 1);
    ask();
    m_rollout->pause();
    m_now += minutes(60);
    m_rollout->resume(m_now);
    EXPECT_EQ(stateOf(0), State::Asked);
    askAfter(minutes(5));
    EXPECT_EQ(stateOf(0), State::Unknown);
}

TEST_F(RolloutOfPanels, panelThatWasNamed_isReportedThoughNothingWasHeard)
{
    m_options.selection.isAll = false;
    m_options.selection.panels = {"a/1-1", "b/1-1", "a/1-1"};
    haveThere(2);
    begin();
    EXPECT_THAT(ask(), ElementsAre("a/1-1"));
    answer("a/1-1", Word::Taken);
    ask();
    EXPECT_TRUE(isOver());
    EXPECT_EQ(m_rollout->getPanels().size(), 2u);
    EXPECT_EQ(m_rollout->explainAway(at(1)), "nothing has been heard of it");
}

TEST_F(RolloutOfPanels, changes_areToldOnceEachAndByQuarters)
{
    haveThere(2);
    begin();
    ask();
    EXPECT_EQ(m_rollout->takeChanged().size(), 2u);
    EXPECT_THAT(m_rollout->takeChanged(), IsEmpty());
    job("a/1-1", "writing", 0);
    ask();
    EXPECT_EQ(m_rollout->takeChanged().size(), 1u);
    job("a/1-1", "writing", 40959);
    ask();
    EXPECT_THAT(m_rollout->takeChanged(), IsEmpty());
    job("a/1-1", "writing", 40960);
    ask();
    EXPECT_EQ(m_rollout->takeChanged().size(), 1u);
}

TEST_F(RolloutOfPanels, answersOfStrangers_changeNothing)
{
    haveThere(1);
    begin();
    answer("a/1-1", Word::Taken); // was not asked
    answer("b/1-1", Word::Taken);
    EXPECT_EQ(stateOf(0), State::Waiting);
}

} // namespace Vantor

#include "panel2mqtt/desk/FlashDesk.h"

#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>

namespace Vantor {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

const FlashDesk::TimePoint begin{hours(1)};

// A panel's firmware alone.
class FlashLine : public PanelLine {
public:
    void addRecord(std::uint8_t, std::optional<std::uint32_t>, const std::string&) override {}
    void draw(std::uint16_t, std::vector<ClientLcdBitmap>) override {}
    PriorityPacker::Progress getProgress() const override { return {}; }
    unsigned int getPacketLimit() const override { return limit; }
    void startUpgrade(const std::string& mainPath, const std::string& servoPath) override
    {
        starts.push_back(mainPath + "|" + servoPath);
        upgrade = {true, 0, 5000};
    }
    Upgrade getUpgrade() const override { return upgrade; }
    void askInformation() override { ++questions; }

    unsigned int limit = 4120;
    std::vector<std::string> starts;
    Upgrade upgrade;
    int questions = 0;
};

std::string recordOf(std::uint8_t command, std::uint32_t address)
{
    const FirmwareUpgradeCommand reply{command, FirmwareData::MainMcu, address, 0, 0};
    return {reinterpret_cast<const char*>(&reply), sizeof reply};
}

class FlashDeskTest : public testing::Test {
protected:
    FlashDeskTest()
    {
        m_clockText = "T1";
        m_desk.arrive(m_line, begin);
    }

    // Its image is as its sum says.
    static Message commandOf(const std::string& id, const std::string& sum = "x")
    {
        Message command;
        command.topic = "panel/1/h/1-1/do/flash";
        command.payload = "image";
        command.responseTopic = "answers";
        if (!id.empty())
            command.userProperties.emplace_back("id", id);
        command.userProperties.emplace_back("sha256", sum);
        return command;
    }

    void order(const Message& command, FlashDesk::TimePoint now = begin)
    {
        m_desk.add(
            command,
            [this] {
                ++m_reads;
                return m_made;
            },
            now);
    }

    void write(FlashDesk::TimePoint now)
    {
        m_desk.onRecord(40, recordOf(FirmwareUpgradeCommand::ChunkWritten, 0));
        m_desk.onRecord(40, recordOf(FirmwareUpgradeCommand::ChunkWritten, 4096));
        m_line->upgrade = {false, 5000, 5000};
        m_desk.poll(now);
    }

    // From the order to the end.
    void complete(const std::string& id, FlashDesk::TimePoint now)
    {
        order(commandOf(id), now);
        m_desk.poll(now);
        write(now);
        m_desk.onRecord(0, "");
        m_desk.poll(now);
    }

    std::vector<std::string> takeAnswers() { return std::exchange(m_answers, {}); }
    std::vector<std::string> takePublished() { return std::exchange(m_published, {}); }

    FlashOrder::Result m_made = FlashOrder::Images{ShelfImage{"path", 5000, "", nullptr}, std::nullopt};
    int m_reads = 0;
    bool m_isServing = true;
    std::string m_clockText;
    std::vector<std::string> m_answers;            // "word: reason"
    std::vector<std::string> m_published;          // "id payload"
    std::vector<std::string> m_said;               // "id state"
    std::map<std::string, std::string> m_retained; // as the broker has it
    std::shared_ptr<FlashLine> m_line = std::make_shared<FlashLine>();
    FlashDesk m_desk{"0123456789abcdef", [this] { return m_clockText; },
                     [this](const Message&, const Answer& answer) {
                         m_answers.push_back(std::string(DeskJson::nameOf(answer.word)) + ": " + answer.reason);
                     },
                     [this](const std::string& id, const std::string& payload) {
                         if (!m_isServing)
                             return false;
                         m_published.push_back(id + " " + payload);
                         if (payload.empty())
                             m_retained.erase(id);
                         else
                             m_retained[id] = payload;
                         return true;
                     },
                     [this](const std::string& id, const JobState& job) { m_said.push_back(id + " " + job.state); }};
};

TEST_F(FlashDeskTest, order_isToldStepByStepAndAnsweredAtItsEnd)
{
    order(commandOf("j"));
    EXPECT_THAT(takePublished(),
                ElementsAre(R"(j {"state":"queued","bytesWritten":0,"totalBytes":5000,"since":"T1"})"));
    m_clockText = "T2";
    m_desk.poll(begin);
    EXPECT_THAT(m_line->starts, ElementsAre("path|"));
    EXPECT_THAT(takePublished(),
                ElementsAre(R"(j {"state":"writing","bytesWritten":0,"totalBytes":5000,"since":"T2"})"));
    EXPECT_THAT(takeAnswers(), IsEmpty());
    m_clockText = "T3";
    write(begin + seconds(1));
    EXPECT_THAT(takePublished(),
                ElementsAre(R"(j {"state":"written","bytesWritten":5000,"totalBytes":5000,"since":"T3"})"));
    EXPECT_EQ(m_line->questions, 1);
    EXPECT_THAT(takeAnswers(), IsEmpty());
    EXPECT_TRUE(m_desk.isBusy());
    m_desk.onRecord(0, "");
    m_desk.poll(begin + seconds(2));
    EXPECT_THAT(takePublished(),
                ElementsAre(R"(j {"state":"answering","bytesWritten":5000,"totalBytes":5000,"since":"T3"})"));
    EXPECT_THAT(takeAnswers(), ElementsAre("taken: "));
    EXPECT_FALSE(m_desk.isBusy());
}

TEST_F(FlashDeskTest, progress_isToldTwiceASecondAtTheMost)
{
    order(commandOf("j"));
    m_desk.poll(begin);
    takePublished();
    for (unsigned int step = 1; step <= 10; ++step) {
        m_line->upgrade.written = step * 100;
        m_desk.poll(begin + milliseconds(100) * step);
    }
    EXPECT_THAT(takePublished(), ElementsAre(HasSubstr("\"bytesWritten\":500,"), HasSubstr("\"bytesWritten\":1000,")));
}

TEST_F(FlashDeskTest, secondOrder_isBusyAndUnread)
{
    order(commandOf("j"));
    order(commandOf("k"));
    EXPECT_THAT(takeAnswers(), ElementsAre("busy: job j is under way"));
    EXPECT_EQ(m_reads, 1);
    EXPECT_THAT(m_retained, SizeIs(1));
}

TEST_F(FlashDeskTest, repeatedOrder_isAnsweredAtTheEndAndAfterItAndWrittenOnce)
{
    order(commandOf("j"));
    Message again = commandOf("j");
    again.correlation = "other";
    order(again);
    EXPECT_THAT(takeAnswers(), IsEmpty());
    m_desk.poll(begin);
    write(begin);
    m_desk.onRecord(0, "");
    m_desk.poll(begin);
    EXPECT_THAT(takeAnswers(), ElementsAre("taken: ", "taken: "));
    order(commandOf("j"), begin + minutes(1));
    EXPECT_THAT(takeAnswers(), ElementsAre("taken: "));
    EXPECT_THAT(m_line->starts, SizeIs(1));
}

TEST_F(FlashDeskTest, sameIdForAnotherImage_isRefused)
{
    order(commandOf("j", "x"));
    order(commandOf("j", "y"));
    EXPECT_THAT(takeAnswers(), ElementsAre("refused: another command had this id"));
}

TEST_F(FlashDeskTest, repeatedWhenOnlyTheJobIsKnown_isAnsweredByIt)
{
    complete("j", begin);
    takeAnswers();
    order(commandOf("j"), begin + minutes(11));
    EXPECT_THAT(takeAnswers(), ElementsAre("taken: "));
    EXPECT_THAT(m_line->starts, SizeIs(1));
}

TEST_F(FlashDeskTest, repeatedAfterAFailure_getsTheSameAnswerForTenMinutes)
{
    order(commandOf("j"));
    m_desk.poll(begin);
    m_desk.leave(begin);
    const auto first = takeAnswers();
    order(commandOf("j"), begin + minutes(9));
    EXPECT_EQ(takeAnswers(), first);
    order(commandOf("j"), begin + minutes(11));
    EXPECT_THAT(takeAnswers(), ElementsAre("refused: there is a job j already, failed: flash under another id"));
}

TEST_F(FlashDeskTest, readingRefuses_thereIsNoJobAndTheSameIdMayTryAgain)
{
    const auto good = m_made;
    m_made = Answer{Answer::Word::TooLarge, "why"};
    order(commandOf("j"));
    EXPECT_THAT(takeAnswers(), ElementsAre("too-large: why"));
    EXPECT_THAT(m_retained, IsEmpty());
    m_made = good;
    order(commandOf("j"));
    EXPECT_THAT(m_retained, SizeIs(1));
}

TEST_F(FlashDeskTest, packetsTooSmallForAChunk_areRefused)
{
    m_line->limit = 4119;
    order(commandOf("j"));
    EXPECT_THAT(takeAnswers(), ElementsAre("refused: the panel takes packets of 4119 bytes, and firmware needs 4120"));
    EXPECT_EQ(m_reads, 0);
}

TEST_F(FlashDeskTest, noPanel_isOffline)
{
    m_desk.leave(begin);
    order(commandOf("j"));
    EXPECT_THAT(takeAnswers(), ElementsAre("offline: "));
}

TEST_F(FlashDeskTest, panelLeaves_isAnsweredAndNothingIsFlashedWhenItIsBack)
{
    order(commandOf("j"));
    m_desk.poll(begin);
    m_line->upgrade.written = 4096;
    m_desk.leave(begin);
    EXPECT_THAT(takeAnswers(), ElementsAre("offline: the panel left at 4096 of 5000 bytes: flash it again"));
    EXPECT_THAT(m_retained["j"], HasSubstr(R"("state":"failed","bytesWritten":4096)"));
    const auto back = std::make_shared<FlashLine>();
    m_desk.arrive(back, begin + seconds(5));
    m_desk.poll(begin + seconds(6));
    EXPECT_THAT(back->starts, IsEmpty());
}

TEST_F(FlashDeskTest, silence_failsAndTheNextOrderIsBusyWhileTheLibraryGoesOn)
{
    order(commandOf("j"));
    m_desk.poll(begin);
    m_desk.poll(begin + seconds(30));
    EXPECT_THAT(takeAnswers(), ElementsAre(HasSubstr("expired: the panel has confirmed nothing for 30 s")));
    order(commandOf("k"), begin + seconds(31));
    EXPECT_THAT(takeAnswers(), ElementsAre(HasSubstr("busy: an upgrade that has failed can't be stopped")));
    m_line->upgrade.isUpdating = false;
    order(commandOf("l"), begin + seconds(32));
    EXPECT_TRUE(m_desk.isBusy());
}

TEST_F(FlashDeskTest, restartsAfterwards_isTakenWhenItIsBack)
{
    order(commandOf("j"));
    m_desk.poll(begin);
    write(begin);
    m_desk.leave(begin + seconds(1));
    EXPECT_THAT(takeAnswers(), IsEmpty());
    m_desk.arrive(std::make_shared<FlashLine>(), begin + seconds(4));
    EXPECT_THAT(takeAnswers(), ElementsAre("taken: "));
}

TEST_F(FlashDeskTest, jobOfAnEarlierRunNotOver_isInterrupted)
{
    m_desk.remember("old", R"({"state":"writing","bytesWritten":4096,"totalBytes":9000,"since":"T0"})", begin);
    EXPECT_EQ(m_retained["old"], R"({"state":"interrupted","bytesWritten":4096,"totalBytes":9000,"since":"T1",)"
                                 R"("reason":"the gateway ended at 4096 of 9000 bytes: flash it again"})");
    order(commandOf("old"));
    EXPECT_THAT(takeAnswers(), ElementsAre("unknown: job old was interrupted: flash again under another id"));
    EXPECT_FALSE(m_desk.isBusy());
}

TEST_F(FlashDeskTest, beginAndEnd_areSaidOnceEach)
{
    m_desk.remember("old", R"({"state":"writing","bytesWritten":1,"totalBytes":2,"since":"T0"})", begin);
    m_desk.remember("done", R"({"state":"answering","bytesWritten":2,"totalBytes":2,"since":"T0"})", begin);
    complete("j", begin);
    m_desk.publishAll();
    EXPECT_THAT(m_said, ElementsAre("old interrupted", "j queued", "j answering"));
}

TEST_F(FlashDeskTest, job_tellsTheSumsOfItsImages)
{
    const std::string sum(64, 'c');
    m_made = FlashOrder::Images{std::nullopt, ShelfImage{"path", 5000, sum, nullptr}};
    order(commandOf("j"));
    EXPECT_THAT(takePublished(), ElementsAre(R"(j {"state":"queued","bytesWritten":0,"totalBytes":5000,"since":"T1",)"
                                             R"("sha256":{"servo":")" +
                                             sum + "\"}}"));
}

TEST_F(FlashDeskTest, jobOfAnEarlierRunForAnotherImage_isNotTakenForThisOne)
{
    const std::string old(64, 'a');
    m_desk.remember(
        "old", R"({"state":"answering","bytesWritten":2,"totalBytes":2,"since":"T0","sha256":{"main":")" + old + "\"}}",
        begin);
    order(commandOf("old", std::string(64, 'b')));
    EXPECT_THAT(takeAnswers(), ElementsAre("refused: job old was of another image: flash under another id"));
    Message command = commandOf("old", std::string(64, 'A'));
    order(command);
    EXPECT_THAT(takeAnswers(), ElementsAre("taken: "));
    command.userProperties.emplace_back("mcu", "servo");
    order(command);
    EXPECT_THAT(takeAnswers(), ElementsAre("refused: job old was of another image: flash under another id"));
}

TEST_F(FlashDeskTest, jobOfAnEarlierRunThatIsOver_staysAsItIs)
{
    m_desk.remember("old", R"({"state":"failed","bytesWritten":1,"totalBytes":2,"since":"T0","reason":"R"})", begin);
    EXPECT_THAT(m_published, IsEmpty());
    m_desk.publishAll();
    EXPECT_EQ(m_retained["old"], R"({"state":"failed","bytesWritten":1,"totalBytes":2,"since":"T0","reason":"R"})");
}

TEST_F(FlashDeskTest, unreadableJob_isInterrupted)
{
    m_desk.remember("old", "[", begin);
    EXPECT_THAT(m_retained["old"], HasSubstr("interrupted"));
}

TEST_F(FlashDeskTest, toldBeforeItServes_isInterruptedWhenItDoes)
{
    m_isServing = false;
    m_desk.remember("old", R"({"state":"queued","bytesWritten":0,"totalBytes":9000,"since":"T0"})", begin);
    m_isServing = true;
    m_desk.publishAll();
    EXPECT_THAT(m_retained["old"], HasSubstr("interrupted"));
}

TEST_F(FlashDeskTest, ownJobToldAgain_isLeftAlone)
{
    order(commandOf("j"));
    m_desk.poll(begin);
    const std::string before = m_retained["j"];
    m_desk.remember("j", R"({"state":"queued","bytesWritten":0,"totalBytes":5000,"since":"T1"})", begin);
    EXPECT_EQ(m_retained["j"], before);
    EXPECT_TRUE(m_desk.isBusy());
}

TEST_F(FlashDeskTest, jobsThatAreOver_areForgottenAfterADay)
{
    complete("j", begin);
    EXPECT_EQ(m_desk.getNextDue(), begin + hours(24));
    m_desk.poll(begin + hours(24) - seconds(1));
    EXPECT_THAT(m_retained, SizeIs(1));
    m_desk.poll(begin + hours(24));
    EXPECT_THAT(m_retained, IsEmpty());
}

TEST_F(FlashDeskTest, forgottenWithoutAConnection_isClearedLater)
{
    complete("j", begin);
    m_isServing = false;
    m_desk.poll(begin + hours(24));
    EXPECT_EQ(m_desk.getNextDue(), begin + hours(24) + minutes(1));
    m_isServing = true;
    m_desk.poll(begin + hours(24) + minutes(1));
    EXPECT_THAT(m_retained, IsEmpty());
}

TEST_F(FlashDeskTest, ninthJob_clearsTheOldest)
{
    for (int number = 1; number <= 9; ++number) {
        m_clockText = "T" + std::to_string(number);
        complete("j" + std::to_string(number), begin);
    }
    EXPECT_THAT(m_retained, SizeIs(8));
    EXPECT_EQ(m_retained.count("j1"), 0u);
}

TEST_F(FlashDeskTest, manyOfAnEarlierRun_areClearedWhenItServes)
{
    m_isServing = false;
    for (int number = 10; number < 30; ++number) {
        const std::string id = std::to_string(number);
        const std::string text = R"({"state":"failed","bytesWritten":0,"totalBytes":1,"since":"T)" + id + "\"}";
        m_retained[id] = text;
        m_desk.remember(id, text, begin);
    }
    m_isServing = true;
    m_desk.publishAll();
    EXPECT_THAT(m_retained, SizeIs(8));
    EXPECT_EQ(m_retained.count("29"), 1u);
}

TEST_F(FlashDeskTest, ids_areThePropertyTheCorrelationInDigitsOrMadeUp)
{
    Message command = commandOf("");
    command.correlation = std::string("\x01\xFE", 2);
    order(command);
    EXPECT_EQ(m_retained.count("01fe"), 1u);
    m_desk.leave(begin);
    m_desk.arrive(m_line, begin);
    m_line->upgrade = {};
    order(commandOf(""));
    EXPECT_EQ(m_retained.count("01234567-1"), 1u);
}

TEST_F(FlashDeskTest, idThatIsNoLevelOfATopic_isRefused)
{
    for (const std::string& id : {std::string("a/b"), std::string("+"), std::string("#"), std::string(),
                                  std::string(65, 'a'), std::string("a b")}) {
        Message command = commandOf("");
        command.userProperties.emplace_back("id", id);
        order(command);
        EXPECT_THAT(takeAnswers(), ElementsAre(HasSubstr("refused: the id names the job's topic"))) << id;
    }
    EXPECT_THAT(m_retained, IsEmpty());
    order(commandOf(std::string(64, 'a')));
    EXPECT_THAT(m_retained, SizeIs(1));
}

TEST_F(FlashDeskTest, clear_leavesNothing)
{
    complete("j", begin);
    m_desk.clear();
    EXPECT_THAT(m_retained, IsEmpty());
}

} // namespace
} // namespace Vantor

#include "panel2mqtt/desk/Ledger.h"

#include <chrono>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace Vantor {
namespace {

using Word = Answer::Word;
using std::chrono::minutes;
using std::chrono::nanoseconds;
using std::chrono::seconds;

constexpr Answer::Word taken = Word::Taken;

Message commandOf(const std::string& id, const std::string& payload = "p", const std::string& responseTopic = "me")
{
    Message command;
    command.topic = "panel/1/shop/1-4/do/send/5";
    command.payload = payload;
    command.responseTopic = responseTopic;
    if (!id.empty())
        command.userProperties.emplace_back("id", id);
    return command;
}

class LedgerTest : public testing::Test {
protected:
    struct Said {
        std::string to;
        std::string correlation;
        Word word;
        std::string reason;
    };

    std::uint64_t open(const Message& command)
    {
        const auto ticket = m_ledger.open(command, m_now);
        EXPECT_TRUE(ticket) << command.payload;
        return ticket.value_or(0);
    }
    bool isNew(const Message& command) { return m_ledger.open(command, m_now).has_value(); }
    void close(std::uint64_t ticket, Word word, bool isRemembered = true, const std::string& reason = "")
    {
        m_ledger.close(ticket, {word, reason}, isRemembered, m_now);
    }

    std::vector<Said> m_said;
    Ledger m_ledger{[this](const Message& command, const Answer& answer) {
        m_said.push_back({command.responseTopic, command.correlation.value_or("-"), answer.word, answer.reason});
    }};
    Ledger::TimePoint m_now{seconds(1000)};
};

} // namespace

TEST_F(LedgerTest, command_isAnsweredOnceWhereItAsked)
{
    Message command = commandOf("a");
    command.correlation = std::string("c\0d", 3);
    const auto ticket = open(command);
    EXPECT_TRUE(m_said.empty());
    close(ticket, taken);
    ASSERT_EQ(m_said.size(), 1u);
    EXPECT_EQ(m_said[0].to, "me");
    EXPECT_EQ(m_said[0].correlation, std::string("c\0d", 3));
    EXPECT_EQ(m_said[0].word, taken);
    close(ticket, Word::Expired);
    EXPECT_EQ(m_said.size(), 1u);
    EXPECT_FALSE(isNew(command));
    EXPECT_EQ(m_said.back().word, taken);
    m_now += minutes(10);
    EXPECT_TRUE(isNew(command));
}

TEST_F(LedgerTest, ticketThatWasNeverGiven_isIgnored)
{
    close(17, taken);
    EXPECT_TRUE(m_said.empty());
}

TEST_F(LedgerTest, commandsWithoutId_areAllNew)
{
    const auto one = open(commandOf(""));
    const auto other = open(commandOf(""));
    EXPECT_NE(one, other);
    close(one, taken);
    close(other, Word::Unknown);
    EXPECT_TRUE(isNew(commandOf("")));
    ASSERT_EQ(m_said.size(), 2u);
    EXPECT_EQ(m_said[0].word, taken);
    EXPECT_EQ(m_said[1].word, Word::Unknown);
}

TEST_F(LedgerTest, repetitionWhilePending_isAnsweredToEachAskerOnce)
{
    const auto ticket = open(commandOf("a", "p", "one"));
    EXPECT_FALSE(isNew(commandOf("a", "p", "one")));
    EXPECT_FALSE(isNew(commandOf("a", "p", "two")));
    EXPECT_FALSE(isNew(commandOf("a", "p", "two")));
    Message other = commandOf("a", "p", "two");
    other.correlation = "x";
    EXPECT_FALSE(isNew(other));
    EXPECT_TRUE(m_said.empty());
    close(ticket, taken);
    ASSERT_EQ(m_said.size(), 3u);
    EXPECT_EQ(m_said[0].to, "one");
    EXPECT_EQ(m_said[1].to, "two");
    EXPECT_EQ(m_said[1].correlation, "-");
    EXPECT_EQ(m_said[2].to, "two");
    EXPECT_EQ(m_said[2].correlation, "x");
}

TEST_F(LedgerTest, ninthAsker_isToldThatThereAreTooMany)
{
    const auto ticket = open(commandOf("a", "p", "0"));
    for (int i = 1; i < 8; ++i)
        EXPECT_FALSE(isNew(commandOf("a", "p", std::to_string(i))));
    EXPECT_TRUE(m_said.empty());
    EXPECT_FALSE(isNew(commandOf("a", "p", "8")));
    EXPECT_FALSE(isNew(commandOf("a", "p", "7"))); // one of the eight
    ASSERT_EQ(m_said.size(), 1u);
    EXPECT_EQ(m_said[0].to, "8");
    EXPECT_EQ(m_said[0].word, Word::Busy);
    close(ticket, taken);
    EXPECT_EQ(m_said.size(), 9u);
}

TEST_F(LedgerTest, repetitionAfterTheAnswer_getsTheSameAnswer)
{
    close(open(commandOf("a")), Word::Offline, true, "why");
    EXPECT_FALSE(isNew(commandOf("a", "p", "later")));
    EXPECT_FALSE(isNew(commandOf("a", "p", "later")));
    ASSERT_EQ(m_said.size(), 3u);
    for (const Said& said : m_said) {
        EXPECT_EQ(said.word, Word::Offline);
        EXPECT_EQ(said.reason, "why");
    }
    EXPECT_EQ(m_said[2].to, "later");
}

TEST_F(LedgerTest, repetitionOfWhatNeverReachedThePanel_isNew)
{
    close(open(commandOf("a")), Word::Busy, false);
    const auto again = open(commandOf("a"));
    close(again, taken);
    ASSERT_EQ(m_said.size(), 2u);
    EXPECT_EQ(m_said[1].word, taken);
}

TEST_F(LedgerTest, otherPayloadOrTopicUnderAnId_isRefused)
{
    const auto ticket = open(commandOf("a", "p"));
    EXPECT_FALSE(isNew(commandOf("a", "q")));
    Message other = commandOf("a", "p");
    other.topic = "panel/1/shop/1-4/do/send/6";
    EXPECT_FALSE(isNew(other));
    close(ticket, taken);
    EXPECT_FALSE(isNew(commandOf("a", "q")));
    ASSERT_EQ(m_said.size(), 4u);
    for (const std::size_t i : {0u, 1u, 3u}) {
        EXPECT_EQ(m_said[i].word, Word::Refused);
        EXPECT_EQ(m_said[i].reason, "another command had this id");
    }
}

TEST_F(LedgerTest, correlation_isTheIdWhereThereIsNone)
{
    Message command = commandOf("");
    command.correlation = std::string("\0\xff", 2);
    close(open(command), taken);
    EXPECT_FALSE(isNew(command));
    command.correlation = std::string("\0\xfe", 2);
    EXPECT_TRUE(isNew(command));
    command.correlation = "";
    EXPECT_TRUE(isNew(command));
    EXPECT_TRUE(isNew(command));
}

TEST_F(LedgerTest, property_isTheIdBeforeTheCorrelation)
{
    Message command = commandOf("a");
    command.correlation = "one";
    close(open(command), taken);
    command.correlation = "two";
    EXPECT_FALSE(isNew(command));
    EXPECT_EQ(m_said.back().correlation, "two");
    EXPECT_TRUE(isNew(commandOf("b")));
}

TEST_F(LedgerTest, idOf64Bytes_isRememberedAndOf65Refused)
{
    close(open(commandOf(std::string(64, 'i'))), taken);
    EXPECT_FALSE(isNew(commandOf(std::string(64, 'i'))));
    m_said.clear();
    EXPECT_FALSE(isNew(commandOf(std::string(65, 'i'))));
    Message command = commandOf("");
    command.correlation = std::string(65, 'i');
    EXPECT_FALSE(isNew(command));
    command.userProperties.emplace_back("id", "short");
    EXPECT_TRUE(isNew(command));
    ASSERT_EQ(m_said.size(), 2u);
    for (const Said& said : m_said) {
        EXPECT_EQ(said.word, Word::Refused);
        EXPECT_EQ(said.reason, "the id has more than 64 bytes");
    }
}

TEST_F(LedgerTest, whereTheAnswerGoes_isBounded)
{
    Message command = commandOf("a", "p", std::string(1000, 't'));
    command.correlation = std::string(24, 'c');
    EXPECT_TRUE(isNew(command));
    command.correlation = std::string(25, 'c');
    EXPECT_FALSE(isNew(command));
    ASSERT_EQ(m_said.size(), 1u);
    EXPECT_EQ(m_said[0].word, Word::Refused);
    EXPECT_EQ(m_said[0].reason, "the response topic and the correlation data have more than 1024 bytes");
}

TEST_F(LedgerTest, answers_areRememberedForTenMinutes)
{
    close(open(commandOf("a")), taken);
    m_now += minutes(10) - nanoseconds(1);
    EXPECT_FALSE(isNew(commandOf("a")));
    m_now += nanoseconds(1); // the repetition has not lengthened it
    EXPECT_TRUE(isNew(commandOf("a")));
}

TEST_F(LedgerTest, tenMinutes_beginWithTheAnswer)
{
    const auto ticket = open(commandOf("a"));
    m_now += minutes(60);
    EXPECT_FALSE(isNew(commandOf("a")));
    close(ticket, taken);
    m_now += minutes(9);
    EXPECT_FALSE(isNew(commandOf("a")));
}

TEST_F(LedgerTest, ofAnswers_1024AreRemembered)
{
    for (int i = 0; i < 1025; ++i)
        close(open(commandOf(std::to_string(i))), taken);
    EXPECT_FALSE(isNew(commandOf("1")));
    EXPECT_FALSE(isNew(commandOf("1024")));
    EXPECT_TRUE(isNew(commandOf("0")));
}

TEST_F(LedgerTest, pendingOnes_areNeverForgotten)
{
    const auto first = open(commandOf("first"));
    for (int i = 0; i < 2000; ++i)
        close(open(commandOf(std::to_string(i))), taken);
    m_now += minutes(60);
    EXPECT_FALSE(isNew(commandOf("first")));
    m_said.clear();
    close(first, taken);
    EXPECT_EQ(m_said.size(), 1u);
}

TEST_F(LedgerTest, commandWithoutResponseTopic_keepsItsPlaceForThoseThatAsk)
{
    const auto ticket = open(commandOf("a", "p", ""));
    EXPECT_FALSE(isNew(commandOf("a", "p", "asks")));
    close(ticket, taken);
    ASSERT_EQ(m_said.size(), 2u);
    EXPECT_EQ(m_said[0].to, "");
    EXPECT_EQ(m_said[1].to, "asks");
}

} // namespace Vantor

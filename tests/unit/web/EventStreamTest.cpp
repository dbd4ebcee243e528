#include "simulator/web/EventStream.h"

#include "tests/unit/web/WebBus.h"

#include <algorithm>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class EventStreamTest : public testing::Test {
protected:
    EventStreamTest() { m_bus.plug(0); }

    std::string next() { return next(m_stream); }

    // What has happened by now.
    std::string next(EventStream& stream)
    {
        m_feed.refresh();
        return stream.next(60s);
    }

    static std::vector<std::string> eventsIn(const std::string& text)
    {
        std::vector<std::string> events;
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);)
            if (line.rfind("event: ", 0) == 0)
                events.push_back(line.substr(7));
        return events;
    }

    static std::size_t countRecords(const std::string& text)
    {
        std::size_t count = 0;
        for (std::size_t at = text.find("\"way\""); at != std::string::npos; at = text.find("\"way\"", at + 1))
            ++count;
        return count;
    }

    PanelBoard m_board;
    WebBus m_bus{m_board, {{0, {8, 2}}}};
    ScreenFeed m_feed{m_board, m_bus.getUse()};
    std::chrono::nanoseconds m_now{3600s};
    EventStream m_stream{m_board, m_feed, "abc", {}, [this] { return m_now; }};
};

TEST_F(EventStreamTest, beginning_isTheStateThenPicturesAndRecords)
{
    m_bus.send(0, 5, {3, 4});
    m_bus.draw(0, 0, 0, 0, 8, 1, {0xFF});
    std::string text = next();
    text += next();
    EXPECT_THAT(eventsIn(text), ElementsAre("state", "screen", "records"));
    EXPECT_THAT(text, HasSubstr("\"simulation\":\"abc\""));
    EXPECT_THAT(text, HasSubstr("\"way\":\"out\",\"type\":5,\"size\":2,\"bytes\":\"0304\"}"));
}

TEST_F(EventStreamTest, whatComes_isToldOnce)
{
    next();
    m_bus.execute(UnplugOrder{0});
    m_bus.execute(PlugOrder{0});
    m_board.onViolation(0, "a \"bad\" thing");
    const std::string text = next();
    EXPECT_THAT(text, HasSubstr("\"line\":\"unplug 0\""));
    EXPECT_THAT(text, HasSubstr("\"line\":\"plug 0\""));
    EXPECT_THAT(text, HasSubstr("\"text\":\"a \\\"bad\\\" thing\""));
    EXPECT_THAT(eventsIn(text), testing::Contains("panel"));
    m_board.onViolation(0, "another");
    EXPECT_THAT(next(), Not(HasSubstr("bad")));
}

TEST_F(EventStreamTest, tooManyRecordsAtOnce_areToldAsMissed)
{
    next();
    for (std::size_t i = 0; i < EventStream::mostRecords + 7; ++i)
        m_bus.send(0, 5, {});
    const std::string text = next();
    EXPECT_THAT(text, HasSubstr("\"missed\":7,"));
    EXPECT_EQ(countRecords(text), EventStream::mostRecords);
}

TEST_F(EventStreamTest, beginningWithManyRecords_hasTheLastAndNoneMissed)
{
    for (std::size_t i = 0; i < EventStream::firstRecords + 50; ++i)
        m_bus.send(0, 5, {});
    std::string text = next();
    text += next();
    EXPECT_THAT(text, HasSubstr("\"missed\":0,"));
    EXPECT_EQ(countRecords(text), EventStream::firstRecords);
}

TEST_F(EventStreamTest, traffic_isToldAtItsPace)
{
    next();
    m_bus.send(0, 5, {});
    EXPECT_THAT(next(), HasSubstr("\"panels\":[{\"panel\":0,\"out\":{\"packets\":1,\"bytes\":11,\"records\":1}"));
    m_now += 499ms;
    m_bus.send(0, 5, {});
    EXPECT_THAT(eventsIn(next()), ElementsAre("records"));
    m_now += 1ms;
    m_bus.send(0, 5, {});
    EXPECT_THAT(next(), HasSubstr("\"packets\":3"));
}

TEST_F(EventStreamTest, withoutScreensOrRecords_theyAreLeftAway)
{
    EventStream stream(m_board, m_feed, "abc", {false, false}, [this] { return m_now; });
    next(stream);
    m_bus.draw(0, 0, 0, 0, 8, 1, {0xFF});
    EXPECT_THAT(eventsIn(next(stream)), ElementsAre("traffic"));
}

TEST_F(EventStreamTest, end_comesBehindEverything)
{
    next();
    m_bus.draw(0, 0, 0, 0, 8, 1, {0xFF});
    m_feed.end();
    EXPECT_THAT(eventsIn(m_stream.next(60s)), ElementsAre("screen", "records", "traffic", "end"));
    EXPECT_TRUE(m_stream.hasEnded());
    EXPECT_EQ(m_stream.next(60s), "");
}

TEST_F(EventStreamTest, nothingNew_isNothingAfterItsPatience)
{
    next();
    EventStream stream(m_board, m_feed, "abc", {}, [this] { return m_now += 1s; });
    EXPECT_NE(stream.next(0s), "") << "the beginning";
    stream.next(2s);
    EXPECT_EQ(stream.next(2s), "");
}

} // namespace Vantor

#include "libMorvaneHostUsb/Log.h"
#include "libMorvaneHostUsb/LogOutput.h"

#include <future>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

namespace Vantor {
namespace {

class LevelRestored {
public:
    LevelRestored() : m_level(logLevel) {}
    ~LevelRestored() { logLevel = m_level; }
    LevelRestored(const LevelRestored&) = delete;
    LevelRestored& operator=(const LevelRestored&) = delete;

private:
    int m_level;
};

void setLevel(int level)
{
    setLogLevel(static_cast<LogLevel::Level>(level));
}

template <typename Operation> std::string printedBy(Operation operation)
{
    testing::internal::CaptureStdout();
    operation();
    return testing::internal::GetCapturedStdout();
}

bool isLogMutexFree()
{
    return std::async(std::launch::async,
                      [] {
                          const std::unique_lock<std::mutex> lock(s_logMutex, std::try_to_lock);
                          return lock.owns_lock();
                      })
        .get();
}

int throwing()
{
    throw std::runtime_error("argument");
}

} // namespace

TEST(Log, level_isThreeAtStart)
{
    // No test leaves another level behind.
    EXPECT_EQ(logLevel, 3);
}

TEST(Log, setLogLevel_storesAnyValueAsItIs)
{
    const LevelRestored restored;
    for (const int level : {0, 1, 2, 5, 6, 1000000, -1, -2147483647 - 1}) {
        setLevel(level);
        EXPECT_EQ(logLevel, level);
    }
}

TEST(Log, message_isPrintedFromItsLevelOn)
{
    const LevelRestored restored;
    for (int level = -2; level <= 7; ++level) {
        for (int threshold = 2; threshold <= 5; ++threshold) {
            SCOPED_TRACE(testing::Message() << "level " << level << " message " << threshold);
            setLevel(level);
            EXPECT_EQ(printedBy([&] { MORVANE_LOG(threshold, "n=%d\n", 7); }), level >= threshold ? "n=7\n" : "");
            EXPECT_EQ(printedBy([&] { MORVANE_LOG_LINE(threshold, "line"); }), level >= threshold ? "line\n" : "");
        }
    }
}

TEST(Log, initialLevel_printsSummariesAndErrorsButNoDetail)
{
    EXPECT_EQ(printedBy([] {
                  MORVANE_LOG(2, "error\n");
                  MORVANE_LOG(3, "summary\n");
                  MORVANE_LOG(4, "detail\n");
                  MORVANE_TRACE("trace\n");
              }),
              "error\nsummary\n");
}

TEST(Log, level0_silencesEverything)
{
    const LevelRestored restored;
    setLogLevel(LogLevel::Silent);
    EXPECT_EQ(printedBy([] {
                  MORVANE_LOG(2, "error\n");
                  MORVANE_TRACE("trace\n");
                  MORVANE_TRACE_LINE("trace");
              }),
              "");
}

TEST(Log, level5_prefixesTracesWithTheirPosition)
{
    const LevelRestored restored;
    setLogLevel(LogLevel::Trace);
    int line = 0;
    const std::string formatted = printedBy([&line] {
        line = __LINE__ + 1;
        MORVANE_TRACE("%s %d\n", "text", 1);
    });
    EXPECT_EQ(formatted, std::string(__FILE__) + ":" + std::to_string(line) + ": text 1\n");
    const std::string fixed = printedBy([&line] {
        line = __LINE__ + 1;
        MORVANE_TRACE_LINE("text");
    });
    EXPECT_EQ(fixed, std::string(__FILE__) + ":" + std::to_string(line) + ": text\n");
}

TEST(Log, level4_printsNoTrace)
{
    const LevelRestored restored;
    setLogLevel(LogLevel::Detail);
    EXPECT_EQ(printedBy([] {
                  MORVANE_TRACE("text\n");
                  MORVANE_TRACE_LINE("text");
              }),
              "");
}

TEST(Log, valuesOutsideTheRange_actLikeItsEnds)
{
    const LevelRestored restored;
    const auto all = [] {
        MORVANE_LOG(2, "2");
        MORVANE_LOG(3, "3");
        MORVANE_LOG(4, "4");
        MORVANE_LOG(5, "5");
    };
    setLevel(1000);
    EXPECT_EQ(printedBy(all), "2345");
    setLevel(-1000);
    EXPECT_EQ(printedBy(all), "");
}

TEST(Log, argumentsOfAnUnprintedMessage_areNotEvaluated)
{
    int evaluations = 0;
    EXPECT_EQ(printedBy([&] { MORVANE_LOG(4, "%d", ++evaluations); }), "");
    EXPECT_EQ(evaluations, 0);
    EXPECT_EQ(printedBy([&] { MORVANE_LOG(3, "%d", ++evaluations); }), "1");
}

TEST(Log, mutex_isHeldAroundTheOutputCallOnly)
{
    bool freeDuring = true;
    EXPECT_EQ(printedBy([&] { MORVANE_LOG(3, "%s", (freeDuring = isLogMutexFree(), "text")); }), "text");
    EXPECT_FALSE(freeDuring);
    EXPECT_TRUE(isLogMutexFree());
}

TEST(Log, exceptionDuringOutput_releasesTheMutex)
{
    EXPECT_THROW(MORVANE_LOG(3, "%d", throwing()), std::runtime_error);
    EXPECT_TRUE(isLogMutexFree());
}

} // namespace Vantor

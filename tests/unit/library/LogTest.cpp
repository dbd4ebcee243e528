#include "libMorvaneHostUsb/Log.h"
#include "libMorvaneHostUsb/LogOutput.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

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
    cookie_io_functions_t operations{};
    operations.write = [](void* cookie, const char* /*text*/, std::size_t size) {
        *static_cast<bool*>(cookie) = isLogMutexFree();
        return static_cast<ssize_t>(size);
    };
    std::FILE* const terminal = stdout;
    stdout = fopencookie(&freeDuring, "w", operations);
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    bool freeBefore = false;
    MORVANE_LOG(3, "%s", (freeBefore = isLogMutexFree(), "text"));
    std::fclose(stdout);
    stdout = terminal;
    EXPECT_TRUE(freeBefore);
    EXPECT_FALSE(freeDuring);
    EXPECT_TRUE(isLogMutexFree());
}

TEST(Log, exceptionInAnArgument_leavesTheMutexFree)
{
    EXPECT_THROW(MORVANE_LOG(3, "%d", throwing()), std::runtime_error);
    EXPECT_TRUE(isLogMutexFree());
}

namespace {

using Told = std::vector<std::pair<int, std::string>>;

// Collects what is told until the end of its scope.
class SinkSet {
public:
    SinkSet()
    {
        setLogSink([this](LogLevel::Level level, std::string_view text) { told.emplace_back(level, text); });
    }
    ~SinkSet() { setLogSink(nullptr); }
    SinkSet(const SinkSet&) = delete;
    SinkSet& operator=(const SinkSet&) = delete;

    Told told;
};

} // namespace

TEST(LogSink, messages_goToItWithTheirLevelAndWithoutTheirNewline)
{
    const LevelRestored restored;
    setLogLevel(LogLevel::Detail);
    const SinkSet sink;
    EXPECT_EQ(printedBy([] {
                  MORVANE_LOG(2, "error %d\n", 1);
                  MORVANE_LOG(3, "two newlines\n\n");
                  MORVANE_LOG_LINE(4, "a line");
                  MORVANE_LOG(5, "not at this level\n");
                  MORVANE_LOG(2, "%s", "");
              }),
              "");
    EXPECT_EQ(sink.told, (Told{{2, "error 1"}, {3, "two newlines"}, {4, "a line"}, {2, ""}}));
}

TEST(LogSink, trace_isOneMessageWithItsPosition)
{
    const LevelRestored restored;
    setLogLevel(LogLevel::Trace);
    const SinkSet sink;
    const int line = __LINE__ + 1;
    MORVANE_TRACE("%s %d\n", "text", 1);
    MORVANE_TRACE_LINE("100 %");
    const std::string file = __FILE__;
    EXPECT_EQ(sink.told, (Told{{5, file + ":" + std::to_string(line) + ": text 1"},
                               {5, file + ":" + std::to_string(line + 1) + ": 100 %"}}));
}

TEST(LogSink, textOfAnyLength_comesWhole)
{
    const SinkSet sink;
    for (const std::size_t length : {254U, 255U, 256U, 257U, 70000U})
        MORVANE_LOG(2, "%s\n", std::string(length, 'x').c_str());
    ASSERT_EQ(sink.told.size(), 5U);
    std::size_t i = 0;
    for (const std::size_t length : {254U, 255U, 256U, 257U, 70000U})
        EXPECT_EQ(sink.told[i++].second, std::string(length, 'x'));
}

TEST(LogSink, removed_standardOutputIsBack)
{
    {
        const SinkSet sink;
    }
    EXPECT_EQ(printedBy([] { MORVANE_LOG(2, "text\n"); }), "text\n");
}

TEST(LogSink, runsWithTheMutexHeld)
{
    bool freeDuring = true;
    setLogSink([&freeDuring](LogLevel::Level /*level*/, std::string_view /*text*/) { freeDuring = isLogMutexFree(); });
    MORVANE_LOG(2, "text\n");
    setLogSink(nullptr);
    EXPECT_FALSE(freeDuring);
    EXPECT_TRUE(isLogMutexFree());
}

TEST(LogSink, setByTheSinkItself_isSetForTheNextMessage)
{
    const SinkSet last;
    std::vector<std::string> told;
    const auto held = std::make_shared<int>(7);
    setLogSink([&told, &last, held](LogLevel::Level level, std::string_view text) {
        auto* const sink = const_cast<SinkSet*>(&last);
        setLogSink([sink](LogLevel::Level next, std::string_view line) { sink->told.emplace_back(next, line); });
        // What this function has captured is still there.
        told.push_back(std::to_string(*held) + std::string(text) + std::to_string(level));
    });
    EXPECT_EQ(held.use_count(), 2);
    MORVANE_LOG(2, "a\n");
    EXPECT_EQ(held.use_count(), 1);
    MORVANE_LOG(3, "b\n");
    EXPECT_EQ(told, std::vector<std::string>{"7a2"});
    EXPECT_EQ(last.told, (Told{{3, "b"}}));
}

TEST(LogSink, messagesOutOfTheSink_areDropped)
{
    const LevelRestored restored;
    setLogLevel(LogLevel::Trace);
    int calls = 0;
    setLogSink([&calls](LogLevel::Level /*level*/, std::string_view /*text*/) {
        ++calls;
        MORVANE_LOG(2, "again\n");
        MORVANE_LOG_LINE(2, "again");
        MORVANE_TRACE_LINE("again");
    });
    EXPECT_EQ(printedBy([] { MORVANE_LOG(2, "text\n"); }), "");
    MORVANE_LOG(2, "text\n");
    setLogSink(nullptr);
    EXPECT_EQ(calls, 2);
}

TEST(LogSink, removalWaitsForACallUnderWay)
{
    std::promise<void> entered;
    std::promise<void> leave;
    std::atomic<bool> left{false};
    setLogSink([&](LogLevel::Level /*level*/, std::string_view /*text*/) {
        entered.set_value();
        leave.get_future().wait();
        left = true;
    });
    auto message = std::async(std::launch::async, [] { MORVANE_LOG(2, "text\n"); });
    entered.get_future().wait();
    auto removal = std::async(std::launch::async, [&left] {
        setLogSink(nullptr);
        return left.load();
    });
    EXPECT_EQ(removal.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
    leave.set_value();
    EXPECT_TRUE(removal.get());
    message.get();
}

TEST(LogSink, changedWhileThreadsLog_everyMessageGoesToOneOfThem)
{
    constexpr int threads = 3;
    constexpr int messages = 2000;
    int first = 0; // one call at a time
    int second = 0;
    const auto count = [](int& counter) {
        return [&counter](LogLevel::Level /*level*/, std::string_view /*text*/) { ++counter; };
    };
    setLogSink(count(first));
    std::vector<std::future<void>> loggers;
    for (int i = 0; i < threads; ++i)
        loggers.push_back(std::async(std::launch::async, [] {
            for (int n = 0; n < messages; ++n)
                MORVANE_LOG(2, "%d\n", n);
        }));
    for (int n = 0; n < 500; ++n) {
        setLogSink(count(second));
        setLogSink(count(first));
    }
    for (auto& logger : loggers)
        logger.get();
    setLogSink(nullptr);
    EXPECT_EQ(first + second, threads * messages);
}

namespace {

// Says so when it goes, as the last handle of a device does.
struct Talkative {
    ~Talkative() { MORVANE_LOG(2, "gone\n"); }
};

} // namespace

TEST(LogSink, whatAReplacedSinkOwns_mayLogAsItGoes)
{
    const auto owning = [](const std::shared_ptr<Talkative>& owned) {
        return [owned](LogLevel::Level /*level*/, std::string_view /*text*/) {};
    };
    setLogSink(owning(std::make_shared<Talkative>()));
    {
        const SinkSet next;
        EXPECT_EQ(next.told, (Told{{2, "gone"}}));
    }
    // And one that replaces itself.
    Told told;
    setLogSink([owned = std::make_shared<Talkative>(), &told](LogLevel::Level /*level*/, std::string_view /*text*/) {
        setLogSink([&told](LogLevel::Level level, std::string_view text) { told.emplace_back(level, text); });
    });
    MORVANE_LOG(2, "text\n");
    setLogSink(nullptr);
    EXPECT_EQ(told, (Told{{2, "gone"}}));
}

} // namespace Vantor

// The log sink when there is no memory.
#include "libMorvaneHostUsb/LogOutput.h"
#include "tests/unit/library/AllocationFailure.h"

#include <algorithm>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

namespace Vantor::Test {

TEST(LogMemory, messagesOfUsualLength_takeNone)
{
    std::size_t length = 0;
    setLogSink([&length](LogLevel::Level /*level*/, std::string_view text) { length = text.size(); });
    const std::string longest(511, 'x');
    bool hasHappened = false;
    {
        const AllocationFailure failure(1);
        MORVANE_LOG(2, "%s", longest.c_str());
        hasHappened = failure.hasHappened();
    }
    setLogSink(nullptr);
    EXPECT_FALSE(hasHappened);
    EXPECT_EQ(length, 511U);
}

TEST(LogMemory, longMessage_isCutWhereThereIsNone)
{
    char told[600]{};
    setLogSink([&told](LogLevel::Level /*level*/, std::string_view text) {
        std::memcpy(told, text.data(), std::min(text.size(), sizeof told - 1));
    });
    const std::string text(1000, 'x');
    bool hasHappened = false;
    {
        const AllocationFailure failure(1);
        MORVANE_LOG(2, "%s", text.c_str());
        hasHappened = failure.hasHappened();
    }
    setLogSink(nullptr);
    EXPECT_TRUE(hasHappened);
    EXPECT_EQ(told, std::string(511, 'x'));
}

} // namespace Vantor::Test

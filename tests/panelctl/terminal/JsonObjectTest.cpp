#include "panelctl/terminal/JsonObject.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>

#include <gtest/gtest.h>

namespace Vantor {

TEST(JsonObject, nothing_isAnEmptyObject)
{
    EXPECT_EQ(JsonObject().format(), "{}");
    EXPECT_EQ(JsonObject("left").format(), R"({"event":"left"})");
}

TEST(JsonObject, members_keepTheirOrder)
{
    JsonObject object("b");
    object.add("z", 1).add("a", 2).add("m", 3);
    EXPECT_EQ(object.format(), R"({"event":"b","z":1,"a":2,"m":3})");
}

TEST(JsonObject, values_areOfTheirTypes)
{
    JsonObject object;
    object.add("text", "a")
        .add("yes", true)
        .add("most", std::numeric_limits<std::uint64_t>::max())
        .add("least", std::numeric_limits<std::int64_t>::min())
        .add("byte", std::uint8_t{200})
        .add("real", 0.25)
        .add("nothing", nullptr)
        .add("some", std::optional(7))
        .add("none", std::optional<int>());
    EXPECT_EQ(object.format(), R"({"text":"a","yes":true,"most":18446744073709551615,"least":-9223372036854775808,)"
                               R"("byte":200,"real":0.25,"nothing":null,"some":7,"none":null})");
}

TEST(JsonObject, whatIsNoNumber_isNull)
{
    JsonObject object;
    object.add("a", std::nan("")).add("b", std::numeric_limits<double>::infinity());
    EXPECT_EQ(object.format(), R"({"a":null,"b":null})");
}

TEST(JsonObject, objects_lieInEachOther)
{
    JsonObject inner;
    inner.add("n", 1);
    std::vector<JsonObject> several(2);
    several.front().add("n", 2);
    JsonObject object;
    object.add("one", inner)
        .add("several", several)
        .add("none", std::vector<JsonObject>())
        .add("numbers", std::vector<std::uint64_t>{3, 0});
    EXPECT_EQ(object.format(), R"({"one":{"n":1},"several":[{"n":2},{}],"none":[],"numbers":[3,0]})");
}

TEST(JsonObject, textWithQuotesAndControls_isEscaped)
{
    JsonObject object;
    object.add("text", "\"\\\n\x01\x7F");
    EXPECT_EQ(object.format(), "{\"text\":\"\\\"\\\\\\n\\u0001\x7F\"}");
}

// U+FFFD is EF BF BD.
TEST(JsonObject, textThatIsNoUtf8_isReplaced)
{
    JsonObject object;
    object.add("text", "a\xFFz\xC3").add("good", "\xC3\xA4");
    EXPECT_EQ(object.format(), "{\"text\":\"a\xEF\xBF\xBDz\xEF\xBF\xBD\",\"good\":\"\xC3\xA4\"}");
}

TEST(JsonObject, nameGivenAgain_holdsTheLastValue)
{
    JsonObject object;
    object.add("n", 1).add("n", 2);
    EXPECT_EQ(object.format(), R"({"n":2})");
}

} // namespace Vantor

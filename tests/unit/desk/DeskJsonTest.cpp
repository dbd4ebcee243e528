#include "panel2mqtt/desk/DeskJson.h"

#include <string>

#include <gtest/gtest.h>

namespace Vantor {

TEST(DeskJson, answers_areNamedAsDocumented)
{
    using Word = Answer::Word;
    EXPECT_STREQ(DeskJson::nameOf(Word::Taken), "taken");
    EXPECT_STREQ(DeskJson::nameOf(Word::Busy), "busy");
    EXPECT_STREQ(DeskJson::nameOf(Word::TooLarge), "too-large");
    EXPECT_STREQ(DeskJson::nameOf(Word::Offline), "offline");
    EXPECT_STREQ(DeskJson::nameOf(Word::Expired), "expired");
    EXPECT_STREQ(DeskJson::nameOf(Word::Refused), "refused");
    EXPECT_STREQ(DeskJson::nameOf(Word::Unknown), "unknown");
}

TEST(DeskJson, hostState_isAsDocumented)
{
    EXPECT_EQ(DeskJson::write(HostState{true, 1763849971423u, "5f3a9c04d2b87e61", "1.2.1"}),
              R"({"online":true,"epoch":1763849971423,"run":"5f3a9c04d2b87e61","version":"1.2.1"})");
}

TEST(DeskJson, placeState_hasAReasonWhenThereIsOne)
{
    EXPECT_EQ(DeskJson::write(PlaceState{true, 7, "2026-11-22T22:19:31Z", ""}),
              R"({"online":true,"epoch":7,"since":"2026-11-22T22:19:31Z"})");
    EXPECT_EQ(DeskJson::write(PlaceState{false, 7, "2026-11-22T22:19:31Z", "unplugged"}),
              R"({"online":false,"epoch":7,"since":"2026-11-22T22:19:31Z","reason":"unplugged"})");
}

TEST(DeskJson, info_isAsDocumented)
{
    EXPECT_EQ(DeskJson::write("1-4.2", PanelInfo{"Panel", 8192, 8181}),
              R"({"place":"1-4.2","description":"Panel","maxPacketSize":8192,"payloadLimit":8181})");
}

TEST(DeskJson, answer_hasAReasonWhenThereIsOne)
{
    EXPECT_EQ(DeskJson::write(Answer{Answer::Word::Taken, ""}, "shop-17", "1-4.2"),
              R"({"answer":"taken","host":"shop-17","place":"1-4.2"})");
    EXPECT_EQ(DeskJson::write(Answer{Answer::Word::Refused, "a \"reason\""}, "shop-17", ""),
              R"({"answer":"refused","host":"shop-17","reason":"a \"reason\""})");
}

TEST(DeskJson, textThatIsNotUtf8_isReplaced)
{
    EXPECT_EQ(DeskJson::write("1-4", PanelInfo{"a\xff"
                                               "b\x01",
                                               1, 2}),
              "{\"place\":\"1-4\",\"description\":\"a\xef\xbf\xbd"
              "b\\u0001\",\"maxPacketSize\":1,\"payloadLimit\":2}");
}

TEST(DeskJson, whatIsWritten_isReadBack)
{
    const auto state = DeskJson::readHostState(DeskJson::write(HostState{true, 9007199254740991, "r", "v"}));
    ASSERT_TRUE(state);
    EXPECT_TRUE(state->isOnline);
    EXPECT_EQ(state->epoch, 9007199254740991U);
    EXPECT_EQ(state->run, "r");
    EXPECT_EQ(state->version, "v");
    const auto claim = DeskJson::readHostClaim(DeskJson::write(HostClaim{"r", 5, true}));
    ASSERT_TRUE(claim);
    EXPECT_EQ(claim->run, "r");
    EXPECT_EQ(claim->since, 5u);
    EXPECT_TRUE(claim->isServing);
    const auto place = DeskJson::readPlaceState(DeskJson::write(PlaceState{false, 3, "s", "w"}));
    ASSERT_TRUE(place);
    EXPECT_FALSE(place->isOnline);
    EXPECT_EQ(place->epoch, 3u);
    EXPECT_EQ(place->since, "s");
    EXPECT_EQ(place->reason, "w");
}

TEST(DeskJson, whatIsNotItsOwn_isNotRead)
{
    for (const char* const text :
         {"", "x", "null", "1", "[]", "{}", "[true,1]", R"({"online":1,"epoch":1,"run":"r","since":1,"serving":true})",
          R"({"online":"true","epoch":"1","run":1,"since":[],"serving":0})", "{\"online\":true,\"epoch\":1",
          "\xff\xfe"}) {
        EXPECT_FALSE(DeskJson::readHostState(text)) << text;
        EXPECT_FALSE(DeskJson::readPlaceState(text)) << text;
    }
    for (const char* const text :
         {"", "{}", R"({"run":"r","since":1})", R"({"run":"r","serving":true})", R"({"since":1,"serving":true})",
          R"({"run":"r","since":-1,"serving":true})", R"({"run":"r","since":1.5,"serving":true})"})
        EXPECT_FALSE(DeskJson::readHostClaim(text)) << text;
    EXPECT_FALSE(DeskJson::readHostState(R"({"online":true,"epoch":-1})"));
    EXPECT_FALSE(DeskJson::readHostState(R"({"epoch":1})"));
    EXPECT_FALSE(DeskJson::readPlaceState(R"({"online":true})"));
    EXPECT_FALSE(DeskJson::readPlaceState(R"({"online":true,"since":1})"));
}

TEST(DeskJson, whatIsMissingWithoutHarm_isEmpty)
{
    const auto state = DeskJson::readHostState(R"({"online":false,"epoch":4,"run":7,"more":{}})");
    ASSERT_TRUE(state);
    EXPECT_EQ(state->run, "");
    EXPECT_EQ(state->version, "");
    const auto place = DeskJson::readPlaceState(R"({"online":true,"since":"s","epoch":"x"})");
    ASSERT_TRUE(place);
    EXPECT_EQ(place->epoch, 0u);
}

TEST(DeskJson, infoAndAnswer_areReadBack)
{
    const auto info = DeskJson::readPanelInfo(DeskJson::write("1-1", {"Panel", 8192, 8181}));
    ASSERT_TRUE(info);
    EXPECT_EQ(info->description, "Panel");
    EXPECT_EQ(info->maxPacketSize, 8192U);
    EXPECT_EQ(info->payloadLimit, 8181U);
    EXPECT_FALSE(DeskJson::readPanelInfo(R"({"description":"Panel","maxPacketSize":4294967296,"payloadLimit":1})"));
    EXPECT_FALSE(DeskJson::readPanelInfo(R"({"maxPacketSize":1,"payloadLimit":1})"));
    const auto refused = DeskJson::readAnswer(DeskJson::write(Answer{Answer::Word::Unknown, "why"}, "shop", "1-1"));
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->word, Answer::Word::Unknown);
    EXPECT_EQ(refused->reason, "why");
    EXPECT_EQ(DeskJson::readAnswer(R"({"answer":"too-large"})")->word, Answer::Word::TooLarge);
    EXPECT_FALSE(DeskJson::readAnswer(R"({"answer":"perhaps"})"));
    EXPECT_FALSE(DeskJson::readAnswer(R"({"answer":5})"));
}

TEST(DeskJson, deepNesting_isNotRead)
{
    EXPECT_FALSE(DeskJson::readHostState(std::string(200000, '[')));
    EXPECT_FALSE(DeskJson::readHostState("{\"online\":" + std::string(200000, '[') + std::string(200000, ']') + "}"));
}

// A state that somebody else has left is told again by the gateway.
TEST(DeskJson, timeOfAnotherLength_isNotRead)
{
    const auto stateOf = [](std::size_t size) {
        return R"({"online":true,"since":")" + std::string(size, '0') + "\"}";
    };
    EXPECT_TRUE(DeskJson::readPlaceState(stateOf(32)));
    EXPECT_FALSE(DeskJson::readPlaceState(stateOf(33)));
}

// Else nothing could come after it.
TEST(DeskJson, epochBeyondWhatEveryJsonHas_isNotRead)
{
    const auto stateOf = [](const std::string& epoch) { return R"({"online":true,"epoch":)" + epoch + "}"; };
    EXPECT_TRUE(DeskJson::readHostState(stateOf("9007199254740991")));
    EXPECT_FALSE(DeskJson::readHostState(stateOf("9007199254740992")));
    EXPECT_FALSE(DeskJson::readHostState(stateOf("18446744073709551615")));
}

TEST(DeskJson, sumsOfAJob_areWrittenAndRead)
{
    const std::string sum(64, 'a');
    JobState job{"queued", 0, 5, "T0", "", sum, ""};
    EXPECT_EQ(DeskJson::write(job),
              R"({"state":"queued","bytesWritten":0,"totalBytes":5,"since":"T0","sha256":{"main":")" + sum + "\"}}");
    job.servoSum = std::string(64, 'b');
    const auto read = DeskJson::readJobState(DeskJson::write(job));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->mainSum, sum);
    EXPECT_EQ(read->servoSum, std::string(64, 'b'));
    for (const char* const sums : {"7", "{}", R"({"main":"short"})", R"({"main":5})"}) {
        const auto other = DeskJson::readJobState(
            std::string(R"({"state":"queued","bytesWritten":0,"totalBytes":5,"sha256":)") + sums + "}");
        ASSERT_TRUE(other) << sums;
        EXPECT_EQ(other->mainSum, "") << sums;
    }
}

TEST(DeskJson, longTextsOfAJob_areCut)
{
    const std::string text(257, 'x');
    const auto job = DeskJson::readJobState(R"({"state":"failed","bytesWritten":1,"totalBytes":2,"since":")" + text +
                                            R"(","reason":")" + text + "\"}");
    ASSERT_TRUE(job);
    EXPECT_EQ(job->since.size(), 256U);
    EXPECT_EQ(job->reason.size(), 256U);
}

TEST(DeskJson, hostClaim_isBefore_decidesBetweenAnyTwo)
{
    EXPECT_TRUE((HostClaim{"b", 9, true}.isBefore({"a", 1, false})));
    EXPECT_FALSE((HostClaim{"a", 1, false}.isBefore({"b", 9, true})));
    EXPECT_TRUE((HostClaim{"b", 1, true}.isBefore({"a", 2, true})));
    EXPECT_FALSE((HostClaim{"a", 2, true}.isBefore({"b", 1, true})));
    EXPECT_TRUE((HostClaim{"a", 1, false}.isBefore({"b", 1, false})));
    EXPECT_FALSE((HostClaim{"b", 1, false}.isBefore({"a", 1, false})));
    EXPECT_FALSE((HostClaim{"a", 1, false}.isBefore({"a", 1, false})));
}

} // namespace Vantor

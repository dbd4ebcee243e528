#include "simulator/bus/UserText.h"

#include <gtest/gtest.h>

namespace Vantor {

using UserText::shown;

TEST(UserText, ordinary_asItIs)
{
    EXPECT_EQ(shown(""), "");
    EXPECT_EQ(shown("plug 0 ~"), "plug 0 ~");
    EXPECT_EQ(shown("Gr\xC3\xBC\xC3\x9F\x65 \xE2\x82\xAC \xF0\x9F\x98\x80"),
              "Gr\xC3\xBC\xC3\x9F\x65 \xE2\x82\xAC \xF0\x9F\x98\x80");
}

TEST(UserText, controlCharacters_areMarked)
{
    EXPECT_EQ(shown(std::string("a\0b\n\t\x1B[31m\x7F", 10)), "a?b???[31m");
    EXPECT_EQ(shown("\x7F"), "?");
    EXPECT_EQ(shown("a\xC2\x9B"
                    "31m"),
              "a?31m"); // the control sequence introducer in UTF-8
    EXPECT_EQ(shown("a\x9B"
                    "31m"),
              "a?31m"); // and in Latin 1
    EXPECT_EQ(shown("\xC2\xA0"), "\xC2\xA0");
}

TEST(UserText, longerThan80Characters_isCut)
{
    EXPECT_EQ(shown(std::string(80, 'x')), std::string(80, 'x'));
    EXPECT_EQ(shown(std::string(81, 'x')), std::string(80, 'x') + "...");
    std::string umlauts;
    for (int i = 0; i < 80; ++i)
        umlauts += "\xC3\xBC";
    EXPECT_EQ(shown(umlauts), umlauts);
    EXPECT_EQ(shown(umlauts + "\xC3\xBC"), umlauts + "...");
}

TEST(UserText, brokenUtf8_endsAtTheEnd)
{
    EXPECT_EQ(shown("\xC3"), "\xC3");
    EXPECT_EQ(shown("\xE2\x82"), "\xE2\x82");
    EXPECT_EQ(shown("\xF0\x9Fz"), "\xF0\x9Fz");
}

} // namespace Vantor

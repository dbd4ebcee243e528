#include "panelfleet/rollout/Selection.h"

#include <gmock/gmock.h>

namespace Vantor {
namespace {

Selection selectionOf(std::vector<std::string> panels, std::vector<std::string> hosts = {},
                      std::vector<std::string> places = {})
{
    Selection selection;
    selection.panels = std::move(panels);
    selection.hosts = std::move(hosts);
    selection.places = std::move(places);
    return selection;
}

} // namespace

TEST(Selection, ofNothing_isEmptyAndMatchesNothing)
{
    EXPECT_TRUE(Selection().isEmpty());
    EXPECT_FALSE(Selection().matches("shop", "1-1"));
    EXPECT_FALSE(Selection().matchesHost("shop"));
}

TEST(Selection, all_matchesEverything)
{
    Selection selection;
    selection.isAll = true;
    EXPECT_FALSE(selection.isEmpty());
    EXPECT_TRUE(selection.matches("shop", "1-1"));
    EXPECT_TRUE(selection.matchesHost("shop"));
}

TEST(Selection, hostAndPlace_mustBothFit)
{
    const Selection selection = selectionOf({}, {"shop-1?", "depot"}, {"1-*"});
    EXPECT_TRUE(selection.matches("shop-17", "1-4.2"));
    EXPECT_TRUE(selection.matches("depot", "1-1"));
    EXPECT_FALSE(selection.matches("shop-17", "2-1"));
    EXPECT_FALSE(selection.matches("shop-2", "1-1"));
    EXPECT_FALSE(selection.matches("shop-177", "1-1"));
    EXPECT_FALSE(selection.matchesHost("shop-2"));
}

TEST(Selection, placeAlone_matchesOnEveryHost)
{
    const Selection selection = selectionOf({}, {}, {"1-1"});
    EXPECT_TRUE(selection.matches("any", "1-1"));
    EXPECT_FALSE(selection.matches("any", "1-2"));
    EXPECT_TRUE(selection.matchesHost("any"));
}

TEST(Selection, namedPanels_areTheseAndNoOthers)
{
    const Selection selection = selectionOf({"shop/1-1", "depot/*"}, {"x"});
    EXPECT_TRUE(selection.matches("shop", "1-1"));
    EXPECT_FALSE(selection.matches("shop", "1-2"));
    EXPECT_TRUE(selection.matches("depot", "9-9"));
    EXPECT_TRUE(selection.matches("x", "1-2"));
    EXPECT_TRUE(selection.matchesHost("shop"));
    EXPECT_FALSE(selection.matchesHost("other"));
    EXPECT_THAT(selection.listNamed(), testing::ElementsAre("shop/1-1"));
}

TEST(Selection, isPanel_wantsOneSlashBetweenTwoNames)
{
    EXPECT_TRUE(Selection::isPanel("a/1-1"));
    for (const char* const text : {"", "a", "/a", "a/", "a/b/c", "/"})
        EXPECT_FALSE(Selection::isPanel(text)) << text;
}

} // namespace Vantor

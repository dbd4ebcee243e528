#include "panelfleet/rollout/FleetView.h"

#include <string>

#include <gtest/gtest.h>

namespace Vantor {
namespace {

using Presence = FleetView::Presence;

Selection everything()
{
    Selection selection;
    selection.isAll = true;
    return selection;
}

std::string hostText(bool isOnline, unsigned int epoch)
{
    return DeskJson::write(HostState{isOnline, epoch, "run", "1.2.1"});
}

std::string placeText(bool isOnline, unsigned int epoch)
{
    return DeskJson::write(PlaceState{isOnline, epoch, "2026-11-22T22:19:31Z", isOnline ? "" : "unplugged"});
}

} // namespace

TEST(FleetView, panelIsThere_onlyIfItsHostSaysSoToo)
{
    FleetView view(everything(), "j");
    EXPECT_EQ(view.getPresence("shop", "1-1"), Presence::NeverHeardOf);
    view.receive("panel/1/shop/1-1/state", placeText(true, 5));
    EXPECT_EQ(view.getPresence("shop", "1-1"), Presence::HostAway);
    view.receive("panel/1/shop/state", hostText(true, 5));
    EXPECT_EQ(view.getPresence("shop", "1-1"), Presence::There);
    view.receive("panel/1/shop/state", hostText(false, 5));
    EXPECT_EQ(view.getPresence("shop", "1-1"), Presence::HostAway);
    view.receive("panel/1/shop/state", hostText(true, 6));
    EXPECT_EQ(view.getPresence("shop", "1-1"), Presence::Unsettled);
    view.receive("panel/1/shop/1-1/state", placeText(true, 6));
    EXPECT_EQ(view.getPresence("shop", "1-1"), Presence::There);
    view.receive("panel/1/shop/1-1/state", placeText(false, 6));
    EXPECT_EQ(view.getPresence("shop", "1-1"), Presence::PanelAway);
    view.receive("panel/1/shop/1-1/state", "");
    EXPECT_EQ(view.getPresence("shop", "1-1"), Presence::NeverHeardOf);
}

TEST(FleetView, deathOfAnEarlierConnection_isIgnored)
{
    FleetView view(everything(), "j");
    view.receive("panel/1/shop/state", hostText(true, 7));
    view.receive("panel/1/shop/state", hostText(false, 6));
    EXPECT_TRUE(view.findHost("shop")->state->isOnline);
    view.receive("panel/1/shop/state", hostText(false, 7));
    EXPECT_FALSE(view.findHost("shop")->state->isOnline);
}

TEST(FleetView, deathThatIsRetained_countsWhenAllIsToldAnew)
{
    FleetView view(everything(), "j");
    view.receive("panel/1/shop/state", hostText(true, 7));
    view.beginTelling();
    view.receive("panel/1/shop/state", hostText(false, 6)); // a broker that was restored
    EXPECT_FALSE(view.findHost("shop")->state->isOnline);
}

TEST(FleetView, whatIsNotToldAgain_isGone)
{
    FleetView view(everything(), "j");
    view.receive("panel/1/shop/state", hostText(true, 7));
    view.receive("panel/1/shop/1-1/state", placeText(true, 7));
    view.receive("panel/1/shop/1-1/job/j", DeskJson::write(JobState{"answering", 5, 5, "", ""}));
    view.receive("panel/1/shop/1-2/state", placeText(true, 7));
    view.receive("panel/1/depot/state", hostText(true, 7));
    view.beginTelling();
    view.receive("panel/1/shop/state", hostText(true, 7));
    view.receive("panel/1/shop/1-1/state", placeText(true, 7));
    EXPECT_NE(view.findHost("depot"), nullptr); // not yet
    view.endTelling();
    EXPECT_EQ(view.findHost("depot"), nullptr);
    EXPECT_EQ(view.findPanel("shop", "1-2"), nullptr);
    ASSERT_NE(view.findPanel("shop", "1-1"), nullptr);
    EXPECT_FALSE(view.findPanel("shop", "1-1")->job);
}

TEST(FleetView, jobsOfAnotherId_areNotTaken)
{
    FleetView view(everything(), "j");
    EXPECT_FALSE(view.receive("panel/1/shop/1-1/job/k", DeskJson::write(JobState{"answering", 5, 5, "", ""})));
    EXPECT_TRUE(view.receive("panel/1/shop/1-1/job/j", DeskJson::write(JobState{"writing", 4, 5, "", ""})));
    EXPECT_EQ(view.findPanel("shop", "1-1")->job->bytesWritten, 4u);
}

TEST(FleetView, whatMakesNoSense_isLeftOutAndCounted)
{
    FleetView view(everything(), "j");
    const std::string good = hostText(true, 1);
    for (const std::string& topic : std::vector<std::string>{
             "", "panel", "panel/1/shop", "panel/2/shop/state", "panel/1//state", "panel/1/all/state",
             "panel/1/sh op/state", "panel/1/" + std::string(65, 'a') + "/state", "panel/1/shop/1-/state",
             "panel/1/shop/x/state", "panel/1/shop/1-1./state", "panel/1/shop/\x1b[2J/state",
             "panel/1/shop/1-1/job/j/k", "panel/1/shop/1-1/job", std::string(60000, '/')})
        EXPECT_FALSE(view.receive(topic, good)) << topic.substr(0, 80);
    EXPECT_EQ(view.getSenseless(), 15u);
    EXPECT_TRUE(view.getHosts().empty());
    view.receive("panel/1/shop/state", std::string(4097, ' ') + good);
    EXPECT_TRUE(view.getHosts().empty());
    for (const char* const payload : {"{", "[]", "\xff", "{\"online\":1}", "{\"online\":true,\"epoch\":-1}"}) {
        view.receive("panel/1/shop/state", payload);
        EXPECT_FALSE(view.findHost("shop")->state) << payload;
    }
    EXPECT_EQ(view.getSenseless(), 21u);
    view.receive("panel/1/shop/1-1/job/j", DeskJson::write(JobState{"exploding", 4, 5, "", ""}));
    EXPECT_FALSE(view.findPanel("shop", "1-1")->job);
}

TEST(FleetView, moreThanItsHosts_areLeftOut)
{
    FleetView view(everything(), "j");
    for (unsigned int host = 0; host < 16386; ++host)
        view.receive("panel/1/h" + std::to_string(host) + "/state", hostText(true, 1));
    EXPECT_EQ(view.getHosts().size(), 16384u);
    EXPECT_EQ(view.getLeftOut(), 2u);
}

TEST(FleetView, moreThanItsPanels_areLeftOut)
{
    FleetView view(everything(), "j");
    for (unsigned int port = 0; port < 131073; ++port)
        view.receive("panel/1/shop/1-" + std::to_string(port) + "/state", placeText(true, 1));
    EXPECT_EQ(view.findHost("shop")->panels.size(), 131072u);
    EXPECT_EQ(view.getLeftOut(), 1u);
}

TEST(FleetView, longTexts_areCut)
{
    FleetView view(everything(), "j");
    view.receive("panel/1/shop/1-1/job/j", DeskJson::write(JobState{"failed", 4, 5, "", std::string(2000, 'x')}));
    EXPECT_EQ(view.findPanel("shop", "1-1")->job->reason.size(), 256u);
}

TEST(FleetView, isPlace_isBusAndPorts)
{
    for (const char* const good : {"1-1", "12-4.2", "1-1.2.3.4"})
        EXPECT_TRUE(FleetView::isPlace(good)) << good;
    for (const char* const bad : {"", "1", "1-", "-1", "1-1.", "1-.1", "1-a", "1-1-1", "1 -1"})
        EXPECT_FALSE(FleetView::isPlace(bad)) << bad;
}

} // namespace Vantor

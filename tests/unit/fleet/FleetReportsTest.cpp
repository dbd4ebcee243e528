#include "panelfleet/rollout/FleetReports.h"
#include "panelctl/terminal/JsonObject.h"

#include <optional>
#include <string>

#include <gtest/gtest.h>

namespace Vantor {
namespace {

Rollout::Panel panelIn(Rollout::State state, const std::string& reason = "")
{
    Rollout::Panel panel;
    panel.host = "shop";
    panel.place = "1-4.2";
    panel.state = state;
    panel.reason = reason;
    return panel;
}

std::string lineOf(const Rollout::Panel& panel, const std::optional<std::string>& away = std::nullopt)
{
    return ProgressReport(panel, away).asText();
}

} // namespace

TEST(FleetReports, progress_isALine)
{
    EXPECT_EQ(lineOf(panelIn(Rollout::State::Waiting)), "shop/1-4.2: not begun\n");
    EXPECT_EQ(lineOf(panelIn(Rollout::State::Waiting, "busy: job k")), "shop/1-4.2: waiting: busy: job k\n");
    EXPECT_EQ(lineOf(panelIn(Rollout::State::Waiting), "its gateway is away"),
              "shop/1-4.2: away: its gateway is away\n");
    EXPECT_EQ(lineOf(panelIn(Rollout::State::Asked), "its gateway is away"), "shop/1-4.2: asked\n");
    EXPECT_EQ(lineOf(panelIn(Rollout::State::Done)), "shop/1-4.2: done\n");
    EXPECT_EQ(lineOf(panelIn(Rollout::State::Failed, "flat")), "shop/1-4.2: failed: flat\n");
    EXPECT_EQ(lineOf(panelIn(Rollout::State::Unknown, "no answer")), "shop/1-4.2: not known: no answer\n");
    Rollout::Panel writing = panelIn(Rollout::State::UnderWay);
    writing.job = JobState{"writing", 4294967290u, 4294967295u, "", ""};
    EXPECT_EQ(lineOf(writing), "shop/1-4.2: writing, 99 %\n");
    writing.job = JobState{"written", 5, 5, "", ""};
    EXPECT_EQ(lineOf(writing), "shop/1-4.2: written\n");
}

TEST(FleetReports, whatABrokerSays_isSafeForATerminal)
{
    EXPECT_EQ(lineOf(panelIn(Rollout::State::Failed, "a\x1b[2J\nb\xff")), "shop/1-4.2: failed: a?[2J?b?\n");
    EXPECT_EQ(NoteReport("lost: \x07").asText(), "(lost: ?)\n");
}

TEST(FleetReports, progressAsJson_hasTheJob)
{
    Rollout::Panel panel = panelIn(Rollout::State::Failed, "flat");
    panel.job = JobState{"interrupted", 4, 5, "", "flat"};
    EXPECT_EQ(ProgressReport(panel, std::nullopt).asJson().format(),
              R"({"event":"progress","host":"shop","place":"1-4.2","state":"interrupted","bytesWritten":4,)"
              R"("totalBytes":5,"reason":"flat"})");
    EXPECT_EQ(ProgressReport(panelIn(Rollout::State::Waiting), "gone").asJson().format(),
              R"({"event":"progress","host":"shop","place":"1-4.2","state":"away","bytesWritten":null,)"
              R"("totalBytes":null,"reason":"gone"})");
}

TEST(FleetReports, summary_countsAll)
{
    Rollout::Counts counts;
    counts.done = 8;
    counts.failed = 1;
    counts.unknown = 2;
    counts.underWay = 3;
    counts.away = 4;
    counts.waiting = 5;
    EXPECT_EQ(SummaryReport("1.4.0", counts, true).asText(),
              "1.4.0: 8 done, 1 failed, 2 not known, 3 under way, 4 away, 5 not begun\n");
    EXPECT_EQ(SummaryReport("1.4.0", counts, true).asJson().format(),
              R"({"event":"summary","id":"1.4.0","done":8,"failed":1,"unknown":2,"underWay":3,"away":4,"waiting":5,)"
              R"("isStopped":true})");
}

TEST(FleetReports, place_saysWhoIsThere)
{
    Selection all;
    all.isAll = true;
    FleetView view(all, "");
    view.receive("panel/1/shop/state", DeskJson::write(HostState{true, 2, "r", "1.2.1"}));
    view.receive("panel/1/shop/1-1/state", DeskJson::write(PlaceState{true, 2, "2026-11-22T22:19:31Z", ""}));
    view.receive("panel/1/shop/1-1/info", DeskJson::write("1-1", PanelInfo{"Panel", 8192, 8181}));
    EXPECT_EQ(PlaceReport("shop", "1-1", view).asText(),
              "shop/1-1: there since 2026-11-22T22:19:31Z, gateway 1.2.1, 'Panel', packets of 8192 bytes\n");
    EXPECT_EQ(PlaceReport("shop", "1-1", view).asJson().format(),
              R"({"event":"panel","host":"shop","place":"1-1","isThere":true,"since":"2026-11-22T22:19:31Z",)"
              R"("reason":null,"version":"1.2.1","description":"Panel","maxPacketSize":8192})");
    view.receive("panel/1/shop/1-1/state", DeskJson::write(PlaceState{false, 2, "then", "unplugged"}));
    EXPECT_EQ(PlaceReport("shop", "1-1", view).asText(),
              "shop/1-1: away since then: unplugged, gateway 1.2.1, 'Panel', packets of 8192 bytes\n");
    view.receive("panel/1/shop/state", DeskJson::write(HostState{false, 2, "r", "1.2.1"}));
    EXPECT_EQ(HostReport("shop", *view.findHost("shop")).asText(), "shop: away, gateway 1.2.1\n");
    EXPECT_EQ(PlaceReport("shop", "1-1", view).asText(),
              "shop/1-1: its gateway is away, gateway 1.2.1, 'Panel', packets of 8192 bytes\n");
}

} // namespace Vantor

// The example as a service: what the panels receive, and what the service manager is told.
#include "tests/support/NotifySocket.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/ToolRun.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace Vantor {

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using Lines = std::vector<std::string>;

// Shelf on a simulated bus, and what the bus has seen of it.
class ShelfRun {
public:
    explicit ShelfRun(ToolRun::Arguments bus = {}) : m_run(onBus(withFiles(std::move(bus)), {SHELF})) {}

    void awaitLog(const std::string& text) { m_run.awaitFile(m_folder / "log", text); }
    void awaitErrors(const std::string& text) { m_run.awaitErrors(text); }

    // A command to the bus. Returns when it has been carried out.
    void tell(const std::string& command) const
    {
        const ToolResult result = runTool({MORVANE_PANELSIM, "tell", "--to", m_folder / "control", command});
        EXPECT_EQ(result.exitCode, 0) << result.errors;
    }

    void press(const std::string& panel, const std::string& key) const
    {
        tell("emit " + panel + " type=13 hex=" + key);
    }

    // Until the panel that is there now has had that many records of the type.
    void awaitRecords(const std::string& panel, const std::string& type, std::size_t count)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (getLastRecords(panel, type).size() < count) {
            ASSERT_LT(std::chrono::steady_clock::now(), deadline)
                << "only " << getLastRecords(panel, type).size() << " of type " << type;
            m_run.let(std::chrono::milliseconds(10));
        }
    }

    int stop()
    {
        m_run.sendSignalToTool(SIGTERM);
        return m_run.finish();
    }

    Lines getLog() const
    {
        std::istringstream text(contentOf(m_folder / "log"));
        Lines lines;
        for (std::string line; std::getline(text, line);)
            lines.push_back(line.substr(std::min<std::size_t>(line.size(), 13))); // without its time
        return lines;
    }

    // Of what came since the panel was found last, the bytes of each record of that type.
    Lines getLastRecords(const std::string& panel, const std::string& type) const
    {
        Lines records;
        for (const std::string& line : getLog()) {
            const std::regex record("panel " + panel + ": record type " + type + ", [0-9]+ bytes?: (.*)");
            std::smatch match;
            if (line == "panel " + panel + ": claim")
                records.clear();
            else if (std::regex_match(line, match, record))
                records.push_back(match[1]);
        }
        return records;
    }

    const std::string& getErrors() const { return m_run.getErrors(); }

private:
    ToolRun::Arguments withFiles(ToolRun::Arguments bus) const
    {
        bus.insert(bus.end(), {"--log", m_folder / "log", "--control", m_folder / "control"});
        return bus;
    }

    const TemporaryFolder m_folder;
    ToolRun m_run;
};

constexpr std::size_t byte = 3; // of a record's, in hexadecimal and with a blank

// Of a click: run, number, key.
std::string runOf(const std::string& click)
{
    return click.substr(0, 4 * byte - 1);
}

unsigned long numberOf(const std::string& click)
{
    unsigned long number = 0;
    for (std::size_t at = 8; at-- > 4;)
        number = number << 8 | std::stoul(click.substr(at * byte, 2), nullptr, 16);
    return number;
}

Lines without(const Lines& news, const std::string& unwanted)
{
    Lines others;
    std::copy_if(news.begin(), news.end(), std::back_inserter(others),
                 [&unwanted](const std::string& line) { return line.find(unwanted) == std::string::npos; });
    return others;
}

const Lines allOff{"00 00", "01 00", "02 00", "03 00", "04 00", "05 00", "06 00", "07 00"};

} // namespace

TEST(Shelf, serviceManager_isToldHowItGoes)
{
    NotifySocket manager;
    ShelfRun run;
    run.awaitRecords("0", "5", allOff.size());
    run.tell("unplug 0");
    run.awaitErrors("has gone");
    EXPECT_EQ(run.stop(), 0);
    const Lines news = manager.getNews();
    EXPECT_THAT(without(news, "WATCHDOG=1"),
                ElementsAre("READY=1\nSTATUS=0 panels", "STATUS=1 panels", "STATUS=0 panels", "STOPPING=1"));
    EXPECT_THAT(news, Contains("WATCHDOG=1"));
}

TEST(Shelf, noPanel_isReadyAllTheSame)
{
    NotifySocket manager;
    ShelfRun run({"--panels", "0"});
    run.awaitErrors("Libusb version");
    manager.awaitNews("WATCHDOG=1");
    EXPECT_EQ(run.stop(), 0);
    EXPECT_THAT(without(manager.getNews(), "WATCHDOG=1"), ElementsAre("READY=1\nSTATUS=0 panels", "STOPPING=1"));
}

// Not at each of the 3,000 events.
TEST(Shelf, watchdog_isFedOnceASecond)
{
    NotifySocket manager;
    const auto begin = std::chrono::steady_clock::now();
    ShelfRun run({"--at", "0", "emit type=200 size=1 count=3000 every=1"});
    manager.awaitNews("WATCHDOG=1", 4);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(3));
    EXPECT_EQ(run.stop(), 0);
}

TEST(Shelf, terminated_releasesThePanel)
{
    ShelfRun run;
    run.awaitRecords("0", "5", allOff.size());
    EXPECT_EQ(run.stop(), 0);
    EXPECT_EQ(run.getLog().back(), "panel 0: release");
}

TEST(Shelf, panelThatHasCome_isAskedBeforeAnythingElse)
{
    ShelfRun run;
    run.awaitRecords("0", "38", 2);
    EXPECT_EQ(run.stop(), 0);
    EXPECT_THAT(run.getLog()[2], HasSubstr("record type 1,"));
    EXPECT_EQ(run.getLastRecords("0", "5"), allOff);
    EXPECT_THAT(run.getLastRecords("0", "12"), IsEmpty());
}

// The library asks a second time after two seconds.
TEST(Shelf, panelThatDoesNotDescribeItself_isSentNothing)
{
    ShelfRun run({"--at", "0", "fault in silent sticky"});
    run.awaitRecords("0", "1", 2);
    EXPECT_EQ(run.stop(), 0);
    EXPECT_THAT(run.getLastRecords("0", "5"), IsEmpty());
    EXPECT_THAT(run.getLastRecords("0", "38"), IsEmpty());
}

TEST(Shelf, key_switchesItsLamp)
{
    ShelfRun run;
    run.awaitRecords("0", "5", 8);
    run.press("0", "03");
    run.awaitRecords("0", "5", 9);
    run.press("0", "03");
    run.awaitRecords("0", "5", 10);
    run.press("0", "08"); // none
    run.press("0", "0000");
    run.press("0", "00");
    run.awaitRecords("0", "12", 3);
    EXPECT_EQ(run.stop(), 0);
    Lines expected = allOff;
    expected.insert(expected.end(), {"03 01", "03 00", "00 01"});
    EXPECT_EQ(run.getLastRecords("0", "5"), expected);
}

// The key comes before the panel has been asked anything.
TEST(Shelf, keyBeforeThePanelHasDescribedItself_countsOnce)
{
    ShelfRun run({"--at", "0", "emit type=13 hex=01"});
    run.awaitRecords("0", "38", 2);
    EXPECT_EQ(run.stop(), 0);
    Lines expected = allOff;
    expected[1] = "01 01";
    EXPECT_EQ(run.getLastRecords("0", "5"), expected);
    EXPECT_EQ(run.getLastRecords("0", "12").size(), 1U);
}

// 100 columns are a layer of 96 and one of the last 8, all of a lamp's rows dark.
TEST(Shelf, picture_hasABarForEachLampThatIsOn)
{
    ShelfRun run;
    run.awaitRecords("0", "38", 2);
    run.press("0", "00");
    run.awaitRecords("0", "38", 4);
    EXPECT_EQ(run.stop(), 0);
    const Lines slices = run.getLastRecords("0", "38");
    EXPECT_THAT(slices[0], HasSubstr("00 00 00 00 60 40 01 00 00 00"));
    EXPECT_THAT(slices[2], HasSubstr("00 00 00 00 60 40 01 ff ff ff"));
    EXPECT_THAT(slices[3], HasSubstr("00 00 5c 00 08 40 01 ff ff ff ff ff ff ff ff 00 00 00"));
}

TEST(Shelf, panelThatComesBack_getsItsPlacesState)
{
    ShelfRun run({"--panels", "2"});
    run.awaitRecords("0", "5", 8);
    run.awaitRecords("1", "5", 8);
    run.press("1", "06");
    run.awaitRecords("1", "5", 9);
    run.tell("unplug 1");
    run.awaitErrors("the panel at 1-2 has gone");
    run.press("0", "02");
    run.awaitRecords("0", "5", 9);
    run.tell("plug 1");
    run.awaitRecords("1", "38", 2);
    EXPECT_EQ(run.stop(), 0);
    Lines expected = allOff;
    expected[6] = "06 01";
    EXPECT_EQ(run.getLastRecords("1", "5"), expected);
    EXPECT_EQ(run.getLastRecords("1", "12").size(), 1U) << "the click that nobody has confirmed";
    EXPECT_EQ(run.getLastRecords("0", "5").back(), "02 01");
}

// Through two unplugs; what a panel sends while there is none is lost on its side.
TEST(Shelf, clicks_areNumberedWithoutAGap)
{
    ShelfRun run({"--at", "0.2", "emit type=13 hex=01 count=400 every=10", "--at", "0.7", "unplug", "--at", "1.2",
                  "plug", "--at", "1.6", "unplug", "--at", "1.7", "plug", "--at", "4.5", "emit type=13 hex=02"});
    run.awaitLog("record type 5, 2 bytes: 02 01"); // the last key
    EXPECT_EQ(run.stop(), 0);
    unsigned long last = 0;
    for (const std::string& line : run.getLog()) {
        constexpr const char* click = "panel 0: record type 12, 9 bytes: ";
        if (line.rfind(click, 0) != 0)
            continue;
        const unsigned long number = numberOf(line.substr(std::strlen(click)));
        EXPECT_LE(number, last + 1) << "the one between is lost";
        last = std::max(last, number);
    }
    EXPECT_GT(last, 50U);
    const Lines again = run.getLastRecords("0", "12");
    EXPECT_EQ(numberOf(again.front()), 1U) << "as none is confirmed";
    EXPECT_EQ(numberOf(again.back()), last);
}

TEST(Shelf, panelThatConfirmsNoClick_getsAThousandAndStillItsLamps)
{
    ShelfRun run({"--at", "0.2", "emit type=13 hex=01 count=1001 every=1"});
    run.awaitErrors("<3>a click is lost");
    run.press("0", "02");
    run.awaitLog("record type 5, 2 bytes: 02 01");
    EXPECT_EQ(run.stop(), 0);
    const Lines clicks = run.getLastRecords("0", "12");
    EXPECT_EQ(clicks.size(), 1000U);
    EXPECT_EQ(numberOf(clicks.back()), 1000U);
}

TEST(Shelf, clickThatThePanelHasHad_isNotSentAgain)
{
    ShelfRun run;
    run.awaitRecords("0", "5", 8);
    for (const char* key : {"01", "02", "03"})
        run.press("0", key);
    run.awaitRecords("0", "12", 3);
    const std::string click = run.getLastRecords("0", "12")[1];
    std::string had = click.substr(0, 8 * byte - 1);
    had.erase(std::remove(had.begin(), had.end(), ' '), had.end());
    run.tell("emit type=14 hex=" + had);
    run.tell("emit type=14 hex=00000000ffffffff"); // of another run
    run.press("0", "04");
    run.awaitRecords("0", "12", 4); // by then the others have been read
    run.tell("unplug");
    run.awaitErrors("has gone");
    run.tell("plug");
    run.awaitRecords("0", "38", 2);
    EXPECT_EQ(run.stop(), 0);
    const Lines again = run.getLastRecords("0", "12");
    ASSERT_EQ(again.size(), 2U);
    EXPECT_EQ(numberOf(again[0]), 3U);
    EXPECT_EQ(numberOf(again[1]), 4U);
    EXPECT_EQ(runOf(again[0]), runOf(click));
}

TEST(Shelf, logLines_beginWithTheirPriority)
{
    ShelfRun run;
    run.awaitErrors("a panel has come");
    run.tell("fault in stall");
    run.awaitErrors("stalled");
    EXPECT_EQ(run.stop(), 0);
    EXPECT_THAT(run.getErrors(), HasSubstr("<6>a panel has come at 1-1\n"));
    EXPECT_THAT(run.getErrors(), HasSubstr("<3>[libusb] RX Transfer stalled uid=101\n"));
    EXPECT_THAT(run.getErrors(), Not(HasSubstr("\n[libusb]")));
}

} // namespace Vantor

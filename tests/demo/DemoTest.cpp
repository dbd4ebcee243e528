#include "tests/support/PngSample.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/ToolRun.h"

#include <csignal>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::Not;

namespace {

// With the panel 0102 unplugged after so many seconds, and back half a second later. It has
// stopped reading before, so that a batch waits.
ToolResult runWithUnplugAfter(int seconds, const TemporaryFolder& folder)
{
    const std::string time = std::to_string(seconds);
    return runTool(
        onBus({"--panels", "2", "--png", folder.getPath(), "--at", "500ms", "emit 0 type=20 size=32 count=12", "--at",
               "500ms", "emit 1 type=21 size=32 count=12", "--at", std::to_string(seconds - 1) + ".5s",
               "fault 1 out silent", "--at", time + "s", "unplug 1", "--at", time + ".5s", "plug 1"},
              {MORVANE_DEMO}));
}

} // namespace

TEST(Demo, unplugUnderLoad_endsInOrder)
{
    const TemporaryFolder folder;
    // On a busy machine the demo may not have come as far as the load by then.
    ToolResult result = runWithUnplugAfter(4, folder);
    for (const int later : {12, 18}) {
        if (result.output.find("\n5. ") == std::string::npos)
            result = runWithUnplugAfter(later, folder);
    }
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_THAT(result.output, HasSubstr("   0102 says: \"Simulated panel\", packets of up to 8192 bytes"));
    EXPECT_THAT(result.output, HasSubstr("\n   4,000 records, "));
    EXPECT_THAT(result.output, HasSubstr("of type 21\n"));
    EXPECT_THAT(result.output, HasSubstr("The demo waits up to 20 s for each.\n"));
    EXPECT_THAT(result.output, HasSubstr(" s  0102 has left, with 16 records on their way\n"));
    EXPECT_THAT(result.output, HasSubstr("(any LIBUSB_ERROR_NO_DEVICE in the library's log comes from that)\n"));
    EXPECT_THAT(result.output, HasSubstr(" s  0102 is back; "));
    EXPECT_THAT(result.output, HasSubstr("its load starts again\n"));
    EXPECT_THAT(result.output, HasSubstr(" layers drawn, 0 bytes have left after "));
    for (const char* const name : {"panel0-lcd0", "panel0-lcd1", "panel0-lcd2", "panel1-lcd0", "panel1-lcd1"})
        EXPECT_THAT(GreyFile::read(folder.getPath() + "/" + name + ".png").pixels, AllOf(Contains(0), Contains(255)))
            << name;
    EXPECT_THAT(result.output, HasSubstr("7. The library has stopped, in "));
    // The panel that stayed has lost nothing.
    EXPECT_THAT(result.output, ContainsRegex("\n   0101 +([0-9,]+) +[0-9,]+ +0 +1[0-9]\n"));
    EXPECT_THAT(result.output, ContainsRegex("\n   0102 +([0-9,]+) +[0-9,]+ +16 +1[0-9]\n"));
    EXPECT_THAT(result.output, Not(ContainsRegex("[^\n]{81}")));
    EXPECT_THAT(result.output, Not(HasSubstr("[libusb]")));
}

TEST(Demo, noPanel_pointsToTheSimulator)
{
    const ToolResult result = runTool(onBus({"--panels", "0"}, {MORVANE_DEMO}));
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_THAT(result.errors, HasSubstr("\n  Without hardware, ./run-demo plugs in simulated ones.\n"));
}

TEST(Demo, panelThatLeavesTooEarly_endsIt)
{
    const ToolResult result = runTool(
        onBus({"--at", "0s", "fault in silent sticky", "--at", "2s", "unplug"}, {MORVANE_DEMO, "--log-level", "0"}));
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_THAT(result.errors, HasSubstr("morvane-demo: panel 0101 (1-1) went away"));
}

TEST(Demo, interruptUnderLoad_endsInOrder)
{
    ToolRun run(onBus({"--at", "100ms", "emit type=20 size=8 count=10"}, {MORVANE_DEMO}));
    run.awaitOutput("5. ");
    run.sendSignal(SIGINT);
    EXPECT_EQ(run.finish(), 130);
    EXPECT_LT(run.getSeconds(), 6);
    EXPECT_EQ(run.getErrors(), "morvane-demo: interrupted\n");
}

} // namespace Vantor

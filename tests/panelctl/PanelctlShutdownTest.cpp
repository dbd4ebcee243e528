#include "tests/support/TemporaryFolder.h"
#include "tests/support/ToolRun.h"

#include <csignal>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {

namespace {

using ::testing::HasSubstr;

// Of which the library's worker may take 1.05.
constexpr double orderlySeconds = 3.0;

} // namespace

TEST(PanelctlShutdown, interrupt_endsWatchInOrder)
{
    ToolRun run(panelctlOn({}, {"watch", "--log-level", "4"}));
    run.awaitOutput("arrived");
    run.sendSignal(SIGINT);
    EXPECT_EQ(run.finish(), 130);
    EXPECT_LT(run.getSeconds(), orderlySeconds);
    EXPECT_THAT(run.getOutput(), HasSubstr("0 packets, 1 arrival, 0 departures\n"));
    EXPECT_THAT(run.getErrors(), HasSubstr("[libusb] ~UsbDevice() uid=101\n"));
    EXPECT_THAT(run.getErrors(), HasSubstr("panelctl: interrupted\n"));
}

TEST(PanelctlShutdown, terminate_endsWatchInOrder)
{
    ToolRun run(panelctlOn({}, {"watch"}));
    run.awaitOutput("arrived");
    run.sendSignal(SIGTERM);
    EXPECT_EQ(run.finish(), 143);
    EXPECT_LT(run.getSeconds(), orderlySeconds);
    EXPECT_EQ(run.getErrors(), "panelctl: interrupted\n");
}

// A terminal and a parent may both deliver a Ctrl-C.
TEST(PanelctlShutdown, interruptTwice_doesNotCutItShort)
{
    ToolRun run(panelctlOn({}, {"watch", "--log-level", "4"}));
    run.awaitOutput("arrived");
    run.sendSignal(SIGINT);
    run.sendSignal(SIGINT);
    EXPECT_EQ(run.finish(), 130);
    EXPECT_THAT(run.getErrors(), HasSubstr("[libusb] ~UsbDevice() uid=101\n"));
}

TEST(PanelctlShutdown, interruptWhileNothingIsTaken_endsInOrder)
{
    const TemporaryFile log;
    ToolRun run(
        panelctlOn({"--log", log.getPath(), "--at", "0s", "fault out silent sticky"}, {"list", "--timeout", "20"}));
    run.awaitFile(log.getPath(), "claim");
    run.sendSignal(SIGINT);
    EXPECT_EQ(run.finish(), 130);
    EXPECT_LT(run.getSeconds(), orderlySeconds);
    EXPECT_EQ(run.getOutput(), "");
    EXPECT_EQ(run.getErrors(), "panelctl: interrupted\n");
}

TEST(PanelctlShutdown, interruptWhileNobodyReadsTheOutput_endsInOrder)
{
    const TemporaryFolder folder;
    const std::string output = folder.getPath() + "/output";
    ASSERT_EQ(mkfifo(output.c_str(), 0600), 0);
    const int reader = open(output.c_str(), O_RDWR | O_CLOEXEC); // which never reads
    ASSERT_GE(reader, 0);
    ToolRun run(onBus({"--at", "0s", "emit type=5 size=4000 count=100 every=1"},
                      {"sh", "-c", "exec " + panelctl({"watch"}).front() + " watch > " + output}));
    constexpr int nearlyFull = 50000; // of 65,536: the next packet's line is longer than the rest
    for (int waiting = 0; waiting < nearlyFull;) {
        run.let(std::chrono::milliseconds(10));
        ASSERT_EQ(ioctl(reader, FIONREAD, &waiting), 0);
    }
    run.sendSignalToTool(SIGINT);
    EXPECT_EQ(run.finish(), 130);
    EXPECT_LT(run.getSeconds(), orderlySeconds + 2);
    EXPECT_EQ(run.getErrors(), "panelctl: interrupted\n");
    close(reader);
}

TEST(PanelctlShutdown, readerThatHasGone_endsWatchQuietly)
{
    ToolRun run(panelctlOn({"--at", "1200ms", "emit type=20 size=8 count=20 every=100"}, {"watch"}));
    run.awaitOutput("packet");
    run.closeOutput();
    EXPECT_EQ(run.finish(), 1);
    EXPECT_EQ(run.getErrors(), "");
}

} // namespace Vantor

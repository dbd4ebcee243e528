// The gateway as systemd has it: what it tells of itself.
#include "tests/mqtt/GatewayHost.h"
#include "tests/mqtt/HeldThread.h"
#include "tests/mqtt/MqttPeer.h"
#include "tests/support/NotifySocket.h"

#include <csignal>

#include <gmock/gmock.h>

namespace Vantor {

namespace {

using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

const std::string refused = "no connection with the broker: ";
constexpr const char* onePanel = "WATCHDOG=1\nSTATUS=1 panels";

void sleepFor(int time)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(time));
}

// What a gateway without a broker writes to a file that it takes for the journal, or for
// something else.
std::string errorsOf(bool isJournal, const std::string& options)
{
    const TemporaryFolder folder;
    const std::string file = folder / "errors";
    writeFile(file, std::string());
    const std::string journal = isJournal ? "$(stat -c %d:%i " + file + ")" : "1:2";
    ToolRun run(
        onBus({}, {"sh", "-c",
                   "export JOURNAL_STREAM=" + journal +
                       "; exec " MORVANE_PANEL2MQTT " run --host shop --broker 127.0.0.1:1 --config /dev/null " +
                       options + " 2> " + file}));
    run.awaitFile(file, refused);
    run.sendSignalToTool(SIGTERM);
    EXPECT_EQ(run.finish(), 0);
    return contentOf(file);
}

} // namespace

TEST(GatewayService, brokerThatComesLate_isSaidAndReadyWaitsForIt)
{
    MosquittoBroker broker;
    broker.stop(SIGKILL);
    NotifySocket manager;
    {
        const GatewayHost host(broker, {});
        unsetenv("NOTIFY_SOCKET"); // NOLINT(concurrency-mt-unsafe): the broker would say that it is ready, too
        for (int tries = 0; tries < 100 && manager.getNews().size() < 2; ++tries)
            sleepFor(100);
        EXPECT_THAT(manager.getNews(),
                    AllOf(Contains(HasSubstr("STATUS=no connection with the broker: ")), Not(Contains("READY=1"))));
        broker.start();
        manager.awaitNews("READY=1");
        manager.awaitNews(onePanel);
    }
    EXPECT_EQ(manager.countNews("READY=1"), 1);
    EXPECT_EQ(manager.getNews().back(), "STOPPING=1");
}

// One loop after another stands still, as if it hung.
TEST(GatewayService, watchdog_isFedOnlyWhileEveryLoopMoves)
{
    const MosquittoBroker broker;
    NotifySocket manager;
    const GatewayHost host(broker, {});
    manager.awaitNews(onePanel);
    for (const std::string name : {"", "broker", "MorvaneWorker"}) {
        SCOPED_TRACE("held: " + name);
        std::ptrdiff_t fed = 0;
        {
            const HeldThread held(host.getProcess(), name);
            sleepFor(2500); // it may have been about to
            fed = manager.countNews(onePanel);
            sleepFor(2500);
            EXPECT_EQ(manager.countNews(onePanel), fed);
        }
        manager.awaitNews(onePanel, fed + 1);
    }
    // What takes the records of panels only hands them on, and holds nothing up.
    const HeldThread held(host.getProcess(), "MorvaneRecv");
    manager.awaitNews(onePanel, manager.countNews(onePanel) + 3);
}

TEST(GatewayService, linesForTheJournal_havePriorities)
{
    EXPECT_THAT(errorsOf(true, ""), HasSubstr("<4>" + refused));
    EXPECT_THAT(errorsOf(true, "--json"), HasSubstr("<4>{\"event\":\"log\",\"time\":"));
    // Standard error was led somewhere else.
    EXPECT_THAT(errorsOf(false, ""), HasSubstr("panel2mqtt: " + refused));
    EXPECT_THAT(errorsOf(false, "--json"), AllOf(HasSubstr("\n{\"event\":\"log\""), Not(HasSubstr("<4>"))));
}

} // namespace Vantor

// The gateway as systemd has it: what it tells of itself.
#include "tests/mqtt/GatewayHost.h"
#include "tests/mqtt/HeldThread.h"
#include "tests/mqtt/MqttPeer.h"
#include "tests/support/NotifySocket.h"

#include <csignal>

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Vantor {

namespace {

using testing::AllOf;
using testing::Contains;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr const char* onePanel = "WATCHDOG=1\nSTATUS=1 panels";

void sleepFor(int milliseconds)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

// Of a run that ends at once, with standard error where the journal says it is, or not.
std::string errorsOf(bool isJournal, const std::vector<std::string>& options)
{
    int ends[2];
    if (pipe(ends) != 0)
        throw std::runtime_error("no pipe");
    struct stat facts {};
    fstat(ends[1], &facts);
    const std::string stream =
        std::to_string(facts.st_dev) + ':' + std::to_string(isJournal ? facts.st_ino : facts.st_ino + 1);
    std::string command = "env -u NOTIFY_SOCKET JOURNAL_STREAM=" + stream +
                          " timeout -s TERM 20 " MORVANE_PANELSIM " run -- sh -c '" MORVANE_PANEL2MQTT
                          " run --host shop --broker 127.0.0.1:1 --config /dev/null";
    for (const std::string& option : options)
        command += ' ' + option;
    command += " & sleep 1; kill $!; wait' 2>&" + std::to_string(ends[1]);
    EXPECT_EQ(system(command.c_str()), 0); // NOLINT(concurrency-mt-unsafe): no other thread
    close(ends[1]);
    std::string text(65536, '\0');
    const ssize_t size = read(ends[0], text.data(), text.size());
    close(ends[0]);
    text.resize(static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    return text;
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
    const std::string refused = "no connection with the broker: ";
    EXPECT_THAT(errorsOf(true, {}), HasSubstr("<4>" + refused));
    EXPECT_THAT(errorsOf(true, {"--json"}), HasSubstr("<4>{\"event\":\"log\",\"time\":"));
    // Standard error was led somewhere else.
    EXPECT_THAT(errorsOf(false, {}), HasSubstr("panel2mqtt: " + refused));
    EXPECT_THAT(errorsOf(false, {"--json"}), AllOf(HasSubstr("\n{\"event\":\"log\""), Not(HasSubstr("<4>"))));
}

} // namespace Vantor

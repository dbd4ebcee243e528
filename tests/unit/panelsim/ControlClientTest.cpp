#include "simulator/panelsim/ControlClient.h"

#include "simulator/panelsim/ControlSocket.h"
#include "simulator/panelsim/ControlThread.h"
#include "tests/support/TemporaryFolder.h"

#include <functional>
#include <stdexcept>
#include <thread>

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace Vantor {

using namespace std::chrono_literals;

class ControlClientTest : public testing::Test {
protected:
    static constexpr std::chrono::seconds patience{20};

    std::string path() const { return m_folder / "control"; }

    static std::string failureOf(const std::function<void()>& action)
    {
        try {
            action();
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "no failure";
    }

    // Something that listens there, and is no simulation.
    Descriptor listenAsAnother(int backlog) const
    {
        Descriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path().copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(listen(listener.get(), backlog), 0);
        return listener;
    }

    const TemporaryFolder m_folder;
};

TEST_F(ControlClientTest, command_isCarriedOutWhenItReturns)
{
    std::string told;
    ControlSocket socket(path(), [&told](const std::string& line) {
        told = line;
        return line == "bad" ? std::string("it is bad") : std::string();
    });
    {
        const ControlThread thread(socket);
        ControlClient client(path(), patience);
        EXPECT_EQ(client.tell("plug"), "");
        EXPECT_EQ(told, "plug");
        EXPECT_EQ(client.tell("bad"), "it is bad");
        const std::string longest(ControlConnection::longestLine, 'x');
        EXPECT_EQ(client.tell(longest), "");
        EXPECT_EQ(told, longest);
    }
    ControlClient client(path(), 50ms);
    EXPECT_EQ(failureOf([&client] { client.tell("plug"); }),
              "no answer in 0.05s; the command may still be carried out");
}

TEST_F(ControlClientTest, nobodyThere_isSaid)
{
    const auto failureAt = [](const std::string& path) {
        return failureOf([&path] { const ControlClient client(path, 1ms); });
    };
    EXPECT_EQ(failureAt(path()), "cannot reach a simulation at '" + path() + "': No such file or directory");
    writeFile(path(), std::string());
    EXPECT_EQ(failureAt(path()), "cannot reach a simulation at '" + path() + "': Connection refused");
    EXPECT_EQ(failureAt(std::string(108, 'x')), "cannot reach a simulation at '" + std::string(80, 'x') +
                                                    "...': a socket's path has at most 107 bytes, this one 108");
}

TEST_F(ControlClientTest, busySimulation_isNotWaitedForWithoutEnd)
{
    const Descriptor listener = listenAsAnother(0);
    const ControlClient first(path(), patience);
    EXPECT_EQ(failureOf([this] { const ControlClient second(path(), 50ms); }),
              "cannot reach a simulation at '" + path() + "': it is busy");
}

TEST_F(ControlClientTest, endOrNonsenseForAnAnswer_isSaid)
{
    const Descriptor listener = listenAsAnother(5);
    const auto failureAfter = [this, &listener](const std::string& answer) {
        ControlClient client(path(), patience);
        std::thread other([&listener, &answer] {
            const Descriptor accepted(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
            char buffer[5];
            EXPECT_EQ(recv(accepted.get(), buffer, sizeof buffer, MSG_WAITALL), 5);
            EXPECT_EQ(send(accepted.get(), answer.data(), answer.size(), MSG_NOSIGNAL),
                      static_cast<ssize_t>(answer.size()));
        });
        const std::string failure = failureOf([&client] { client.tell("plug"); });
        other.join();
        return failure;
    };
    EXPECT_EQ(failureAfter(""), "the simulation ended before it answered");
    EXPECT_EQ(failureAfter("o"), "the simulation ended before it answered");
    EXPECT_EQ(failureAfter("HTTP/1.1 400 Bad Request\r\n\r\n"), "what listens at '" + path() + "' is no simulation");
    EXPECT_EQ(failureAfter("\n"), "what listens at '" + path() + "' is no simulation");
    // Without an end of the line, and no less for that.
    EXPECT_EQ(failureAfter(std::string(1 << 16, 'x')), "what listens at '" + path() + "' is no simulation");
}

} // namespace Vantor

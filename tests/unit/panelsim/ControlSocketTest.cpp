// The control socket, whatever those at its other end do. No thread: a turn is taken when
// the test says so, and what must not wait would hang it.
#include "simulator/panelsim/ControlSocket.h"

#include "simulator/panelsim/ControlPath.h"
#include "tests/support/TemporaryFolder.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>

namespace Vantor {

using testing::ElementsAre;
using testing::IsEmpty;

class ControlSocketTest : public testing::Test {
protected:
    std::string path() const { return m_folder / "control"; }

    std::unique_ptr<ControlSocket> open(const std::string& path)
    {
        return std::make_unique<ControlSocket>(path, [this](const std::string& line) {
            m_told.push_back(line);
            return line == "bad" ? std::string("'bad': is\nbad") : std::string();
        });
    }

    std::string refusal(const std::string& path)
    {
        try {
            open(path);
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "no refusal";
    }

    // Whether there was anything to do.
    bool turn()
    {
        std::vector<pollfd> polled;
        m_socket->addDescriptors(polled);
        const bool isBusy = poll(polled.data(), polled.size(), 0) > 0;
        m_socket->serve(polled.data());
        return isBusy;
    }

    // Until there is nothing left to do; false when there is no end of it.
    bool settle()
    {
        for (int turns = 0; turns < 20'000; ++turns)
            if (!turn())
                return true;
        return false;
    }

    std::size_t connections() const
    {
        std::vector<pollfd> polled;
        m_socket->addDescriptors(polled);
        return polled.size() - 1;
    }

    Descriptor connect()
    {
        Descriptor client = ControlPath::connect(path());
        EXPECT_GE(client.get(), 0);
        turn();
        return client;
    }

    // As much as there is room for: how many bytes.
    static std::size_t say(const Descriptor& client, const std::string& text)
    {
        const ssize_t size = send(client.get(), text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        return size > 0 ? static_cast<std::size_t>(size) : 0;
    }

    // What has come; "(end)" where nothing more will.
    static std::string hear(const Descriptor& client)
    {
        std::string text;
        std::array<char, 4096> buffer;
        for (;;) {
            const ssize_t size = recv(client.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
            if (size <= 0)
                return size < 0 && errno == EAGAIN ? text : text + "(end)";
            text.append(buffer.data(), static_cast<std::size_t>(size));
        }
    }

    std::string ask(const Descriptor& client, const std::string& text)
    {
        EXPECT_EQ(say(client, text), text.size());
        EXPECT_TRUE(settle());
        return hear(client);
    }

    const TemporaryFolder m_folder;
    std::vector<std::string> m_told;
    std::unique_ptr<ControlSocket> m_socket = open(path());
};

TEST_F(ControlSocketTest, line_isCarriedOutAndAnswered)
{
    const Descriptor client = connect();
    EXPECT_EQ(ask(client, "unplug 1\n"), "ok\n");
    EXPECT_EQ(ask(client, "bad\n"), "refused: 'bad': is bad\n"); // a line, whatever is in it
    EXPECT_EQ(ask(client, "\n"), "ok\n");
    EXPECT_THAT(m_told, ElementsAre("unplug 1", "bad", ""));
}

TEST_F(ControlSocketTest, lines_inAnyPieces)
{
    const Descriptor client = connect();
    EXPECT_EQ(ask(client, "unp"), "");
    EXPECT_EQ(ask(client, "lug\npl"), "ok\n");
    EXPECT_EQ(ask(client, "ug\nbad\nplug 2\n"), "ok\nrefused: 'bad': is bad\nok\n");
    EXPECT_THAT(m_told, ElementsAre("unplug", "plug", "bad", "plug 2"));
}

// A bus has its turn after each command.
TEST_F(ControlSocketTest, turn_takesOneLineOfEachConnection)
{
    const Descriptor first = connect();
    const Descriptor second = connect();
    say(first, "1\n2\n3\n");
    say(second, "4\n5\n");
    turn();
    EXPECT_THAT(m_told, ElementsAre("1", "4"));
    turn();
    EXPECT_THAT(m_told, ElementsAre("1", "4", "2", "5"));
}

TEST_F(ControlSocketTest, lineWithoutItsEnd_isNotCarriedOut)
{
    const Descriptor client = connect();
    say(client, "plug\nunplug 1");
    shutdown(client.get(), SHUT_WR);
    EXPECT_TRUE(settle());
    EXPECT_EQ(hear(client), "ok\nrefused: 'unplug 1': the line has no end\n(end)");
    EXPECT_THAT(m_told, ElementsAre("plug"));
    EXPECT_EQ(connections(), 0U);
}

TEST_F(ControlSocketTest, garbage_isALine)
{
    const Descriptor client = connect();
    const std::string garbage("\0\xFF\x1B[2J\r", 7);
    EXPECT_EQ(ask(client, garbage + "\n"), "ok\n");
    EXPECT_THAT(m_told, ElementsAre(garbage));
}

TEST_F(ControlSocketTest, lineOfAMegabyte_isRefusedAndTheNextOneTaken)
{
    const Descriptor client = connect();
    for (std::size_t sent = 0; sent < (std::size_t{1} << 20); turn())
        sent += say(client, std::string(4096, 'x'));
    EXPECT_EQ(ask(client, "\nplug\n"), "refused: a line has at most 262144 bytes\nok\n");
    EXPECT_THAT(m_told, ElementsAre("plug"));

    const std::string longest(ControlConnection::longestLine, 'x');
    for (std::size_t sent = 0; sent < longest.size(); turn())
        sent += say(client, longest.substr(sent));
    EXPECT_EQ(ask(client, "\n"), "ok\n");
    EXPECT_EQ(m_told.back(), longest);
}

TEST_F(ControlSocketTest, whoDoesNotRead_isNotHeardAnyMoreAndHoldsNobodyUp)
{
    const Descriptor deaf = connect();
    const Descriptor other = connect();
    std::size_t lines = 0;
    std::size_t before = 0;
    do {
        before = lines;
        while (say(deaf, "bad\n") == 4)
            ++lines;
        EXPECT_TRUE(settle());
    } while (lines != before);
    EXPECT_LT(m_told.size(), lines);
    EXPECT_EQ(ask(other, "plug\n"), "ok\n");
    EXPECT_EQ(m_told.back(), "plug");
    // Now it does.
    std::size_t answers = 0;
    for (std::string heard = hear(deaf); !heard.empty(); heard = hear(deaf)) {
        answers += static_cast<std::size_t>(std::count(heard.begin(), heard.end(), '\n'));
        settle();
    }
    EXPECT_EQ(answers, lines);
}

TEST_F(ControlSocketTest, whoDisappears_isForgotten)
{
    {
        const Descriptor silent = connect();
        const Descriptor halfway = connect();
        say(halfway, "unplug");
        const Descriptor asking = connect();
        say(asking, "plug\nplug\n");
        EXPECT_EQ(connections(), 3U);
    }
    EXPECT_TRUE(settle());
    EXPECT_EQ(connections(), 0U);
    EXPECT_EQ(ask(connect(), "plug 7\n"), "ok\n");
}

TEST_F(ControlSocketTest, manyConnections_theLongestSilentIsClosed)
{
    std::vector<Descriptor> clients;
    clients.push_back(connect());
    clients.push_back(connect());
    for (int i = 0; i < 200; ++i) {
        EXPECT_EQ(ask(clients[0], "plug\n"), "ok\n") << i;
        clients.push_back(connect());
    }
    EXPECT_EQ(connections(), ControlSocket::maxConnections);
    EXPECT_EQ(hear(clients[1]), "(end)");
    EXPECT_EQ(ask(clients.back(), "plug\n"), "ok\n");
    for (int i = 0; i < 3000; ++i)
        connect();
    EXPECT_TRUE(settle());
    EXPECT_EQ(ask(connect(), "plug\n"), "ok\n");
}

TEST_F(ControlSocketTest, noDescriptorIsLeft_connectionIsClosedAndNotAskedForAgain)
{
    const Descriptor before = connect();
    const Descriptor waiting = ControlPath::connect(path());
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none{static_cast<rlim_t>(waiting.get()) + 1, limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    // Numbers that are free below the limit.
    std::vector<Descriptor> all;
    for (int number = dup(0); number >= 0; number = dup(0))
        all.emplace_back(number);
    EXPECT_TRUE(settle());
    EXPECT_EQ(connections(), 1U);
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_EQ(hear(waiting), "(end)");
    EXPECT_EQ(ask(before, "plug\n"), "ok\n");
    all.clear();
    EXPECT_EQ(ask(connect(), "plug\n"), "ok\n");
}

TEST_F(ControlSocketTest, file_isTheUsersAloneAndRemovedAtTheEnd)
{
    struct stat status = {};
    ASSERT_EQ(lstat(path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, static_cast<mode_t>(S_IFSOCK | 0600));
    EXPECT_EQ(m_socket->getPath(), path());
    m_socket.reset();
    EXPECT_FALSE(std::filesystem::exists(path()));
}

TEST_F(ControlSocketTest, nameThatAnotherHasTakenSince_staysItsOwn)
{
    std::filesystem::remove(path());
    const auto other = open(path());
    m_socket.reset();
    EXPECT_TRUE(std::filesystem::exists(path()));
}

TEST_F(ControlSocketTest, nameThatIsTaken_isRefused)
{
    EXPECT_EQ(refusal(path()), "cannot take commands at '" + path() + "': another simulation listens there");
    const std::string file = m_folder / "file";
    std::ofstream(file) << "precious";
    EXPECT_EQ(refusal(file), "cannot take commands at '" + file + "': there is something else of that name");
    EXPECT_EQ(contentOf(file), "precious");
    const std::string nowhere = m_folder / "none/control";
    EXPECT_EQ(refusal(nowhere), "cannot take commands at '" + nowhere + "': No such file or directory");
    EXPECT_TRUE(std::filesystem::exists(path()));
}

TEST_F(ControlSocketTest, socketThatWasLeftBehind_isReplaced)
{
    const std::string kept = m_folder / "kept";
    std::filesystem::create_hard_link(path(), kept);
    m_socket.reset(); // nobody listens
    std::filesystem::rename(kept, path());
    m_socket = open(path());
    EXPECT_EQ(ask(connect(), "plug\n"), "ok\n");
}

// sun_path holds 107 characters and a 0.
TEST_F(ControlSocketTest, longPath_isRefused)
{
    const std::string beginning = m_folder.getPath() + "/";
    const std::string longest = beginning + std::string(107 - beginning.size(), 'x');
    EXPECT_EQ(open(longest)->getPath(), longest);
    const std::string refused = refusal(longest + "x");
    EXPECT_NE(refused.find("a socket's path has at most 107 bytes, this one 108"), std::string::npos) << refused;
    EXPECT_FALSE(std::filesystem::exists(longest));
}

} // namespace Vantor

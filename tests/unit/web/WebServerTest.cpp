#include "simulator/web/WebServer.h"

#include "tests/unit/web/WebBus.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Vantor {

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::StartsWith;

class WebServerTest : public testing::Test {
protected:
    WebServerTest()
    {
        m_bus.plug(0);
        m_server.start();
    }

    std::uint16_t port() const
    {
        const std::string url = m_server.getUrl();
        return static_cast<std::uint16_t>(std::stoi(url.substr(url.rfind(':') + 1)));
    }

    std::string token() const { return m_server.getUrl().substr(m_server.getUrl().find('#') + 1); }

    httplib::Result get(const std::string& path, const httplib::Headers& headers = {}) const
    {
        return httplib::Client("127.0.0.1", port()).Get(path.c_str(), headers);
    }

    httplib::Result post(const std::string& line, const httplib::Headers& headers) const
    {
        return httplib::Client("127.0.0.1", port()).Post("/api/command", headers, line, "text/plain");
    }

    int connectTo() const
    {
        const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port());
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(connect(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        return descriptor;
    }

    // The status for a request of which no body comes.
    int answerTo(const std::string& method, const std::string& token, const std::string& headers,
                 std::chrono::milliseconds silence = 0ms) const
    {
        const int descriptor = connectTo();
        std::this_thread::sleep_for(silence);
        const std::string path = method == "GET" ? "/api/state" : "/api/command";
        const std::string request = method + " " + path + " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port()) +
                                    "\r\nX-Panelsim-Token: " + token + "\r\n" + headers + "\r\n";
        EXPECT_EQ(write(descriptor, request.data(), request.size()), static_cast<ssize_t>(request.size()));
        char status[13] = {}; // "HTTP/1.1 200"
        EXPECT_EQ(recv(descriptor, status, 12, MSG_WAITALL), 12);
        close(descriptor);
        return std::atoi(status + 9);
    }

    void expect(const httplib::Result& result, int status, const std::string& body) const
    {
        ASSERT_TRUE(result);
        EXPECT_EQ(result->status, status);
        EXPECT_EQ(result->body, body);
    }

    std::string told() const
    {
        std::string all;
        for (const std::string& line : m_told)
            all += "[" + line + "]";
        return all;
    }

    PanelBoard m_board;
    WebBus m_bus{m_board, {{0, {8, 2}}}};
    std::vector<std::string> m_told;
    WebServer m_server{m_board, WebAddress{}, m_bus.getUse(), [this](const std::string& line) {
                           m_told.push_back(line);
                           return line == "plug" ? std::string("panel 0: is plugged already") : std::string();
                       }};
};

TEST_F(WebServerTest, page_isServedAndMayDoNothingElse)
{
    const auto page = get("/");
    ASSERT_TRUE(page);
    EXPECT_EQ(page->status, 200);
    EXPECT_THAT(page->body, StartsWith("<!DOCTYPE html>"));
    EXPECT_THAT(page->get_header_value("Content-Security-Policy"), StartsWith("default-src 'none';"));
    EXPECT_EQ(page->get_header_value("X-Frame-Options"), "DENY");
    EXPECT_EQ(page->get_header_value("Cross-Origin-Resource-Policy"), "same-origin");
    EXPECT_EQ(get("/main.js")->get_header_value("Content-Type"), "text/javascript; charset=utf-8");
    expect(get("/../../etc/passwd"), 404, "{\"error\":\"there is no /../../etc/passwd\"}");
    EXPECT_EQ(get("/mainxjs")->status, 404);
}

TEST_F(WebServerTest, requestFromElsewhere_isRefusedEverywhere)
{
    for (const char* const path : {"/", "/main.js", "/api/state", "/api/events", "/api/panels/0/lcds/0.png"}) {
        EXPECT_EQ(get(path, {{"Host", "evil.example"}})->status, 403) << path;
        EXPECT_EQ(get(path, {{"Origin", "http://evil.example"}})->status, 403) << path;
    }
    EXPECT_EQ(post("unplug", {{"X-Panelsim-Token", token()}, {"Origin", "http://evil.example"}})->status, 403);
    EXPECT_EQ(told(), "");
}

TEST_F(WebServerTest, command_isCarriedOutWithTheTokenAlone)
{
    EXPECT_EQ(post("unplug", {})->status, 403);
    EXPECT_EQ(post("unplug", {{"X-Panelsim-Token", "0123"}})->status, 403);
    EXPECT_EQ(told(), "");
    expect(post("unplug\n", {{"X-Panelsim-Token", token()}}), 200, "{\"done\":true}");
    EXPECT_EQ(told(), "[unplug]");
    expect(post("plug", {{"X-Panelsim-Token", token()}}), 409, "{\"error\":\"panel 0: is plugged already\"}");
    expect(post("plug\nunplug", {{"X-Panelsim-Token", token()}}), 400, "{\"error\":\"one command at a time\"}");
    for (const char* const nothing : {"", " \t", "# a remark", " #"})
        expect(post(nothing, {{"X-Panelsim-Token", token()}}), 400, "{\"error\":\"expected a command\"}");
    EXPECT_EQ(post(std::string(300000, 'x'), {{"X-Panelsim-Token", token()}})->status, 413);
    EXPECT_EQ(told(), "[unplug][plug]");
}

TEST_F(WebServerTest, picture_isThatOfTheLcd)
{
    m_bus.draw(0, 0, 0, 1, 8, 1, {0x3C});
    expect(get("/api/panels/0/lcds/0.txt"), 200, "........\n..####..\n");
    expect(get("/api/panels/0/lcds/0.txt?x=1&y=1&width=3&height=1"), 200, ".##\n");
    expect(get("/api/panels/0/lcds/0/pixel?x=2&y=1"), 200,
           "{\"colour\":\"#000000\",\"slice\":{\"n\":0,\"time\":0.0,\"encoding\":\"raw\",\"bitsPerPixel\":1,\"x\":0,"
           "\"y\":1,\"width\":8,\"rows\":1,\"bytes\":8}}");
    expect(get("/api/panels/0/lcds/0/pixel?x=2&y=0"), 200, "{\"colour\":\"#ffffff\",\"slice\":null}");
    EXPECT_THAT(get("/api/panels/0/lcds/0.png?zoom=8")->body, StartsWith("\x89PNG"));
    EXPECT_THAT(get("/api/panels/0/lcds/0.gif")->body, StartsWith("GIF8"));
}

TEST_F(WebServerTest, wrongParameter_isToldWithWhatIsAllowed)
{
    expect(get("/api/panels/0/lcds/0.png?zoom=9"), 400, "{\"error\":\"zoom: expected a number from 1 to 8\"}");
    expect(get("/api/panels/0/lcds/0.png?zoom=0"), 400, "{\"error\":\"zoom: expected a number from 1 to 8\"}");
    expect(get("/api/panels/0/lcds/0.txt?x=8"), 400, "{\"error\":\"x: expected a number from 0 to 7\"}");
    expect(get("/api/panels/0/lcds/0.txt?x=7&width=2"), 400, "{\"error\":\"width: expected a number from 1 to 1\"}");
    expect(get("/api/panels/0/lcds/0/pixel?x=0&y=-1"), 400, "{\"error\":\"y: expected a number from 0 to 1\"}");
    expect(get("/api/panels/0/lcds/99999.txt"), 400, "{\"error\":\"LCD: expected a number from 0 to 65535\"}");
    expect(get("/api/records?way=up"), 400, "{\"error\":\"way: expected out or in\"}");
    expect(get("/api/panels/0/lcds/1.txt"), 404,
           "{\"error\":\"panel 0 has no LCD 1 that was drawn on or that --lcd names\"}");
    expect(get("/api/panels/1/lcds/0.txt"), 404, "{\"error\":\"there is no panel 1\"}");
    expect(get("/api/panels/0/lcds/0.txt?widht=4"), 400, "{\"error\":\"'widht' is no parameter here\"}");
    EXPECT_EQ(get("/api/panels/0/lcds/0.txt?zoom=4")->status, 400);
    EXPECT_EQ(get("/api/panels/0/lcds/0.gif?x=4")->status, 400);
    EXPECT_EQ(get("/api/records?typ=4")->status, 400);
    EXPECT_EQ(get("/api/events?screen=0")->status, 400);
    expect(get("/api/panels/0/lcds/0/pixel?x=1"), 400, "{\"error\":\"expected x and y\"}");
    expect(get("/api/command"), 405, "{\"error\":\"a command wants POST\"}");
}

TEST_F(WebServerTest, records_areChosen)
{
    m_bus.send(0, 5, {3, 4});
    m_bus.send(0, 6, {});
    const std::string five = "{\"n\":0,\"time\":0.000000,\"panel\":0,\"way\":\"out\",\"type\":5,\"size\":2,"
                             "\"bytes\":\"0304\"}\n";
    const std::string six = "{\"n\":1,\"time\":0.000000,\"panel\":0,\"way\":\"out\",\"type\":6,\"size\":0,"
                            "\"bytes\":\"\"}\n";
    expect(get("/api/records"), 200, five + six);
    expect(get("/api/records?type=6&way=out&panel=0"), 200, six);
    expect(get("/api/records?way=in"), 200, "");
    expect(get("/api/records?panel=1"), 200, "");
}

TEST_F(WebServerTest, commandsGiven_areAScript)
{
    m_bus.execute(UnplugOrder{0});
    m_bus.execute(PlugOrder{0});
    expect(get("/api/script"), 200, "0s unplug 0\n0s plug 0\n");
}

TEST_F(WebServerTest, commandLanguage_isThatOfTheHelp)
{
    const std::string commands = get("/api/commands")->body;
    EXPECT_THAT(commands, HasSubstr("{\"verb\":\"fault\",\"second\":\"boot\",\"places\":[{\"required\":true,"));
    EXPECT_THAT(commands, HasSubstr("{\"name\":\"lose\",\"argument\":\"\",\"help\":\"done, but not answered\"}"));
    EXPECT_THAT(commands, HasSubstr("{\"name\":\"skip\",\"argument\":\"N\""));
}

TEST_F(WebServerTest, portThatIsTaken_isRefused)
{
    const WebAddress taken{"127.0.0.1", port()};
    EXPECT_THROW(WebServer(m_board, taken, m_bus.getUse(), [](const std::string&) { return std::string(); }),
                 std::runtime_error);
}

TEST_F(WebServerTest, bodyThatIsNotACommand_isNotRead)
{
    EXPECT_EQ(answerTo("POST", token(), "Transfer-Encoding: chunked\r\n"), 411);
    EXPECT_EQ(answerTo("POST", token(), ""), 411);
    EXPECT_EQ(answerTo("POST", token(), "Content-Length: 4000000000\r\n"), 413);
    EXPECT_EQ(answerTo("POST", token(), "Content-Length: 9\r\nContent-Encoding: gzip\r\n"), 411);
    EXPECT_EQ(answerTo("POST", token(), "Content-Length: 9\r\nContent-Type: multipart/form-data; boundary=x\r\n"), 415);
    EXPECT_EQ(answerTo("POST", "0123", "Content-Length: 9\r\n"), 403);
    EXPECT_EQ(answerTo("PUT", token(), "Transfer-Encoding: chunked\r\n"), 405);
    EXPECT_EQ(answerTo("GET", token(), "Content-Length: 9\r\n"), 400);
    EXPECT_EQ(answerTo("GET", token(), "Range: bytes=0-,0-\r\n"), 416);
    EXPECT_EQ(told(), "");
}

TEST_F(WebServerTest, commandBehindTheEnd_isNotCarriedOut)
{
    m_server.end();
    expect(post("unplug", {{"X-Panelsim-Token", token()}}), 409, "{\"error\":\"the simulation has ended\"}");
    EXPECT_EQ(told(), "");
}

TEST_F(WebServerTest, connectionThatIsUsedLate_isAnswered)
{
    EXPECT_EQ(answerTo("GET", token(), "", 1500ms), 200);
}

// Whose read time-out the server's library counts anew with each byte.
TEST_F(WebServerTest, requestThatNeverEnds_isNotWaitedFor)
{
    const int descriptor = connectTo();
    const std::string beginning = "GET /";
    ASSERT_EQ(write(descriptor, beginning.data(), beginning.size()), static_cast<ssize_t>(beginning.size()));
    std::atomic<bool> isOver{false};
    std::thread dribbler([descriptor, &isOver] {
        while (!isOver && ::send(descriptor, "x", 1, MSG_NOSIGNAL) == 1)
            std::this_thread::sleep_for(100ms);
    });
    get("/api/state"); // it has been met by now
    const auto begin = std::chrono::steady_clock::now();
    m_server.stop();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 60s);
    isOver = true;
    dribbler.join();
    close(descriptor);
}

TEST_F(WebServerTest, brokenPipes_areStillTheProgramsOwn)
{
    struct sigaction action = {};
    ASSERT_EQ(sigaction(SIGPIPE, nullptr, &action), 0);
    EXPECT_EQ(action.sa_handler, SIG_DFL);
}

// Each reads its stream until the end, or until it has what it wants.
class WebServerStreams : public WebServerTest {
protected:
    // The end of a first stream makes the library's static text, behind a guard that the thread
    // sanitizer does not see it read: threads that begin after this do not race for it.
    static void SetUpTestSuite()
    {
        httplib::Server server;
        server.Get("/", [](const httplib::Request&, httplib::Response& response) {
            response.set_chunked_content_provider("text/plain", [](std::size_t, httplib::DataSink& sink) {
                sink.done();
                return true;
            });
        });
        const int port = server.bind_to_any_port("127.0.0.1");
        std::thread thread([&server] { server.listen_after_bind(); });
        EXPECT_TRUE(httplib::Client("127.0.0.1", port).Get("/"));
        server.stop();
        thread.join();
    }

    struct Listener {
        explicit Listener(std::uint16_t port)
            : thread([this, port] {
                  httplib::Client client("127.0.0.1", port);
                  client.set_read_timeout(60s);
                  const auto result = client.Get("/api/events", [this](const char* data, std::size_t size) {
                      const std::lock_guard<std::mutex> lock(mutex);
                      text.append(data, size);
                      return true;
                  });
                  status = result ? result->status : -1;
                  isOver = true;
              })
        {}
        ~Listener() { thread.join(); }
        Listener(const Listener&) = delete;
        Listener& operator=(const Listener&) = delete;

        bool hears(const std::string& wanted)
        {
            const auto end = std::chrono::steady_clock::now() + 60s;
            while (std::chrono::steady_clock::now() < end) {
                {
                    const std::lock_guard<std::mutex> lock(mutex);
                    if (text.find(wanted) != std::string::npos)
                        return true;
                }
                std::this_thread::sleep_for(5ms);
            }
            return false;
        }

        std::mutex mutex;
        std::string text;
        std::atomic<int> status{0};
        std::atomic<bool> isOver{false};
        std::thread thread;
    };
};

TEST_F(WebServerStreams, twoListeners_hearTheSameAndTheEnd)
{
    Listener one(port());
    Listener other(port());
    // The whole picture: one who is late for the second row hears both in one.
    EXPECT_TRUE(one.hears("event: screen"));
    EXPECT_TRUE(other.hears("event: screen"));
    m_bus.draw(0, 0, 0, 1, 8, 1, {0x3C});
    EXPECT_TRUE(one.hears("\"bits\":\"PA==\""));
    EXPECT_TRUE(other.hears("\"bits\":\"PA==\""));
    m_server.end();
    EXPECT_TRUE(one.hears("event: end"));
    EXPECT_TRUE(other.hears("event: end"));
}

TEST_F(WebServerStreams, oneMoreThanThereIsRoomFor_isRefusedUntilOneLeaves)
{
    std::vector<std::unique_ptr<Listener>> listeners;
    for (unsigned int i = 0; i < WebServer::maxStreams; ++i) {
        listeners.push_back(std::make_unique<Listener>(port()));
        EXPECT_TRUE(listeners.back()->hears("event: state"));
    }
    expect(get("/api/events"), 503, "{\"error\":\"8 others listen, there is no room for more\"}");
    EXPECT_EQ(get("/api/state")->status, 200) << "there are threads for others";
    m_server.end();
}

} // namespace Vantor

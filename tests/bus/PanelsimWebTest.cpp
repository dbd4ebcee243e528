// The page's interface, of the program as a user starts it. What the server itself does is
// tested without a bus.
#include "tests/bus/PanelsimFixture.h"

#include <regex>

#include <httplib.h>

namespace Vantor {

class PanelsimWeb : public Panelsim {
protected:
    // Where it says that the panels are.
    void awaitAddress()
    {
        awaitOutput("panelsim: the panels are at http://");
        std::smatch found;
        const std::string output = contentOf(fileName("output"));
        ASSERT_TRUE(std::regex_search(output, found, std::regex("http://127\\.0\\.0\\.1:(\\d+)/#([0-9a-f]{32})\n")));
        const std::string line = found[0];
        m_url = line.substr(0, line.size() - 1);
        m_port = std::stoi(found[1]);
        m_token = found[2];
    }

    httplib::Client client() const
    {
        httplib::Client client("127.0.0.1", m_port);
        client.set_read_timeout(std::chrono::seconds(60));
        return client;
    }

    std::string get(const std::string& path) const
    {
        const auto result = client().Get(path.c_str());
        return result ? result->body : "no answer";
    }

    std::string tell(const std::string& line) const
    {
        const auto result =
            client().Post("/api/command", httplib::Headers{{"X-Panelsim-Token", m_token}}, line, "text/plain");
        return result ? result->body : "no answer";
    }

    // A program that ends when the test says so.
    std::vector<std::string> waiting(const std::string& first = ":") const
    {
        return {"--", "sh", "-c", first + "; until [ -e " + fileName("go") + " ]; do sleep 0.02; done"};
    }

    void letGo() const { std::ofstream(fileName("go")).close(); }

    void startWith(std::vector<std::string> arguments, const std::string& first = ":")
    {
        for (const std::string& word : waiting(first))
            arguments.push_back(word);
        start(arguments);
        awaitAddress();
    }

    std::string m_url;
    int m_port = 0;
    std::string m_token;
};

TEST_F(PanelsimWeb, programsPicture_isTheOneThatIsServed)
{
    startWith({"run", "--web", "--lcd", "0=72x72", "--png", fileName("pictures")},
              MORVANE_PANELCTL " draw " MORVANE_DEMO_PICTURE " --lcd 0 --size 72x72 > " + fileName("drawn") +
                  "; touch " + fileName("ready"));
    awaitFile("ready");
    const std::string served = get("/api/panels/0/lcds/0.png");
    EXPECT_NE(get("/api/state").find("\"lcd\":0,\"width\":72,\"height\":72,\"slices\":1,"), std::string::npos);
    letGo();
    EXPECT_EQ(finish().exitCode, 0);
    EXPECT_EQ(served, contentOf(fileName("pictures/panel0-lcd0.png")));
}

TEST_F(PanelsimWeb, program_findsTheAddressInItsEnvironment)
{
    startWith({"run", "--web"}, "echo $PANELSIM_WEB > " + fileName("found") + "; touch " + fileName("ready"));
    awaitFile("ready");
    EXPECT_EQ(contentOf(fileName("found")), m_url + "\n");
    letGo();
    EXPECT_EQ(finish().exitCode, 0);
}

TEST_F(PanelsimWeb, programWithoutAPage_findsNoOthersAddress)
{
    const int code = shell("PANELSIM_WEB=http://127.0.0.1:1/ $panelsim run -- sh -c '[ -z \"$PANELSIM_WEB\" ]'");
    EXPECT_EQ(code, 0);
}

TEST_F(PanelsimWeb, commands_areCarriedOutAndInTheLog)
{
    startWith({"run", "--web", "--log", fileName("log")});
    EXPECT_EQ(tell("plug 3"), "{\"done\":true}");
    EXPECT_EQ(tell("plug 3"), "{\"error\":\"panel 3: is plugged already\"}");
    EXPECT_EQ(tell("explode"),
              "{\"error\":\"'explode': expected plug, unplug, fault or emit, found \\\"explode\\\"\"}");
    EXPECT_EQ(tell("quit"), "{\"error\":\"'quit': only attach takes it; a run ends with its program\"}");
    EXPECT_NE(get("/api/script").find("s plug 3\n"), std::string::npos);
    letGo();
    EXPECT_EQ(finish().exitCode, 0);
    EXPECT_NE(contentOf(fileName("log")).find(" order: plug 3\n"), std::string::npos);
}

TEST_F(PanelsimWeb, scriptOfOneRun_isTakenByAnother)
{
    startWith({"run", "--web", "--at", "0", "emit 0 type=5 hex=03"});
    tell("unplug 0");
    std::ofstream(fileName("script")) << get("/api/script");
    letGo();
    EXPECT_EQ(finish().exitCode, 0);
    const Result again = run({"run", "--script", fileName("script"), "--log", fileName("log"), "--", "sleep", "1"});
    EXPECT_EQ(again.exitCode, 0);
    const std::string log = contentOf(fileName("log"));
    EXPECT_NE(log.find("0.000000 order: emit 0 type=5 hex=03\n"), std::string::npos) << log;
    EXPECT_NE(log.find(" order: unplug 0\n"), std::string::npos) << log;
}

TEST_F(PanelsimWeb, listener_hearsOfTheEndOfTheProgram)
{
    startWith({"run", "--web"});
    std::string heard;
    client().Get("/api/events", [this, &heard](const char* data, std::size_t size) {
        if (heard.empty())
            letGo();
        heard.append(data, size);
        return true;
    });
    EXPECT_EQ(heard.substr(0, 13), "event: state\n");
    EXPECT_NE(heard.find("event: end\n"), std::string::npos);
    EXPECT_EQ(finish().exitCode, 0);
}

TEST_F(PanelsimWeb, listenerThatNeverReads_holdsUpNeitherOthersNorTheEnd)
{
    startWith({"run", "--web", "--panels", "31"});
    // More than a socket takes: every picture of every panel.
    const int code =
        shell("python3 - " + std::to_string(m_port) +
              " << 'EOF' &\nimport socket, sys, time\n"
              "s = socket.socket()\ns.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)\n"
              "s.connect(('127.0.0.1', int(sys.argv[1])))\n"
              "s.sendall(b'GET /api/events HTTP/1.1\\r\\nHost: 127.0.0.1:' + sys.argv[1].encode() + b'\\r\\n\\r\\n')\n"
              "s.recv(16)\nopen('" +
              fileName("asleep") + "', 'w')\ntime.sleep(600)\nEOF\necho $! > " + fileName("sleeper"));
    ASSERT_EQ(code, 0);
    awaitFile("asleep");
    for (int i = 0; i < 20; ++i)
        ASSERT_EQ(tell("emit raw hex=00"), "{\"done\":true}");
    EXPECT_NE(get("/api/state").find("\"panel\":30,"), std::string::npos);
    letGo();
    EXPECT_EQ(finish().exitCode, 0);
    shell("kill $(cat " + fileName("sleeper") + ")");
}

TEST_F(PanelsimWeb, brokenPipe_stillEndsTheProgram)
{
    // `yes` ends by the signal, not with a complaint.
    EXPECT_EQ(shell("$panelsim run --web -- sh -c 'yes 2> " + fileName("complaint") + " | head -1 > /dev/null' 2> " +
                    fileName("errors")),
              0);
    EXPECT_EQ(contentOf(fileName("complaint")), "");
}

TEST_F(PanelsimWeb, addressThatIsNone_isRefusedBeforeAnythingRuns)
{
    const Result wrong = run({"run", "--web=here", "--", "touch", fileName("ran")});
    EXPECT_EQ(wrong.exitCode, 125);
    EXPECT_EQ(wrong.output, "panelsim: --web: expected PORT or ADDRESS:PORT, the address in figures, found \"here\"\n");
    const Result foreign = run({"run", "--web=192.0.2.1:0", "--", "touch", fileName("ran")});
    EXPECT_EQ(foreign.exitCode, 125);
    EXPECT_EQ(foreign.output, "panelsim: cannot serve a page at 192.0.2.1:0: the port is taken, or the address is not "
                              "this machine's\n");
    EXPECT_FALSE(std::filesystem::exists(fileName("ran")));
}

TEST_F(PanelsimWeb, attached_takesCommandsAndQuit)
{
    start({"attach", "--web", "--panels", "0", "--vhci", makeController()});
    awaitAddress();
    EXPECT_NE(get("/api/state").find("\"panels\":[]"), std::string::npos);
    EXPECT_EQ(tell("plug 4"), "{\"done\":true}");
    EXPECT_NE(get("/api/state").find("{\"panel\":4,\"plugged\":"), std::string::npos);
    EXPECT_EQ(tell("unplug 7"), "{\"error\":\"panel 7: is not plugged\"}");
    std::string heard;
    client().Get("/api/events", [this, &heard](const char* data, std::size_t size) {
        if (heard.empty()) {
            EXPECT_EQ(tell("quit"), "{\"done\":true}");
        }
        heard.append(data, size);
        return true;
    });
    EXPECT_NE(heard.find("event: end\n"), std::string::npos);
    EXPECT_EQ(finish().exitCode, 0);
}

TEST_F(PanelsimWeb, attachedAndInterrupted_endsWithListeners)
{
    start({"attach", "--web", "--vhci", makeController()});
    awaitAddress();
    std::string heard;
    client().Get("/api/events", [this, &heard](const char* data, std::size_t size) {
        if (heard.empty())
            send(SIGTERM);
        heard.append(data, size);
        return true;
    });
    EXPECT_NE(heard.find("event: end\n"), std::string::npos);
    EXPECT_EQ(finish().exitCode, 0);
}

} // namespace Vantor

// Commands to a simulation that is running: panelsim tell, and what listens to it.
#include "simulator/panelsim/ControlPath.h"
#include "tests/bus/PanelsimFixture.h"

#include <csignal>
#include <filesystem>
#include <fstream>

#include <sys/socket.h>

namespace Vantor {

class PanelsimTell : public Panelsim {
protected:
    // A shell's, with sockets in the test's folder.
    int shellInFolder(const std::string& script)
    {
        return shell("export XDG_RUNTIME_DIR=" + fileName("") + "\nunset PANELSIM_CONTROL\ncd " + fileName("") +
                     "\nexists() { until [ -e $1 ] || ! kill -0 $2; do sleep 0.02; done; }\n" + script);
    }

    std::string output() const { return contentOf(fileName("output")); }
};

TEST_F(PanelsimTell, program_tellsItsOwnBus)
{
    const Result result = run({"run", "--panels", "2", "--log", fileName("log"), "--", "sh", "-c",
                               MORVANE_PANELSIM " tell 'unplug 1' 'plug 1' ' fault 1 out stall' && echo done"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.output, "done\n");
    const std::string log = contentOf(fileName("log"));
    std::size_t at = 0;
    for (const char* const line :
         {" order: unplug 1\n", " panel 1: unplug\n", " order: plug 1\n", " panel 1: plug, port 2, device 4\n",
          " order: fault 1 out stall once\n", " panel 1: fault out stall once\n"}) {
        at = log.find(line, at);
        ASSERT_NE(at, std::string::npos) << line << log;
    }
}

TEST_F(PanelsimTell, whatCannotBeCarriedOut_isToldWhoAsked)
{
    const Result result =
        run({"run", "--log", fileName("log"), "--", "sh", "-c",
             MORVANE_PANELSIM " tell 'plug 0' 'unplug 3' 'emit 4 type=12 hex=0a' 'unplug 0' 2> " + fileName("told")});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.output, "") << "it is nobody else's affair";
    EXPECT_EQ(contentOf(fileName("told")), "panelsim: panel 0: is plugged already\n"
                                           "panelsim: panel 3: is not plugged\n"
                                           "panelsim: panel 4: is not plugged: emit type 12, 1 byte\n");
    const std::string log = contentOf(fileName("log"));
    EXPECT_NE(log.find(" panel 3: is not plugged\n"), std::string::npos) << log;
    EXPECT_NE(log.find(" panel 0: unplug\n"), std::string::npos) << log;
}

TEST_F(PanelsimTell, standardInput_isALineForEachCommand)
{
    const Result result =
        run({"run", "--", "sh", "-c",
             "printf '# a remark\\n\\nplug 3\\n  explode # x\\nunplug 31\\nquit\\nunplug 4' | " MORVANE_PANELSIM
             " tell -; echo $?"});
    EXPECT_EQ(result.output, "panelsim: 'explode': expected plug, unplug, fault or emit, found \"explode\"\n"
                             "panelsim: 'unplug 31': panels are numbered 0 to 30\n"
                             "panelsim: 'quit': only attach takes it; a run ends with its program\n"
                             "panelsim: panel 4: is not plugged\n"
                             "1\n");
    EXPECT_EQ(run({"run", "--", "sh", "-c", MORVANE_PANELSIM " tell - < /; echo $?"}).output,
              "panelsim: cannot read standard input: Is a directory\n125\n");
}

TEST_F(PanelsimTell, attachedPanels_areToldToo)
{
    EXPECT_EQ(shellInFolder("$panelsim attach --panels 0 --at 0 'unplug 3' --vhci " + makeController() +
                            " < /dev/null > $output 2>&1 &\n"
                            "awaits 'panel 3' $!\n"
                            "$panelsim tell 'unplug 7' plug 2> told\n"
                            "echo $? >> told\n"
                            "sed -i \"s/simulation $!: .*panelsim attach .*/it/\" told\n"
                            "$panelsim tell quit 2> quit || exit\n"
                            "wait $!\n"
                            "echo $? >> told\n"),
              0);
    EXPECT_EQ(contentOf(fileName("told")), "panelsim: telling it\npanelsim: panel 7: is not plugged\n1\n0\n");
    EXPECT_EQ(output().rfind("panelsim: panel 3: is not plugged\npanel 0: attached at vhci port 0\n", 0), 0U)
        << output();
    EXPECT_TRUE(std::filesystem::is_empty(fileName("panelsim")));
}

TEST_F(PanelsimTell, theOnlyOneThatRuns_isFoundAndOneOfSeveralIsNamed)
{
    EXPECT_EQ(
        shellInFolder("$panelsim tell unplug 2>> $output; echo $? >> $output\n"
                      "$panelsim run -- sh -c 'touch one; until [ -e end ]; do sleep 0.05; done' &\n"
                      "exists one $!; one=$!\n"
                      "$panelsim tell unplug >> $output 2>&1; echo $? >> $output\n"
                      "$panelsim run --control other -- sh -c 'touch two; until [ -e end ]; do sleep 0.05; done' &\n"
                      "exists two $!\n"
                      "$panelsim tell plug >> $output 2>&1; echo $? >> $output\n" // that one is elsewhere
                      "$panelsim tell --to other plug 2>> $output; echo $? >> $output\n"
                      "$panelsim run -- sh -c 'touch three; until [ -e end ]; do sleep 0.05; done' &\n"
                      "exists three $!\n"
                      "$panelsim tell unplug 2> several; echo $? >> several\n"
                      "$panelsim tell --list > list; echo $? >> list\n"
                      "touch end; wait\n"
                      "sed -i \"s/simulation $one: .*panelsim run .*/the first/\" $output\n"
                      "ls panelsim other >> $output 2>&1\n"),
        2);
    EXPECT_EQ(output(), "panelsim: no simulation is running that has its socket in " + fileName("") +
                            "/panelsim; --to names another\n125\n"
                            "panelsim: telling the first\n0\n"
                            "panelsim: telling the first\n0\n"
                            "panelsim: panel 0: is plugged already\n1\n"
                            "ls: cannot access 'other': No such file or directory\n"
                            "panelsim:\n");
    std::istringstream list(contentOf(fileName("list")));
    std::string all;
    int lines = 0;
    std::string path;
    std::string command;
    for (int process = 0; list >> path >> process && std::getline(list, command); ++lines) {
        EXPECT_EQ(path, fileName("") + "/panelsim/" + std::to_string(process) + ".sock");
        EXPECT_EQ(command.rfind("  " MORVANE_PANELSIM, 0), 0U) << command;
        all += path + "  " + std::to_string(process) + command + "\n";
    }
    EXPECT_EQ(lines, 2) << contentOf(fileName("list"));
    EXPECT_EQ(contentOf(fileName("several")), "panelsim: 2 simulations are running; --to names one:\n" + all + "125\n");
    EXPECT_EQ(contentOf(fileName("list")), all + "0\n");
}

TEST_F(PanelsimTell, killedSimulation_leavesNothingForLong)
{
    EXPECT_EQ(shellInFolder("$panelsim run -- sh -c 'echo $$ > client; exec sleep 60' &\n"
                            "exists client $!\n"
                            "kill -KILL $!; wait $! 2> killed\n"
                            "kill $(cat client)\n"
                            "ls panelsim | wc -l > before\n"
                            "$panelsim tell --list > list\n"
                            "ls panelsim | wc -l > after\n"
                            // In place of the one that has been killed.
                            "ln -s nothing dangling; $panelsim run --control dangling -- true 2> link\n"
                            "$panelsim run --control named -- sh -c 'echo $$ > client2; exec sleep 60' &\n"
                            "exists client2 $!\n"
                            "kill -KILL $!; wait $! 2> killed\n"
                            "kill $(cat client2)\n"
                            "$panelsim run --control named -- $panelsim tell unplug\n"),
              0);
    EXPECT_EQ(contentOf(fileName("before")), "1\n");
    EXPECT_EQ(contentOf(fileName("list")), "");
    EXPECT_EQ(contentOf(fileName("after")), "0\n");
    EXPECT_NE(contentOf(fileName("link")).find("there is something else of that name"), std::string::npos);
}

TEST_F(PanelsimTell, socketThatCannotBe_is125BeforeTheProgramRuns)
{
    for (const std::string& path : {std::string("/dev/null/control"), fileName(std::string(108, 'x'))}) {
        const Result result = run({"run", "--control", path, "--", "echo", "ran"});
        EXPECT_EQ(result.exitCode, 125);
        EXPECT_EQ(result.output.rfind("panelsim: cannot take commands at '", 0), 0U) << result.output;
        EXPECT_EQ(result.output.find("ran\n"), std::string::npos) << result.output;
    }
    std::ofstream(fileName("panelsim")) << "in the way";
    EXPECT_EQ(
        shellInFolder("PANELSIM_CONTROL=another $panelsim run -- sh -c 'echo ran$PANELSIM_CONTROL' > $output 2>&1"), 0);
    EXPECT_EQ(output(), "panelsim: without a control socket: '" + fileName("") +
                            "/panelsim' is not a folder of this user alone\nran\n");
}

TEST_F(PanelsimTell, simulationThatHasEnded_isSaid)
{
    EXPECT_EQ(
        shellInFolder("$panelsim run --control socket -- sh -c 'touch ready; until [ -e end ]; do sleep 0.02; done' &\n"
                      "exists ready $!\n"
                      "{ echo unplug 4; timeout 10 sh -c 'until [ -e ended ]; do sleep 0.02; done'; echo plug; } | "
                      "$panelsim tell --to socket - 2> $output &\n"
                      "awaits 'panel 4' $!\n"
                      "touch end; wait %1; touch ended; wait %2\n"),
        125);
    EXPECT_EQ(output(), "panelsim: panel 4: is not plugged\npanelsim: the simulation ended before it answered\n");
    EXPECT_EQ(shellInFolder("$panelsim tell --to socket plug 2> $output\n"), 125);
    EXPECT_EQ(output(), "panelsim: cannot reach a simulation at 'socket': No such file or directory\n");
}

// Whoever does whatever at the socket: the program's transfers go on, and so do others' commands.
TEST_F(PanelsimTell, hostileConnections_holdNothingUp)
{
    const std::string socket = fileName("socket");
    start({"run", "--control", socket, "--", "sh", "-c",
           "touch " + fileName("ready") + "; until [ -e " + fileName("end") +
               " ]; do " MORVANE_RAW_CLIENT " 0d00010000000000050200a1b2 || exit 9; echo x >> " + fileName("sent") +
               "; done; " MORVANE_PANELSIM " tell unplug"});
    awaitFile("ready");
    std::vector<Descriptor> connections;
    const std::string garbage(1 << 16, '\x07');
    std::string nonsense;
    for (int i = 0; i < 5000; ++i)
        nonsense += "nonsense\n";
    for (int i = 0; i < 300; ++i) {
        Descriptor connection = ControlPath::connect(socket);
        const std::string& text = i % 2 == 0 ? garbage : nonsense;
        ::send(connection.get(), text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (i % 3 != 0) // the others never close
            connections.push_back(std::move(connection));
    }
    const std::size_t sent = contentOf(fileName("sent")).size();
    EXPECT_TRUE(waitUntil([this, sent] { return contentOf(fileName("sent")).size() >= sent + 6; }));
    std::ofstream(fileName("end")).close();
    const Result result = finish();
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.output, "");
}

// It waits for somebody who will never read.
TEST_F(PanelsimTell, commandUnderWay_isNoReasonNotToEnd)
{
    std::ofstream commands(fileName("commands"));
    for (int i = 0; i < 20; ++i)
        commands << "unplug\nplug\n";
    commands.close();
    const std::string log = fileName("log");
    const auto has = [](const std::string& file, const std::string& text) {
        return "until grep -q '" + text + "' " + file + "; do sleep 0.05; done; ";
    };
    // Not while one of its calls is under way, for which the bus would wait.
    const std::string stopWhenIdle = has(fileName("events"), "end 101") + "sleep 0.2; kill -STOP $!; ";
    start({"run", "--log", log, "--", "sh", "-c",
           "(echo start; sleep 60) | " MORVANE_BUS_CLIENT " 3> " + fileName("events") + " > /dev/null & " +
               stopWhenIdle + "echo $! > " + fileName("stopped") + "; " MORVANE_PANELSIM " tell - < " +
               fileName("commands") + " 2> " + fileName("told") + " & " + has(log, "waits until the program has read") +
               "exit 4"});
    EXPECT_EQ(finish().exitCode, 4);
    EXPECT_TRUE(waitUntil([this] { return !contentOf(fileName("told")).empty(); }));
    EXPECT_EQ(contentOf(fileName("told")), "panelsim: the simulation ended before it answered\n");
    EXPECT_EQ(shell("kill -KILL $(cat " + fileName("stopped") + ")\n"), 0);
}

} // namespace Vantor

#pragma once

#include "simulator/usbfs/ClientProcess.h"
#include "tests/bus/BusTest.h"
#include "tests/support/TemporaryFolder.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Vantor {

// The program itself, as a user starts it.
class Panelsim : public testing::Test {
protected:
    struct Result {
        int exitCode;
        std::string output; // with the errors
    };

    void TearDown() override { m_process.reset(); }

    std::string fileName(const std::string& name) const { return m_folder / name; }

    // With the text as its standard input.
    void start(std::vector<std::string> arguments, const std::string& input = "")
    {
        std::ofstream(fileName("input")) << input;
        arguments.insert(arguments.begin(), MORVANE_PANELSIM);
        std::vector<std::string> environment;
        for (char** variable = environ; *variable != nullptr; ++variable)
            environment.emplace_back(*variable);
        ClientProcess::Signals signals{};
        sigaddset(&signals.defaulted, SIGPIPE); // a bus of the test's process ignores it
        const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(fileName("output").c_str(), "w"),
                                                                   std::fclose);
        const std::unique_ptr<std::FILE, int (*)(std::FILE*)> inputFile(std::fopen(fileName("input").c_str(), "r"),
                                                                        std::fclose);
        m_process = std::make_unique<ClientProcess>(
            arguments, environment, signals,
            std::vector<ClientProcess::Redirection>{
                {0, fileno(inputFile.get())}, {1, fileno(file.get())}, {2, fileno(file.get())}});
    }

    Result finish(std::chrono::seconds limit = BusTest::patience)
    {
        EXPECT_TRUE(BusTest::waitUntil([this] { return m_process->hasEnded(); }, limit));
        if (!m_process->hasEnded()) {
            m_process->sendSignal(SIGKILL);
            waitUntil([this] { return m_process->hasEnded(); });
        }
        return {m_process->getExitCode(), contentOf(fileName("output"))};
    }

    Result run(const std::vector<std::string>& arguments, const std::string& input = "")
    {
        start(arguments, input);
        return finish();
    }

    // A folder with one free port, as the kernel has it: the panel's end of the connection
    // is the only one.
    std::string makeController()
    {
        std::filesystem::create_directory(fileName("vhci"));
        std::ofstream(fileName("vhci/status")) << "hub port sta spd dev      sockfd local_busid\n"
                                                  "hs  0000 004 000 00000000 000000 0-0\n";
        std::ofstream(fileName("vhci/attach")).close();
        return fileName("vhci");
    }

    void awaitOutput(const std::string& text)
    {
        EXPECT_TRUE(waitUntil([this, &text] { return contentOf(fileName("output")).find(text) != std::string::npos; }))
            << contentOf(fileName("output"));
    }

    void awaitFile(const std::string& name)
    {
        EXPECT_TRUE(waitUntil([this, &name] { return std::filesystem::exists(fileName(name)); }));
    }

    // Processor time of all that have ended.
    static double secondsOfChildren()
    {
        rusage usage{};
        getrusage(RUSAGE_CHILDREN, &usage);
        return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
               static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) * 1e-6;
    }

    static bool waitUntil(const std::function<bool()>& condition) { return BusTest::waitUntil(condition); }

    void send(int number) { m_process->sendSignal(number); }

    // What only a shell can arrange: its exit code. $panelsim is the program, $output a file
    // for what it prints, and `awaits TEXT PROCESS` waits for that, or for the process's end.
    int shell(const std::string& script)
    {
        std::ofstream(fileName("script"))
            << "panelsim='" MORVANE_PANELSIM "'\noutput=" << fileName("output") << "\n: > $output\n"
            << "awaits() { until grep -q \"$1\" $output || ! kill -0 $2; do sleep 0.02; done; }\n"
            << script;
        const int status = std::system(("bash " + fileName("script")).c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    const TemporaryFolder m_folder;
    std::unique_ptr<ClientProcess> m_process;
};

} // namespace Vantor

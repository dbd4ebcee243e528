// The main function of the tests on a scripted libusb.
#include "tests/support/LogCapture.h"
#include "tests/support/Seeds.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

using Vantor::Test::LogCapture;

// The tests take standard output for the library's log: failures go around it.
class UncapturedPrinter : public testing::EmptyTestEventListener {
public:
    explicit UncapturedPrinter(testing::TestEventListener* printer) : m_printer(printer) {}

    void OnTestProgramStart(const testing::UnitTest& unitTest) override { m_printer->OnTestProgramStart(unitTest); }
    void OnTestIterationStart(const testing::UnitTest& unitTest, int iteration) override
    {
        m_printer->OnTestIterationStart(unitTest, iteration);
    }
    void OnTestSuiteStart(const testing::TestSuite& suite) override { m_printer->OnTestSuiteStart(suite); }
    void OnTestStart(const testing::TestInfo& info) override
    {
        alarm(hangLimit);
        m_printer->OnTestStart(info);
    }
    void OnTestPartResult(const testing::TestPartResult& result) override
    {
        const LogCapture::Pause pause;
        m_printer->OnTestPartResult(result);
    }
    void OnTestEnd(const testing::TestInfo& info) override { m_printer->OnTestEnd(info); }
    void OnTestSuiteEnd(const testing::TestSuite& suite) override { m_printer->OnTestSuiteEnd(suite); }
    void OnTestIterationEnd(const testing::UnitTest& unitTest, int iteration) override
    {
        m_printer->OnTestIterationEnd(unitTest, iteration);
    }
    void OnTestProgramEnd(const testing::UnitTest& unitTest) override { m_printer->OnTestProgramEnd(unitTest); }

private:
    // Real seconds; a test that waits for a thread for ever ends here.
    static constexpr unsigned int hangLimit = 100;

    std::unique_ptr<testing::TestEventListener> m_printer;
};

void reportHang(int /*signal*/)
{
    constexpr char text[] = "the test hangs: a thread waits for something that does not come\n";
    [[maybe_unused]] ssize_t written = write(STDERR_FILENO, text, sizeof text - 1);
    written = write(STDERR_FILENO, Vantor::s_replay.data(), Vantor::s_replay.size());
    std::abort();
}

} // namespace

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    // It is, as soon as the library calls something that the scripted one lacks.
    if (dlopen("libusb-1.0.so.0", RTLD_NOW | RTLD_NOLOAD) != nullptr) {
        std::fputs("the real libusb is linked in\n", stderr);
        return EXIT_FAILURE;
    }
    // The thread sanitizer adds a thread of its own to the first one: not during a test
    // that counts them.
    std::thread([] {}).join();
    std::signal(SIGALRM, reportHang);
    auto& listeners = testing::UnitTest::GetInstance()->listeners();
    listeners.Append(new UncapturedPrinter(listeners.Release(listeners.default_result_printer())));
    return RUN_ALL_TESTS();
}

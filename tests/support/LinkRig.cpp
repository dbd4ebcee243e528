#include "tests/support/LinkRig.h"

#include <dirent.h>
#include <gtest/gtest.h>
#include <time.h>

namespace Vantor::Test {

std::size_t countThreads()
{
    std::size_t count = 0;
    DIR* const tasks = opendir("/proc/self/task");
    while (tasks != nullptr && readdir(tasks) != nullptr)
        ++count;
    closedir(tasks);
    return count;
}

LinkRig::LinkRig() : m_threads(countThreads())
{
    setLevel(quietLevel);
}

LinkRig::~LinkRig()
{
    for (const std::string& problem : usb.verify())
        ADD_FAILURE() << "libusb: " << problem;
    expectSilence();
    setLevel(LogLevel::Info);

    // The kernel forgets a joined thread a moment later.
    std::size_t threads = countThreads();
    for (int i = 0; i < 2000 && threads > m_threads; ++i) {
        const timespec pause{0, 1'000'000};
        nanosleep(&pause, nullptr);
        threads = countThreads();
    }
    EXPECT_LE(threads, m_threads) << "a thread still lives";
}

void LinkRig::setLevel(int level)
{
    setLogLevel(static_cast<LogLevel::Level>(level));
}

void LinkRig::expectSilence()
{
    EXPECT_EQ(log.take(), "") << "a log line that the test did not expect";
}

} // namespace Vantor::Test

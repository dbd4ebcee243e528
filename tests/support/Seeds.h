#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

namespace Vantor {

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define MORVANE_SLOW_BUILD
#endif
#endif
#ifdef __arm__ // in an emulator
#define MORVANE_SLOW_BUILD
#endif
#ifdef MORVANE_SLOW_BUILD
constexpr bool slowBuild = true;
#else
constexpr bool slowBuild = false;
#endif

// The command that runs the current seed again; empty between seeds.
inline std::string s_replay;

// Calls run(seed) for the seeds 1 to `count` until one fails; with MORVANE_SEED=N for N
// alone, with MORVANE_SEED=N-M for N to M. The only source of seeds: a test that is random
// gets its seed here, and a failure says how to replay it.
template <typename Run> void runSeeds(unsigned int count, Run run)
{
    unsigned long seed = 1;
    unsigned long last = count;
    if (const char* text = std::getenv("MORVANE_SEED")) {
        char* end = nullptr;
        last = seed = std::strtoul(text, &end, 10);
        if (*end == '-')
            last = std::strtoul(end + 1, &end, 10);
        ASSERT_TRUE(seed > 0 && last >= seed && *end == '\0') << "MORVANE_SEED=" << text << " is neither N nor N-M";
    }
    const testing::TestInfo& test = *testing::UnitTest::GetInstance()->current_test_info();
    const std::string command = " " + std::filesystem::read_symlink("/proc/self/exe").string() +
                                " --gtest_filter=" + test.test_suite_name() + "." + test.name();
    for (; seed <= last && !testing::Test::HasFailure(); ++seed) {
        s_replay = "MORVANE_SEED=" + std::to_string(seed) + command;
        SCOPED_TRACE(s_replay);
        run(static_cast<unsigned int>(seed));
    }
    s_replay.clear();
}

} // namespace Vantor

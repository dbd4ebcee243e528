// Upgrades against the simulated panel under seeded faults, in virtual time.
#include "tests/link/firmware/ManagedUpgrade.h"
#include "tests/link/firmware/SurvivableFaults.h"
#include "tests/link/firmware/UpgradeRun.h"
#include "tests/support/Seeds.h"

#include <gtest/gtest.h>
#include <unistd.h>

using namespace std::chrono_literals;

namespace Vantor::Test {

namespace {

// Virtual, after the last fault: of the largest images, at a pass of the worker a chunk.
constexpr std::chrono::minutes limit{30};

std::string sizes(const FaultyPanel::Options& options)
{
    return "main " + std::to_string(options.main.size()) + ", servo " + std::to_string(options.servo.size()) +
           " bytes, " + std::to_string(std::chrono::milliseconds(options.chunkTime / 1ms).count()) +
           " ms a chunk, packet limit " + std::to_string(options.maxPacketSize) + ": ";
}

UpgradeRun::Options randomOptions(Random& random)
{
    UpgradeRun::Options options;
    options.main = random.bytes(randomImageSize(random));
    options.servo = random.bytes(randomImageSize(random));
    static const std::chrono::milliseconds chunkTimes[] = {1ms, 50ms, 110ms, 110ms, 110ms, 300ms};
    options.chunkTime = chunkTimes[random.below(6)];
    static const std::uint16_t limits[] = {4120, 8192, 16384, 65535};
    options.maxPacketSize = limits[random.below(4)];
    options.pollFirst = random.oneIn(2);
    options.silentWithoutRequest = random.oneIn(2);
    return options;
}

// Empty when all went well; else what is wrong, with what was done.
std::string runDevice(unsigned int seed)
{
    Random random(seed);
    UpgradeRun::Options options = randomOptions(random);
    UpgradeRun run(options);
    std::string told;
    const unsigned int upgrades = random.oneIn(4) ? 2 : 1;
    for (unsigned int upgrade = 0; upgrade < upgrades; ++upgrade) {
        // In a second upgrade the panel still has the request of the first.
        const bool mayLoseRequest = options.silentWithoutRequest && upgrade == 0;
        const std::string outcome = run.run(SurvivableFaults(random, options.main.size(), mayLoseRequest), limit);
        told += sizes(options) + described(run.met()) + "\n";
        if (!outcome.empty())
            return outcome + told;
        options.main = random.bytes(randomImageSize(random));
        options.servo = random.bytes(randomImageSize(random));
        run.setImages(options.main, options.servo);
    }
    return "";
}

std::string runManager(unsigned int seed)
{
    Random random(seed);
    const UpgradeRun::Options options = randomOptions(random);
    ManagedUpgrade run(options);
    const std::string outcome =
        run.run(SurvivableFaults(random, options.main.size(), options.silentWithoutRequest), limit);
    return outcome.empty() ? "" : outcome + sizes(options) + described(run.met()) + "\n";
}

// Every run has as long as else a whole test, before it counts as hanging.
void runCampaign(unsigned int count, std::string (*run)(unsigned int))
{
    constexpr unsigned int secondsOfARun = 100;
    runSeeds(slowBuild ? count / 10 : count, [run](unsigned int seed) {
        alarm(secondsOfARun);
        EXPECT_EQ(run(seed), "");
    });
}

} // namespace

TEST(FirmwareCampaign, everyUpgradeWhoseFaultsEnd_endsWithTheImagesInFlash)
{
    runCampaign(3000, runDevice);
}

// The same with the manager's own worker and receive thread, whose order is the system's.
TEST(FirmwareCampaign, everyUpgradeUnderTheManager_endsWithTheImagesInFlash)
{
    runCampaign(500, runManager);
}

} // namespace Vantor::Test

// Upgrades against the simulated panel under seeded faults, in virtual time.
#include "tests/link/UpgradeRun.h"
#include "tests/support/Random.h"

#include <cstdlib>
#include <sstream>

#include <unistd.h>

using namespace std::chrono_literals;

namespace Vantor::Test {

namespace {

using Kind = FirmwareFault::Kind;

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr unsigned int defaultRuns = 300;
#else
constexpr unsigned int defaultRuns = 3000;
#endif
#else
constexpr unsigned int defaultRuns = 3000;
#endif

unsigned int numberFrom(const char* variable, unsigned int otherwise)
{
    const char* const text = std::getenv(variable);
    return text != nullptr ? static_cast<unsigned int>(std::strtoul(text, nullptr, 10)) : otherwise;
}

// The faults that the rules survive, mixed anew for every upgrade.
class SurvivableFaults {
public:
    SurvivableFaults(Random& random, std::size_t mainSize, bool silentWithoutRequest)
        : m_random(random),
          m_lastMainChunk(mainSize == 0 ? 0 : static_cast<std::uint32_t>((mainSize - 1) / 4096 * 4096)),
          m_requestMayBeLost(silentWithoutRequest && mainSize != 0), m_left(random.below(40)),
          m_oneIn(1 + random.below(12))
    {
        // Only some kinds, so that they also come without each other.
        for (bool& wanted : m_wanted)
            wanted = m_random.oneIn(3);
    }

    std::optional<FirmwareFault> operator()(const FirmwarePacket& packet)
    {
        if (m_left == 0 || !m_random.oneIn(m_oneIn))
            return std::nullopt;
        FirmwareFault fault{packet.number, static_cast<Kind>(m_random.below(kinds)), 0, 0ms};
        if (!m_wanted[static_cast<std::size_t>(fault.kind)] || !choose(fault, packet))
            return std::nullopt;
        --m_left;
        return fault;
    }

private:
    static constexpr unsigned int kinds = static_cast<unsigned int>(Kind::ReadTimedOut) + 1;

    bool isFirstChunk(const FirmwarePacket& packet) const { return packet.address == 0; }

    // Nothing that can have chunk 0 of an image acknowledged twice.
    bool mayBeSlow(const FirmwarePacket& packet) const
    {
        return !packet.isRequest && !isFirstChunk(packet) &&
               (packet.board == servoMcu || packet.address < m_lastMainChunk);
    }

    bool choose(FirmwareFault& fault, const FirmwarePacket& packet)
    {
        switch (fault.kind) {
        case Kind::SendLost:
        case Kind::ReplyLost:
            return fault.kind == Kind::ReplyLost || !packet.isRequest || m_requestMayBeLost;
        case Kind::SendCorrupt:
            fault.value = m_random.below(8 * packet.size);
            return !packet.isRequest || m_requestMayBeLost;
        case Kind::SendCut:
            fault.value = m_random.between(1, packet.size - 1);
            return !packet.isRequest || m_requestMayBeLost;
        case Kind::ReplyCode: {
            static const std::uint8_t codes[] = {0, 2, 3, 7, 0xEF, 0xF0, 0xF1, 0xF2, 0xF3, 0xFF};
            fault.value = codes[m_random.below(sizeof codes)];
            return !packet.isRequest;
        }
        case Kind::ReplyCorrupt: {
            // Not the address: that is what a repetition is known by.
            static const unsigned int offsets[] = {0, 1, 6, 9, 10, 13};
            fault.value = offsets[m_random.below(6)];
            return true;
        }
        case Kind::ReplyTwice:
            return packet.isRequest || !isFirstChunk(packet);
        case Kind::ReplyLate:
        case Kind::SendHeld:
        case Kind::ReadHeld:
            fault.delay = std::chrono::milliseconds(m_random.below(mayBeSlow(packet) ? 1500 : 200));
            return true;
        case Kind::SendTimedOut:
        case Kind::ReadTimedOut:
            return mayBeSlow(packet);
        case Kind::ReadCut:
            fault.value = m_random.between(1, 24);
            return true;
        default:
            return true;
        }
    }

    Random& m_random;
    const std::uint32_t m_lastMainChunk;
    const bool m_requestMayBeLost;
    unsigned int m_left;
    const unsigned int m_oneIn;
    bool m_wanted[kinds];
};

std::size_t randomSize(Random& random)
{
    static const std::size_t edges[] = {0, 1, 4095, 4096, 4097, 8191, 8192, 8193, 12288};
    switch (random.below(20)) {
    case 0:
        return random.oneIn(5) ? random.below((1U << 20) + 1) : random.below(200000);
    case 1:
    case 2:
    case 3:
    case 4:
        return random.below(30000);
    case 5:
        return std::size_t{4096} * random.below(12);
    default:
        return edges[random.below(9)];
    }
}

std::string campaignRun(unsigned int seed, std::string& faults)
{
    Random random(seed);
    UpgradeRun::Options options;
    options.main = random.bytes(randomSize(random));
    options.servo = random.bytes(randomSize(random));
    static const std::chrono::milliseconds chunkTimes[] = {1ms, 50ms, 110ms, 110ms, 110ms, 300ms};
    options.chunkTime = chunkTimes[random.below(6)];
    static const std::uint16_t limits[] = {4120, 8192, 16384, 65535};
    options.maxPacketSize = limits[random.below(4)];
    options.pollFirst = random.oneIn(2);
    options.silentWithoutRequest = random.oneIn(2);
    UpgradeRun run(options);
    std::string outcome;
    const unsigned int upgrades = random.oneIn(4) ? 2 : 1;
    for (unsigned int upgrade = 0; upgrade < upgrades && outcome.empty(); ++upgrade) {
        // In a second upgrade the panel still has the request of the first.
        const bool mayLoseRequest = options.silentWithoutRequest && upgrade == 0;
        outcome = run.run(SurvivableFaults(random, options.main.size(), mayLoseRequest), 30min);
        std::ostringstream text;
        text << "upgrade " << upgrade << ", main " << options.main.size() << ", servo " << options.servo.size()
             << " bytes, chunk time " << options.chunkTime.count() / 1000000 << "ms, packet limit "
             << options.maxPacketSize << ": ";
        for (const FirmwareFault& fault : run.met())
            text << fault << " ";
        faults += text.str() + "\n";
        options.main = random.bytes(randomSize(random));
        options.servo = random.bytes(randomSize(random));
        run.setImages(options.main, options.servo);
    }
    return outcome;
}

} // namespace

TEST(FirmwareCampaign, everyUpgradeWhoseFaultsEnd_endsWithTheImagesInFlash)
{
    constexpr const char* seedVariable = "MORVANE_FIRMWARE_SEED";
    constexpr unsigned int secondsOfARun = 100;
    const unsigned int only = numberFrom(seedVariable, 0);
    const unsigned int runs = numberFrom("MORVANE_FIRMWARE_RUNS", defaultRuns);
    int failures = 0;
    for (unsigned int seed = only != 0 ? only : 1; seed <= (only != 0 ? only : runs); ++seed) {
        alarm(secondsOfARun); // the program's own limit is one for the whole test
        std::string faults;
        const std::string outcome = campaignRun(seed, faults);
        EXPECT_EQ(outcome, "") << "faults: " << faults << "\nreplay: " << seedVariable << "=" << seed
                               << " bin/linkFirmwareTests --gtest_filter=FirmwareCampaign.every*";
        failures += outcome.empty() ? 0 : 1;
        if (failures > 4)
            return;
    }
}

} // namespace Vantor::Test

#pragma once

#include "tests/link/firmware/FirmwareState.h"
#include "tests/support/DeviceRig.h"
#include "tests/support/TemporaryFolder.h"

#include <chrono>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace Vantor::Test {

constexpr std::uint8_t mainMcu = 1;
constexpr std::uint8_t servoMcu = 0x0F;

// From one pass of the manager's worker to the next, while nothing happens.
constexpr std::chrono::milliseconds passTime{1050};

// What a device prints, and the level from which it does.
struct LogLine {
    int level;
    std::string text;
};

// The firmware records as they stand alone in a packet, written out from the documents.
namespace Frame {

Bytes request(std::uint32_t mainSize, std::uint32_t mainCrc, std::uint32_t servoSize, std::uint32_t servoCrc);

// `data` is what the image gives followed by what stood in the record before.
Bytes chunk(std::uint8_t board, std::uint32_t address, std::uint32_t length, const Bytes& data);

// 4,096 bytes: `fresh`, and behind it what `before` has there.
Bytes over(const Bytes& fresh, const Bytes& before);

// Bit by bit: reflected polynomial 0xEDB88320, initial value and final XOR 0xFFFFFFFF.
std::uint32_t crc32(const Bytes& bytes);

} // namespace Frame

const LogLine writingMain{4, "[libusb] Writing main:\n"};
const LogLine writingServo{4, "[libusb] Writing servo:\n"};

// A device that takes packets of 8,192 bytes, with two image files. Its log is taken
// down all the time: every step must be looked at, with expectStep.
//
// `want` is what the device must hold. A test changes it as the step should, then
// expectStep compares everything: the whole state, the packets that went out since, the
// lines and the progress. Destroying the rig without having looked at all of it fails.
class FirmwareRig : public DeviceRig {
public:
    FirmwareRig(int level, const Bytes& mainImage, const Bytes& servoImage);
    ~FirmwareRig();

    static std::chrono::system_clock::time_point now() { return VirtualClock::now(); }

    // The two ways on; both let time pass first.
    void pollAfter(std::chrono::nanoseconds time);
    void replyAfter(std::chrono::nanoseconds time, const FirmwareUpgradeCommand& command);
    void acknowledgeAfter(std::chrono::nanoseconds time, std::uint8_t board, std::uint32_t address,
                          std::uint32_t length);

    void start();

    void expectStep(const std::vector<Bytes>& frames, const std::vector<LogLine>& lines);
    void expectNothing() { expectStep({}, {}); }
    // Gives up looking at what has been sent and called: the test sees to it.
    void leaveUnseen();

    // `want` after the usual steps, which are looked at, too.
    void startAndExpect();                       // announced: state 2 or 3
    void sendFirstMainChunk(const Bytes& chunk); // one second later
    void sendFirstServoChunk(const Bytes& chunk);
    void resend(const Bytes& chunk); // of the main image, unanswered for 0.7 s
    void restart();                  // announced once more, as nobody has answered five of them

    // The panel confirms the chunk that was sent last: early, before the next one may go out;
    // in time, and the next one does; or it was the image's last.
    void acknowledgeEarly(std::chrono::nanoseconds time, std::uint8_t board, std::uint32_t address,
                          std::uint32_t length);
    void acknowledgeAndSend(std::uint8_t board, std::uint32_t address, const Bytes& nextChunk);
    void acknowledgeLast(std::uint8_t board, std::uint32_t address);

    // Behind the last chunk: the servo image's turn, or nothing is left; and the upgrade's end.
    void goOn();
    void finish(unsigned int resends, unsigned int duplicates);
    void wantFinished();
    static std::vector<LogLine> finishedLines(unsigned int resends, unsigned int duplicates);

    // What expectStep expects of `want` for a main chunk sent right now.
    void wantChunk(std::uint8_t board, std::uint32_t address, std::uint32_t length);
    void wantRequest();
    LogLine resendLine() const;
    LogLine successLine(std::uint8_t board, std::uint32_t address, std::uint32_t length) const;
    Bytes requestFrame() const;

    // The progress calls are expected by expectStep, in order.
    using Progress = std::pair<std::uint32_t, std::uint32_t>;
    void wantProgress();

    const Bytes mainBytes;
    const Bytes servoBytes;
    const TemporaryFile main;
    const TemporaryFile servo;
    FirmwareState want;

private:
    std::vector<Bytes> flush();
    bool isServosTurn() const { return want.state == FirmwareState::sendingServo; }
    const LogLine& writingLine() const { return isServosTurn() ? writingServo : writingMain; }
    std::uint32_t wantAcknowledged(std::uint32_t address); // the new offset

    const int m_level;
    std::vector<Progress> m_progress;
    std::vector<Progress> m_wantedProgress;
};

// A suite that runs at the log levels 1 to 4, so that a line is seen where it belongs and
// nowhere else.
#define AT_EVERY_LEVEL(Suite)                                                                                          \
    class Suite : public testing::TestWithParam<int> {};                                                               \
    INSTANTIATE_TEST_SUITE_P(AtLevel, Suite, testing::Values(1, 2, 3, 4))

// 10,000 bytes: 4,096 of 1, 4,096 of 2, 1,808 of 3.
const Bytes& threeChunks();
// 4,097 bytes: 4,096 of 4, one of 5.
const Bytes& twoChunks();

} // namespace Vantor::Test

#include "tests/unit/panel/PanelModelFixture.h"

#include <cerrno>
#include <limits>

namespace Vantor {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr PanelFault::Kind stall = PanelFault::Kind::Stall;
constexpr PanelFault::Kind silent = PanelFault::Kind::NoAnswer;

class PanelModelFault : public PanelModelFixture {
protected:
    static PanelFault status(PanelFault::Direction direction, int value, bool sticky = false)
    {
        PanelFault result = fault(direction, PanelFault::Kind::Status, sticky);
        result.status = value;
        return result;
    }

    static PanelFault shortBy(PanelFault::Direction direction, unsigned int bytes, bool sticky = false)
    {
        PanelFault result = fault(direction, PanelFault::Kind::Short, sticky);
        result.bytes = bytes;
        return result;
    }

    static PanelFault delay(PanelFault::Direction direction, std::chrono::nanoseconds time, bool sticky = false)
    {
        PanelFault result = fault(direction, PanelFault::Kind::Delay, sticky);
        result.delay = time;
        return result;
    }

    // Submits a small frame; its status, or 1 while it is pending.
    int write(PanelModel::UrbId urb = 1)
    {
        m_panel.submitOut(m_owner, urb, frame(20), false);
        return statusOfLast();
    }

    int read(PanelModel::UrbId urb = 1)
    {
        m_panel.submitIn(m_owner, urb, 512);
        return statusOfLast();
    }

    int statusOfLast()
    {
        const auto completions = m_panel.takeCompletions();
        return completions.empty() ? 1 : completions.back().status;
    }
};

TEST_F(PanelModelFault, outStallOnce_nextTransferOnlyAndItsBytesAreLost)
{
    m_panel.inject(fault(out, stall));
    m_panel.submitOut(m_owner, 1, frame(20), false);
    m_panel.submitOut(m_owner, 2, frame(20), false);
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{1, -EPIPE, 0, {}}, Completion{2, 0, 20, {}}));
    EXPECT_EQ(m_panel.getRecords().size(), 1u);
    EXPECT_EQ(m_panel.getStatistics().bytesReceived, 20u);
    EXPECT_THAT(m_panel.getViolations(), IsEmpty());
}

TEST_F(PanelModelFault, outStallSticky_untilItsOwnEndpointIsCleared)
{
    m_panel.inject(fault(out, stall, true));
    EXPECT_EQ(write(), -EPIPE);
    EXPECT_EQ(m_panel.clearHalt(0), -ENOENT);
    EXPECT_EQ(write(), -EPIPE);
    EXPECT_EQ(m_panel.clearHalt(0x81), 0);
    EXPECT_EQ(write(), -EPIPE);
    EXPECT_EQ(m_panel.clearHalt(0x02), 0);
    EXPECT_EQ(write(), 0);
    EXPECT_EQ(m_panel.getRecords().size(), 1u);
}

TEST_F(PanelModelFault, inStallSticky_untilItsOwnEndpointIsCleared)
{
    m_panel.inject(fault(in, stall, true));
    EXPECT_EQ(write(), 0);
    EXPECT_EQ(read(), -EPIPE);
    m_panel.emitRaw({1});
    EXPECT_EQ(m_panel.clearHalt(0x02), 0);
    EXPECT_EQ(read(), -EPIPE);
    EXPECT_EQ(m_panel.clearHalt(0x81), 0);
    m_panel.submitIn(m_owner, 9, 512);
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{9, 0, 1, {1}}));
}

TEST_F(PanelModelFault, stickyStall_endsWithClearFaults)
{
    m_panel.inject(fault(out, stall, true));
    m_panel.inject(fault(in, stall, true));
    EXPECT_EQ(write(), -EPIPE);
    m_panel.clearFaults();
    EXPECT_EQ(write(), 0);
    EXPECT_EQ(read(), 1);
}

TEST_F(PanelModelFault, otherStickyFaults_surviveClearHalt)
{
    m_panel.inject(status(out, -EPROTO, true));
    EXPECT_EQ(m_panel.clearHalt(0x02), 0);
    EXPECT_EQ(write(), -EPROTO);
    EXPECT_EQ(write(), -EPROTO);
    m_panel.clearFaults();
    EXPECT_EQ(write(), 0);
}

TEST_F(PanelModelFault, stallAndStatus_meetAReadThatIsPending)
{
    EXPECT_EQ(read(1), 1);
    m_panel.inject(fault(in, stall));
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{1, -EPIPE, 0, {}}));
    EXPECT_EQ(read(2), 1);
    m_panel.inject(status(in, -EILSEQ));
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{2, -EILSEQ, 0, {}}));
    EXPECT_EQ(read(3), 1);
    m_panel.emitRaw({1});
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{3, 0, 1, {1}}));
}

TEST_F(PanelModelFault, failedRead_losesNoPacket)
{
    m_panel.inject(status(in, -EPROTO));
    m_panel.emitRaw({1});
    EXPECT_EQ(read(1), -EPROTO);
    m_panel.submitIn(m_owner, 2, 512);
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{2, 0, 1, {1}}));
}

TEST_F(PanelModelFault, outStatus_losesTheBytes)
{
    m_panel.inject(status(out, -EPROTO));
    EXPECT_EQ(write(), -EPROTO);
    EXPECT_THAT(m_panel.getRecords(), IsEmpty());
    EXPECT_EQ(m_panel.getStatistics().bytesReceived, 0u);
    EXPECT_THAT(m_panel.getViolations(), IsEmpty());
}

TEST_F(PanelModelFault, onceFaults_oneTransferEachAheadOfTheStickyOne)
{
    m_panel.inject(status(out, -EPROTO, true));
    m_panel.inject(fault(out, stall));
    m_panel.inject(status(out, -ETIME));
    EXPECT_EQ(write(), -EPIPE);
    EXPECT_EQ(write(), -ETIME);
    EXPECT_EQ(write(), -EPROTO);
}

TEST_F(PanelModelFault, outShort_takesTheFirstBytesAndIsNoViolation)
{
    m_panel.inject(shortBy(out, 19));
    m_panel.submitOut(m_owner, 1, frame(20), false);
    m_panel.submitOut(m_owner, 2, frame(20), false);
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{1, 0, 19, {}}, Completion{2, 0, 20, {}}));
    EXPECT_EQ(m_panel.getRecords().size(), 1u);
    EXPECT_EQ(m_panel.getStatistics().bytesReceived, 39u);
    EXPECT_EQ(m_panel.getStatistics().packetsReceived, 1u);
    EXPECT_THAT(m_panel.getViolations(), IsEmpty());
}

TEST_F(PanelModelFault, outShortEveryLength_neverAViolation)
{
    for (unsigned int bytes = 0; bytes <= 40; ++bytes) {
        PanelModel panel(options(), clock());
        panel.inject(shortBy(out, bytes));
        panel.submitOut(m_owner, 1, frame(33), false);
        const unsigned int taken = std::min(bytes, 33u);
        EXPECT_THAT(panel.takeCompletions(), ElementsAre(Completion{1, 0, taken, {}}));
        EXPECT_EQ(panel.getRecords().size(), bytes >= 33 ? 1u : 0u) << bytes;
        EXPECT_THAT(panel.getViolations(), IsEmpty()) << bytes;
    }
}

TEST_F(PanelModelFault, outShortThatCutsNothing_stillJudgesTheTransfer)
{
    m_panel.inject(shortBy(out, 100));
    Bytes wrong = frame(20);
    wrong[2] = 2;
    m_panel.submitOut(m_owner, 1, wrong, false);
    EXPECT_THAT(m_panel.getViolations(), ElementsAre("OUT transfer 1, byte 0: packet counts 2 records, it holds 1"));
}

TEST_F(PanelModelFault, outShort_countsOverAllUrbsOfATransfer)
{
    PanelModel panel(options(40000), clock());
    panel.inject(shortBy(out, 20000));
    const Bytes whole = frame(40000);
    panel.submitOut(m_owner, 1, part(whole, 0, 16384), false);
    panel.submitOut(m_owner, 2, part(whole, 16384, 32768), false);
    panel.submitOut(m_owner, 3, part(whole, 32768, 40000), false);
    panel.submitOut(m_owner, 4, frame(20), false);
    EXPECT_THAT(panel.takeCompletions(), ElementsAre(Completion{1, 0, 16384, {}}, Completion{2, 0, 3616, {}},
                                                     Completion{3, 0, 0, {}}, Completion{4, 0, 20, {}}));
    EXPECT_EQ(panel.getRecords().size(), 1u);
    EXPECT_THAT(panel.getViolations(), IsEmpty());
}

TEST_F(PanelModelFault, outStallOnce_failsAllUrbsOfATransfer)
{
    PanelModel panel(options(40000), clock());
    panel.inject(fault(out, stall));
    const Bytes whole = frame(20000);
    panel.submitOut(m_owner, 1, part(whole, 0, 16384), false);
    panel.submitOut(m_owner, 2, part(whole, 16384, 20000), false);
    panel.submitOut(m_owner, 3, frame(20), false);
    EXPECT_THAT(panel.takeCompletions(),
                ElementsAre(Completion{1, -EPIPE, 0, {}}, Completion{2, -EPIPE, 0, {}}, Completion{3, 0, 20, {}}));
    EXPECT_EQ(panel.getRecords().size(), 1u);
    EXPECT_THAT(panel.getViolations(), IsEmpty());
}

TEST_F(PanelModelFault, transferBrokenOffAfterAFault_nextTransferIsWhole)
{
    const Bytes whole = frame(20000);
    for (const PanelFault& first : {fault(out, stall), status(out, -EPROTO), shortBy(out, 100)}) {
        PanelModel panel(options(40000), clock());
        panel.inject(first);
        panel.submitOut(m_owner, 1, part(whole, 0, 16384), false);
        panel.breakOffOut();
        panel.breakOffOut(); // nothing has begun
        panel.submitOut(m_owner, 2, part(whole, 0, 16384), false);
        panel.submitOut(m_owner, 3, part(whole, 16384, 20000), false);
        EXPECT_EQ(panel.getRecords().size(), 1u);
        EXPECT_THAT(panel.getViolations(), IsEmpty());
    }
}

TEST_F(PanelModelFault, faultInTheMiddleOfATransfer_nextTransferIsWhole)
{
    const Bytes whole = frame(20000);
    for (const PanelFault& middle : {fault(out, stall), status(out, -EPROTO), shortBy(out, 16400)}) {
        PanelModel panel(options(40000), clock());
        panel.submitOut(m_owner, 1, part(whole, 0, 16384), false);
        panel.inject(middle);
        panel.submitOut(m_owner, 2, part(whole, 16384, 20000), false);
        panel.submitOut(m_owner, 3, frame(20), false);
        EXPECT_EQ(panel.getRecords().size(), 1u);
        EXPECT_EQ(panel.getStatistics().bytesReceived, middle.kind == stall || middle.status != 0 ? 16404u : 16420u);
        EXPECT_THAT(panel.getViolations(), IsEmpty());
    }
}

TEST_F(PanelModelFault, inShort_waitsForDataAndLosesTheRest)
{
    m_panel.inject(shortBy(in, 3));
    EXPECT_EQ(read(1), 1);
    m_panel.emitRaw({1, 2, 3, 4});
    m_panel.emitRaw({5, 6});
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{1, 0, 3, {1, 2, 3}}));
    m_panel.submitIn(m_owner, 2, 512);
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{2, 0, 2, {5, 6}}));
    EXPECT_EQ(m_panel.getStatistics().bytesSent, 5u);
    EXPECT_EQ(m_panel.getStatistics().packetsSent, 1u);
}

TEST_F(PanelModelFault, inShortOfNothing_readOfNoBytes)
{
    m_panel.inject(shortBy(in, 0, true));
    m_panel.submitIn(m_owner, 1, 512);
    m_panel.emitRaw({1});
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{1, 0, 0, {}}));
    m_panel.submitIn(m_owner, 2, 512);
    EXPECT_THAT(m_panel.takeCompletions(), IsEmpty());
    m_panel.clearFaults();
    m_panel.emitRaw({2});
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{2, 0, 1, {2}}));
}

TEST_F(PanelModelFault, silentWrite_pendingUntilCancelled)
{
    m_panel.inject(fault(out, silent));
    EXPECT_EQ(write(1), 1);
    m_now = std::chrono::hours(1);
    EXPECT_THAT(m_panel.takeCompletions(), IsEmpty());
    EXPECT_EQ(m_panel.nextDeadline(), std::nullopt);
    m_panel.clearFaults();
    EXPECT_THAT(m_panel.takeCompletions(), IsEmpty());
    EXPECT_TRUE(m_panel.cancel(1));
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{1, -ENOENT, 0, {}}));
    EXPECT_EQ(write(2), 0);
    EXPECT_EQ(m_panel.getRecords().size(), 1u);
    EXPECT_THAT(m_panel.getViolations(), IsEmpty());
}

TEST_F(PanelModelFault, silentSticky_holdsEveryTransfer)
{
    m_panel.inject(fault(in, silent, true));
    m_panel.emitRaw({1});
    EXPECT_EQ(read(1), 1);
    m_panel.cancel(1);
    EXPECT_EQ(read(2), -ENOENT); // the cancelled one; the second is held
    EXPECT_THAT(m_panel.takeCompletions(), IsEmpty());
    m_panel.clearFaults();
    EXPECT_EQ(read(3), 1); // waits behind the held one
    m_panel.cancel(2);
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{2, -ENOENT, 0, {}}, Completion{3, 0, 1, {1}}));
}

TEST_F(PanelModelFault, silentWrite_holdsUpThoseBehindIt)
{
    m_panel.inject(fault(out, silent));
    EXPECT_EQ(write(1), 1);
    EXPECT_EQ(write(2), 1);
    m_panel.cancel(1);
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{1, -ENOENT, 0, {}}, Completion{2, 0, 20, {}}));
}

TEST_F(PanelModelFault, outDelay_answeredAtItsTimeAndNotBefore)
{
    m_now = 100ms;
    m_panel.inject(delay(out, 30ms));
    EXPECT_EQ(m_panel.nextDeadline(), std::nullopt);
    EXPECT_EQ(write(1), 1);
    EXPECT_EQ(m_panel.nextDeadline(), 130ms);
    m_now = 130ms - 1ns;
    EXPECT_THAT(m_panel.takeCompletions(), IsEmpty());
    EXPECT_THAT(m_panel.getRecords(), IsEmpty());
    m_now = 130ms;
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{1, 0, 20, {}}));
    EXPECT_EQ(m_panel.nextDeadline(), std::nullopt);
    ASSERT_EQ(m_panel.getRecords().size(), 1u);
    EXPECT_EQ(m_panel.getRecords()[0].time, 130ms);
    EXPECT_EQ(write(2), 0);
}

TEST_F(PanelModelFault, outDelay_onceForATransferInSeveralUrbs)
{
    PanelModel panel(options(40000), clock());
    panel.inject(delay(out, 10ms));
    const Bytes whole = frame(20000);
    panel.submitOut(m_owner, 1, part(whole, 0, 16384), false);
    panel.submitOut(m_owner, 2, part(whole, 16384, 20000), false);
    EXPECT_THAT(panel.takeCompletions(), IsEmpty());
    m_now = 10ms;
    EXPECT_EQ(panel.takeCompletions().size(), 2u);
    EXPECT_EQ(panel.getRecords().size(), 1u);
}

TEST_F(PanelModelFault, outDelaySticky_oneTransferAfterTheOther)
{
    m_panel.inject(delay(out, 10ms, true));
    write(1);
    write(2);
    m_now = 10ms;
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{1, 0, 20, {}}));
    EXPECT_EQ(m_panel.nextDeadline(), 20ms);
    m_now = 20ms;
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{2, 0, 20, {}}));
}

TEST_F(PanelModelFault, inDelay_countsFromWhenThereIsSomethingToRead)
{
    m_panel.inject(delay(in, 30ms));
    EXPECT_EQ(read(1), 1);
    EXPECT_EQ(m_panel.nextDeadline(), std::nullopt);
    m_now = 50ms;
    m_panel.emitRaw({1});
    EXPECT_EQ(m_panel.nextDeadline(), 80ms);
    m_now = 70ms;
    m_panel.emitRaw({2});
    EXPECT_THAT(m_panel.takeCompletions(), IsEmpty());
    m_now = 80ms;
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{1, 0, 2, {1, 2}}));
}

TEST_F(PanelModelFault, delayedReadCancelled_losesNothing)
{
    m_panel.inject(delay(in, 30ms));
    m_panel.emitRaw({1});
    EXPECT_EQ(read(1), 1);
    m_panel.cancel(1);
    m_panel.takeCompletions();
    EXPECT_EQ(m_panel.nextDeadline(), std::nullopt);
    m_panel.submitIn(m_owner, 2, 512);
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{2, 0, 1, {1}}));
}

TEST_F(PanelModelFault, bothDelayed_deadlineIsTheEarlierAndCompletionsAreInTimesOrder)
{
    m_panel.inject(delay(out, 30ms));
    m_panel.inject(delay(in, 20ms));
    m_panel.emitRaw({1});
    write(1);
    read(2);
    EXPECT_EQ(m_panel.nextDeadline(), 20ms);
    m_now = 40ms;
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{2, 0, 1, {1}}, Completion{1, 0, 20, {}}));
}

TEST_F(PanelModelFault, unplugWhileDelayed_shutdownAndNoDeadline)
{
    m_panel.inject(delay(out, 30ms));
    write(1);
    m_panel.unplug();
    EXPECT_EQ(m_panel.nextDeadline(), std::nullopt);
    m_now = 30ms;
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{1, -ESHUTDOWN, 0, {}}));
    EXPECT_THAT(m_panel.getRecords(), IsEmpty());
}

} // namespace
} // namespace Vantor

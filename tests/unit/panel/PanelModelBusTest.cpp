// PanelModel as a kernel serves it: claims, URBs, cancellation, departure.
#include "tests/unit/panel/PanelModelFixture.h"

#include <cerrno>
#include <limits>

namespace Vantor {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using PanelModelBus = PanelModelFixture;

TEST_F(PanelModelBus, descriptors_carryTheIds)
{
    PanelModel::Options other = options();
    other.vendorId = 0x1209;
    other.productId = 0x0001;
    const Bytes descriptors = PanelModel(other, clock()).getDescriptors();
    ASSERT_EQ(descriptors.size(), 50u);
    EXPECT_THAT(part(descriptors, 8, 12), ElementsAre(0x09, 0x12, 0x01, 0x00));
    EXPECT_THAT(part(m_panel.getDescriptors(), 8, 12), ElementsAre(0xAD, 0xDE, 0xEF, 0xBE));
}

TEST_F(PanelModelBus, secondOwnersClaim_busyUntilReleased)
{
    EXPECT_EQ(m_panel.claimInterface(m_owner, 0), 0);
    EXPECT_EQ(m_panel.claimInterface(m_owner, 0), 0);
    EXPECT_EQ(m_panel.claimInterface(m_other, 0), -EBUSY);
    EXPECT_EQ(m_panel.releaseInterface(m_other, 0), -EINVAL);
    EXPECT_EQ(m_panel.releaseInterface(m_owner, 0), 0);
    EXPECT_EQ(m_panel.releaseInterface(m_owner, 0), -EINVAL);
    EXPECT_EQ(m_panel.claimInterface(m_other, 0), 0);
}

TEST_F(PanelModelBus, unknownInterface_notFound)
{
    EXPECT_EQ(m_panel.claimInterface(m_owner, 1), -ENOENT);
    EXPECT_EQ(m_panel.releaseInterface(m_owner, 1), -ENOENT);
}

TEST_F(PanelModelBus, clearHalt_onlyOnTheTwoBulkEndpoints)
{
    for (unsigned int endpoint = 0; endpoint < 256; ++endpoint)
        EXPECT_EQ(m_panel.clearHalt(static_cast<std::uint8_t>(endpoint)),
                  endpoint == 0x02 || endpoint == 0x81 ? 0 : -ENOENT)
            << endpoint;
}

TEST_F(PanelModelBus, submitWithoutClaim_claims)
{
    EXPECT_EQ(m_panel.submitIn(m_owner, 1, 512), 0);
    EXPECT_EQ(m_panel.claimInterface(m_other, 0), -EBUSY);
    EXPECT_EQ(m_panel.submitIn(m_other, 2, 512), -EBUSY);
    EXPECT_EQ(m_panel.submitOut(m_other, 3, frame(11), false), -EBUSY);
    EXPECT_EQ(m_panel.releaseInterface(m_owner, 0), 0);
    EXPECT_EQ(m_panel.submitOut(m_other, 4, frame(11), false), 0);
    EXPECT_EQ(m_panel.claimInterface(m_owner, 0), -EBUSY);
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{1, -ENOENT, 0, {}}, Completion{4, 0, 11, {}}));
    EXPECT_EQ(m_panel.getRecords().size(), 1u);
}

TEST_F(PanelModelBus, release_killsPendingTransfers)
{
    m_panel.inject(fault(out, PanelFault::Kind::NoAnswer));
    m_panel.submitOut(m_owner, 1, frame(20), false);
    m_panel.submitIn(m_owner, 2, 512);
    m_panel.submitOut(m_owner, 3, frame(20), false);
    EXPECT_EQ(m_panel.releaseInterface(m_owner, 0), 0);
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{1, -ENOENT, 0, {}}, Completion{3, -ENOENT, 0, {}},
                                                       Completion{2, -ENOENT, 0, {}}));
    EXPECT_THAT(m_panel.getRecords(), IsEmpty());
}

TEST_F(PanelModelBus, cancel_completesWithNotFoundOnce)
{
    m_panel.submitIn(m_owner, 1, 512);
    m_panel.submitIn(m_owner, 2, 512);
    EXPECT_FALSE(m_panel.cancel(3));
    EXPECT_TRUE(m_panel.cancel(1));
    EXPECT_FALSE(m_panel.cancel(1));
    m_panel.emitRaw({5});
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{1, -ENOENT, 0, {}}, Completion{2, 0, 1, {5}}));
    EXPECT_FALSE(m_panel.cancel(2));
}

TEST_F(PanelModelBus, reads_areAnsweredInOrder)
{
    m_panel.submitIn(m_owner, 1, 2);
    m_panel.submitIn(m_owner, 2, 2);
    m_panel.emitRaw({1, 2});
    m_panel.emitRaw({3});
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{1, 0, 2, {1, 2}}, Completion{2, 0, 1, {3}}));
}

TEST_F(PanelModelBus, closeOwner_releasesAndForgetsWithoutCompletions)
{
    m_panel.inject(fault(out, PanelFault::Kind::NoAnswer));
    m_panel.claimInterface(m_owner, 0);
    m_panel.submitIn(m_owner, 1, 512);
    m_panel.submitIn(m_owner, 2, 512);
    m_panel.emitRaw({1}); // completes the first read, which nobody takes
    m_panel.submitOut(m_owner, 3, frame(20), false);
    m_panel.closeOwner(m_other);
    EXPECT_EQ(m_panel.claimInterface(m_other, 0), -EBUSY);
    m_panel.closeOwner(m_owner);
    EXPECT_THAT(m_panel.takeCompletions(), IsEmpty());
    EXPECT_FALSE(m_panel.cancel(2));
    EXPECT_EQ(m_panel.claimInterface(m_other, 0), 0);

    // The next owner finds nothing of the last one's transfers.
    m_panel.submitOut(m_other, 4, frame(20), false);
    m_panel.submitIn(m_other, 5, 512);
    m_panel.emitRaw({2});
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{4, 0, 20, {}}, Completion{5, 0, 1, {2}}));
    EXPECT_EQ(m_panel.getRecords().size(), 1u);
    EXPECT_THAT(m_panel.getViolations(), IsEmpty());
}

TEST_F(PanelModelBus, closeOwnerInTheMiddleOfATransfer_nextOwnerBeginsAfresh)
{
    const Bytes whole = frame(20000);
    PanelModel panel(options(20000), clock());
    panel.inject(fault(out, PanelFault::Kind::NoAnswer));
    panel.submitOut(m_owner, 1, part(whole, 0, 16384), false);
    panel.closeOwner(m_owner);
    panel.submitOut(m_other, 2, frame(20), false);
    EXPECT_EQ(panel.getRecords().size(), 1u);
    EXPECT_THAT(panel.getViolations(), IsEmpty());
}

TEST_F(PanelModelBus, unplug_endsPendingTransfersAndRefusesAllElse)
{
    m_panel.inject(fault(out, PanelFault::Kind::NoAnswer));
    m_panel.submitOut(m_owner, 1, frame(20), false);
    m_panel.submitIn(m_owner, 2, 512);
    m_panel.unplug();
    m_panel.unplug();
    EXPECT_THAT(m_panel.takeCompletions(),
                ElementsAre(Completion{1, -ESHUTDOWN, 0, {}}, Completion{2, -ESHUTDOWN, 0, {}}));
    EXPECT_EQ(m_panel.submitOut(m_owner, 3, frame(20), false), -ENODEV);
    EXPECT_EQ(m_panel.submitIn(m_owner, 4, 512), -ENODEV);
    EXPECT_EQ(m_panel.claimInterface(m_owner, 0), -ENODEV);
    EXPECT_EQ(m_panel.releaseInterface(m_owner, 0), -ENODEV);
    EXPECT_EQ(m_panel.clearHalt(0x02), -ENODEV);
    EXPECT_EQ(m_panel.clearHalt(0), -ENODEV);
    EXPECT_FALSE(m_panel.cancel(1));
    m_panel.emit(static_cast<PacketType>(1), {});
    m_panel.closeOwner(m_owner);
    EXPECT_THAT(m_panel.takeCompletions(), IsEmpty());
    EXPECT_THAT(m_panel.getViolations(), IsEmpty());
}

TEST_F(PanelModelBus, unplug_keepsWhatHasCompleted)
{
    m_panel.submitOut(m_owner, 1, frame(20), false);
    m_panel.unplug();
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{1, 0, 20, {}}));
}

TEST_F(PanelModelBus, transferInSeveralUrbs_decodedAsOne)
{
    PanelModel panel(options(40000), clock());
    const Bytes whole = frame(40000);
    panel.submitOut(m_owner, 1, part(whole, 0, 16384), false);
    panel.submitOut(m_owner, 2, part(whole, 16384, 32768), false);
    EXPECT_THAT(panel.getRecords(), IsEmpty());
    panel.submitOut(m_owner, 3, part(whole, 32768, 40000), false);
    panel.submitOut(m_owner, 4, frame(20), false);
    EXPECT_THAT(panel.getViolations(), IsEmpty());
    ASSERT_EQ(panel.getRecords().size(), 2u);
    EXPECT_EQ(panel.getRecords()[0].payload, Bytes(40000 - 11, 0x5A));
    EXPECT_THAT(panel.takeCompletions(), ElementsAre(Completion{1, 0, 16384, {}}, Completion{2, 0, 16384, {}},
                                                     Completion{3, 0, 7232, {}}, Completion{4, 0, 20, {}}));
}

TEST_F(PanelModelBus, truncatedTransferInSeveralUrbs_violationAtItsEnd)
{
    PanelModel panel(options(40000), clock());
    const Bytes whole = frame(40000);
    panel.submitOut(m_owner, 1, part(whole, 0, 16384), false);
    panel.submitOut(m_owner, 2, part(whole, 16384, 32768), true);
    panel.submitOut(m_owner, 3, frame(20), false);
    EXPECT_THAT(panel.getViolations(),
                ElementsAre("OUT transfer 1, byte 0: packet of 40000 bytes, the transfer ends after 32768"));
    EXPECT_EQ(panel.getRecords().size(), 1u);
}

TEST_F(PanelModelBus, wholeBusPackets_endedByAMark)
{
    m_panel.submitOut(m_owner, 1, frame(512), true);
    m_panel.submitOut(m_owner, 2, frame(1024), true);
    EXPECT_EQ(m_panel.getRecords().size(), 2u);
    EXPECT_THAT(m_panel.getViolations(), IsEmpty());
}

TEST_F(PanelModelBus, wholeBusPacketsWithoutAMark_violation)
{
    m_panel.submitOut(m_owner, 1, frame(512), false);
    m_panel.submitOut(m_owner, 2, frame(513), false);
    m_panel.submitOut(m_owner, 3, frame(1024), false);
    EXPECT_THAT(m_panel.getViolations(),
                ElementsAre("OUT transfer 1, 512 bytes fill whole packets of 512 bytes, and nothing marks their end",
                            "OUT transfer 3, 1024 bytes fill whole packets of 512 bytes, and nothing marks their end"));
    EXPECT_EQ(m_panel.getRecords().size(), 3u);
}

TEST_F(PanelModelBus, wholeSplitsEndedByAnEmptyUrb_oneTransfer)
{
    PanelModel panel(options(32768), clock());
    const Bytes whole = frame(32768);
    panel.submitOut(m_owner, 1, part(whole, 0, 16384), false);
    panel.submitOut(m_owner, 2, part(whole, 16384, 32768), false);
    panel.submitOut(m_owner, 3, {}, false);
    panel.submitOut(m_owner, 4, {}, false);
    EXPECT_EQ(panel.getRecords().size(), 1u);
    EXPECT_THAT(panel.getViolations(), ElementsAre("OUT transfer 2, byte 0: transfer without bytes"));
}

TEST_F(PanelModelBus, splitTransferCancelledBackwards_isNoViolationAndTheNextIsWhole)
{
    PanelModel panel(options(40000), clock());
    const Bytes whole = frame(40000);
    panel.inject(fault(out, PanelFault::Kind::NoAnswer));
    panel.submitOut(m_owner, 1, part(whole, 0, 16384), false);
    panel.submitOut(m_owner, 2, part(whole, 16384, 32768), false);
    panel.submitOut(m_owner, 3, part(whole, 32768, 40000), false);
    panel.submitOut(m_owner, 4, frame(20), false);
    EXPECT_TRUE(panel.cancel(3));
    EXPECT_TRUE(panel.cancel(2));
    EXPECT_THAT(panel.getRecords(), IsEmpty());
    EXPECT_TRUE(panel.cancel(1));
    EXPECT_EQ(panel.getRecords().size(), 1u);
    EXPECT_THAT(panel.getViolations(), IsEmpty());
    EXPECT_THAT(panel.takeCompletions(), ElementsAre(Completion{3, -ENOENT, 0, {}}, Completion{2, -ENOENT, 0, {}},
                                                     Completion{1, -ENOENT, 0, {}}, Completion{4, 0, 20, {}}));
}

TEST_F(PanelModelBus, laterTransferCancelledInPart_itsRestIsNotDecoded)
{
    PanelModel panel(options(40000), clock());
    const Bytes whole = frame(40000);
    PanelFault delay = fault(out, PanelFault::Kind::Delay);
    delay.delay = std::chrono::seconds(1);
    panel.inject(delay);
    panel.submitOut(m_owner, 1, frame(20), false);
    panel.submitOut(m_owner, 2, part(whole, 0, 16384), false);
    panel.submitOut(m_owner, 3, part(whole, 16384, 32768), false);
    panel.submitOut(m_owner, 4, part(whole, 32768, 40000), false);
    panel.submitOut(m_owner, 5, frame(20), false);
    EXPECT_TRUE(panel.cancel(3));
    m_now = std::chrono::seconds(1);
    EXPECT_EQ(panel.takeCompletions().size(), 5u);
    EXPECT_EQ(panel.getRecords().size(), 2u);
    EXPECT_THAT(panel.getViolations(), IsEmpty());
}

TEST_F(PanelModelBus, unfinishedTransferCancelled_nextUrbBeginsAnother)
{
    PanelModel panel(options(40000), clock());
    panel.inject(fault(out, PanelFault::Kind::NoAnswer));
    panel.submitOut(m_owner, 1, part(frame(40000), 0, 16384), false);
    panel.cancel(1);
    panel.submitOut(m_owner, 2, frame(20), false);
    EXPECT_EQ(panel.getRecords().size(), 1u);
    EXPECT_THAT(panel.getViolations(), IsEmpty());
}

TEST_F(PanelModelBus, silentReadBehindPackets_doesNotLoseThem)
{
    m_panel.inject(fault(in, PanelFault::Kind::NoAnswer));
    m_panel.submitIn(m_owner, 1, 512);
    m_panel.emitRaw({1});
    m_panel.cancel(1);
    m_panel.submitIn(m_owner, 2, 512);
    EXPECT_THAT(m_panel.takeCompletions(), ElementsAre(Completion{1, -ENOENT, 0, {}}, Completion{2, 0, 1, {1}}));
}

} // namespace
} // namespace Vantor

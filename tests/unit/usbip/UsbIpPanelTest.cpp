#include "simulator/usbip/UsbIpPanel.h"

#include "simulator/panel/PanelDescriptors.h"
#include "tests/support/UrbText.h"
#include "tests/unit/panel/PanelModelFixture.h"
#include "tests/unit/usbip/UsbIpBytes.h"

#include <cerrno>

namespace Vantor {

// The kernel's side of a connection, byte by byte. Numbers of messages are the test's.
class UsbIpPanelTest : public PanelModelFixture {
protected:
    static constexpr std::uint32_t device = 0x10002;
    static constexpr std::uint32_t noPackets = 0xFFFFFFFF;

    static std::uint32_t asWord(int status) { return static_cast<std::uint32_t>(status); }

    static Bytes control(std::uint32_t number, const ControlEndpoint::Setup& setup)
    {
        const std::uint32_t direction = setup[0] >> 7;
        const auto length = static_cast<std::uint32_t>(setup[6] | setup[7] << 8);
        Bytes header = usbIpHeader({1, number, device, direction, 0, 0, length, 0, noPackets});
        std::copy(setup.begin(), setup.end(), header.begin() + 40);
        return header;
    }

    static Bytes read(std::uint32_t number, std::uint32_t length, std::uint32_t flags = 0)
    {
        return usbIpHeader({1, number, device, 1, 1, flags, length, 0, noPackets});
    }

    static Bytes write(std::uint32_t number, const Bytes& data, std::uint32_t flags = 0)
    {
        return joined(
            {usbIpHeader({1, number, device, 0, 2, flags, static_cast<std::uint32_t>(data.size()), 0, noPackets}),
             data});
    }

    static Bytes unlink(std::uint32_t number, std::uint32_t target)
    {
        return usbIpHeader({2, number, device, 0, 0, target});
    }

    static Bytes done(std::uint32_t number, int status, std::uint32_t length, const Bytes& data = {})
    {
        return joined({usbIpHeader({3, number, 0, 0, 0, asWord(status), length, 0, noPackets}), data});
    }

    static Bytes unlinked(std::uint32_t number, int status)
    {
        return usbIpHeader({4, number, 0, 0, 0, asWord(status)});
    }

    // What the panel says to it.
    Bytes answerTo(const Bytes& message)
    {
        EXPECT_TRUE(m_usbIp.receive(message.data(), message.size())) << m_usbIp.getError();
        return m_usbIp.takeOutput();
    }

    Bytes whatCame()
    {
        m_usbIp.settle();
        return m_usbIp.takeOutput();
    }

    void configure() { EXPECT_EQ(answerTo(control(1, {0x00, 9, 1, 0, 0, 0, 0, 0})), done(1, 0, 0)); }

    void inject(PanelFault::Direction direction, PanelFault::Kind kind, bool sticky = false)
    {
        m_panel.inject(fault(direction, kind, sticky));
    }

    std::chrono::nanoseconds m_now{0};
    PanelModel m_panel{options(16384), [this] { return m_now; }};
    std::vector<CapturedUrb> m_told;
    UsbIpPanel m_usbIp{m_panel, LinkTap([this](CapturedUrb urb) { m_told.push_back(std::move(urb)); }, {1, 2}, 1)};
};

// As a kernel goes about it.
TEST_F(UsbIpPanelTest, enumeration_isAnswered)
{
    const Bytes all = makePanelDescriptors(0xDEAD, 0xBEEF);
    const Bytes deviceDescriptor(all.begin(), all.begin() + 18);
    const Bytes configuration(all.begin() + 18, all.end());
    EXPECT_EQ(answerTo(control(1, {0x80, 6, 0, 1, 0, 0, 64, 0})), done(1, 0, 18, deviceDescriptor));
    EXPECT_EQ(answerTo(control(2, {0x80, 6, 0, 1, 0, 0, 18, 0})), done(2, 0, 18, deviceDescriptor));
    EXPECT_EQ(answerTo(control(3, {0x80, 6, 0, 6, 0, 0, 10, 0})), done(3, -EPIPE, 0)); // device qualifier
    EXPECT_EQ(answerTo(control(4, {0x80, 6, 0, 2, 0, 0, 9, 0})),
              done(4, 0, 9, Bytes(configuration.begin(), configuration.begin() + 9)));
    EXPECT_EQ(answerTo(control(5, {0x80, 6, 0, 2, 0, 0, 32, 0})), done(5, 0, 32, configuration));
    EXPECT_EQ(answerTo(control(6, {0x80, 6, 0, 3, 0, 0, 255, 0})), done(6, 0, 4, {4, 3, 9, 4}));
    EXPECT_FALSE(m_usbIp.isConfigured());
    EXPECT_EQ(answerTo(control(7, {0x00, 9, 1, 0, 0, 0, 0, 0})), done(7, 0, 0));
    EXPECT_TRUE(m_usbIp.isConfigured());
    EXPECT_EQ(answerTo(control(8, {0x80, 0, 0, 0, 0, 0, 2, 0})), done(8, 0, 2, {1, 0}));
}

TEST_F(UsbIpPanelTest, controlRead_fitsTheBuffer)
{
    Bytes request = control(1, {0x80, 6, 0, 1, 0, 0, 18, 0});
    request[27] = 5; // of the transfer's length
    EXPECT_EQ(answerTo(request), done(1, 0, 5, {18, 1, 0, 2, 0}));
}

TEST_F(UsbIpPanelTest, configured_thePanelIsTheKernels)
{
    const int other = 0;
    EXPECT_EQ(m_panel.claimInterface(&other, 0), 0);
    EXPECT_EQ(m_panel.releaseInterface(&other, 0), 0);
    configure();
    EXPECT_EQ(m_panel.claimInterface(&other, 0), -EBUSY);
    EXPECT_EQ(answerTo(control(2, {0x00, 9, 0, 0, 0, 0, 0, 0})), done(2, 0, 0));
    EXPECT_EQ(m_panel.claimInterface(&other, 0), 0);
}

TEST_F(UsbIpPanelTest, notConfigured_bulkIsNotAnswered)
{
    EXPECT_EQ(answerTo(read(1, 512)), done(1, -EPROTO, 0));
    EXPECT_EQ(answerTo(write(2, frame(20))), done(2, -EPROTO, 0));
    EXPECT_EQ(m_panel.getStatistics().bytesReceived, 0U);
}

TEST_F(UsbIpPanelTest, endpointItDoesNotHave_isSaid)
{
    configure();
    EXPECT_EQ(answerTo(usbIpHeader({1, 2, device, 1, 2, 0, 512, 0, noPackets})), done(2, -ENOENT, 0));
    EXPECT_EQ(answerTo(usbIpHeader({1, 3, device, 0, 1, 0, 0, 0, noPackets})), done(3, -ENOENT, 0));
    EXPECT_EQ(answerTo(usbIpHeader({1, 4, device, 1, 15, 0, 512, 0, noPackets})), done(4, -ENOENT, 0));
}

TEST_F(UsbIpPanelTest, write_reachesThePanel)
{
    configure();
    EXPECT_EQ(answerTo(write(2, frame(20))), done(2, 0, 20));
    ASSERT_EQ(m_panel.getRecords().size(), 1U);
    EXPECT_EQ(m_panel.getRecords()[0].payload, Bytes(9, 0x5A));
}

TEST_F(UsbIpPanelTest, messagesInAnyPieces_areTheSame)
{
    configure();
    const Bytes messages = joined({write(2, frame(20)), unlink(3, 99), read(4, 512)});
    const Bytes expected = joined({done(2, 0, 20), unlinked(3, 0)});
    Bytes came;
    for (const std::uint8_t byte : messages)
        came = joined({came, answerTo({byte})});
    EXPECT_EQ(came, expected);
    m_panel.emitRaw({1, 2});
    EXPECT_EQ(whatCame(), done(4, 0, 2, {1, 2}));
    EXPECT_EQ(answerTo(joined({write(5, frame(20)), unlink(6, 99), read(7, 512)})),
              joined({done(5, 0, 20), unlinked(6, 0)}));
}

TEST_F(UsbIpPanelTest, zeroPacketFlag_endsATransferOfWholePackets)
{
    configure();
    EXPECT_EQ(answerTo(write(2, frame(512), 0x40)), done(2, 0, 512));
    EXPECT_TRUE(m_panel.getViolations().empty());
    EXPECT_EQ(answerTo(write(3, frame(512))), done(3, 0, 512));
    EXPECT_EQ(m_panel.getViolations().size(), 1U);
}

TEST_F(UsbIpPanelTest, emptyWrite_endsATransferInPieces)
{
    configure();
    EXPECT_EQ(answerTo(write(2, frame(16384))), done(2, 0, 16384));
    EXPECT_EQ(answerTo(write(3, {})), done(3, 0, 0));
    EXPECT_EQ(m_panel.getRecords().size(), 1U);
    EXPECT_TRUE(m_panel.getViolations().empty());
}

TEST_F(UsbIpPanelTest, read_waitsForThePanel)
{
    configure();
    EXPECT_EQ(answerTo(read(2, 512)), Bytes());
    EXPECT_EQ(answerTo(read(3, 512)), Bytes());
    m_panel.emitRaw({1, 2, 3});
    EXPECT_EQ(whatCame(), done(2, 0, 3, {1, 2, 3}));
    m_panel.emitRaw({4});
    EXPECT_EQ(whatCame(), done(3, 0, 1, {4}));
}

TEST_F(UsbIpPanelTest, packetCount_isRepeatedAsItCame)
{
    configure();
    EXPECT_EQ(answerTo(usbIpHeader({1, 2, device, 1, 1, 0, 512})), Bytes());
    m_panel.emitRaw({7});
    EXPECT_EQ(whatCame(), joined({usbIpHeader({3, 2, 0, 0, 0, 0, 1}), {7}}));
}

TEST_F(UsbIpPanelTest, shortRead_isAnErrorOnlyWhenAskedFor)
{
    configure();
    m_panel.emitRaw({1, 2});
    EXPECT_EQ(answerTo(read(2, 512, 1)), done(2, -EREMOTEIO, 2, {1, 2}));
    m_panel.emitRaw({1, 2});
    EXPECT_EQ(answerTo(read(3, 512)), done(3, 0, 2, {1, 2}));
    m_panel.emitRaw(Bytes(512, 9));
    EXPECT_EQ(answerTo(read(4, 512, 1)), done(4, 0, 512, Bytes(512, 9)));
    PanelFault shortOut = fault(PanelFault::Direction::Out, PanelFault::Kind::Short);
    shortOut.bytes = 5;
    m_panel.inject(shortOut);
    EXPECT_EQ(answerTo(write(5, frame(20), 1)), done(5, 0, 5)); // of reads only
}

TEST_F(UsbIpPanelTest, readThatOverflows_givesWhatFits)
{
    configure();
    m_panel.emitRaw(Bytes(1024, 9));
    EXPECT_EQ(answerTo(read(2, 700)), done(2, -EOVERFLOW, 512, Bytes(512, 9))); // one whole packet
}

TEST_F(UsbIpPanelTest, unlink_givesThePendingReadBack)
{
    configure();
    EXPECT_EQ(answerTo(read(2, 512)), Bytes());
    EXPECT_EQ(answerTo(unlink(3, 2)), unlinked(3, -ECONNRESET));
    m_panel.emitRaw({1, 2, 3}); // for the next read
    EXPECT_EQ(whatCame(), Bytes());
    EXPECT_EQ(answerTo(read(4, 512)), done(4, 0, 3, {1, 2, 3}));
}

// The request crosses the answer: the transfer has its reply, and the unlinking another.
TEST_F(UsbIpPanelTest, unlinkOfADoneRead_saysThatItIsDone)
{
    configure();
    EXPECT_EQ(answerTo(read(2, 512)), Bytes());
    m_panel.emitRaw({1, 2, 3});
    EXPECT_EQ(answerTo(unlink(3, 2)), joined({done(2, 0, 3, {1, 2, 3}), unlinked(3, 0)}));
    EXPECT_EQ(answerTo(unlink(4, 2)), unlinked(4, 0));
    EXPECT_EQ(answerTo(unlink(5, 77)), unlinked(5, 0)); // never submitted
}

TEST_F(UsbIpPanelTest, unlinkTwice_isAnsweredTwice)
{
    configure();
    EXPECT_EQ(answerTo(read(2, 512)), Bytes());
    EXPECT_EQ(answerTo(joined({unlink(3, 2), unlink(4, 2)})), joined({unlinked(3, -ECONNRESET), unlinked(4, 0)}));
}

TEST_F(UsbIpPanelTest, unlink_letsWhatWaitedBehindGo)
{
    configure();
    inject(PanelFault::Direction::Out, PanelFault::Kind::NoAnswer);
    EXPECT_EQ(answerTo(joined({write(2, frame(20)), write(3, frame(30))})), Bytes());
    EXPECT_EQ(answerTo(unlink(4, 2)), joined({unlinked(4, -ECONNRESET), done(3, 0, 30)}));
    EXPECT_EQ(m_panel.getRecords().size(), 1U);
}

TEST_F(UsbIpPanelTest, everyOrderOfAnswerAndUnlink_answersEachOnce)
{
    configure();
    for (int emitAt = 0; emitAt < 4; ++emitAt) {
        const auto number = static_cast<std::uint32_t>(10 + 10 * emitAt);
        Bytes came;
        const std::vector<Bytes> messages{read(number, 512), unlink(number + 1, number), read(number + 2, 512)};
        for (int i = 0; i <= 3; ++i) {
            if (i == emitAt)
                m_panel.emitRaw({1});
            if (i < 3)
                came = joined({came, answerTo(messages[static_cast<std::size_t>(i)])});
        }
        came = joined({came, whatCame()});
        const bool isRead = emitAt < 2;
        const Bytes first = isRead ? joined({done(number, 0, 1, {1}), unlinked(number + 1, 0)})
                                   : joined({unlinked(number + 1, -ECONNRESET), done(number + 2, 0, 1, {1})});
        EXPECT_EQ(came, first) << emitAt;
        if (isRead) {
            EXPECT_EQ(answerTo(unlink(number + 3, number + 2)), unlinked(number + 3, -ECONNRESET));
        }
    }
}

TEST_F(UsbIpPanelTest, stall_endsWithClearHaltOnTheEndpoint)
{
    configure();
    inject(PanelFault::Direction::Out, PanelFault::Kind::Stall, true);
    inject(PanelFault::Direction::In, PanelFault::Kind::Stall, true);
    EXPECT_EQ(answerTo(write(2, frame(20))), done(2, -EPIPE, 0));
    EXPECT_EQ(answerTo(write(3, frame(20))), done(3, -EPIPE, 0));
    EXPECT_EQ(answerTo(read(4, 512)), done(4, -EPIPE, 0));
    EXPECT_EQ(answerTo(control(5, {0x82, 0, 0, 0, 0x02, 0, 2, 0})), done(5, 0, 2, {1, 0}));
    EXPECT_EQ(answerTo(control(6, {0x02, 1, 0, 0, 0x02, 0, 0, 0})), done(6, 0, 0));
    EXPECT_EQ(answerTo(write(7, frame(20))), done(7, 0, 20));
    EXPECT_EQ(answerTo(read(8, 512)), done(8, -EPIPE, 0));
    EXPECT_EQ(answerTo(control(9, {0x02, 1, 0, 0, 0x81, 0, 0, 0})), done(9, 0, 0));
    EXPECT_EQ(answerTo(read(10, 512)), Bytes());
}

TEST_F(UsbIpPanelTest, status_isThatOfTheFault)
{
    configure();
    PanelFault failing = fault(PanelFault::Direction::In, PanelFault::Kind::Status);
    failing.status = -EILSEQ;
    EXPECT_EQ(answerTo(read(2, 512)), Bytes());
    m_panel.inject(failing);
    EXPECT_EQ(whatCame(), done(2, -EILSEQ, 0));
}

TEST_F(UsbIpPanelTest, delay_answersWhenItsTimeHasCome)
{
    configure();
    PanelFault late = fault(PanelFault::Direction::Out, PanelFault::Kind::Delay);
    late.delay = std::chrono::milliseconds(5);
    m_panel.inject(late);
    EXPECT_EQ(answerTo(write(2, frame(20))), Bytes());
    m_now = std::chrono::milliseconds(5) - std::chrono::nanoseconds(1);
    EXPECT_EQ(whatCame(), Bytes());
    m_now += std::chrono::nanoseconds(1);
    EXPECT_EQ(whatCame(), done(2, 0, 20));
}

// The kernel sends no more of a transfer in pieces when one of them fails.
TEST_F(UsbIpPanelTest, failedPiece_endsItsTransfer)
{
    configure();
    PanelFault cut = fault(PanelFault::Direction::Out, PanelFault::Kind::Short);
    cut.bytes = 100;
    m_panel.inject(cut);
    EXPECT_EQ(answerTo(write(2, joined({frame(8192), frame(8192)}))), done(2, 0, 100));
    EXPECT_EQ(answerTo(write(3, frame(20))), done(3, 0, 20)); // another transfer
    EXPECT_EQ(m_panel.getRecords().size(), 1U);
    EXPECT_TRUE(m_panel.getViolations().empty());
}

TEST_F(UsbIpPanelTest, unplug_endsWhatIsPending)
{
    configure();
    EXPECT_EQ(answerTo(read(2, 512)), Bytes());
    m_panel.unplug();
    EXPECT_EQ(whatCame(), done(2, -ESHUTDOWN, 0));
    EXPECT_EQ(answerTo(read(3, 512)), done(3, -ENODEV, 0));
    EXPECT_EQ(answerTo(unlink(4, 3)), unlinked(4, 0));
}

// frame(20): 8 bytes of packet header, 3 of record header, 9 of payload.
TEST_F(UsbIpPanelTest, theLink_isToldInItsOrder)
{
    configure();
    answerTo(read(2, 512));
    answerTo(write(3, frame(20)));
    answerTo(read(4, 512));
    answerTo(unlink(5, 4));
    m_panel.emitRaw({1, 2, 3});
    whatCame();
    inject(PanelFault::Direction::Out, PanelFault::Kind::Stall);
    answerTo(write(6, {9}));
    answerTo(control(7, {0x02, 1, 0, 0, 0x02, 0, 0, 0}));
    answerTo(read(8, 512));
    m_panel.unplug();
    whatCame();
    EXPECT_EQ(textsOf(m_told), (std::vector<std::string>{
                                   "S control 00 -115 0 [0009010000000000]", "C control 00 0 0", "S bulk 81 -115 512",
                                   "S bulk 02 -115 20 " + hexOf(frame(20).data(), 20), "C bulk 02 0 20",
                                   "S bulk 81 -115 512", "C bulk 81 -104 0", "C bulk 81 0 3 010203",
                                   "S bulk 02 -115 1 09", "C bulk 02 -32 0", "S control 00 -115 0 [0201000002000000]",
                                   "C control 00 0 0", "S bulk 81 -115 512", "C bulk 81 -108 0"}));
}

TEST_F(UsbIpPanelTest, theDescriptors_areToldAsTheKernelReadsThem)
{
    answerTo(control(1, {0x80, 6, 0, 1, 0, 0, 18, 0}));
    answerTo(control(2, {0x80, 6, 0, 2, 0, 0, 32, 0}));
    EXPECT_EQ(textsOf(m_told), enumerationTexts);
    ASSERT_FALSE(m_told.empty());
    EXPECT_EQ(m_told.front().id, 0x100000001U);
}

TEST_F(UsbIpPanelTest, hugeLength_endsTheConnection)
{
    configure();
    const Bytes message = usbIpHeader({1, 2, device, 0, 2, 0, 0xFFFFFFFF, 0, noPackets});
    EXPECT_FALSE(m_usbIp.receive(message.data(), message.size()));
    EXPECT_EQ(m_usbIp.getError(), "a transfer of 4294967295 bytes, at most 16777216 are taken");
    EXPECT_EQ(m_usbIp.takeOutput(), Bytes());
}

TEST_F(UsbIpPanelTest, afterAnError_nothingIsUnderstood)
{
    configure();
    const Bytes messages = joined({write(2, frame(20)), usbIpHeader({5, 3}), read(4, 512)});
    EXPECT_FALSE(m_usbIp.receive(messages.data(), messages.size()));
    EXPECT_EQ(m_usbIp.takeOutput(), done(2, 0, 20));
    const Bytes next = write(5, frame(20));
    EXPECT_FALSE(m_usbIp.receive(next.data(), next.size()));
    EXPECT_EQ(m_usbIp.takeOutput(), Bytes());
    EXPECT_EQ(m_panel.getRecords().size(), 1U);
}

TEST_F(UsbIpPanelTest, numberOfAPendingTransfer_endsTheConnection)
{
    configure();
    EXPECT_EQ(answerTo(read(2, 512)), Bytes());
    const Bytes again = read(2, 512);
    EXPECT_FALSE(m_usbIp.receive(again.data(), again.size()));
    EXPECT_EQ(m_usbIp.getError(), "sequence number 2 again, its transfer is not done yet");
}

TEST_F(UsbIpPanelTest, numberOfADoneTransfer_mayComeAgain)
{
    configure();
    EXPECT_EQ(answerTo(write(2, frame(20))), done(2, 0, 20));
    EXPECT_EQ(answerTo(write(2, frame(20))), done(2, 0, 20));
}

TEST_F(UsbIpPanelTest, end_leavesThePanelToOthers)
{
    const int other = 0;
    {
        UsbIpPanel second(m_panel);
        const Bytes messages = joined({control(1, {0x00, 9, 1, 0, 0, 0, 0, 0}), read(2, 512)});
        EXPECT_TRUE(second.receive(messages.data(), messages.size()));
    }
    EXPECT_EQ(m_panel.claimInterface(&other, 0), 0);
    EXPECT_TRUE(m_panel.takeCompletions().empty());
}

} // namespace Vantor

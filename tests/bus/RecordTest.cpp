#include "tests/bus/BusTest.h"
#include "tests/support/UrbText.h"

#include <algorithm>
#include <map>
#include <set>

namespace Vantor {

// What is told of the link, beside a panel that keeps count.
class Record : public BusTest {
protected:
    using Texts = std::vector<std::string>;

    void startRecordedClient(UsbfsBus::Options options = {})
    {
        options.record = [told = m_told](CapturedUrb urb) {
            const std::lock_guard<std::mutex> lock(told->mutex);
            told->urbs.push_back(std::move(urb));
        };
        makeBus(std::move(options));
        bus().plug(0);
        startClient();
        expectEvent("added 101");
    }

    std::vector<CapturedUrb> urbs() const
    {
        const std::lock_guard<std::mutex> lock(m_told->mutex);
        return m_told->urbs;
    }

    std::size_t count(const std::string& beginning) const
    {
        const Texts texts = textsOf(urbs());
        return static_cast<std::size_t>(
            std::count_if(texts.begin(), texts.end(),
                          [&beginning](const std::string& text) { return text.rfind(beginning, 0) == 0; }));
    }

    void await(const std::string& beginning)
    {
        EXPECT_TRUE(waitUntil([this, &beginning] { return count(beginning) != 0; }))
            << beginning << " was not told; the end is " << textOf(urbs().back());
    }

    PanelModel::Statistics statistics()
    {
        PanelModel::Statistics result;
        bus().visit(0, [&result](const PanelModel& model) { result = model.getStatistics(); });
        return result;
    }

    // Bytes that crossed the link, by endpoint, and how many packets they are.
    struct Crossed {
        std::uint64_t bytes = 0;
        std::uint64_t packets = 0;
    };

    Crossed crossed(std::uint8_t endpoint) const
    {
        Crossed result;
        Bytes all;
        std::map<std::uint64_t, Bytes> written;
        for (const CapturedUrb& urb : urbs()) {
            if (urb.endpoint != endpoint || urb.transfer != CapturedUrb::Transfer::Bulk)
                continue;
            if (urb.event == CapturedUrb::Event::Submit) {
                written[urb.id] = urb.data;
                continue;
            }
            const Bytes& data = urb.isIn() ? urb.data : written[urb.id];
            const std::size_t size = std::min<std::size_t>(urb.length, data.size());
            EXPECT_EQ(size, urb.length) << textOf(urb);
            result.bytes += urb.length;
            all.insert(all.end(), data.begin(), data.begin() + static_cast<std::ptrdiff_t>(size));
        }
        for (std::size_t at = 0; at + 1 < all.size(); ++result.packets) // a packet begins with its size
            at += std::max<std::size_t>(1, static_cast<std::size_t>(all[at] | all[at + 1] << 8));
        return result;
    }

    void expectWhatThePanelCounted()
    {
        const PanelModel::Statistics counted = statistics();
        const Crossed out = crossed(0x02);
        const Crossed in = crossed(0x81);
        EXPECT_EQ(out.bytes, counted.bytesReceived);
        EXPECT_EQ(out.packets, counted.packetsReceived);
        EXPECT_EQ(in.bytes, counted.bytesSent);
        EXPECT_EQ(in.packets, counted.packetsSent);
    }

    // Each transfer is submitted, then completed, once; none is left.
    void expectPairs() const
    {
        std::set<std::uint64_t> pending;
        std::set<std::uint64_t> known;
        for (const CapturedUrb& urb : urbs()) {
            if (urb.event == CapturedUrb::Event::Submit) {
                EXPECT_TRUE(known.insert(urb.id).second) << textOf(urb);
                pending.insert(urb.id);
            } else {
                EXPECT_EQ(pending.erase(urb.id), 1U) << textOf(urb);
            }
        }
        EXPECT_EQ(pending.size(), 0U);
    }

private:
    struct Told {
        std::mutex mutex;
        std::vector<CapturedUrb> urbs;
    };

    const std::shared_ptr<Told> m_told = std::make_shared<Told>(); // the bus tells to its end
};

TEST_F(Record, aPluggedPanel_isFoundBeforeAnythingElse)
{
    startRecordedClient();
    const std::vector<CapturedUrb> all = urbs();
    ASSERT_GE(all.size(), 4U);
    EXPECT_EQ(textsOf({all.begin(), all.begin() + 4}), enumerationTexts);
    for (const CapturedUrb& urb : all) {
        EXPECT_EQ(urb.bus, 1);
        EXPECT_EQ(urb.device, 2);
    }
}

TEST_F(Record, aPanelThatComesBack_isFoundAgainAtItsNewAddress)
{
    allowLogOfDeparture();
    startRecordedClient();
    bus().unplug(0);
    expectEvent("removed 101");
    const std::size_t before = urbs().size();
    bus().plug(0);
    expectEvent("added 101");
    const std::vector<CapturedUrb> all = urbs();
    ASSERT_GE(all.size(), before + 4);
    const auto begin = all.begin() + static_cast<std::ptrdiff_t>(before);
    EXPECT_EQ(textsOf({begin, begin + 4}), enumerationTexts);
    EXPECT_EQ(begin->device, 3);
}

TEST_F(Record, whatCrossesEachWay_isWhatThePanelCounted)
{
    startRecordedClient();
    tell("add 101 5 20 700");
    tell("add 101 6 1000 50");
    execute("emit type=20 size=64 count=100 every=1");
    expectRecords(0, 5, 20, 700);
    expectRecords(0, 6, 1000, 50);
    EXPECT_TRUE(waitUntil([this] { return statistics().packetsSent >= 101; }));
    endClient();
    expectWhatThePanelCounted();
    expectPairs();
    EXPECT_GE(crossed(0x81).packets, 101U);
}

// Of 40,000 bytes, libusb makes three URBs.
TEST_F(Record, whatCrossesInPieces_isWhatThePanelCounted)
{
    UsbfsBus::Options options;
    options.scatterGather = false;
    options.panel.maxPacketSize = 50000;
    startRecordedClient(std::move(options));
    EXPECT_TRUE(waitUntil([this] { return statistics().packetsSent >= 1; })); // its limit
    tell("add 101 5 10000 12");
    expectRecords(0, 5, 10000, 12);
    endClient();
    expectWhatThePanelCounted();
    expectPairs();
    EXPECT_GE(count("S bulk 02 -115 16384 "), 2U);
}

TEST_F(Record, aStalledTransfer_hasItsStatus)
{
    startRecordedClient();
    execute("fault out stall once");
    tell("add 101 5 20 1");
    expectLog("[libusb] TX Transfer stalled uid=101");
    expectRecords(0, 5, 20, 1);
    EXPECT_EQ(count("C bulk 02 -32 0"), 1U);
    endClient();
    expectWhatThePanelCounted();
    expectPairs();
}

TEST_F(Record, anUnplug_endsWhatIsPending)
{
    allowLogOfDeparture();
    startRecordedClient();
    execute("fault out silent sticky");
    tell("add 101 5 20 1");
    await("S bulk 02 -115 31 ");
    await("S bulk 81 -115 ");
    bus().unplug(0);
    expectEvent("removed 101");
    EXPECT_EQ(count("C bulk 02 -108 0"), 1U);
    EXPECT_EQ(count("C bulk 81 -108 0"), 1U);
    expectPairs();
}

TEST_F(Record, aCancelledTransfer_hasItsStatus)
{
    startRecordedClient();
    await("S bulk 81 -115 ");
    endClient();
    EXPECT_GE(count("C bulk 81 -2 0"), 1U);
    expectPairs();
}

} // namespace Vantor

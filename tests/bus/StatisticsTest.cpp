// What the library has counted, beside what the panel has.
#include "tests/bus/BusTest.h"

#include <cstdint>
#include <map>
#include <sstream>
#include <thread>

namespace Vantor {

class Statistics : public BusTest {
protected:
    using Counts = std::map<std::string, std::uint64_t>;

    Counts counted()
    {
        const std::size_t before = eventsOf("statistics").size();
        tell("statistics 101");
        EXPECT_TRUE(waitUntil([this, before] { return eventsOf("statistics").size() > before; }));
        std::istringstream words(eventsOf("statistics").back());
        Counts counts;
        std::string word;
        for (words >> word; words >> word;) {
            const std::size_t sign = word.find('=');
            counts[word.substr(0, sign)] = std::stoull(word.substr(sign + 1));
        }
        return counts;
    }

    // When nothing waits any more, not even a packet that nobody has counted yet (so many
    // records and pictures at least were sent), and the reply to the last event is there as well.
    Counts countedAtRest(std::uint64_t sent = 0, std::uint64_t pictures = 0)
    {
        tell("drain 101");
        expectEvent("drained 101");
        EXPECT_TRUE(waitUntil([this, sent, pictures] {
            const PanelModel::Statistics panel = ofPanel();
            Counts counts = counted();
            return counts["bytes"] + counts["lostBytes"] == panel.bytesReceived &&
                   counts["receivedBytes"] == panel.bytesSent && counts["waiting"] == 0 &&
                   counts["records"] + counts["cutRecords"] >= sent && counts["pictures"] >= pictures &&
                   counts["timed"] + counts["slices"] == counts["records"];
        }));
        return counted();
    }

    PanelModel::Statistics ofPanel()
    {
        PanelModel::Statistics statistics;
        bus().visit(0, [&statistics](const PanelModel& model) { statistics = model.getStatistics(); });
        return statistics;
    }

    // Both sides have whole packets and records alike.
    void expectAlike(Counts counts)
    {
        const PanelModel::Statistics panel = ofPanel();
        EXPECT_EQ(counts["bytes"] + counts["lostBytes"], panel.bytesReceived);
        EXPECT_EQ(counts["packets"], panel.packetsReceived);
        EXPECT_EQ(counts["records"], panel.recordsReceived);
        EXPECT_EQ(counts["receivedBytes"], panel.bytesSent);
    }
};

TEST_F(Statistics, recordsAndPictures_areWhatThePanelHasCounted)
{
    startClientWithPanel();
    tell("add 101 5 20 700");
    tell("draw 101 0 100 60");
    tell("add 101 6 33 500");
    tell("draw 101 1 64 3");
    execute("emit type=12 size=100 count=300");
    expectRecords(0, 6, 33, 500);
    EXPECT_TRUE(waitUntil([this] { return ofPanel().packetsSent >= 300; }));
    Counts counts = countedAtRest(700 + 500, 2);
    expectAlike(counts);
    const PanelModel::Statistics panel = ofPanel();
    EXPECT_EQ(counts["slices"], panel.recordsByType.at(PacketType::LcdSlice));
    EXPECT_EQ(counts["pictures"], 2U);
    EXPECT_EQ(counts["pictureBytes"], 100U * 60U + 64U * 3U);
    EXPECT_EQ(counts["receivedPackets"], panel.packetsSent);
    EXPECT_EQ(counts["receivedRecords"], panel.packetsSent) << "emitted packets have one each";
    EXPECT_EQ(counts["timed"], counts["records"] - counts["slices"]);
}

TEST_F(Statistics, sendsThatFail_areWhatThePanelHasCounted)
{
    startClientWithPanel();
    execute("fault out stall once");
    execute("fault out short=50 once");
    execute("fault out silent once");
    execute("fault out short=700 once");
    execute("fault out stall once");
    tell("add 101 5 100 100");
    expectLog("[libusb] TX Transfer stalled uid=101");
    expectLog("[libusb] TX Transfer stalled uid=101");
    Counts counts = countedAtRest(100);
    expectAlike(counts);
    EXPECT_EQ(counts["stalled"], 2U);
    EXPECT_EQ(counts["timedOut"], 1U);
    EXPECT_EQ(counts["cutPackets"], 2U);
    EXPECT_GE(counts["records"] + counts["cutRecords"], 100U) << "and the requests for device information";
    EXPECT_GE(counts["cutRecords"], 2U);
}

TEST_F(Statistics, readsThatFail_areWhatThePanelHasCounted)
{
    startClientWithPanel();
    execute("fault in stall once");
    expectLog("[libusb] RX Transfer stalled uid=101");
    execute("emit type=12 size=10");
    expectEvent("packet 101 12 00010203040506070809");
    execute("fault in status=EPROTO once");
    execute("fault in short=13 once"); // a header and a part of a record, for the read after that
    execute("emit type=12 size=20");
    EXPECT_TRUE(waitUntil([this] { return counted()["malformed"] == 1; }));
    Counts counts = countedAtRest();
    expectAlike(counts);
    EXPECT_EQ(counts["readsStalled"], 1U);
    EXPECT_EQ(counts["readsFailed"], 1U);
    EXPECT_EQ(counts["buffers"], 2U);
    EXPECT_EQ(counts["receivedPackets"], ofPanel().packetsSent) << "neither counts what was cut";
}

} // namespace Vantor

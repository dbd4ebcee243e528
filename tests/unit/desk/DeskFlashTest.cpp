// Firmware upgrades as the desk has them: who gets them, and what is told of them when.
#include "panel2mqtt/desk/Desk.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>

namespace Vantor {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class CountingShelf : public FirmwareShelf {
public:
    Result keep(const std::string& bytes) override
    {
        ++kept;
        return ShelfImage{"image", static_cast<std::uint32_t>(bytes.size()), std::string(64, 'a'), nullptr};
    }
    Result fetch(const std::string& /*name*/, std::size_t /*most*/) override { return std::string("no folder"); }

    int kept = 0;
};

// What the broker retains, and the answers.
class RetainingOutbox : public Outbox {
public:
    void publish(Kind /*kind*/, Message message) override
    {
        if (message.topic == "me")
            answers.push_back(message.payload);
        else if (message.isRetained && message.payload.empty())
            retained.erase(message.topic);
        else if (message.isRetained)
            retained[message.topic] = message.payload;
    }

    std::map<std::string, std::string> retained;
    std::vector<std::string> answers;
};

class UpgradeLine : public PanelLine {
public:
    void addRecord(std::uint8_t, std::optional<std::uint32_t>, const std::string&) override {}
    void draw(std::uint16_t, std::vector<ClientLcdBitmap>) override {}
    PriorityPacker::Progress getProgress() const override { return {}; }
    unsigned int getPacketLimit() const override { return 8192; }
    void startUpgrade(const std::string& mainPath, const std::string& /*servoPath*/) override
    {
        started = mainPath;
        upgrade = {true, 0, 5};
    }
    Upgrade getUpgrade() const override { return upgrade; }
    void askInformation() override {}

    std::string started;
    Upgrade upgrade;
};

class DeskFlash : public testing::Test {
protected:
    DeskFlash() { connect(5); }

    Desk::Options optionsOf()
    {
        Desk::Options options;
        options.host = "shop";
        options.run = "r1";
        options.clock = [] { return "T"; };
        options.forgetAfter = std::chrono::seconds(1);
        options.shelf = &m_shelf;
        options.say = [this](bool isWrong, const std::string& text) { m_said.push_back((isWrong ? "! " : "") + text); };
        return options;
    }
    void connect(std::uint64_t epoch)
    {
        m_desk.beginConnection();
        m_desk.serve(epoch, m_now);
        m_desk.endTelling(m_now);
    }
    std::shared_ptr<UpgradeLine> plug(const std::string& place)
    {
        auto line = std::make_shared<UpgradeLine>();
        m_desk.onPanelReady(place, line, {"Panel", 8192, 8181}, m_now);
        return line;
    }
    void receive(const std::string& rest, const std::string& payload)
    {
        Message message;
        message.topic = "panel/1/shop/" + rest;
        message.payload = payload;
        message.responseTopic = "me";
        message.userProperties = {{"id", "j"}, {"sha256", std::string(64, 'a')}};
        m_desk.receive(message, m_now);
    }
    // The panel confirms it all; the library is done.
    void write(const std::string& place, UpgradeLine& line)
    {
        const FirmwareUpgradeCommand reply{FirmwareUpgradeCommand::ChunkWritten, FirmwareData::MainMcu, 0, 5, 0};
        m_desk.onRecord(place, 40, {reinterpret_cast<const char*>(&reply), sizeof reply});
        line.upgrade = {false, 5, 5};
        m_desk.poll(m_now);
    }
    std::string jobOf(const std::string& place) { return m_outbox.retained["panel/1/shop/" + place + "/job/j"]; }

    std::vector<std::string> m_said; // "! " in front of what is wrong
    Desk::TimePoint m_now{std::chrono::hours(1)};
    RetainingOutbox m_outbox;
    CountingShelf m_shelf;
    Desk m_desk{optionsOf(), m_outbox, [](const std::string&, const PanelDesk::Counts&) { return "{}"; }};
};

TEST_F(DeskFlash, forAllPanels_isReadOnceAndStartedOnEach)
{
    const auto one = plug("1-1");
    const auto two = plug("1-2");
    receive("all/do/flash", "image");
    m_desk.poll(m_now);
    EXPECT_EQ(m_shelf.kept, 1);
    EXPECT_EQ(one->started, "image");
    EXPECT_EQ(two->started, "image");
}

TEST_F(DeskFlash, beginAndEnd_areSaidWithTheirPlace)
{
    const auto one = plug("1-1");
    plug("1-2");
    receive("all/do/flash", "image");
    m_desk.poll(m_now);
    write("1-1", *one);
    m_desk.onRecord("1-1", 0, "");
    m_desk.poll(m_now);
    m_desk.onPanelAway("1-2", "unplugged", m_now);
    EXPECT_THAT(m_said,
                testing::ElementsAre("1-1: upgrade j: queued, 5 bytes", "1-2: upgrade j: queued, 5 bytes",
                                     "1-1: upgrade j: answering",
                                     "! 1-2: upgrade j: failed: the panel left at 0 of 5 bytes: flash it again"));
}

TEST_F(DeskFlash, nextMessage_isReadAnew)
{
    plug("1-1");
    plug("1-2");
    receive("1-1/do/flash", "image");
    receive("1-2/do/flash", "image");
    EXPECT_EQ(m_shelf.kept, 2);
}

TEST_F(DeskFlash, writtenAndAnswered_isTaken)
{
    const auto line = plug("1-1");
    receive("1-1/do/flash", "image");
    m_desk.poll(m_now);
    write("1-1", *line);
    EXPECT_THAT(jobOf("1-1"), HasSubstr("written"));
    m_desk.onRecord("1-1", 0, "");
    m_desk.poll(m_now);
    EXPECT_THAT(jobOf("1-1"), HasSubstr("answering"));
    EXPECT_THAT(m_outbox.answers, ElementsAre(R"({"answer":"taken","host":"shop","place":"1-1"})"));
}

TEST_F(DeskFlash, progressDuringAnOutage_isToldAfterIt)
{
    const auto line = plug("1-1");
    receive("1-1/do/flash", "image");
    m_desk.poll(m_now);
    m_desk.beginConnection();
    write("1-1", *line);
    EXPECT_THAT(jobOf("1-1"), HasSubstr("writing"));
    m_desk.serve(6, m_now);
    EXPECT_THAT(jobOf("1-1"), HasSubstr("written"));
}

TEST_F(DeskFlash, placeWhoseUpgradeIsNotOver_isNotForgotten)
{
    const auto line = plug("1-1");
    receive("1-1/do/flash", "image");
    m_desk.poll(m_now);
    write("1-1", *line);
    m_desk.onPanelAway("1-1", "gone", m_now);
    m_now += std::chrono::seconds(29);
    m_desk.poll(m_now);
    EXPECT_GT(m_desk.getNextDue(), m_now);
    receive("1-1/do/forget", "");
    EXPECT_THAT(m_outbox.answers, ElementsAre(HasSubstr("busy")));
    m_now += std::chrono::seconds(1);
    m_desk.poll(m_now);
    m_desk.poll(m_now);
    EXPECT_THAT(m_outbox.retained, IsEmpty());
    EXPECT_THAT(m_outbox.answers, ElementsAre(HasSubstr("busy"), HasSubstr("has not come back")));
}

TEST_F(DeskFlash, jobOfAnEarlierRun_isInterrupted)
{
    plug("1-1");
    receive("1-1/job/j", R"({"state":"writing","bytesWritten":2,"totalBytes":5,"since":"T0"})");
    EXPECT_THAT(jobOf("1-1"), HasSubstr("interrupted"));
}

TEST_F(DeskFlash, jobAtAPlaceThatOnlyCameLater_isCleared)
{
    m_desk.beginConnection();
    m_outbox.retained["panel/1/shop/1-1/job/j"] = "{}";
    receive("1-1/job/j", "{}");
    plug("1-1");
    m_desk.serve(6, m_now);
    m_desk.endTelling(m_now);
    EXPECT_EQ(m_outbox.retained.count("panel/1/shop/1-1/job/j"), 0u);
}

} // namespace
} // namespace Vantor

// Firmware upgrades through the gateway; what the panels' flash memory holds is the oracle.
#include "tests/mqtt/GatewayHost.h"
#include "tests/mqtt/MqttPeer.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <openssl/evp.h>

namespace Vantor {

namespace {

using testing::HasSubstr;

// Bytes that differ from chunk to chunk.
std::string makeImage(std::size_t size, unsigned int seed)
{
    std::string image;
    for (std::uint32_t state = seed; image.size() < size;) {
        state = state * 1664525u + 1013904223u;
        image += static_cast<char>(state >> 24);
    }
    return image;
}

std::string sumOf(const std::string& bytes)
{
    unsigned char sum[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(bytes.data(), bytes.size(), sum, &length, EVP_sha256(), nullptr);
    std::string text;
    for (unsigned int i = 0; i < length; ++i) {
        constexpr const char* digits = "0123456789abcdef";
        text += digits[sum[i] / 16];
        text += digits[sum[i] % 16];
    }
    return text;
}

class GatewayFlash : public testing::Test {
protected:
    GatewayFlash()
    {
        std::filesystem::create_directory(m_files / "flash");
        std::filesystem::create_directory(m_files / "shelf");
    }

    void start(std::vector<std::string> bus = {}, unsigned int panels = 1)
    {
        GatewayHost::Options options;
        options.panels = panels;
        options.bus = std::move(bus);
        options.bus.insert(options.bus.end(), {"--flash-dir", m_files / "flash"});
        options.settings = "[firmware]\nfolder = \"" + (m_files / "shelf") + "\"\n";
        m_host = std::make_unique<GatewayHost>(m_broker, options);
        m_peer.subscribe(m_host->topicOf("answer/#"));
        m_peer.subscribe(m_host->topicOf("+/job/+"));
        m_host->awaitPanels(m_peer);
    }

    void flash(const std::string& id, const std::string& payload,
               std::vector<std::pair<std::string, std::string>> properties, const std::string& place = "1-1")
    {
        Message command = makeCommand(*m_host, place + "/do/flash", payload, id);
        properties.emplace_back("id", id);
        command.userProperties = std::move(properties);
        m_peer.publish(command);
    }

    // Until the job's topic has that; what it says then.
    std::string awaitJob(const std::string& id, const std::string& text,
                         std::chrono::milliseconds time = MqttPeer::patience)
    {
        const auto told = m_peer.await(
            [&](const Message& message) {
                return message.topic == m_host->topicOf("1-1/job/" + id) &&
                       message.payload.find(text) != std::string::npos;
            },
            time);
        return told ? told->payload : "nothing";
    }

    // Until some of it is written, and not all.
    void awaitHalf(const std::string& id)
    {
        const auto told = m_peer.await([&](const Message& message) {
            return message.topic == m_host->topicOf("1-1/job/" + id) &&
                   message.payload.find("writing") != std::string::npos &&
                   message.payload.find("\"bytesWritten\":0,") == std::string::npos;
        });
        EXPECT_TRUE(told);
    }

    // What was told before is left out.
    void awaitPanel(bool isOnline)
    {
        const auto told = m_peer.await([&](const Message& message) {
            return message.topic == m_host->topicOf("1-1/state") &&
                   message.payload.find(isOnline ? "\"online\":true" : "\"online\":false") != std::string::npos;
        });
        EXPECT_TRUE(told);
    }

    void dropTold() { m_peer.takeAll(std::chrono::milliseconds(50)); }

    void replug()
    {
        dropTold();
        m_host->tell("unplug");
        awaitPanel(false);
        m_host->tell("plug");
        awaitPanel(true);
    }

    // The whole answer.
    std::string awaitReason(const std::string& id, std::chrono::milliseconds time = MqttPeer::patience)
    {
        const auto answer = m_peer.await(
            [&](const Message& message) {
                return message.correlation == id && message.topic == m_host->topicOf("answer/test");
            },
            time);
        return answer ? answer->payload : "none";
    }

    // What the panel holds, once the host has ended.
    std::string flashOf(const std::string& file) const { return contentOf(m_files / ("flash/" + file)); }

    const TemporaryFolder m_files;
    MosquittoBroker m_broker;
    MqttPeer m_peer{m_broker.getSettings()};
    std::unique_ptr<GatewayHost> m_host;
};

} // namespace

TEST_F(GatewayFlash, imageInAMessage_isInThePanel)
{
    start();
    const std::string image = makeImage(20000, 1);
    flash("j", image, {{"sha256", sumOf(image)}});
    // Of states that follow soon, a link that is behind tells the last.
    EXPECT_THAT(awaitJob("j", ""), HasSubstr("\"totalBytes\":20000"));
    EXPECT_THAT(awaitJob("j", "answering"), HasSubstr("\"bytesWritten\":20000,\"totalBytes\":20000"));
    EXPECT_EQ(awaitAnswer(m_peer, "j"), "taken");
    m_host->end();
    EXPECT_TRUE(flashOf("panel0-main.bin") == image);
}

TEST_F(GatewayFlash, filesOfTheFolder_areInThePanel)
{
    const std::string main = makeImage(9000, 2);
    const std::string servo = makeImage(5000, 3);
    std::filesystem::create_directory(m_files / "shelf/v2");
    writeFile(m_files / "shelf/v2/main.bin", main);
    writeFile(m_files / "shelf/servo.bin", servo);
    start();
    flash("j", "", {{"main", "v2/main.bin"}, {"servo", "servo.bin"}, {"sha256-servo", sumOf(servo)}});
    EXPECT_EQ(awaitAnswer(m_peer, "j"), "taken");
    m_host->end();
    EXPECT_TRUE(flashOf("panel0-main.bin") == main);
    EXPECT_TRUE(flashOf("panel0-servo.bin") == servo);
}

TEST_F(GatewayFlash, forAllPanels_isInEach)
{
    start({}, 3);
    const std::string image = makeImage(9000, 4);
    flash("j", image, {{"sha256", sumOf(image)}}, "all");
    for (int panel = 0; panel < 3; ++panel)
        EXPECT_EQ(awaitAnswer(m_peer, "j"), "taken");
    m_host->end();
    for (const char* const file : {"panel0-main.bin", "panel1-main.bin", "panel2-main.bin"})
        EXPECT_TRUE(flashOf(file) == image) << file;
}

TEST_F(GatewayFlash, recordsMeanwhile_areTaken)
{
    start();
    const std::string image = makeImage(40000, 5);
    flash("j", image, {{"sha256", sumOf(image)}});
    EXPECT_NE(awaitJob("j", "writing"), "nothing");
    m_peer.publish(makeCommand(*m_host, "1-1/do/send/5", "meanwhile", "r"));
    EXPECT_EQ(awaitAnswer(m_peer, "r"), "taken");
    EXPECT_EQ(awaitAnswer(m_peer, "j"), "taken");
    EXPECT_EQ(m_host->readRecords(0, 5), std::vector<std::string>{"meanwhile"});
    m_host->end();
    EXPECT_TRUE(flashOf("panel0-main.bin") == image);
}

TEST_F(GatewayFlash, chunksLostAndRefused_areSentAgain)
{
    start({"--at", "0", "fault boot reply=F0 skip=2", "--at", "0", "fault boot lose skip=2"});
    const std::string image = makeImage(40000, 6);
    flash("j", image, {{"sha256", sumOf(image)}});
    EXPECT_EQ(awaitAnswer(m_peer, "j"), "taken");
    m_host->end();
    EXPECT_TRUE(flashOf("panel0-main.bin") == image);
}

TEST_F(GatewayFlash, wrongSumOrName_isRefusedAndNothingIsWritten)
{
    writeFile(m_files / "secret", makeImage(100, 7));
    std::filesystem::create_symlink(m_files / "secret", m_files / "shelf/link");
    start();
    const std::string image = makeImage(9000, 8);
    flash("a", image, {{"sha256", sumOf("another")}});
    EXPECT_THAT(awaitReason("a"), HasSubstr("refused"));
    flash("b", "", {{"main", "../secret"}});
    EXPECT_THAT(awaitReason("b"), HasSubstr("refused"));
    flash("c", "", {{"main", "link"}});
    EXPECT_THAT(awaitReason("c"), HasSubstr("symbolic link"));
    flash("d", "", {{"main", "nothing"}});
    EXPECT_THAT(awaitReason("d"), HasSubstr("No such file"));
    m_host->end();
    EXPECT_TRUE(flashOf("panel0-main.bin").empty());
}

TEST_F(GatewayFlash, moreThanSixteenMebibytes_isTooLarge)
{
    start();
    std::string image;
    image.resize(16777217);
    flash("j", image, {{"sha256", sumOf(image)}});
    EXPECT_EQ(awaitAnswer(m_peer, "j"), "too-large");
}

TEST_F(GatewayFlash, panelOfSmallPackets_isRefused)
{
    start({"--max-packet", "4119"});
    flash("j", "image", {{"sha256", sumOf("image")}});
    EXPECT_THAT(awaitReason("j"), HasSubstr("the panel takes packets of 4119 bytes, and firmware needs 4120"));
}

TEST_F(GatewayFlash, unpluggedInTheMiddle_failsAndBeginsNotByItself)
{
    start({"--at", "0", "fault boot unplug skip=5"});
    const std::string image = makeImage(100000, 9);
    flash("j", image, {{"sha256", sumOf(image)}});
    const std::string end = awaitJob("j", "failed");
    EXPECT_THAT(end, HasSubstr("the panel left at 16384 of 100000 bytes: flash it again"));
    EXPECT_EQ(awaitAnswer(m_peer, "j"), "offline");
    dropTold();
    m_host->tell("plug");
    awaitPanel(true);
    EXPECT_EQ(awaitJob("j", "writing", std::chrono::milliseconds(2000)), "nothing");
    flash("k", image, {{"sha256", sumOf(image)}});
    EXPECT_EQ(awaitAnswer(m_peer, "k"), "taken");
    m_host->end();
    EXPECT_TRUE(flashOf("panel0-main.bin") == image);
}

TEST_F(GatewayFlash, panelRestartsAfterTheLastChunk_isTakenWhenItIsBack)
{
    start();
    m_peer.subscribe(m_host->topicOf("1-1/got/40"));
    const std::string image = makeImage(4000, 10);
    flash("j", image, {{"sha256", sumOf(image)}});
    const auto isConfirmation = [](const Message& message) {
        return message.topic.find("got/40") != std::string::npos && message.payload.substr(0, 1) == "\x01";
    };
    ASSERT_TRUE(m_peer.await(isConfirmation));
    m_host->tell("unplug"); // before the library is done, 0.7 s later
    awaitPanel(false);
    m_host->tell("plug");
    EXPECT_NE(awaitJob("j", "answering"), "nothing");
    EXPECT_EQ(awaitAnswer(m_peer, "j"), "taken");
    m_host->end();
    EXPECT_TRUE(flashOf("panel0-main.bin") == image);
}

TEST_F(GatewayFlash, panelThatStopsAnswering_failsAndIsBusyUntilItIsPluggedInAnew)
{
    start({"--at", "0", "fault boot ignore skip=3 sticky"});
    const std::string image = makeImage(40000, 11);
    flash("j", image, {{"sha256", sumOf(image)}});
    EXPECT_THAT(awaitJob("j", "failed", std::chrono::seconds(45)),
                HasSubstr("the panel has confirmed nothing for 30 s, at 8192 of 40000 bytes"));
    EXPECT_EQ(awaitAnswer(m_peer, "j"), "expired");
    flash("k", image, {{"sha256", sumOf(image)}});
    EXPECT_THAT(awaitReason("k"), HasSubstr("plug the panel in anew"));
    replug();
    flash("l", image, {{"sha256", sumOf(image)}});
    EXPECT_EQ(awaitAnswer(m_peer, "l"), "taken");
    m_host->end();
    EXPECT_TRUE(flashOf("panel0-main.bin") == image);
}

TEST_F(GatewayFlash, gatewayKilledInTheMiddle_theNextOneSaysInterrupted)
{
    start();
    const std::string image = makeImage(100000, 12);
    flash("j", image, {{"sha256", sumOf(image)}});
    awaitHalf("j");
    dropTold();
    m_host->kill();
    EXPECT_THAT(awaitJob("j", "interrupted"), HasSubstr("the gateway ended at "));
    awaitPanel(true);
    flash("j", image, {{"sha256", sumOf(image)}});
    EXPECT_THAT(awaitReason("j"), HasSubstr("unknown"));
    flash("k", image, {{"sha256", sumOf(image)}});
    EXPECT_EQ(awaitAnswer(m_peer, "k"), "taken");
    m_host->end();
    EXPECT_TRUE(flashOf("panel0-main.bin") == image);
}

TEST_F(GatewayFlash, placeIsForgotten_soAreItsJobs)
{
    start();
    flash("j", "image", {{"sha256", sumOf("image")}});
    EXPECT_EQ(awaitAnswer(m_peer, "j"), "taken");
    dropTold();
    m_host->tell("unplug");
    awaitPanel(false);
    m_peer.publish(makeCommand(*m_host, "1-1/do/forget", "", "f"));
    EXPECT_EQ(awaitAnswer(m_peer, "f"), "taken");
    MqttPeer later(m_broker.getSettings());
    later.subscribe(m_host->topicOf("+/job/+"));
    EXPECT_TRUE(later.takeAll(std::chrono::milliseconds(300)).empty());
}

} // namespace Vantor

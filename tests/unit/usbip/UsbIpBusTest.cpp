#include "simulator/usbip/UsbIpBus.h"

#include "tests/support/UrbText.h"
#include "tests/unit/usbip/UsbIpBytes.h"

#include <algorithm>
#include <cerrno>
#include <map>
#include <memory>
#include <stdexcept>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Vantor {

// The kernel, with a connection to each panel that was attached to it.
class FakeKernel : public KernelPorts {
public:
    ~FakeKernel() override
    {
        for (const auto& [port, socket] : m_sockets)
            close(socket);
    }

    unsigned int attach(int socket, std::optional<unsigned int> preferred) override
    {
        if (m_full)
            throw std::runtime_error("no free port");
        unsigned int port = preferred.value_or(0);
        while (m_sockets.count(port) != 0)
            ++port;
        m_sockets[port] = fcntl(socket, F_DUPFD_CLOEXEC, 0);
        return port;
    }

    void awaitFree(unsigned int port) override
    {
        awaited.push_back(port);
        if (!isHeld)
            detach(port);
    }

    std::string findDevice(unsigned int port) override { return port == 0 ? "1-1" : ""; }

    void detach(unsigned int port)
    {
        const auto found = m_sockets.find(port);
        if (found == m_sockets.end())
            return;
        close(found->second);
        m_sockets.erase(found);
    }

    void refuse(bool refused = true) { m_full = refused; }

    void send(unsigned int port, const Bytes& message) const
    {
        EXPECT_EQ(::send(m_sockets.at(port), message.data(), message.size(), MSG_DONTWAIT),
                  static_cast<ssize_t>(message.size()));
    }

    // All that has come by now.
    Bytes receive(unsigned int port) const
    {
        Bytes bytes(1 << 20);
        const ssize_t size = recv(m_sockets.at(port), bytes.data(), bytes.size(), MSG_DONTWAIT);
        bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
        return bytes;
    }

    bool isClosed(unsigned int port) const
    {
        std::uint8_t byte = 0;
        return recv(m_sockets.at(port), &byte, 1, MSG_DONTWAIT) == 0;
    }

    std::vector<unsigned int> awaited;
    bool isHeld = false; // keeps its end open

private:
    std::map<unsigned int, int> m_sockets;
    bool m_full = false;
};

class UsbIpBusTest : public testing::Test {
protected:
    void SetUp() override
    {
        m_ready = eventfd(1, EFD_CLOEXEC);
        ASSERT_GE(m_ready, 0);
        UsbIpBus::Options options;
        options.log = [this](const std::string& line) { m_log.push_back(line); };
        options.complain = [this](const std::string& line) { m_complaints.push_back(line); };
        options.record = [this](CapturedUrb urb) { m_urbs.push_back(std::move(urb)); };
        options.tell = [this](const std::string& line) { m_told.push_back(line); };
        options.keepFlash = [this](unsigned int panel, const BootLoader::Flash&) { m_kept.push_back(panel); };
        m_bus = std::make_unique<UsbIpBus>(options, m_kernel);
    }

    void TearDown() override { close(m_ready); }

    // One round that does not wait.
    void serve()
    {
        std::vector<pollfd> others{{m_ready, POLLIN, 0}, {-1, POLLIN, 0}};
        m_bus->serve(others);
        EXPECT_EQ(others[0].revents, POLLIN);
        EXPECT_EQ(others[1].revents, 0);
    }

    Bytes answerTo(const Bytes& message, unsigned int port = 0)
    {
        m_kernel.send(port, message);
        serve(); // takes and answers
        return m_kernel.receive(port);
    }

    void execute(const std::string& line)
    {
        const ParsedOrder parsed = parsePanelOrder(line);
        ASSERT_TRUE(parsed.order) << parsed.error;
        m_bus->execute(*parsed.order);
    }

    void schedule(std::chrono::nanoseconds delay, const std::string& line)
    {
        m_bus->schedule(delay, *parsePanelOrder(line).order);
    }

    void configure(unsigned int port = 0)
    {
        Bytes request = usbIpHeader({1, 1, 0x10002});
        request[41] = 9; // set configuration
        request[42] = 1;
        EXPECT_EQ(answerTo(request, port), usbIpHeader({3, 1}));
    }

    static Bytes read(std::uint32_t number) { return usbIpHeader({1, number, 0x10002, 1, 1, 0, 512}); }

    // A record of type 5 with one byte from the panel whose device id is given.
    static Bytes packetAnswer(std::uint32_t number, std::uint8_t device, std::uint8_t byte)
    {
        Bytes answer = usbIpHeader({3, number, 0, 0, 0, 0, 12});
        for (const int value : {12, 0, 1, 0, static_cast<int>(device), 0, 0, 0, 5, 1, 0, static_cast<int>(byte)})
            answer.push_back(static_cast<std::uint8_t>(value));
        return answer;
    }

    FakeKernel m_kernel;
    int m_ready = -1;
    std::vector<CapturedUrb> m_urbs;
    std::vector<std::string> m_log;
    std::vector<std::string> m_complaints;
    std::vector<std::string> m_told;
    std::vector<unsigned int> m_kept;
    std::unique_ptr<UsbIpBus> m_bus;
};

TEST_F(UsbIpBusTest, panel_isAttachedAndFound)
{
    m_bus->plug(0);
    EXPECT_THAT(m_told, testing::ElementsAre("panel 0: attached at vhci port 0"));
    configure();
    serve();
    EXPECT_THAT(m_told, testing::ElementsAre("panel 0: attached at vhci port 0",
                                             "panel 0: found by the kernel, which calls it 1-1"));
    EXPECT_THAT(m_log, testing::ElementsAre("panel 0: attached at vhci port 0", "panel 0: configured",
                                            "panel 0: found by the kernel, which calls it 1-1"));
    m_bus->plug(1);
    configure(1);
    EXPECT_EQ(m_told.back(), "panel 1: found by the kernel");
    EXPECT_TRUE(m_complaints.empty());
}

TEST_F(UsbIpBusTest, records_arriveAndAreLogged)
{
    m_bus->plug(0);
    configure();
    Bytes message = usbIpHeader({1, 2, 0x10002, 0, 2, 0, 13});
    for (const int value : {13, 0, 1, 0, 0, 0, 0, 0, 9, 2, 0, 0xAA, 0xBB})
        message.push_back(static_cast<std::uint8_t>(value));
    EXPECT_EQ(answerTo(message), usbIpHeader({3, 2, 0, 0, 0, 0, 13}));
    EXPECT_EQ(m_log.back(), "panel 0: record type 9, 2 bytes: aa bb");
    EXPECT_TRUE(m_bus->visit(0, [](PanelModel& model) { EXPECT_EQ(model.getStatistics().recordsReceived, 1U); }));
    EXPECT_FALSE(m_bus->visit(1, [](PanelModel&) { FAIL(); }));
}

TEST_F(UsbIpBusTest, commands_reachTheirPanel)
{
    m_bus->plug(0);
    m_bus->plug(1);
    configure(0);
    configure(1);
    EXPECT_EQ(answerTo(read(2), 0), Bytes());
    EXPECT_EQ(answerTo(read(2), 1), Bytes());
    execute("emit 1 type=5 hex=0a");
    serve();
    EXPECT_EQ(m_kernel.receive(0), Bytes());
    EXPECT_EQ(m_kernel.receive(1), packetAnswer(2, 2, 0x0A)); // seed 1 is panel 0's
    EXPECT_EQ(m_log.back(), "panel 1: emit type 5, 1 byte");
}

TEST_F(UsbIpBusTest, repeatedEmission_goesOnInItsTime)
{
    m_bus->plug(0);
    configure();
    execute("emit type=5 hex=0a count=3 every=1");
    const auto emissions = [this] { return std::count(m_log.begin(), m_log.end(), "panel 0: emit type 5, 1 byte"); };
    EXPECT_EQ(emissions(), 1);
    while (emissions() < 3)
        serve();
    EXPECT_EQ(answerTo(read(2)).size(), 48U + 3 * 12); // which had to wait together
}

TEST_F(UsbIpBusTest, scheduledCommand_comesAtItsTimeAndComplains)
{
    schedule(std::chrono::nanoseconds(0), "unplug 3");
    schedule(std::chrono::hours(1), "unplug 4");
    serve();
    EXPECT_THAT(m_complaints, testing::ElementsAre("panel 3: is not plugged"));
}

TEST_F(UsbIpBusTest, delay_wakesTheBus)
{
    m_bus->plug(0);
    configure();
    execute("fault out delay=2");
    m_kernel.send(0, usbIpHeader({1, 2, 0x10002, 0, 2}));
    Bytes answer;
    std::vector<pollfd> nobody;
    while (answer.empty()) {
        m_bus->serve(nobody);
        answer = m_kernel.receive(0);
    }
    EXPECT_EQ(answer, usbIpHeader({3, 2}));
}

TEST_F(UsbIpBusTest, impossiblePlugs_areComplainedOf)
{
    m_bus->plug(0);
    m_bus->plug(0);
    m_bus->plug(31);
    m_bus->unplug(5);
    execute("fault 5 out stall");
    execute("emit 5 type=5 hex=0a");
    EXPECT_THAT(m_complaints,
                testing::ElementsAre("panel 0: is plugged already", "panel 31: has no port", "panel 5: is not plugged",
                                     "panel 5: is not plugged: fault out stall once",
                                     "panel 5: is not plugged: emit type 5, 1 byte"));
}

TEST_F(UsbIpBusTest, panelThatLeavesWithinAnEmission_isNotComplainedOf)
{
    m_bus->plug(0);
    execute("emit type=5 hex=0a count=2");
    m_bus->unplug(0);
    serve();
    EXPECT_EQ(m_log.back(), "panel 0: is not plugged: emit type 5, 1 byte");
    EXPECT_TRUE(m_complaints.empty());
}

// A panel that stayed would take some 5 KB, and what its LCDs show.
TEST_F(UsbIpBusTest, manyPlugs_doNotMakeItGrow)
{
    const auto plugOften = [this] {
        for (int i = 0; i < 300; ++i) {
            m_bus->plug(0);
            m_bus->visit(0, [](PanelModel& model) {
                // Eight pixels of LCD 0: the whole LCD is kept.
                model.submitOut(&model, 1, {19, 0, 1, 0, 0, 0, 0, 0, 38, 8, 0, 0, 0, 0, 0, 8, 1, 1, 0xFF}, true);
                EXPECT_EQ(model.getScreens().size(), 1U);
            });
            m_bus->unplug(0);
        }
        m_log = {};
        m_told = {};
        m_kept = {};
        m_kernel.awaited = {};
        return mallinfo2().uordblks; // 0 under a sanitizer
    };
    const std::size_t before = plugOften();
    EXPECT_LT(plugOften(), before + 500'000);
}

TEST_F(UsbIpBusTest, noPort_isThrownAndLaterComplainedOf)
{
    m_kernel.refuse();
    EXPECT_THROW(m_bus->plug(0), std::runtime_error);
    schedule(std::chrono::nanoseconds(0), "plug 0");
    serve();
    EXPECT_THAT(m_complaints, testing::ElementsAre("panel 0: no free port"));
    m_bus->unplug(0);
    EXPECT_EQ(m_complaints.back(), "panel 0: is not plugged");
}

TEST_F(UsbIpBusTest, unplug_closesAndWaitsForThePort)
{
    m_bus->plug(0);
    m_bus->plug(1);
    m_bus->unplug(1);
    EXPECT_THAT(m_kernel.awaited, testing::ElementsAre(1));
    EXPECT_THAT(m_kept, testing::ElementsAre(1));
    m_bus->plug(2); // to the lowest free port
    EXPECT_EQ(m_told.back(), "panel 2: attached at vhci port 1");
    m_bus->plug(1);
    EXPECT_EQ(m_told.back(), "panel 1: attached at vhci port 2");
}

TEST_F(UsbIpBusTest, replug_getsItsPortAndIsANewPanel)
{
    m_bus->plug(0);
    m_bus->plug(1);
    m_bus->unplug(0);
    m_bus->unplug(1);
    m_bus->plug(1);
    EXPECT_EQ(m_told.back(), "panel 1: attached at vhci port 1");
    EXPECT_EQ(answerTo(read(1), 1), usbIpHeader({3, 1, 0, 0, 0, static_cast<std::uint32_t>(-EPROTO)})); // not set up
    configure(1);
}

TEST_F(UsbIpBusTest, flash_outlivesUnplugging)
{
    BootLoader::Flash flash;
    flash.main.bytes = {1, 2, 3};
    m_bus->setFlash(0, flash);
    m_bus->plug(0);
    m_bus->unplug(0);
    m_bus->plug(0);
    m_bus->visit(0, [](PanelModel& model) {
        EXPECT_THAT(model.getBootLoader().getFlash().main.bytes, testing::ElementsAre(1, 2, 3));
    });
}

TEST_F(UsbIpBusTest, flash_outlivesAPlugThatFails)
{
    BootLoader::Flash flash;
    flash.main.bytes = {1, 2, 3};
    m_bus->setFlash(0, flash);
    m_kernel.refuse();
    EXPECT_THROW(m_bus->plug(0), std::runtime_error);
    m_kernel.refuse(false);
    m_bus->plug(0);
    m_bus->visit(0, [](PanelModel& model) {
        EXPECT_THAT(model.getBootLoader().getFlash().main.bytes, testing::ElementsAre(1, 2, 3));
    });
}

TEST_F(UsbIpBusTest, whatWasSaidBeforeUnplugging_arrives)
{
    m_bus->plug(0);
    configure();
    EXPECT_EQ(answerTo(read(2)), Bytes());
    m_bus->visit(0, [](PanelModel& model) { model.emit(PacketType{5}, {0x0A}); });
    m_kernel.isHeld = true; // to be read yet
    m_bus->unplug(0);
    EXPECT_EQ(m_kernel.receive(0), packetAnswer(2, 1, 0x0A));
    EXPECT_TRUE(m_kernel.isClosed(0));
}

TEST_F(UsbIpBusTest, kernelThatLetsGo_hasUnpluggedThePanel)
{
    m_bus->plug(0);
    m_kernel.detach(0);
    serve();
    EXPECT_THAT(m_complaints, testing::ElementsAre("panel 0: the kernel has let go of it"));
    EXPECT_EQ(m_log.back(), "panel 0: unplug");
    EXPECT_THAT(m_kept, testing::ElementsAre(0));
    m_bus->plug(0);
    EXPECT_EQ(m_told.back(), "panel 0: attached at vhci port 0");
}

TEST_F(UsbIpBusTest, messageThatIsNone_unplugsThePanel)
{
    m_bus->plug(0);
    m_bus->plug(1);
    m_kernel.send(0, usbIpHeader({77}));
    serve();
    EXPECT_THAT(m_complaints,
                testing::ElementsAre("panel 0: the kernel sent command 77, there are 1 (submit) and 2 (unlink)"));
    configure(1); // the other one goes on
}

TEST_F(UsbIpBusTest, panelThatCutsTheLink_isUnplugged)
{
    m_bus->plug(0);
    configure();
    m_bus->visit(0, [](PanelModel& model) { model.unplug(); });
    serve();
    EXPECT_EQ(m_log.back(), "panel 0: unplug");
    EXPECT_THAT(m_kernel.awaited, testing::ElementsAre(0));
    EXPECT_TRUE(m_complaints.empty());
    m_bus->unplug(0);
    EXPECT_EQ(m_complaints.back(), "panel 0: is not plugged");
}

// More than the connection holds: the rest waits until the kernel reads.
TEST_F(UsbIpBusTest, kernelThatDoesNotRead_isWaitedFor)
{
    m_bus->plug(0);
    configure();
    constexpr std::uint32_t reads = 64;
    Bytes messages;
    for (std::uint32_t number = 2; number < 2 + reads; ++number)
        messages = joined({messages, usbIpHeader({1, number, 0x10002, 1, 1, 0, 32768})});
    EXPECT_EQ(answerTo(messages), Bytes());
    for (std::uint32_t i = 0; i < reads; ++i)
        m_bus->visit(0, [](PanelModel& model) { model.emitRaw(Bytes(32767, 7)); });
    // Nothing more is taken from it meanwhile.
    const Bytes record{13, 0, 1, 0, 0, 0, 0, 0, 9, 2, 0, 0xAA, 0xBB};
    m_kernel.send(0, joined({usbIpHeader({1, 99, 0x10002, 0, 2, 0, 13}), record}));
    serve();
    serve();
    m_bus->visit(0, [](PanelModel& model) { EXPECT_EQ(model.getStatistics().recordsReceived, 0U); });

    constexpr std::size_t expected = reads * (48 + 32767) + 48;
    Bytes all;
    for (int round = 0; round < 1000 && all.size() < expected; ++round) {
        serve();
        all = joined({all, m_kernel.receive(0)});
    }
    EXPECT_EQ(all.size(), expected);
    EXPECT_EQ(std::count(all.begin(), all.end(), 7), reads * 32767 + 1); // and the number of one message
}

TEST_F(UsbIpBusTest, violations_areLoggedAndOutliveUnplugging)
{
    m_bus->plug(0);
    configure();
    answerTo(joined({usbIpHeader({1, 2, 0x10002, 0, 2, 0, 3}), {1, 2, 3}}));
    ASSERT_EQ(m_bus->getViolations().size(), 1U);
    const std::string violation = m_bus->getViolations()[0];
    EXPECT_THAT(violation, testing::StartsWith("panel 0: OUT transfer 1, byte 0: "));
    EXPECT_EQ(m_log.back(), "panel 0: violation: " + violation.substr(9));
    m_bus->unplug(0);
    m_bus->plug(0);
    EXPECT_THAT(m_bus->getViolations(), testing::ElementsAre(violation));
}

TEST_F(UsbIpBusTest, unplugAll_leavesNone)
{
    m_bus->plug(0);
    m_bus->plug(1);
    m_bus->unplug(0);
    m_bus->unplugAll();
    EXPECT_THAT(m_kernel.awaited, testing::ElementsAre(0, 1));
    EXPECT_TRUE(m_complaints.empty());
}

TEST_F(UsbIpBusTest, end_closesTheConnections)
{
    m_bus->plug(0);
    EXPECT_FALSE(m_kernel.isClosed(0));
    m_bus.reset();
    EXPECT_TRUE(m_kernel.isClosed(0));
}

// As usbmon has it: on each plug another device, and no answer but the unplug's is missing.
TEST_F(UsbIpBusTest, theLinksOfPanels_areToldApart)
{
    execute("plug");
    execute("plug 1");
    answerTo(usbIpHeader({1, 1, 0x10002, 1, 0, 0, 2, 0, 0xFFFFFFFF, 0, 0x80000000, 0x00000200}), 0);
    answerTo(usbIpHeader({1, 1, 0x10002, 0, 0, 0, 0, 0, 0xFFFFFFFF, 0, 0x00090100, 0}), 1);
    m_kernel.send(1, usbIpHeader({1, 2, 0x10002, 1, 1, 0, 512, 0, 0xFFFFFFFF}));
    serve();
    execute("unplug 1");
    execute("plug 1");
    answerTo(usbIpHeader({1, 1, 0x10002, 1, 0, 0, 2, 0, 0xFFFFFFFF, 0, 0x80000000, 0x00000200}), 1);
    std::vector<std::string> told;
    for (const CapturedUrb& urb : m_urbs)
        told.push_back(std::to_string(urb.bus) + "." + std::to_string(urb.device) + " " + textOf(urb));
    EXPECT_EQ(told,
              (std::vector<std::string>{"1.2 S control 80 -115 2 [8000000000000200]", "1.2 C control 80 0 2 0100",
                                        "1.3 S control 00 -115 0 [0009010000000000]", "1.3 C control 00 0 0",
                                        "1.3 S bulk 81 -115 512", "1.3 C bulk 81 -108 0",
                                        "1.4 S control 80 -115 2 [8000000000000200]", "1.4 C control 80 0 2 0100"}));
}

} // namespace Vantor

#include "simulator/panelsim/FlashFolder.h"
#include "tests/bus/BusTest.h"
#include "tests/support/TemporaryFolder.h"

#include <cstdint>
#include <filesystem>

namespace Vantor {

// Whole upgrades, by the library and libusb as they are, with the boot loader's ordinary
// 110 ms for a chunk.
class Firmware : public BusTest {
protected:
    // `factor`: so that no two images are alike.
    static Bytes image(std::size_t size, unsigned int factor)
    {
        Bytes bytes(size);
        for (std::size_t i = 0; i < size; ++i)
            bytes[i] = static_cast<std::uint8_t>(i * factor + i / 256);
        return bytes;
    }

    std::string write(const std::string& name, const Bytes& bytes)
    {
        const std::string path = m_folder / name;
        writeFile(path, bytes);
        return path;
    }

    // Waits for it: the host may notice an unplug before the file is there.
    void expectFile(const std::string& name, const Bytes& expected) const
    {
        const auto read = [&] { return contentOf<Bytes>(m_folder / name); };
        EXPECT_TRUE(waitUntil([&] { return read() == expected; })) << name << ": " << read().size() << " bytes";
    }

    void upgrade(const std::string& main, const std::string& servo) { tell("upgrade 101 " + main + " " + servo); }

    void expectFinished(int resends)
    {
        expectEvent("upgraded 101");
        expectLog("[libusb] Firmware Upgrade Finished for uid=257 with " + std::to_string(resends) +
                  " resend packets and 0 duplicate packets detected during transfer.");
    }

    void visitLoader(const std::function<void(const BootLoader&)>& visitor)
    {
        EXPECT_TRUE(bus().visit(0, [&visitor](PanelModel& model) { visitor(model.getBootLoader()); }));
    }

    const TemporaryFolder m_folder;
};

TEST_F(Firmware, bothImages_arriveAndVerify)
{
    startClientWithPanel();
    const Bytes main = image(10000, 3);
    const Bytes servo = image(4096, 5);
    upgrade(write("main", main), write("servo", servo));
    expectFinished(1); // the first chunk counts as one
    visitLoader([&](const BootLoader& loader) {
        EXPECT_EQ(loader.getFlash().main.bytes, main);
        EXPECT_EQ(loader.getFlash().main.state, BootLoader::State::Verified);
        EXPECT_EQ(loader.getFlash().servo.bytes, servo);
        EXPECT_EQ(loader.getFlash().servo.state, BootLoader::State::Verified);
        EXPECT_EQ(loader.getStatistics().requestsAccepted, 1u);
        EXPECT_EQ(loader.getStatistics().chunksWritten, 4u);
        EXPECT_EQ(loader.getStatistics().records, 5u);
    });
}

// The library finds the operations by their names, and calls them on its packer.
TEST_F(Firmware, foreignProtocolLibrary_flashesAsWell)
{
    useClient(MORVANE_FOREIGN_CLIENT);
    startClientWithPanel();
    const Bytes main = image(10000, 3);
    const Bytes servo = image(4096, 5);
    upgrade(write("main", main), write("servo", servo));
    expectFinished(1);
    visitLoader([&](const BootLoader& loader) {
        EXPECT_EQ(loader.getFlash().main.bytes, main);
        EXPECT_EQ(loader.getFlash().main.state, BootLoader::State::Verified);
        EXPECT_EQ(loader.getFlash().servo.bytes, servo);
        EXPECT_EQ(loader.getFlash().servo.state, BootLoader::State::Verified);
    });
}

// The second chunk is refused twice, with what a host must not take for the end, and the
// answer to the third one is lost.
TEST_F(Firmware, faults_areRecoveredFrom)
{
    startClientWithPanel();
    execute("fault boot reply=f0 skip=2");
    execute("fault boot reply=f2");
    execute("fault boot lose skip=1");
    const Bytes main = image(10000, 3);
    upgrade(write("main", main), "-");
    expectFinished(4);
    expectLog("[libusb] > Error opening file=-");
    expectLog("[libusb] Failed to write 0 bytes to board 1 address=0x1000 status=0xf0 uid=257");
    expectLog("");
    visitLoader([&](const BootLoader& loader) {
        EXPECT_EQ(loader.getFlash().main.bytes, main);
        EXPECT_EQ(loader.getFlash().main.state, BootLoader::State::Verified);
        EXPECT_EQ(loader.getFlash().servo.state, BootLoader::State::Untouched);
        EXPECT_EQ(loader.getStatistics().chunksRefused, 2u);
        EXPECT_EQ(loader.getStatistics().chunksWritten, 4u);
        EXPECT_EQ(loader.getStatistics().replies, 6u);
    });
}

// Its flash is half written, in the files, too, until it is flashed again.
TEST_F(Firmware, panelPulledHalfWay_isFlashedAgain)
{
    allowLogOfDeparture();
    FlashFolder folder(m_folder.getPath());
    UsbfsBus::Options options;
    options.keepFlash = [&folder](unsigned int panel, const BootLoader::Flash& flash) { folder.save(panel, flash); };
    makeBus(options);
    bus().plug(0);
    startClient();
    expectEvent("added 101");
    const Bytes main = image(12000, 3);
    const std::string path = write("main", main);
    execute("fault boot unplug skip=3"); // the request and two chunks
    upgrade(path, path);
    expectEvent("gone 101");
    expectEvent("removed 101");
    expectFile("panel0-main.bin", Bytes(main.begin(), main.begin() + 8192));
    EXPECT_FALSE(std::filesystem::exists(m_folder / "panel0-servo.bin"));

    bus().plug(0);
    expectEvent("added 101");
    visitLoader([](const BootLoader& loader) {
        EXPECT_EQ(loader.getFlash().main.state, BootLoader::State::Incomplete);
        EXPECT_EQ(loader.getFlash().main.written, 8192u);
    });
    upgrade(path, path);
    expectFinished(1);
    bus().unplug(0);
    expectEvent("removed 101");
    expectFile("panel0-main.bin", main);
    expectFile("panel0-servo.bin", main);
}

} // namespace Vantor

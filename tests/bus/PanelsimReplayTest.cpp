// What panelsim makes of captures: those that it has recorded, one of a real kernel's
// usbmon, and those that nobody should have taken.
#include "simulator/capture/CaptureWriter.h"
#include "tests/support/CaptureScript.h"
#include "tests/support/TemporaryFolder.h"

#include <cstdio>
#include <cstdlib>
#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

namespace Vantor {

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class PanelsimReplay : public testing::Test {
protected:
    struct Result {
        int exitCode;
        std::string output; // of the program
        std::string errors; // and of panelsim
    };

    std::string fileName(const std::string& name) const { return m_folder / name; }

    // `panelsim run` with these arguments, in the words of a shell that knows $raw, $tool and $guest.
    Result run(const std::string& arguments) const
    {
        const std::string script = "raw=" MORVANE_RAW_CLIENT " tool=" MORVANE_PANELCTL " guest=" MORVANE_GUEST_CAPTURE
                                   " picture=" MORVANE_DEMO_PICTURE "\ncd " +
                                   m_folder.getPath() + "\nexport tool picture\n" MORVANE_PANELSIM " run " + arguments +
                                   " > output 2> errors\n";
        writeFile(fileName("script"), script);
        const int status = std::system(("timeout 60 bash " + fileName("script")).c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, contentOf(fileName("output")),
                contentOf(fileName("errors"))};
    }

    // Records a capture: `panelsim run --record FILE` with these arguments.
    void record(const std::string& arguments) const
    {
        const Result recorded = run("--record session.pcap " + arguments);
        EXPECT_EQ(recorded.exitCode, 0) << recorded.errors;
    }

    void write(const CaptureScript& script) const
    {
        CaptureWriter writer(std::fopen(fileName("session.pcap").c_str(), "wb"));
        for (const CapturedUrb& urb : script.urbs)
            writer.write(urb);
    }

private:
    const TemporaryFolder m_folder;
};

// Records of type 5: A1, A2, A3.
constexpr char threeRecords[] = "0c00010000000000050100a1 0c00010000000000050100a2 0c00010000000000050100a3";

TEST_F(PanelsimReplay, sameProgram_sendsWhatIsExpected)
{
    record("-- $raw " + std::string(threeRecords));
    const Result same = run("--expect session.pcap -- $raw " + std::string(threeRecords));
    EXPECT_EQ(same.exitCode, 0) << same.errors;
    EXPECT_EQ(same.errors, "");
    EXPECT_EQ(run("--replay session.pcap --expect session.pcap -- $raw " + std::string(threeRecords)).exitCode, 0);
}

TEST_F(PanelsimReplay, programThatSendsSomethingElse_is121AndSaysWhere)
{
    record("-- $raw " + std::string(threeRecords));
    const std::string first = " 0c00010000000000050100a1";
    const std::string second = " 0c00010000000000050100a2";
    const std::string third = " 0c00010000000000050100a3";
    const auto expectDifference = [this](const std::string& sent, const std::string& told) {
        const Result result = run("--expect session.pcap -- $raw" + sent);
        EXPECT_EQ(result.exitCode, 121) << result.errors;
        EXPECT_THAT(result.errors, StartsWith("panelsim: difference: panel 0: record "));
        EXPECT_THAT(result.errors, HasSubstr(told));
    };
    expectDifference(first + " 0c00010000000000050100b2" + third,
                     ") is another\n  expected a2\n  got      b2\n  they differ from byte 0 on\n  it came at ");
    expectDifference(second + first + third, ") comes behind record 2");
    expectDifference(first + third, ") is missing: the one behind it comes, at ");
    expectDifference(first + second, ") does not come\n");
    const Result more = run("--expect session.pcap -- $raw" + first + second + third + first);
    EXPECT_EQ(more.exitCode, 121);
    EXPECT_THAT(more.errors,
                StartsWith("panelsim: difference: panel 0: 1 more than the capture has: type 5, 1 byte, "));
}

TEST_F(PanelsimReplay, orderOfTypesAndIgnoredTypes_areAsAskedFor)
{
    record("-- $raw 0c00010000000000050100a1 0c00010000000000060100a2");
    const std::string swapped = " -- $raw 0c00010000000000060100a2 0c00010000000000050100a1";
    EXPECT_EQ(run("--expect session.pcap" + swapped).exitCode, 0);
    EXPECT_EQ(run("--expect session.pcap --whole-order" + swapped).exitCode, 121);
    EXPECT_EQ(run("--expect session.pcap -- $raw 0c00010000000000050100a1").exitCode, 121);
    EXPECT_EQ(run("--expect session.pcap --ignore-type 6 -- $raw 0c00010000000000050100a1").exitCode, 0);
}

// A violation is one whatever was expected.
TEST_F(PanelsimReplay, violation_isToldFirst)
{
    record("-- $raw 0c00010000000000050100a1");
    const Result result = run("--expect session.pcap -- $raw 0c00010000000000050200a1");
    EXPECT_EQ(result.exitCode, 120);
    EXPECT_THAT(result.errors, HasSubstr("panelsim: difference: "));
}

TEST_F(PanelsimReplay, library_getsTheAnswersOfTheCapture)
{
    record("--max-packet 3000 --seed 77 --at 0 'fault out stall' -- $tool info");
    for (const std::string pace : {"", "--fast "}) {
        const Result played = run("--replay session.pcap " + pace + "--expect session.pcap --log log -- $tool info");
        EXPECT_EQ(played.exitCode, 0) << played.errors;
        EXPECT_EQ(played.errors, "[libusb] TX Transfer stalled uid=101\n"); // as the capture has it
        EXPECT_THAT(played.output, HasSubstr("packet limit  3000 bytes"));
    }
}

TEST_F(PanelsimReplay, upgrade_isPlayedToItsEnd)
{
    writeFile(fileName("main.bin"), std::string(12000, 'x'));
    record("--chunk-time 1 --at 0 'fault boot reply=F2 skip=1' -- $tool flash --main main.bin --yes");
    const Result same = run("--replay session.pcap --fast --expect session.pcap -- $tool flash --main main.bin --yes");
    EXPECT_EQ(same.exitCode, 0) << same.errors;
    std::string other(20000, 'x');
    other[9000] = 'y';
    writeFile(fileName("main.bin"), other);
    const Result different =
        run("--replay session.pcap --fast --expect session.pcap -- $tool flash --main main.bin --yes");
    EXPECT_EQ(different.exitCode, 121);
    EXPECT_THAT(different.errors, HasSubstr("(type 41 (FirmwareUpgradeRequest), 34 bytes, "));
    EXPECT_THAT(different.errors, HasSubstr("(type 44 (FirmwareData), 4109 bytes, "));
}

TEST_F(PanelsimReplay, panelThatLeavesAndComesBack_doesSoAgain)
{
    record("--at 500ms unplug --at 1s plug --at 2s 'emit type=20 hex=AABB' --at 2500ms unplug -- $tool watch "
           "--duration 4");
    for (const std::string pace : {"", "--fast "}) {
        const Result played = run("--replay session.pcap " + pace + "-- $tool watch --duration 3");
        EXPECT_EQ(played.exitCode, 0) << played.errors;
        EXPECT_THAT(played.errors, Not(HasSubstr("panelsim")));
        EXPECT_THAT(played.output, HasSubstr("packet   type 20      2 bytes  aa bb"));
        EXPECT_THAT(played.output, HasSubstr(", 2 arrivals, 2 departures")) << pace;
    }
}

TEST_F(PanelsimReplay, severalPanels_areEachPlayed)
{
    record("--panels 2 --at 300ms 'emit 0 type=20 hex=A0' --at 400ms 'emit 1 type=20 hex=B1' -- "
           "$tool watch --duration 1");
    const Result played = run("--replay session.pcap -- $tool watch --duration 2");
    EXPECT_EQ(played.exitCode, 0) << played.errors;
    EXPECT_THAT(played.output, HasSubstr("  0101  packet   type 20      1 byte   a0"));
    EXPECT_THAT(played.output, HasSubstr("  0102  packet   type 20      1 byte   b1"));
}

TEST_F(PanelsimReplay, panel_isFoundWithTheDescriptorsOfTheCapture)
{
    if (std::system("command -v lsusb >/dev/null") != 0)
        GTEST_SKIP() << "usbutils is not installed";
    write(CaptureScript().enumerate().read());
    const Result found = run("--replay session.pcap -- lsusb -v -d 1234:beef");
    EXPECT_EQ(found.exitCode, 0) << found.errors;
    EXPECT_EQ(found.errors, "");
    EXPECT_THAT(found.output, HasSubstr("iProduct                2 Real"));
    EXPECT_THAT(found.output, Not(HasSubstr("panelsim")));
}

// Taken by tests/system, of tools that knew nothing of it; the pause is that of the session.
constexpr char guestTools[] = R"(-- bash -c '
    $tool info
    $tool send --type 5 --hex "01 02 03" --repeat 3
    sleep 7.5
    $tool watch --count 2 --duration 60
    $tool draw $picture --lcd 1 --size 24x16')";

TEST_F(PanelsimReplay, captureOfARealKernel_isPlayed)
{
    const Result played = run("--replay $guest --expect $guest " + std::string(guestTools));
    EXPECT_EQ(played.exitCode, 0) << played.errors;
    EXPECT_EQ(played.errors, "");
    EXPECT_THAT(played.output, HasSubstr("packet   type 20      3 bytes  aa bb cc"));
    EXPECT_THAT(played.output, HasSubstr("has taken 16 rows of 24 pixels for LCD 1"));
}

TEST_F(PanelsimReplay, programThatIsNotThatOfTheKernelsCapture_isToldApart)
{
    const auto differences = [this](const std::string& hex, int repeat) {
        const Result result =
            run("--replay $guest --fast --expect $guest --ignore-type 38 -- $tool send --type 5 --hex '" + hex +
                "' --repeat " + std::to_string(repeat));
        EXPECT_EQ(result.exitCode, repeat == 3 && hex == "01 02 03" ? 0 : 121) << result.errors;
        return result.errors;
    };
    differences("01 02 03", 3);
    EXPECT_THAT(differences("01 02 04", 3),
                HasSubstr("difference: panel 0: record 3 (type 5, 3 bytes, at 16.620 s, frame 121) is another\n"
                          "  expected 01 02 03\n"
                          "  got      01 02 04\n"
                          "  they differ from byte 2 on\n"));
    EXPECT_THAT(differences("01 02 03", 2),
                HasSubstr("difference: panel 0: record 5 (type 5, 3 bytes, at 16.710 s, frame 125) does not come\n"));
    EXPECT_THAT(differences("01 02 03", 4), HasSubstr("difference: panel 0: 1 more than the capture has: type 5, "));
}

TEST_F(PanelsimReplay, uselessCaptures_are125AndSayWhy)
{
    const auto refusalOf = [this](const std::string& option) {
        const Result result = run(option + " session.pcap -- echo ran");
        EXPECT_EQ(result.exitCode, 125);
        EXPECT_EQ(result.output, "");
        return result.errors;
    };
    EXPECT_THAT(refusalOf("--replay"), StartsWith("panelsim: capture 'session.pcap': No such file"));
    writeFile(fileName("session.pcap"), std::string("not a capture at all, but long enough"));
    EXPECT_THAT(refusalOf("--replay"), StartsWith("panelsim: capture 'session.pcap': "));
    write({});
    EXPECT_THAT(refusalOf("--expect"), StartsWith("panelsim: capture 'session.pcap': no panel is in it: of 0 frames"));

    CaptureScript snapped;
    snapped.enumerate(makePanelDescriptors(0xDEAD, 0xBEEF)).send(5, {1, 2, 3}).read().answer({1, 2, 3});
    snapped.urbs[11].data.resize(2);
    write(snapped);
    EXPECT_THAT(refusalOf("--replay"), HasSubstr("frame 12: 2 of 3 bytes from the panel are in the capture; take it "
                                                 "with whole frames (tcpdump -s 0)"));
    EXPECT_EQ(run("--expect session.pcap -- $raw 0e00010000000000050300010203").exitCode, 0);
    snapped.urbs[8].data.resize(9);
    write(snapped);
    EXPECT_THAT(refusalOf("--expect"), HasSubstr("frame 9: 9 of 14 bytes to the panel are in the capture"));
}

TEST_F(PanelsimReplay, captureOfAHostThatSplits_namesTheOption)
{
    writeFile(fileName("payload"), std::string(20000, 'x'));
    record("--no-scatter-gather --max-packet 30000 -- $tool send --type 5 --file payload");
    const std::string told = "panelsim: capture 'session.pcap': a packet is split over transfers; replay it with "
                             "--no-scatter-gather\n";
    EXPECT_THAT(run("--replay session.pcap -- true").errors, HasSubstr(told));
    EXPECT_THAT(run("--replay session.pcap --no-scatter-gather -- true").errors, Not(HasSubstr(told)));
    EXPECT_THAT(run("--expect session.pcap -- true").errors, Not(HasSubstr(told)));
}

TEST_F(PanelsimReplay, requestsThatNobodyAnswersAnyMore_areTold)
{
    record("-- $tool info");
    const Result result = run("--replay session.pcap --fast -- bash -c '$tool info; timeout 3 $tool info'");
    EXPECT_THAT(result.errors, HasSubstr("panelsim: panel 0: replay: the only answer had been given by "));
    EXPECT_THAT(result.errors, HasSubstr(" of type 1 (ReqDeviceInfo) after that\n"));
}

TEST_F(PanelsimReplay, captureThatIsCutOff_isPlayedAsFarAsItGoes)
{
    write(CaptureScript().send(5, {0xA1}).send(5, {0xA2}));
    std::string bytes = contentOf(fileName("session.pcap"));
    bytes.resize(bytes.size() - 5); // the end of the last frame
    writeFile(fileName("session.pcap"), bytes);
    const Result result = run("--expect session.pcap -- $raw 0c00010000000000050100a1 0c00010000000000050100a2");
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_THAT(result.errors,
                HasSubstr("capture 'session.pcap': what is before the defect is used: behind frame 3: "));
    EXPECT_THAT(result.errors, HasSubstr("capture 'session.pcap': panel 0: it ends while the panel is in use; what "
                                         "comes behind is not compared"));
}

TEST_F(PanelsimReplay, whatWasNotPlayed_isTold)
{
    write(CaptureScript().enumerate(makePanelDescriptors(0xDEAD, 0xBEEF)).send(5, {0xA1}).read().answer({1, 2, 3}));
    const Result result = run("--replay session.pcap -- $raw 0c00010000000000050100a1");
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.errors,
              "panelsim: panel 0: replay: it went no further than frame 12: of 1 answer, none was given\n");
}

} // namespace Vantor

#include "simulator/replay/SessionReader.h"
#include "tests/support/CaptureScript.h"

#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

using Step = RecordedSession::Step;

RecordedSession readSession(const CaptureScript& script, const std::string& cut = "")
{
    SessionReader reader;
    for (const CapturedUrb& urb : script.urbs)
        reader.add(urb);
    return reader.finish(cut);
}

const RecordedSession::Life& onlyLife(const RecordedSession& session)
{
    EXPECT_THAT(session.panels, SizeIs(1));
    EXPECT_THAT(session.panels.at(0).lives, SizeIs(1));
    return session.panels.at(0).lives.at(0);
}

PanelFault faultOf(const Step& step)
{
    return std::get<PanelFault>(step.deed);
}

PanelScript::Answer answerOf(const Step& step)
{
    return std::get<PanelScript::Answer>(step.deed);
}

std::string refusal(const CaptureScript& script)
{
    try {
        readSession(script);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "";
}

const Bytes limitOf4096 = [] {
    Bytes info(83, 0);
    info[80] = 0x00;
    info[81] = 0x10;
    return info;
}();

TEST(SessionReader, enumeratedPanel_looksAsItDidThere)
{
    const RecordedSession session = readSession(CaptureScript().enumerate().read());
    const RecordedSession::Life& life = onlyLife(session);
    EXPECT_EQ(life.descriptors, makePanelDescriptors(0x1234, 0xBEEF));
    EXPECT_THAT(life.strings, ElementsAre(std::pair(std::uint8_t{2}, Bytes{10, 3, 'R', 0, 'e', 0, 'a', 0, 'l', 0})));
    EXPECT_THAT(session.notes, IsEmpty());
}

TEST(SessionReader, captureBegunLater_isPlayedWithTheModelsDescriptors)
{
    const RecordedSession session = readSession(CaptureScript().send(5, {1}));
    EXPECT_THAT(onlyLife(session).descriptors, IsEmpty());
    EXPECT_THAT(session.notes, ElementsAre("panel 0 (bus 1, device 5): it is not found by the host within the capture: "
                                           "its descriptors are those of a simulated panel"));
}

TEST(SessionReader, deviceDescriptorAlone_givesTheIds)
{
    const Bytes whole = makePanelDescriptors(0x1234, 0xBEEF);
    const RecordedSession session =
        readSession(CaptureScript().descriptor(1, 0, Bytes(whole.begin(), whole.begin() + 18)).send(5, {1}));
    EXPECT_EQ(onlyLife(session).descriptors, whole);
    EXPECT_THAT(session.notes, ElementsAre("panel 0 (bus 1, device 5): its configuration is not in the capture: it is "
                                           "that of a simulated panel"));
}

TEST(SessionReader, descriptorsThatContradictThemselves_areNotUsed)
{
    Bytes broken = makePanelDescriptors(0x1234, 0xBEEF);
    broken[18] = 200; // the configuration's own size
    EXPECT_EQ(onlyLife(readSession(CaptureScript().enumerate(broken).read())).descriptors,
              makePanelDescriptors(0x1234, 0xBEEF));
}

TEST(SessionReader, otherDevices_areNoPanels)
{
    EXPECT_EQ(refusal(CaptureScript()), "no panel is in it: of 0 frames of 0 devices, none is of a device with product "
                                        "id beef, nor is any a panel's packet");
    // A stick's command block, on a panel's endpoint.
    Bytes command(31, 0);
    command[0] = 'U';
    command[1] = 'S';
    EXPECT_THAT(refusal(CaptureScript().write(command).done()), HasSubstr("of 2 frames of 1 devices"));
    // A packet, but to a device that says that it is something else.
    EXPECT_THAT(refusal(CaptureScript().enumerate(makePanelDescriptors(0xDEAD, 0x1111)).send(5, {1})),
                HasSubstr("no panel is in it"));
    const RecordedSession session =
        readSession(CaptureScript().device(3).write(command).done().device(4).send(5, {1}).device(0).send(6, {2}));
    EXPECT_THAT(onlyLife(session).records, SizeIs(1));
}

TEST(SessionReader, time_isCountedFromTheFirstTransfer)
{
    const RecordedSession session =
        readSession(CaptureScript().enumerate().at(3s).read().at(3500ms).answer({1}).at(4s).send(5, {1}));
    const RecordedSession::Life& life = onlyLife(session);
    EXPECT_EQ(life.begin, -3s);
    EXPECT_EQ(life.steps.at(0).time, 500ms);
    EXPECT_EQ(life.records.at(0).time, 1s);
    EXPECT_EQ(life.records.at(0).frame, 11U); // 8 of the enumeration, 2 of the read
    EXPECT_EQ(life.records.at(0).frameTime, 4s);
}

TEST(SessionReader, clockThatIsSetBack_standsStill)
{
    const RecordedSession session =
        readSession(CaptureScript().enumerate().at(3s).read().at(4s).answer({1}).at(1s).read().at(2s).answer({2}));
    EXPECT_EQ(onlyLife(session).steps.at(1).time, 1s);
}

TEST(SessionReader, answers_areWhatTheReadsCompleteWith)
{
    const RecordedSession session = readSession(CaptureScript()
                                                    .send(5, {1})
                                                    .read()
                                                    .answer({0xAA, 0xBB})
                                                    .send(5, {2})
                                                    .read()
                                                    .answer({}, -EPIPE)
                                                    .read()
                                                    .answer({0xCC}, -EPROTO)
                                                    .read()
                                                    .answer({0xDD}, -EREMOTEIO));
    const auto& steps = onlyLife(session).steps;
    ASSERT_THAT(steps, SizeIs(4));
    EXPECT_EQ(answerOf(steps[0]).data, (Bytes{0xAA, 0xBB}));
    EXPECT_EQ(answerOf(steps[0]).status, 0);
    EXPECT_EQ(steps[0].records, 1U);
    EXPECT_EQ(answerOf(steps[1]).status, -EPIPE);
    EXPECT_EQ(steps[1].records, 2U);
    EXPECT_EQ(answerOf(steps[2]).status, -EPROTO);
    EXPECT_EQ(answerOf(steps[2]).data, Bytes{0xCC});
    EXPECT_EQ(answerOf(steps[3]).status, 0); // a short read, which the host wanted whole
}

TEST(SessionReader, readsThatTheHostTakesBack_areNoAnswers)
{
    const RecordedSession session =
        readSession(CaptureScript().send(5, {1}).read().answer({}, -ENOENT).read().answer({}, -ECONNRESET));
    EXPECT_THAT(onlyLife(session).steps, IsEmpty());
}

TEST(SessionReader, recordsOfAPacket_areTakenApart)
{
    const Bytes packet{16, 0, 2, 0, 0, 0, 0, 0, 5, 1, 0, 0xA1, 7, 1, 0, 0xB2};
    const auto session = readSession(CaptureScript().write(packet).done());
    const auto& records = onlyLife(session).records;
    ASSERT_THAT(records, SizeIs(2));
    EXPECT_EQ(static_cast<int>(records[1].type), 7);
    EXPECT_EQ(records[1].payload, Bytes{0xB2});
    EXPECT_EQ(records[1].frame, 1U);
}

// As hosts split them that can't scatter and gather: 16384 bytes, then the rest.
TEST(SessionReader, transferInPieces_isPutTogether)
{
    const Bytes packet = CaptureScript::packet(5, Bytes(20000, 0x77));
    const Bytes first(packet.begin(), packet.begin() + 16384);
    const Bytes second(packet.begin() + 16384, packet.end());
    const RecordedSession session = readSession(CaptureScript().write(first).done().write(second).done().send(6, {1}));
    const auto& records = onlyLife(session).records;
    ASSERT_THAT(records, SizeIs(2));
    EXPECT_EQ(records[0].payload.size(), 20000U);
    EXPECT_THAT(session.notes, SizeIs(1)); // of the descriptors
}

TEST(SessionReader, packetInPieces_isKnownAsOne)
{
    const Bytes packet = CaptureScript::packet(5, Bytes(20000, 0x77));
    const Bytes first(packet.begin(), packet.begin() + 16384);
    EXPECT_TRUE(readSession(CaptureScript().write(first).done().write({1}).done().send(6, {1})).isSplit);
    EXPECT_TRUE(readSession(CaptureScript().send(6, {1}).read().answer(first)).isSplit);
    // The second of two packets: 16373 bytes of payload fill the first to the piece but one header's worth.
    const Bytes small = CaptureScript::packet(5, Bytes(16384 - 11 - 11, 0x77), 9);
    const auto with = [&small](std::uint16_t length) {
        Bytes both = small;
        const Bytes last{
            static_cast<std::uint8_t>(length), static_cast<std::uint8_t>(length >> 8), 1, 0, 9, 0, 0, 0, 5, 0, 0};
        both.insert(both.end(), last.begin(), last.end());
        return readSession(CaptureScript().send(6, {1}).read().answer(both)).isSplit;
    };
    EXPECT_TRUE(with(12));
    EXPECT_FALSE(with(11));
    EXPECT_FALSE(readSession(CaptureScript().write(packet).done().send(6, {1}).read().answer(packet)).isSplit);
}

TEST(SessionReader, pieceThatFails_isTheEndOfItsTransfer)
{
    const Bytes packet = CaptureScript::packet(5, Bytes(20000, 0x77));
    const Bytes first(packet.begin(), packet.begin() + 16384);
    const RecordedSession session = readSession(CaptureScript().write(first).done(-EPIPE).send(6, {1}));
    const RecordedSession::Life& life = onlyLife(session);
    ASSERT_THAT(life.steps, SizeIs(1));
    EXPECT_EQ(faultOf(life.steps[0]).kind, PanelFault::Kind::Stall);
    ASSERT_THAT(life.records, SizeIs(1));
    EXPECT_EQ(static_cast<int>(life.records[0].type), 6);
}

TEST(SessionReader, transfersThatFail_areFaults)
{
    const Bytes packet = CaptureScript::packet(5, {1, 2});
    const RecordedSession session = readSession(CaptureScript()
                                                    .send(5, {0})
                                                    .write(packet)
                                                    .done(-EPIPE)
                                                    .write(packet)
                                                    .done(-EPROTO)
                                                    .write(packet)
                                                    .done(-ENOENT)
                                                    .write(packet)
                                                    .done(0, 4));
    const RecordedSession::Life& life = onlyLife(session);
    EXPECT_THAT(life.records, SizeIs(1));
    ASSERT_THAT(life.steps, SizeIs(4));
    for (const Step& step : life.steps) {
        EXPECT_EQ(step.records, 1U);
        EXPECT_EQ(faultOf(step).direction, PanelFault::Direction::Out);
        EXPECT_FALSE(faultOf(step).sticky);
    }
    EXPECT_EQ(faultOf(life.steps[0]).kind, PanelFault::Kind::Stall);
    EXPECT_EQ(faultOf(life.steps[1]).kind, PanelFault::Kind::Status);
    EXPECT_EQ(faultOf(life.steps[1]).status, -EPROTO);
    EXPECT_EQ(faultOf(life.steps[2]).kind, PanelFault::Kind::NoAnswer);
    EXPECT_EQ(faultOf(life.steps[3]).kind, PanelFault::Kind::Short);
    EXPECT_EQ(faultOf(life.steps[3]).bytes, 4U);
}

TEST(SessionReader, slowTransfer_isADelayInFrontOfItsRecords)
{
    const Bytes packet = CaptureScript::packet(5, {1});
    const auto session = readSession(CaptureScript().write(packet).at(49ms).done().write(packet).at(99ms).done());
    const RecordedSession::Life& life = onlyLife(session);
    ASSERT_THAT(life.steps, SizeIs(1));
    EXPECT_EQ(faultOf(life.steps[0]).kind, PanelFault::Kind::Delay);
    EXPECT_EQ(faultOf(life.steps[0]).delay, 50ms);
    EXPECT_EQ(life.steps[0].records, 1U);
}

TEST(SessionReader, panelThatComesBack_isTheSame)
{
    const RecordedSession session = readSession(CaptureScript()
                                                    .enumerate()
                                                    .read()
                                                    .at(1s)
                                                    .answer({}, -ESHUTDOWN)
                                                    .done(-ESHUTDOWN) // and nothing further of it counts
                                                    .answer({1})
                                                    .at(2s)
                                                    .device(6)
                                                    .enumerate()
                                                    .read()
                                                    .answer({2}));
    ASSERT_THAT(session.panels, SizeIs(1));
    ASSERT_THAT(session.panels[0].lives, SizeIs(2));
    const RecordedSession::Life& first = session.panels[0].lives[0];
    EXPECT_TRUE(first.isLeft);
    ASSERT_THAT(first.steps, SizeIs(1));
    EXPECT_TRUE(std::holds_alternative<PanelScript::Leave>(first.steps[0].deed));
    EXPECT_TRUE(first.steps[0].meetsRead);
    EXPECT_EQ(session.panels[0].lives[1].begin, 2s);
    EXPECT_FALSE(session.panels[0].lives[1].isLeft);
}

TEST(SessionReader, deviceNumberThatIsUsedAgain_isAnotherLife)
{
    const RecordedSession session =
        readSession(CaptureScript().enumerate().read().answer({}, -ESHUTDOWN).enumerate().read().answer({2}));
    ASSERT_THAT(session.panels, SizeIs(1));
    EXPECT_THAT(session.panels[0].lives, SizeIs(2));
}

TEST(SessionReader, severalPanels_areNumberedAsTheyAppear)
{
    const RecordedSession session = readSession(CaptureScript()
                                                    .device(9)
                                                    .send(5, {1})
                                                    .device(4)
                                                    .at(1s)
                                                    .send(6, {1})
                                                    .device(9)
                                                    .read()
                                                    .answer({}, -ESHUTDOWN)
                                                    .device(10)
                                                    .at(2s)
                                                    .enumerate()
                                                    .send(7, {1}));
    ASSERT_THAT(session.panels, SizeIs(2));
    ASSERT_THAT(session.panels[0].lives, SizeIs(2));
    EXPECT_EQ(static_cast<int>(session.panels[0].lives[1].records.at(0).type), 7);
    EXPECT_EQ(static_cast<int>(session.panels[1].lives.at(0).records.at(0).type), 6);
}

TEST(SessionReader, panelsThatHaveLeft_comeBackInThatOrder)
{
    CaptureScript script;
    for (const int device : {2, 3})
        script.device(static_cast<std::uint8_t>(device)).enumerate();
    for (const int device : {3, 2}) // 3 leaves first
        script.device(static_cast<std::uint8_t>(device)).read().answer({}, -ESHUTDOWN);
    for (const int device : {4, 5})
        script.device(static_cast<std::uint8_t>(device)).enumerate().send(static_cast<std::uint8_t>(device), {});
    const RecordedSession session = readSession(script);
    ASSERT_THAT(session.panels, SizeIs(2));
    EXPECT_EQ(static_cast<int>(session.panels[1].lives.at(1).records.at(0).type), 4);
    EXPECT_EQ(static_cast<int>(session.panels[0].lives.at(1).records.at(0).type), 5);
}

TEST(SessionReader, morePanelsThanABusHas_areRefused)
{
    CaptureScript script;
    for (std::uint8_t device = 1; device <= 32; ++device)
        script.device(device).send(5, {1});
    EXPECT_EQ(refusal(script), "32 panels are in it, a bus has 31");
}

TEST(SessionReader, largestAnnouncement_isTheLimit)
{
    const Bytes announcement = CaptureScript::packet(0, limitOf4096, 9);
    EXPECT_EQ(readSession(CaptureScript().read().answer(announcement)).announcedLimit, 4096);
    EXPECT_EQ(readSession(CaptureScript().send(5, {1})).announcedLimit, std::nullopt);
}

TEST(SessionReader, missingBytes_areToldBySide)
{
    CaptureScript script;
    script.send(5, {1}).write(CaptureScript::packet(5, {1, 2, 3})).done();
    script.urbs[2].data.resize(10);
    EXPECT_EQ(readSession(script).missingFromHost,
              "panel 0 (bus 1, device 5): frame 3: 10 of 14 bytes to the panel are in the capture");
    EXPECT_EQ(readSession(script).missingFromPanels, "");
    EXPECT_THAT(onlyLife(readSession(script)).records, SizeIs(1));

    CaptureScript read;
    read.send(5, {1}).read().answer({1, 2, 3});
    read.urbs[3].data.clear();
    EXPECT_EQ(readSession(read).missingFromPanels,
              "panel 0 (bus 1, device 5): frame 4: 0 of 3 bytes from the panel are in the capture");
    EXPECT_EQ(readSession(read).missingFromHost, "");
}

TEST(SessionReader, captureBegunWithinATransfer_saysSo)
{
    const RecordedSession session = readSession(CaptureScript().done().send(5, {1}));
    EXPECT_THAT(onlyLife(session).records, SizeIs(1));
    EXPECT_THAT(session.notes,
                testing::Contains("panel 0 (bus 1, device 5): frame 1: the end of a transfer to the panel; what was "
                                  "sent in it is not in the capture"));
}

TEST(SessionReader, transferSubmittedTwice_saysSo)
{
    CaptureScript script;
    script.send(5, {1}).write(CaptureScript::packet(5, {2})).write(CaptureScript::packet(5, {3})).done();
    script.urbs[3].id = script.urbs[4].id = script.urbs[2].id;
    const RecordedSession session = readSession(script);
    EXPECT_THAT(session.notes,
                testing::Contains("panel 0 (bus 1, device 5): frame 4: a transfer is submitted that is under way; its "
                                  "end is not in the capture"));
    ASSERT_THAT(onlyLife(session).records, SizeIs(2));
    EXPECT_EQ(onlyLife(session).records[1].payload, Bytes{3});
}

TEST(SessionReader, malformedPacket_givesWhatIsInFrontOfTheDefect)
{
    Bytes packet = CaptureScript::packet(5, {1});
    packet[2] = 2; // records that it counts
    const RecordedSession session = readSession(CaptureScript().send(6, {1}).write(packet).done());
    EXPECT_THAT(onlyLife(session).records, SizeIs(2));
    EXPECT_THAT(session.notes, testing::Contains("panel 0 (bus 1, device 5): frame 3: what the host sent is malformed: "
                                                 "byte 0: packet counts 2 records, it holds 1"));
}

TEST(SessionReader, notes_areNoMoreThanTenOfAPanel)
{
    CaptureScript script;
    script.send(5, {1});
    for (int i = 0; i < 20; ++i)
        script.write({1}).done();
    EXPECT_THAT(readSession(script).notes, SizeIs(1 + 10 + 1));
}

TEST(SessionReader, end_isOpenWhileTheHostReadsOrWrites)
{
    EXPECT_TRUE(readSession(CaptureScript().send(5, {1}).read()).panels.at(0).isOpen);
    EXPECT_TRUE(readSession(CaptureScript().send(5, {1}).write({1})).panels.at(0).isOpen);
    EXPECT_FALSE(readSession(CaptureScript().send(5, {1}).read().answer({}, -ENOENT)).panels.at(0).isOpen);
    EXPECT_FALSE(readSession(CaptureScript().send(5, {1}).read().answer({}, -ESHUTDOWN)).panels.at(0).isOpen);
}

TEST(SessionReader, captureThatIsCutOff_isUsedAndOpen)
{
    const RecordedSession session = readSession(CaptureScript().send(5, {1}), "behind frame 2: truncated");
    EXPECT_TRUE(session.panels.at(0).isOpen);
    EXPECT_THAT(session.notes, testing::Contains("what is before the defect is used: behind frame 2: truncated"));
}

TEST(SessionReader, captureCutToNothing_namesTheFirstCutFrame)
{
    CaptureScript script;
    script.read().send(5, {1});
    script.urbs[1].flaw = CapturedUrb::Flaw::Snapped;
    script.urbs[1].data.clear();
    script.urbs[1].frameSize = 64;
    script.urbs[2].flaw = CapturedUrb::Flaw::NoHeader;
    script.urbs[2].frameSize = 40;
    EXPECT_EQ(refusal(script), "frame 2 is cut at 64 bytes, and no panel is found in what there is; take it with whole "
                               "frames (tcpdump -s 0)");
    script.urbs[1].flaw = CapturedUrb::Flaw::None;
    EXPECT_THAT(refusal(script), HasSubstr("frame 3 is cut at 40 bytes, "));
}

TEST(SessionReader, framesWithoutAHeader_areCountedAndSkipped)
{
    CaptureScript script;
    script.send(5, {1}).send(5, {2});
    script.urbs[0].flaw = CapturedUrb::Flaw::NoHeader;
    const RecordedSession session = readSession(script);
    EXPECT_THAT(onlyLife(session).records, SizeIs(1));
    EXPECT_THAT(session.notes, testing::Contains("1 frame is shorter than its header"));
}

TEST(SessionReader, fileThatIsNone_saysWhy)
{
    EXPECT_THROW(SessionReader::readFile("/nowhere/at/all"), std::runtime_error);
}

} // namespace Vantor

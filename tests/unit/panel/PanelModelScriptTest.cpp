// A panel that does what it is told instead of what panels do.
#include "tests/unit/panel/PanelModelFixture.h"

#include <cerrno>
#include <memory>

namespace Vantor {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

// Its deeds are due when they are put in.
class ListedScript : public PanelScript {
public:
    void onTransfer(std::chrono::nanoseconds /*now*/) override { ++transfers; }
    void onRecord(PacketType type, std::chrono::nanoseconds /*now*/) override
    {
        records.push_back(static_cast<int>(type));
        if (behindRecord)
            deeds.push_back(*behindRecord);
    }

    std::optional<Deed> takeDue(std::chrono::nanoseconds /*now*/, bool isBeingRead) override
    {
        if (deeds.empty() || (std::holds_alternative<Answer>(deeds.front()) && !isBeingRead))
            return std::nullopt;
        const Deed deed = deeds.front();
        deeds.pop_front();
        return deed;
    }

    std::optional<std::chrono::nanoseconds> getNextTime(bool /*isBeingRead*/) const override { return nextTime; }

    std::deque<Deed> deeds;
    std::optional<Deed> behindRecord;
    std::optional<std::chrono::nanoseconds> nextTime;
    int transfers = 0;
    std::vector<int> records;
};

class PanelModelScript : public testing::Test {
protected:
    static Bytes packet(std::uint8_t type, const Bytes& payload)
    {
        const auto size = static_cast<std::uint8_t>(payload.size());
        return joined({{static_cast<std::uint8_t>(11 + size), 0, 1, 0, 0, 0, 0, 0, type, size, 0}, payload});
    }

    PanelModel::Options options() const
    {
        PanelModel::Options result;
        result.script = script;
        return result;
    }

    static PanelFault stall(PanelFault::Direction direction)
    {
        PanelFault fault;
        fault.direction = direction;
        return fault;
    }

    const std::shared_ptr<ListedScript> script = std::make_shared<ListedScript>();
    PanelModel model{options(), [] { return 1s; }};
};

TEST_F(PanelModelScript, requestsAndFirmware_areNotAnswered)
{
    model.submitIn(this, 1, 512);
    model.submitOut(this, 2, packet(1, {1, 0, 0, 0}), true);
    model.submitOut(this, 3, packet(41, Bytes(34, 0)), true);
    EXPECT_THAT(model.takeCompletions(),
                ElementsAre(PanelModel::Completion{2, 0, 15, {}}, PanelModel::Completion{3, 0, 45, {}}));
    EXPECT_THAT(script->records, ElementsAre(1, 41));
    EXPECT_EQ(script->transfers, 3);
    EXPECT_EQ(model.getBootLoader().getStatistics().records, 0U);
}

TEST_F(PanelModelScript, answers_areGivenOneARead)
{
    script->deeds = {PanelScript::Answer{0, {1}}, PanelScript::Answer{-EPROTO, {2}}, PanelScript::Answer{0, {}}};
    for (PanelModel::UrbId urb = 1; urb <= 4; ++urb)
        model.submitIn(this, urb, 512);
    EXPECT_THAT(model.takeCompletions(),
                ElementsAre(PanelModel::Completion{1, 0, 1, {1}}, PanelModel::Completion{2, -EPROTO, 1, {2}},
                            PanelModel::Completion{3, 0, 0, {}}));
    EXPECT_EQ(model.getStatistics().bytesSent, 2U);
}

TEST_F(PanelModelScript, answerBehindARecord_isGivenAtOnce)
{
    script->behindRecord = PanelScript::Answer{0, {7}};
    model.submitIn(this, 1, 512);
    model.submitOut(this, 2, packet(5, {1}), true);
    EXPECT_THAT(model.takeCompletions(),
                ElementsAre(PanelModel::Completion{2, 0, 12, {}}, PanelModel::Completion{1, 0, 1, {7}}));
}

TEST_F(PanelModelScript, statusWithMoreThanTheReadHolds_isCut)
{
    script->deeds = {PanelScript::Answer{-EOVERFLOW, Bytes(600, 3)}};
    model.submitIn(this, 1, 512);
    EXPECT_THAT(model.takeCompletions(), ElementsAre(PanelModel::Completion{1, -EOVERFLOW, 512, Bytes(512, 3)}));
}

TEST_F(PanelModelScript, faultBehindARecord_meetsTheNextTransfer)
{
    script->behindRecord = stall(PanelFault::Direction::Out);
    model.submitOut(this, 1, packet(5, {1}), true);
    script->behindRecord.reset();
    model.submitOut(this, 2, packet(5, {2}), true);
    model.submitOut(this, 3, packet(5, {2}), true);
    EXPECT_THAT(model.takeCompletions(),
                ElementsAre(PanelModel::Completion{1, 0, 12, {}}, PanelModel::Completion{2, -EPIPE, 0, {}},
                            PanelModel::Completion{3, 0, 12, {}}));
}

TEST_F(PanelModelScript, faultByCommand_meetsAnAnswer)
{
    PanelFault cut = stall(PanelFault::Direction::In);
    cut.kind = PanelFault::Kind::Short;
    cut.bytes = 2;
    model.inject(cut);
    script->deeds = {PanelScript::Answer{0, {1, 2, 3}}, PanelScript::Answer{0, {4}}};
    model.submitIn(this, 1, 512);
    model.submitIn(this, 2, 512);
    EXPECT_THAT(model.takeCompletions(),
                ElementsAre(PanelModel::Completion{1, 0, 2, {1, 2}}, PanelModel::Completion{2, 0, 1, {4}}));
}

TEST_F(PanelModelScript, emissionByCommand_goesFirst)
{
    model.emitRaw({9});
    script->deeds = {PanelScript::Answer{0, {1}}};
    model.submitIn(this, 1, 512);
    model.submitIn(this, 2, 512);
    EXPECT_THAT(model.takeCompletions(),
                ElementsAre(PanelModel::Completion{1, 0, 1, {9}}, PanelModel::Completion{2, 0, 1, {1}}));
}

TEST_F(PanelModelScript, departure_isAnUnplug)
{
    script->behindRecord = PanelScript::Leave{};
    script->nextTime = 3s;
    EXPECT_EQ(model.nextDeadline(), 3s);
    model.submitIn(this, 1, 512);
    model.submitOut(this, 2, packet(5, {1}), true);
    EXPECT_THAT(model.takeCompletions(),
                ElementsAre(PanelModel::Completion{2, 0, 12, {}}, PanelModel::Completion{1, -ESHUTDOWN, 0, {}}));
    EXPECT_TRUE(model.isUnplugged());
    EXPECT_EQ(model.nextDeadline(), std::nullopt);
    script->deeds = {stall(PanelFault::Direction::Out)};
    EXPECT_THAT(model.takeCompletions(), IsEmpty());
    EXPECT_EQ(script->deeds.size(), 1U);
}

TEST_F(PanelModelScript, descriptorsOfAnotherPanel_areItsOwn)
{
    PanelModel::Options other;
    other.descriptors = {1, 2, 3};
    other.strings[7] = {4, 3, 'x', 0};
    const PanelModel another(other, [] { return 1s; });
    EXPECT_EQ(another.getDescriptors(), (Bytes{1, 2, 3}));
    EXPECT_EQ(another.getString(7), (Bytes{4, 3, 'x', 0}));
    EXPECT_THAT(another.getString(1), IsEmpty());
}

} // namespace
} // namespace Vantor

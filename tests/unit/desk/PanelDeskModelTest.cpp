#include "panel2mqtt/desk/PanelDesk.h"
#include "tests/unit/desk/FakeLine.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include <gtest/gtest.h>

namespace Vantor {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

// Commands, wishes, repetitions, cut packets and departures in an order from a seed, beside what
// was promised of them.
class PanelDeskRun {
public:
    explicit PanelDeskRun(unsigned int seed) : m_random(seed) { arrive(); }

    void step()
    {
        switch (random(16)) {
        case 0:
            wish();
            break;
        case 1:
            repeat();
            break;
        case 2:
            m_line->cut();
            m_desk.poll(m_now);
            break;
        case 3:
            m_now += milliseconds(random(9000));
            m_desk.poll(m_now);
            break;
        case 4:
            if (random(8) == 0)
                depart();
            break;
        case 5:
        case 6:
        case 7:
        case 8:
            m_line->take();
            if (random(3) != 0)
                m_desk.poll(m_now);
            break;
        case 9:
            draw();
            break;
        default:
            send();
        }
        ASSERT_LE(m_desk.getWaitingRecords(), PanelDesk::mostRecords);
    }

    void finish()
    {
        m_now += seconds(100);
        m_desk.poll(m_now);
        for (int i = 0; i < 10000 && m_line->getProgress().isUnderWay; ++i) {
            m_line->take();
            m_desk.poll(m_now);
        }
        remember();
        check();
    }

private:
    struct Command {
        Message message;
        Order order;
        std::vector<std::string> answers;
    };

    unsigned int random(unsigned int below) { return static_cast<unsigned int>(m_random() % below); }

    void arrive()
    {
        m_line = std::make_shared<FakeLine>(1024);
        m_line->setSlices(1 + random(5));
        m_desk.arrive(m_line, m_now);
        m_desk.refreshWishes(m_now);
    }
    void depart()
    {
        m_desk.leave(m_now);
        remember();
        arrive();
    }
    // What the line has taken until it is replaced.
    void remember()
    {
        for (const FakeLine::Record& record : m_line->getRecords())
            m_taken.push_back(record);
        for (const FakeLine::Picture& picture : m_line->getPictures()) {
            for (const ClientLcdBitmap& layer : picture.layers)
                ++m_drawn[layer.buffer.at(0) + std::size_t{256} * layer.buffer.at(1)];
        }
    }
    void add(const std::string& rest, Message message, std::size_t number)
    {
        message.topic = "panel/1/shop/1-4/" + rest;
        message.responseTopic = std::to_string(number);
        message.userProperties.emplace_back("id", std::to_string(number));
        if (random(4) == 0)
            message.expirySeconds = random(20);
        const Order order = std::get<Order>(Order::parse(message.topic, "shop"));
        m_commands.push_back({message, order, {}});
        m_desk.add(order, message, m_now);
    }
    void send()
    {
        const std::size_t number = m_commands.size();
        Message message;
        message.payload = std::to_string(number) + "." + std::string(random(6) == 0 ? random(900) : random(9), '.');
        std::string rest = "do/send/" + std::to_string(3 + random(3));
        if (random(2) == 0)
            rest = "do/set/" + std::to_string(3 + random(3)) + "/" + std::to_string(random(4));
        for (unsigned int times = random(40) == 0 ? 300 : 1; times > 1; --times)
            add(rest, numbered(), m_commands.size());
        if (m_commands.size() == number)
            add(rest, message, number);
    }
    Message numbered() const
    {
        Message message;
        message.payload = std::to_string(m_commands.size()) + ".";
        return message;
    }
    void draw()
    {
        const std::size_t number = m_commands.size();
        Message message;
        message.payload = {static_cast<char>(number & 255), static_cast<char>(number >> 8)};
        message.userProperties = {{"format", "bits"}, {"width", "8"}, {"height", "2"}};
        if (random(3) == 0)
            message.userProperties.emplace_back("lock", "hold");
        add("do/draw/" + std::to_string(random(3)), message, number);
    }
    void repeat()
    {
        if (m_commands.empty())
            return;
        Command& command = m_commands[m_commands.size() - 1 -
                                      random(std::min<unsigned>(20, static_cast<unsigned>(m_commands.size())))];
        const std::size_t before = command.answers.size();
        if (before == 0) {
            m_desk.add(command.order, command.message, m_now); // it waits: no second answer
            return;
        }
        if (!isFinal(command.answers.back()))
            return;
        m_desk.add(command.order, command.message, m_now);
        ASSERT_EQ(command.answers.size(), before + 1);
        ASSERT_EQ(command.answers[before], command.answers[before - 1]);
        command.answers.pop_back();
    }
    // Something of it may be in the panel, or is behind it.
    static bool isFinal(const std::string& answer)
    {
        return answer.rfind("taken", 0) == 0 || answer.rfind("unknown", 0) == 0 ||
               answer.find("took its place") != std::string::npos || answer.find("on its way") != std::string::npos ||
               answer.find("whole") != std::string::npos;
    }
    void wish()
    {
        const Order order = std::get<Order>(Order::parse(
            "panel/1/shop/1-4/want/" + std::to_string(3 + random(3)) + "/" + std::to_string(random(4)), "shop"));
        Message message;
        message.payload = random(4) == 0 ? "" : "wish";
        message.responseTopic = "wish";
        m_wishes.put(order, message);
        m_desk.refreshWish(order.getSubject(), m_now);
    }
    void reply(const Message& command, const Answer& answer)
    {
        if (command.responseTopic == "wish")
            return;
        const char* const words[] = {"taken", "busy", "too-large", "offline", "expired", "refused", "unknown"};
        m_commands.at(std::stoul(command.responseTopic))
            .answers.push_back(std::string(words[static_cast<int>(answer.word)]) + ": " + answer.reason);
    }

    void check()
    {
        std::map<std::size_t, int> times;
        std::map<std::uint8_t, std::size_t> last; // by type
        for (const FakeLine::Record& record : m_taken) {
            if (record.payload == "wish")
                continue;
            const std::size_t number = std::stoul(record.payload);
            ++times[number];
            const auto [known, isFirst] = last.emplace(record.type, number);
            EXPECT_TRUE(isFirst || known->second < number) << "order of type " << int{record.type};
            known->second = number;
        }
        for (std::size_t i = 0; i < m_commands.size(); ++i) {
            const Command& command = m_commands[i];
            ASSERT_EQ(command.answers.size(), 1u) << i;
            const bool isTaken = command.answers[0].rfind("taken", 0) == 0;
            const bool mayBe = isTaken || isFinal(command.answers[0]);
            const bool isPicture = command.order.verb == Order::Verb::Draw;
            const int seen = isPicture ? m_drawn[i & 0xFFFF] : times[i];
            EXPECT_LE(seen, mayBe ? 1 : 0) << i << " " << command.answers[0];
            EXPECT_GE(seen, isTaken ? 1 : 0) << i;
        }
    }

    std::minstd_rand m_random;
    std::vector<Command> m_commands; // the payload begins with the number
    std::vector<FakeLine::Record> m_taken;
    std::map<std::size_t, int> m_drawn; // pictures, by number
    WishBook m_wishes;
    PanelDesk m_desk{"1-4", m_wishes, seconds(30),
                     [this](const Message& command, const Answer& answer) { reply(command, answer); }};
    std::shared_ptr<FakeLine> m_line;
    PanelDesk::TimePoint m_now{seconds(1000)};
};

} // namespace

TEST(PanelDeskModel, whateverHappens_whatIsTakenWasInThePanelOnce)
{
    for (unsigned int seed = 1; seed <= 60; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        PanelDeskRun run(seed);
        for (int i = 0; i < 800; ++i) {
            run.step();
            if (testing::Test::HasFatalFailure())
                return;
        }
        run.finish();
        if (testing::Test::HasFailure())
            return;
    }
}

} // namespace Vantor

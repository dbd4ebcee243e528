// What a broker hands over, and what panels do meanwhile: of each line the first character says
// which, the second the properties, the rest is "topic payload". No topic or payload may do
// more than is documented.
#include "panel2mqtt/desk/Desk.h"
#include "panel2mqtt/desk/HostPresence.h"
#include "tests/fuzz/Require.h"
#include "tests/unit/desk/FakeLine.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

using namespace Vantor;

namespace {

// An outbox that looks at what goes out.
class CheckingOutbox : public Outbox {
public:
    void publish(Kind kind, Message message) override
    {
        const std::string& topic = message.topic;
        require(topic.find_first_of("+#") == std::string::npos && !topic.empty(), "a topic to publish to");
        const bool isBelow = topic.compare(0, 6, "panel/") == 0;
        const bool isOwn = topic.compare(0, 13, "panel/1/shop/") == 0;
        require(!isBelow || isOwn, "nothing below the topics of others");
        require(message.isRetained == (kind == Kind::State), "state is retained, and nothing else");
        require(kind != Kind::State || isOwn, "state is its own");
        require(kind != Kind::Answer || !isOwn || topic.compare(13, 7, "answer/") == 0 || topic == "panel/1/shop/claim",
                "answers go where answers go");
    }
};

class FuzzedDesk {
public:
    FuzzedDesk() : m_desk(optionsOf(), m_outbox, [](const std::string&, const PanelDesk::Counts&) { return "{}"; })
    {
        m_presence.planWill(1000);
        m_desk.beginConnection();
        m_presence.beginConnection();
        m_presence.onConnected(m_now);
        plug("1-4");
    }

    void obey(char what, char how, const std::string& rest)
    {
        m_now += std::chrono::milliseconds(50);
        switch (what) {
        case 's':
            m_desk.serve(7, m_now);
            m_presence.endTelling(m_now);
            break;
        case 'e':
            m_desk.endTelling(m_now);
            break;
        case 'b':
            m_desk.beginConnection();
            break;
        case 'p':
            plug(how == '5' ? "1-5" : "1-4");
            break;
        case 'a':
            m_desk.onPanelAway(how == '5' ? "1-5" : "1-4", rest, m_now);
            break;
        case 't':
            take(true);
            break;
        case 'c':
            take(false);
            break;
        case 'w':
            m_now += std::chrono::hours(1);
            m_desk.poll(m_now);
            break;
        case 'r':
            m_desk.onRecord("1-4", static_cast<unsigned char>(how), rest);
            break;
        default:
            receive(what, how, rest);
        }
        m_desk.getNextDue();
    }

private:
    static Desk::Options optionsOf()
    {
        Desk::Options options;
        options.host = "shop";
        options.run = "r1";
        options.clock = [] { return "T"; };
        return options;
    }
    void plug(const std::string& place)
    {
        m_line = std::make_shared<FakeLine>();
        m_desk.onPanelReady(place, m_line, {"Panel", 1024, 1013}, m_now);
    }
    void take(bool isWhole)
    {
        isWhole ? m_line->take() : m_line->cut();
        m_desk.onProgress("1-4", m_now);
        m_desk.onProgress("1-5", m_now);
    }
    void receive(char what, char how, const std::string& rest)
    {
        const std::size_t end = rest.find(' ');
        Message message;
        message.topic = (what == '.' ? "panel/1/shop/" : "") + rest.substr(0, end);
        if (end != std::string::npos)
            message.payload = rest.substr(end + 1);
        message.isRetained = (how & 1) != 0;
        if ((how & 2) != 0)
            message.responseTopic = (how & 4) != 0 ? "panel/1/all/answer/x" : message.payload;
        if ((how & 8) != 0)
            message.userProperties = {{"id", message.payload.substr(0, 3)}, {"lock", "hold"}};
        if ((how & 16) != 0)
            message.userProperties.insert(message.userProperties.end(),
                                          {{"format", "gray8"}, {"width", "2"}, {"height", "1"}});
        if ((how & 32) != 0)
            message.correlation = message.payload;
        if (!m_presence.receive(message, m_now))
            m_desk.receive(message, m_now);
    }

    CheckingOutbox m_outbox;
    Desk m_desk;
    HostPresence m_presence{"shop", "r1", "v", 5, m_outbox};
    std::shared_ptr<FakeLine> m_line;
    Desk::TimePoint m_now{std::chrono::hours(1)};
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    FuzzedDesk desk;
    for (std::size_t begin = 0; begin + 2 <= text.size();) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        if (end - begin >= 2)
            desk.obey(text[begin], text[begin + 1], text.substr(begin + 2, end - begin - 2));
        begin = end + 1;
    }
    return 0;
}

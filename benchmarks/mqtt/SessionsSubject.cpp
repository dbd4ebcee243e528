// Many sessions of a broker, each as a gateway's is: its will, its subscriptions, what it tells
// at each connection, its back-off when it loses it. There are no gateways and no panels.
//
// Reads commands from standard input: `wish BYTES` publishes a fleet's wish; `quit`. Tells a
// JSON object a line of what has come about.
#include "benchmarks/mqtt/Load.h"
#include "panel2mqtt/broker/BackOff.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <random>
#include <stdexcept>
#include <utility>

#include <poll.h>
#include <sys/epoll.h>
#include <unistd.h>

namespace Vantor {

namespace {

double secondsBetween(Clock::time_point begin, Clock::time_point end)
{
    return std::chrono::duration<double>(end - begin).count();
}

double secondsNow()
{
    return static_cast<double>(nanosecondsOf(Clock::now())) / 1e9;
}

// What all sessions have done.
struct Tally {
    std::uint64_t received = 0;
    std::uint64_t sent = 0;
    std::uint64_t tries = 0;
    std::uint64_t overdue = 0; // that were not up in time
};

class Session {
public:
    Session(std::uint16_t port, unsigned int number, unsigned int panels, int poller, Tally& tally)
        : m_root("panel/1/host-" + std::to_string(number) + "/"), m_number(number), m_panels(panels), m_poller(poller),
          m_tally(tally), m_backOff(BrokerPace(), draw),
          m_client(port, optionsOf(number), [this](const Message& message) { receive(message); })
    {}

    void tick(Clock::time_point now)
    {
        if (m_client.getSocket() >= 0) {
            if (!m_client.isUp() && now >= m_deadline) {
                ++m_tally.overdue;
                m_client.cut();
            } else if (m_isServing && now >= m_nextPing) {
                m_client.ping();
                m_nextPing = now + m_pingInterval;
            }
            return;
        }
        if (m_isTrying) {
            m_isTrying = false;
            const auto upTime = m_upSince == Clock::time_point() ? Clock::duration::zero() : now - m_upSince;
            m_upSince = Clock::time_point();
            m_isServing = false;
            m_isGreeting = false;
            m_nextTry = now + m_backOff.getDelayAfter(upTime);
        } else if (now >= m_nextTry) {
            connect(now);
        }
    }

    void onReady(Clock::time_point now)
    {
        m_client.onReady();
        if (m_client.isUp() && !m_isGreeting)
            greet(now);
        if (m_isGreeting && !m_isServing && m_client.getConfirmed() == 1 + 2ULL * m_panels) {
            m_isServing = true;
            m_served = now;
            m_nextPing = now + m_pingInterval;
        }
    }

    bool isServing() const { return m_isServing; }
    Clock::time_point getServed() const { return m_served; }
    Clock::time_point getWished() const { return m_wished; }
    void forgetWish() { m_wished = Clock::time_point(); }

private:
    static double draw()
    {
        static std::mt19937 chance(1);
        return std::uniform_real_distribution<double>()(chance);
    }

    LightClient::Options optionsOf(unsigned int number) const
    {
        LightClient::Options options;
        options.id = "panel2mqtt-host-" + std::to_string(number);
        options.keepAlive = 30;
        options.will = stateOf(false);
        for (const std::string& root : {m_root, std::string("panel/1/all/")}) {
            options.subscriptions.push_back({root + "+/do/#", 1, true, false});
            options.subscriptions.push_back({root + "+/want/#", 0, false, false});
        }
        for (const char* const own : {"state", "claim", "+/state", "+/info", "+/job/+"})
            options.subscriptions.push_back({m_root + own, 0, false, true});
        options.subscriptions.push_back({m_root + "told", 0, true, false});
        return options;
    }

    Message stateOf(bool isOnline) const
    {
        return retained("state", std::string(R"({"online":)") + (isOnline ? "true" : "false") +
                                     R"(,"epoch":1763849971423,"run":"5f3a9c04d2b87e61","version":"1.2.1"})");
    }

    Message retained(const std::string& rest, const std::string& payload) const
    {
        Message message;
        message.topic = m_root + rest;
        message.payload = payload;
        message.qos = 1;
        message.isRetained = true;
        return message;
    }

    void connect(Clock::time_point now)
    {
        ++m_tally.tries;
        m_isTrying = true;
        m_deadline = now + BrokerPace().connectTime;
        m_client.connect();
        epoll_event event{};
        event.events = EPOLLIN | EPOLLOUT | EPOLLRDHUP | static_cast<unsigned int>(EPOLLET);
        event.data.u32 = m_number;
        if (m_client.getSocket() >= 0 && epoll_ctl(m_poller, EPOLL_CTL_ADD, m_client.getSocket(), &event) != 0)
            throw std::runtime_error("epoll_ctl");
    }

    // All subscriptions are granted.
    void greet(Clock::time_point now)
    {
        m_isGreeting = true;
        m_upSince = now;
        Message told;
        told.topic = m_root + "told";
        told.payload = "5f3a9c04d2b87e61";
        send(told);
    }

    void receive(const Message& message)
    {
        ++m_tally.received;
        if (message.topic == m_root + "told") {
            serve();
        } else if (message.topic == "panel/1/all/all/want/lcd/0") {
            m_wished = Clock::now();
        }
    }

    void serve()
    {
        Message claim;
        claim.topic = m_root + "claim";
        claim.payload = R"({"run":"5f3a9c04d2b87e61","since":1763849971423,"hasServed":true})";
        send(claim);
        send(stateOf(true));
        for (unsigned int panel = 1; panel <= m_panels; ++panel) {
            const std::string place = "1-4." + std::to_string(panel);
            send(retained(place + "/state", R"({"online":true,"epoch":1763849971423,"since":"2026-11-22T22:19:31Z"})"));
            send(retained(place + "/info", R"({"place":")" + place +
                                               R"(","description":"Panel","maxPacketSize":8192,"payloadLimit":8181})"));
        }
    }

    void send(const Message& message)
    {
        ++m_tally.sent;
        m_client.publish(message);
    }

    static constexpr std::chrono::seconds m_pingInterval{30};

    const std::string m_root;
    const unsigned int m_number;
    const unsigned int m_panels;
    const int m_poller;
    Tally& m_tally;
    BackOff m_backOff;
    LightClient m_client;
    bool m_isTrying = false;
    bool m_isGreeting = false;
    bool m_isServing = false;
    Clock::time_point m_deadline;
    Clock::time_point m_nextTry;
    Clock::time_point m_nextPing;
    Clock::time_point m_upSince;
    Clock::time_point m_served;
    Clock::time_point m_wished;
};

class Fleet {
public:
    Fleet(std::uint16_t port, unsigned int count, unsigned int panels)
        : m_poller(epoll_create1(EPOLL_CLOEXEC)), m_publisher(port, {"load-fleet", {}, {}, 0}, [](const Message&) {})
    {
        for (unsigned int number = 0; number < count; ++number)
            m_sessions.push_back(std::make_unique<Session>(port, number, panels, m_poller, m_tally));
    }
    ~Fleet() { close(m_poller); }
    Fleet(const Fleet&) = delete;
    Fleet& operator=(const Fleet&) = delete;

    void run()
    {
        while (step()) {
        }
    }

private:
    bool step()
    {
        std::array<epoll_event, 256> events{};
        const int count = epoll_wait(m_poller, events.data(), static_cast<int>(events.size()), 5);
        const auto now = Clock::now();
        for (int index = 0; index < count; ++index)
            m_sessions[events[static_cast<std::size_t>(index)].data.u32]->onReady(Clock::now());
        if (now >= m_nextTick) {
            m_nextTick = now + std::chrono::milliseconds(10);
            for (const auto& session : m_sessions)
                session->tick(now);
            watchServing();
            watchWish();
            tendClient(m_publisher, 0);
            return obey();
        }
        return true;
    }

    bool obey()
    {
        pollfd entry = {STDIN_FILENO, POLLIN, 0};
        if (poll(&entry, 1, 0) <= 0)
            return true;
        char line[80];
        if (std::fgets(line, sizeof line, stdin) == nullptr || std::string(line) == "quit\n")
            return false;
        const std::string order = line;
        if (order.rfind("wish ", 0) == 0)
            wish(std::stoul(order.substr(5)));
        return true;
    }

    void wish(std::size_t bytes)
    {
        for (const auto& session : m_sessions)
            session->forgetWish();
        bringUp(m_publisher);
        Message message;
        message.topic = "panel/1/all/all/want/lcd/0";
        message.payload = std::string(bytes, 'p');
        message.qos = 1;
        message.isRetained = true;
        m_wishPublished = Clock::now();
        m_publisher.publish(message);
    }

    void watchWish()
    {
        if (m_wishPublished == Clock::time_point())
            return;
        std::vector<double> times;
        for (const auto& session : m_sessions) {
            if (session->getWished() == Clock::time_point())
                return;
            times.push_back(secondsBetween(m_wishPublished, session->getWished()));
        }
        std::sort(times.begin(), times.end());
        m_wishPublished = Clock::time_point();
        std::printf("{\"event\": \"wished\", \"first\": %.6f, \"median\": %.6f, \"last\": %.6f}\n", times.front(),
                    times[times.size() / 2], times.back());
        std::fflush(stdout);
    }

    // From the loss of the first session to the return of the last.
    void watchServing()
    {
        const auto serving = std::count_if(m_sessions.begin(), m_sessions.end(),
                                           [](const auto& session) { return session->isServing(); });
        if (static_cast<std::size_t>(serving) == m_sessions.size() && !m_areAllServing) {
            m_areAllServing = true;
            std::vector<double> times;
            for (const auto& session : m_sessions)
                times.push_back(static_cast<double>(nanosecondsOf(session->getServed())) / 1e9);
            std::sort(times.begin(), times.end());
            std::printf("{\"event\": \"serving\", \"at\": %.6f, \"first\": %.6f, \"median\": %.6f, \"last\": %.6f, "
                        "\"tries\": %llu, \"overdue\": %llu, \"sent\": %llu, \"received\": %llu}\n",
                        secondsNow(), times.front(), times[times.size() / 2], times.back(),
                        static_cast<unsigned long long>(m_tally.tries),
                        static_cast<unsigned long long>(m_tally.overdue), static_cast<unsigned long long>(m_tally.sent),
                        static_cast<unsigned long long>(m_tally.received));
            std::fflush(stdout);
        } else if (static_cast<std::size_t>(serving) != m_sessions.size() && m_areAllServing) {
            m_areAllServing = false;
            m_tally = Tally();
            std::printf("{\"event\": \"lost\", \"at\": %.6f}\n", secondsNow());
            std::fflush(stdout);
        }
    }

    const int m_poller;
    Tally m_tally;
    std::vector<std::unique_ptr<Session>> m_sessions;
    LightClient m_publisher;
    Clock::time_point m_nextTick;
    Clock::time_point m_wishPublished;
    bool m_areAllServing = false;
};

} // namespace

void measureSessions(const Arguments& arguments)
{
    std::setvbuf(stdin, nullptr, _IONBF, 0); // poll sees what a buffer holds back
    Fleet fleet(portOf(arguments.at(0)), static_cast<unsigned int>(std::stoul(arguments.at(1))),
                static_cast<unsigned int>(std::stoul(arguments.at(2))));
    fleet.run();
}

} // namespace Vantor

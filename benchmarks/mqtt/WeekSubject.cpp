// What applications send to a host over a long time, as fast as told: numbered records and
// pictures for all panels in turns, repeated until they are answered.
//
// Reads commands from standard input: `pause PLACE`, `resume PLACE`. Writes the number and the
// place of each record that was answered "taken" into a file, and at the end a JSON object.
#include "benchmarks/mqtt/Load.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <stdexcept>

#include <poll.h>
#include <unistd.h>

namespace Vantor {

namespace {

const std::string s_weekAnswers = "bench/week";
constexpr std::size_t s_mostOpen = 600; // a broker drops what is much more

struct Options {
    std::uint16_t port;
    std::string host;
    std::vector<std::string> places;
    double seconds;
    double records; // a second
    double pictures;
    std::string png;
};

struct Open {
    std::string place;
    bool isPicture = false;
    std::uint64_t number = 0;
    Clock::time_point begun;
    Clock::time_point due; // when it is sent again
    unsigned int attempt = 0;
};

class Week {
public:
    Week(Options options, const std::string& list)
        : m_options(std::move(options)), m_list(std::fopen(list.c_str(), "w")), m_client(makeClient())
    {
        if (m_list == nullptr)
            throw std::runtime_error(list + " can't be written");
        bringUp(*m_client);
    }
    ~Week() { std::fclose(m_list); }
    Week(const Week&) = delete;
    Week& operator=(const Week&) = delete;

    void run()
    {
        const auto start = Clock::now();
        const auto end =
            start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(m_options.seconds));
        const auto until = end + std::chrono::seconds(90);
        while (Clock::now() < end || (!m_open.empty() && Clock::now() < until)) {
            if (m_client->getSocket() < 0)
                reconnect();
            if (Clock::now() < end)
                sendDue(std::chrono::duration<double>(Clock::now() - start).count());
            tendClient(*m_client, 1);
            repeatDue();
            obey();
        }
        report();
    }

private:
    std::unique_ptr<LightClient> makeClient()
    {
        const std::string got = "panel/1/" + m_options.host + "/+/got/+";
        return std::make_unique<LightClient>(
            m_options.port,
            LightClient::Options{"load-week", {}, {{s_weekAnswers, 1, false, false}, {got, 0, false, false}}, 0},
            [this](const Message& message) { receive(message); });
    }

    void reconnect()
    {
        ++m_connections;
        bringUp(*m_client);
        for (auto& [id, open] : m_open)
            open.due = Clock::now(); // the answers may be lost with the connection
    }

    void sendDue(double time)
    {
        for (; static_cast<double>(m_records) < time * m_options.records && m_open.size() < s_mostOpen; ++m_records)
            begin(false, m_records);
        for (; static_cast<double>(m_pictures) < time * m_options.pictures && m_open.size() < s_mostOpen; ++m_pictures)
            begin(true, m_pictures);
        m_behind = time * m_options.records - static_cast<double>(m_records);
        m_mostBehind = std::max(m_mostBehind, m_behind);
    }

    void begin(bool isPicture, std::uint64_t number)
    {
        Open open;
        open.place = m_options.places[number % m_options.places.size()];
        if (m_paused.count(open.place) != 0) {
            ++m_left;
            return;
        }
        open.isPicture = isPicture;
        open.number = number;
        open.begun = Clock::now();
        send(m_open.emplace(idOf(open), open).first->second);
    }

    static std::string idOf(const Open& open)
    {
        return (open.isPicture ? "p" : "r") + std::to_string(open.number) + "." + std::to_string(open.attempt);
    }

    void send(Open& open)
    {
        open.due = Clock::now() + std::chrono::seconds(2);
        Message command =
            makeCommand(m_options.host, open.place + (open.isPicture ? "/do/draw/0" : "/do/send/5"),
                        open.isPicture ? m_options.png : "w" + std::to_string(open.number), s_weekAnswers, idOf(open));
        if (open.isPicture)
            alternate(command, open.number / m_options.places.size());
        m_client->publish(command);
    }

    void repeatDue()
    {
        const auto now = Clock::now();
        if (now < m_nextLook)
            return;
        m_nextLook = now + std::chrono::milliseconds(50);
        std::map<std::string, Open> again;
        for (auto open = m_open.begin(); open != m_open.end();) {
            if (open->second.due > now || m_paused.count(open->second.place) != 0) {
                ++open;
                continue;
            }
            ++m_repeated;
            Open next = open->second;
            open = m_open.erase(open);
            again.emplace(idOf(next), next);
        }
        for (auto& [id, open] : again)
            send(m_open.emplace(id, open).first->second);
    }

    void receive(const Message& message)
    {
        if (message.topic != s_weekAnswers) {
            count(message);
            return;
        }
        const auto known = m_open.find(message.correlation.value_or(""));
        if (known == m_open.end()) {
            ++m_late;
            return;
        }
        const std::string word = wordOf(message);
        ++m_words[(known->second.isPicture ? "picture " : "record ") + word];
        if (word == "taken" || word == "refused" || word == "too-large")
            finish(known->second, word);
        else
            retry(known->second, word);
        m_open.erase(known);
    }

    void finish(const Open& open, const std::string& word)
    {
        m_times.push_back(std::chrono::duration<double, std::milli>(Clock::now() - open.begun).count());
        if (!open.isPicture && word == "taken")
            std::fprintf(m_list, "%llu %s\n", static_cast<unsigned long long>(open.number), open.place.c_str());
    }

    // The same id after `busy`, another one where the panel may have it twice.
    void retry(Open open, const std::string& word)
    {
        open.attempt += word == "busy" ? 0 : 1;
        open.due = Clock::now() + std::chrono::milliseconds(word == "busy" ? 100 : 1000);
        m_again.push_back(open);
    }

    void count(const Message& message)
    {
        m_touches += message.topic.substr(message.topic.rfind('/') + 1) == "20" ? 1 : 0;
        const std::string* const number = message.findProperty("n");
        const std::string place = message.topic.substr(0, message.topic.find("/got/"));
        const std::uint64_t n = number != nullptr ? std::stoull(*number) : 0;
        std::uint64_t& last = m_lastGot[place];
        m_missed += n > last + 1 ? n - last - 1 : 0;
        last = n;
    }

    void obey()
    {
        for (Open& open : m_again)
            m_open.emplace(idOf(open), open);
        m_again.clear();
        pollfd entry = {STDIN_FILENO, POLLIN, 0};
        if (m_isDeaf || poll(&entry, 1, 0) <= 0)
            return;
        char line[80];
        if (std::fgets(line, sizeof line, stdin) == nullptr) {
            m_isDeaf = true;
            return;
        }
        std::string order = line;
        order.pop_back();
        if (order.rfind("pause ", 0) == 0)
            m_paused.insert(order.substr(6));
        else if (order.rfind("resume ", 0) == 0)
            m_paused.erase(order.substr(7));
    }

    void report()
    {
        std::sort(m_times.begin(), m_times.end());
        const auto at = [this](double share) {
            return m_times.empty() ? 0
                                   : m_times[static_cast<std::size_t>(share * static_cast<double>(m_times.size() - 1))];
        };
        std::ostringstream text;
        for (const auto& [word, count] : m_words)
            text << '"' << word << "\": " << count << ", ";
        text << "\"records\": " << m_records << ", \"pictures\": " << m_pictures
             << ", \"left out in an upgrade\": " << m_left << ", \"repeated\": " << m_repeated
             << ", \"answered twice\": " << m_late << ", \"unanswered\": " << m_open.size()
             << ", \"connections lost\": " << m_connections << ", \"most records behind\": " << m_mostBehind
             << ", \"records behind at the end\": " << m_behind << ", \"touches got\": " << m_touches
             << ", \"records of panels missed\": " << m_missed << ", \"median ms\": " << at(0.5)
             << ", \"99 % ms\": " << at(0.99) << ", \"longest ms\": " << at(1);
        std::printf("{%s}\n", text.str().c_str());
        std::fflush(stdout);
    }

    const Options m_options;
    std::FILE* const m_list;
    std::unique_ptr<LightClient> m_client;
    std::map<std::string, Open> m_open; // by id
    std::vector<Open> m_again;
    std::set<std::string> m_paused;
    std::map<std::string, std::uint64_t> m_words;
    std::map<std::string, std::uint64_t> m_lastGot;
    std::vector<double> m_times; // from the first attempt to the answer that counts
    std::uint64_t m_records = 0;
    std::uint64_t m_pictures = 0;
    std::uint64_t m_left = 0;
    std::uint64_t m_repeated = 0;
    std::uint64_t m_late = 0;
    std::uint64_t m_connections = 0;
    std::uint64_t m_touches = 0;
    std::uint64_t m_missed = 0;
    double m_behind = 0; // records that are due and wait for others' answers
    double m_mostBehind = 0;
    Clock::time_point m_nextLook;
    bool m_isDeaf = false;
};

} // namespace

void runWeek(const Arguments& arguments)
{
    std::setvbuf(stdin, nullptr, _IONBF, 0);
    Options options;
    options.port = portOf(arguments.at(0));
    options.host = arguments.at(1);
    options.places = awaitPlaces(options.port, options.host, std::stoul(arguments.at(2)));
    options.seconds = std::stod(arguments.at(3));
    options.records = std::stod(arguments.at(4));
    options.pictures = std::stod(arguments.at(5));
    options.png = contentOf(arguments.at(6));
    std::puts("begins");
    std::fflush(stdout);
    Week(std::move(options), arguments.at(7)).run();
    std::getchar(); // until it has been looked at
}

} // namespace Vantor

#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include <sys/resource.h>
#include <unistd.h>

namespace Vantor {

// What every measurement of the link needs: clocks, samples, waiting, and the report.

using Clock = std::chrono::steady_clock;

inline double microsecondsBetween(Clock::time_point start, Clock::time_point end)
{
    return std::chrono::duration<double, std::micro>(end - start).count();
}

inline double microsecondsSince(Clock::time_point start)
{
    return microsecondsBetween(start, Clock::now());
}

// What the process has cost so far, all threads together.
struct Cost {
    double cpu;     // microseconds
    double wakeups; // voluntary context switches

    static Cost now()
    {
        timespec time{};
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        return {static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3,
                static_cast<double>(usage.ru_nvcsw)};
    }
    static Cost since(const Cost& start)
    {
        const Cost end = now();
        return {end.cpu - start.cpu, end.wakeups - start.wakeups};
    }
};

class Samples {
public:
    void add(double value) { m_values.push_back(value); }
    std::size_t getCount() const { return m_values.size(); }

    // The value that `share` of the samples, 0 to 1, do not exceed.
    double getQuantile(double share) const
    {
        if (m_values.empty())
            throw std::logic_error("nothing was measured");
        std::vector<double> sorted = m_values;
        std::sort(sorted.begin(), sorted.end());
        const auto place = static_cast<std::size_t>(share * static_cast<double>(sorted.size()));
        return sorted[std::min(place, sorted.size() - 1)];
    }
    double getLast() const { return m_values.back(); }
    double getMedian() const { return getQuantile(0.5); }

    // "1.2 to 3.4 in 5 rounds"
    std::string describeSpread() const
    {
        const int digits = getQuantile(0) < 1000 ? 3 : 6;
        char text[80];
        std::snprintf(text, sizeof text, "%.*g to %.*g in %zu rounds", digits, getQuantile(0), digits, getQuantile(1),
                      m_values.size());
        return text;
    }

private:
    std::vector<double> m_values;
};

// A number that some threads raise and one waits for.
class Tally {
public:
    void add(std::uint64_t amount)
    {
        if ((m_value += amount) < m_awaited)
            return;
        {
            const std::lock_guard<std::mutex> lock(m_mutex); // who waits has begun to, or sees the number
        }
        m_reached.notify_all();
    }
    std::uint64_t get() const { return m_value; }

    // Throws when the number is not reached in time.
    void await(std::uint64_t number, const char* what, std::chrono::seconds limit = std::chrono::seconds(20))
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_awaited = number;
        const bool isReached = m_reached.wait_for(lock, limit, [this, number] { return m_value >= number; });
        m_awaited = UINT64_MAX;
        if (!isReached)
            throw std::runtime_error(std::string(what) + ": " + std::to_string(m_value) + " of " +
                                     std::to_string(number) + " have come");
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_reached;
    std::atomic<std::uint64_t> m_value{0};
    std::atomic<std::uint64_t> m_awaited{UINT64_MAX};
};

// Whose figure it is, and what it is to the reader.
struct Contender {
    const char* name;
    const char* role;
};
constexpr Contender library{"library", "ours"};
constexpr Contender bareLoop{"bare loop", "peer"};

// Figures, a JSON object a line, on what was the standard output. That is standard error
// from then on, where the library's log does no harm.
class Report {
public:
    explicit Report(std::string subject) : m_subject(std::move(subject)), m_descriptor(dup(STDOUT_FILENO))
    {
        dup2(STDERR_FILENO, STDOUT_FILENO);
    }
    ~Report() { close(m_descriptor); }
    Report(const Report&) = delete;
    Report& operator=(const Report&) = delete;

    // The texts are ours and need no escapes.
    void add(const std::string& name, const Contender& contender, double value, const char* unit,
             const std::string& note = "")
    {
        dprintf(m_descriptor,
                "{\"subject\": \"%s\", \"case\": \"%s\", \"contender\": \"%s\", \"role\": \"%s\", \"value\": %.6g, "
                "\"unit\": \"%s\", \"note\": \"%s\"}\n",
                m_subject.c_str(), name.c_str(), contender.name, contender.role, value, unit, note.c_str());
    }
    void add(const std::string& name, const Contender& contender, const Samples& samples, const char* unit,
             const std::string& note = "")
    {
        add(name, contender, samples.getMedian(), unit, samples.describeSpread() + (note.empty() ? "" : "; " + note));
    }

private:
    std::string m_subject;
    int m_descriptor;
};

} // namespace Vantor

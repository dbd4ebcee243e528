#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <string>

namespace Vantor {

// Lines from a descriptor, for a program that must not wait for them.
//
// Threads: one at a time. Lifetime: the descriptor stays open, and the caller's.
class LineInput {
public:
    // A line of which nobody needs the end.
    static constexpr std::size_t longestLine = std::size_t{1} << 20;

    explicit LineInput(int descriptor);

    // For poll; -1 when nothing more can come.
    int getDescriptor() const { return m_descriptor; }

    // Nothing more comes because the input has ended, not because it can't be read.
    bool hasEnded() const { return m_hasEnded; }

    // Takes what is there; waits when there is nothing.
    void read();

    // The next line, without its end. The last one may lack it.
    std::optional<std::string> takeLine();

private:
    void take(const char* bytes, std::size_t size);
    void endLine();

    int m_descriptor;
    bool m_hasEnded = false;
    std::string m_begun;
    std::deque<std::string> m_lines;
};

} // namespace Vantor

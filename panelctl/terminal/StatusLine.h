#pragma once

#include <cstddef>
#include <string>

namespace Vantor {

// A line at the bottom of a terminal that is drawn again and again, while what others
// print goes above it. At most one at a time; gone when it is destroyed.
//
// Threads: any.
class StatusLine {
public:
    // `terminal` is a descriptor that stays open.
    explicit StatusLine(int terminal);
    ~StatusLine();
    StatusLine(const StatusLine&) = delete;
    StatusLine& operator=(const StatusLine&) = delete;

    // Shows `text`, which must be narrower than the terminal.
    void show(const std::string& text);

    // The terminal's width now; 80 when it does not tell.
    std::size_t getColumns() const;

    // Whether `descriptor` is a terminal that can redraw a line.
    static bool isPossibleOn(int descriptor);

    // Whole lines on standard error, above the status line if there is one.
    static void printAbove(const std::string& lines);

private:
    void draw() const;
    void clear() const;

    int m_terminal;
    std::string m_text; // under s_mutex of the source
};

} // namespace Vantor

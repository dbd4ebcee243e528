#include "panelctl/session/Question.h"

#include "panelctl/terminal/Failure.h"
#include "panelctl/terminal/Interrupt.h"
#include "panelctl/terminal/Output.h"
#include "panelctl/terminal/Wording.h"

#include <algorithm>
#include <array>
#include <cctype>

#include <poll.h>
#include <unistd.h>

namespace Vantor::Question {

namespace {

// The terminal hands out whole lines; empty at its end.
std::string readLine()
{
    std::array<char, 256> buffer{};
    const ssize_t length = read(STDIN_FILENO, buffer.data(), buffer.size());
    return {buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0))};
}

} // namespace

bool isPossible(const Output& output)
{
    return isatty(STDIN_FILENO) != 0 && isatty(output.getDescriptor()) != 0;
}

bool isAnsweredYes(Output& output, const std::string& text)
{
    output.text(text + " [y/N] ");
    try {
        Interrupt::check();
        Interrupt::await(STDIN_FILENO, POLLIN);
    } catch (const Interrupted&) {
        output.text("\n");
        throw;
    }
    std::string answer = readLine();
    if (answer.empty() || answer.back() != '\n')
        output.text("\n");
    answer.erase(std::remove_if(answer.begin(), answer.end(),
                                [](unsigned char character) { return std::isspace(character) != 0; }),
                 answer.end());
    answer = toLower(answer);
    return answer == "y" || answer == "yes";
}

} // namespace Vantor::Question

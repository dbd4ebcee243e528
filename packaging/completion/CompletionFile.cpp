#include "packaging/completion/CompletionFile.h"

#include "packaging/completion/CompletionText.h"

#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

namespace Vantor {

namespace {

std::string completionsOf(const ProgramShape& program, const std::vector<OrderPlaces>& orders, bool isZsh)
{
    std::string text = isZsh ? "#compdef " + program.name + "\n\n" + CompletionText::forZsh(program)
                             : "# bash completion of " + program.name + "\n\n" + CompletionText::forBash(program);
    return orders.empty() ? text : text + CompletionText::ofOrders(program.name, orders);
}

std::string replaceProgram(std::string text, const std::string& program)
{
    const std::string placeholder = "PROGRAM";
    for (std::size_t at = text.find(placeholder); at != std::string::npos; at = text.find(placeholder, at))
        text.replace(at, placeholder.size(), program);
    return text;
}

} // namespace

int writeCompletionFile(const ProgramShape& program, const std::vector<OrderPlaces>& orders, int argc, char** argv)
{
    const std::vector<std::string> words(argv, argv + argc);
    if (words.size() < 2 || (words[1] != "bash" && words[1] != "zsh")) {
        std::cerr << "usage: " << words[0] << " bash|zsh FILE...\n";
        return 2;
    }
    std::cout << completionsOf(program, orders, words[1] == "zsh");
    for (std::size_t i = 2; i < words.size(); ++i) {
        std::ifstream file(words[i]);
        if (!file) {
            std::cerr << words[0] << ": cannot read " << words[i] << '\n';
            return 1;
        }
        std::cout << replaceProgram({std::istreambuf_iterator<char>(file), {}}, program.name);
    }
    return std::cout.flush() ? 0 : 1;
}

} // namespace Vantor

#pragma once

#include <map>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace Vantor {

// What stands behind an option, or by itself.
struct ValueShape {
    enum class Kind {
        Free, // whatever it is, nobody knows it beforehand
        File,
        Picture,
        Folder,
        Word,  // one of `words`
        Words, // some of them, with commas between them
        Order, // of a simulated panel
        Program,
    };

    std::string name; // as the help calls it
    Kind kind = Kind::Free;
    std::vector<std::string> words;
};

struct OptionShape {
    std::vector<std::string> names; // "-h", "--help"
    std::string description;
    std::vector<ValueShape> values; // empty for a flag
    bool isRepeatable = false;
    bool isAlone = false;              // what says something and is done
    std::vector<std::string> excludes; // names of options
};

struct CommandShape {
    std::string name; // empty for the program's own
    std::string description;
    std::vector<OptionShape> options;
    std::vector<ValueShape> arguments;
    bool isLastArgumentRepeatable = false;
};

struct ProgramShape {
    std::string name;
    CommandShape own; // options that come before a command
    std::vector<CommandShape> commands;
};

// Of values, by what the help calls them: "HOW".
using KnownWords = std::map<std::string, std::vector<std::string>>;

// As the parser of its command line has it. Options of the program that are taken behind
// a command, too, are the command's here.
ProgramShape shapeOf(const CLI::App& app, const KnownWords& words);

} // namespace Vantor

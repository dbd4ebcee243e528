#include "packaging/completion/CompletionText.h"

namespace Vantor {

namespace {

using Kind = ValueShape::Kind;
using Texts = std::vector<std::string>;

std::string join(const Texts& texts, const std::string& separator = " ")
{
    std::string joined;
    for (const std::string& text : texts)
        joined += (joined.empty() ? "" : separator) + text;
    return joined;
}

// In single quotes, for any shell.
std::string quoted(const std::string& text)
{
    std::string result = "'";
    for (const char character : text)
        result += character == '\'' ? "'\\''" : std::string(1, character);
    return result + "'";
}

// With a backslash in front of each of these.
std::string escaped(const std::string& text, const std::string& specials)
{
    std::string result;
    for (const char character : text) {
        if (specials.find(character) != std::string::npos)
            result += '\\';
        result += character;
    }
    return result;
}

// What the functions in bash.sh know.
std::string bashKind(const ValueShape& value)
{
    switch (value.kind) {
    case Kind::Free:
        return "free";
    case Kind::File:
        return "file";
    case Kind::Picture:
        return "picture";
    case Kind::Folder:
        return "folder";
    case Kind::Word:
        return "word " + join(value.words);
    case Kind::Words:
        return "words " + join(value.words);
    case Kind::Order:
        return "order";
    case Kind::Program:
        return "program";
    }
    return {};
}

std::string bashKinds(const std::vector<ValueShape>& values)
{
    Texts kinds;
    for (const ValueShape& value : values)
        kinds.push_back(quoted(bashKind(value)));
    return "values=(" + join(kinds) + ") ;;\n";
}

std::string bashOptions(const CommandShape& command)
{
    Texts names;
    for (const OptionShape& option : command.options)
        names.insert(names.end(), option.names.begin(), option.names.end());
    return "    " + quoted(command.name) + ") options=" + quoted(join(names)) + " ;;\n";
}

std::string bashValues(const CommandShape& command)
{
    std::string cases;
    for (const OptionShape& option : command.options)
        if (!option.values.empty())
            cases += "    " + quoted(command.name + " " + option.names.back()) + ") " + bashKinds(option.values);
    for (std::size_t i = 0; i < command.arguments.size(); ++i) {
        const bool isLast = i + 1 == command.arguments.size();
        const std::string place =
            isLast && command.isLastArgumentRepeatable ? " '[0-9]*" : " " + std::to_string(i + 1) + "'";
        cases += "    '" + command.name + place + ") " + bashKinds({command.arguments[i]});
    }
    return cases;
}

// An action of _arguments.
std::string zshAction(const std::string& program, const ValueShape& value)
{
    switch (value.kind) {
    case Kind::Free:
        return " ";
    case Kind::File:
        return "_files";
    case Kind::Picture:
        return "_files -g \"*.(#i)png(-.)\"";
    case Kind::Folder:
        return "_files -/";
    case Kind::Word:
        return "(" + join(value.words) + ")";
    case Kind::Words:
        return "_sequence compadd - " + join(value.words);
    case Kind::Order:
        return "_" + program + "_order";
    case Kind::Program:
        return "_normal";
    }
    return {};
}

std::string zshValue(const std::string& program, const ValueShape& value)
{
    return ":" + escaped(value.name, ":\\") + ":" + zshAction(program, value);
}

std::string zshOption(const std::string& program, const OptionShape& option)
{
    std::string lines;
    for (const std::string& name : option.names) {
        Texts others = option.isAlone ? Texts{"-", "*"} : option.excludes;
        if (!option.isRepeatable && !option.isAlone)
            others.insert(others.end(), option.names.begin(), option.names.end());
        std::string line = (others.empty() ? "" : "(" + join(others) + ")") + (option.isRepeatable ? "*" : "") + name +
                           (option.values.size() == 1 ? "=" : "") + "[" + escaped(option.description, "[]\\") + "]";
        for (const ValueShape& value : option.values)
            line += zshValue(program, value);
        lines += " \\\n    " + quoted(line);
    }
    return lines;
}

std::string zshArguments(const std::string& program, const CommandShape& command)
{
    std::string lines;
    for (std::size_t i = 0; i < command.arguments.size(); ++i) {
        const ValueShape& value = command.arguments[i];
        const bool isRepeated = i + 1 == command.arguments.size() && command.isLastArgumentRepeatable;
        const std::string place = isRepeated ? "*" : std::to_string(i + 1);
        // All that follows is the other program's line.
        lines += " \\\n    " + quoted((value.kind == Kind::Program ? "(-)*::" : place) + zshValue(program, value));
    }
    return lines;
}

std::string zshOptions(const std::string& program, const CommandShape& command)
{
    std::string lines;
    for (const OptionShape& option : command.options)
        lines += zshOption(program, option);
    return lines;
}

} // namespace

std::string CompletionText::forBash(const ProgramShape& program)
{
    const std::string name = "_" + program.name;
    Texts commands;
    std::string options = bashOptions(program.own);
    std::string values = bashValues(program.own);
    for (const CommandShape& command : program.commands) {
        commands.push_back(command.name);
        options += bashOptions(command);
        values += bashValues(command);
    }
    return name + "_commands='" + join(commands) + "'\n\n" + name + "_options() # COMMAND\n{\n  case $1 in\n" +
           options + "  esac\n}\n\n" + name + "_values() # COMMAND OPTION, or COMMAND PLACE\n{\n  case \"$1 $2\" in\n" +
           values + "    *) values=() ;;\n  esac\n}\n\n";
}

std::string CompletionText::forZsh(const ProgramShape& program)
{
    std::string text;
    std::string commands;
    for (const CommandShape& command : program.commands) {
        commands += "      " + quoted(escaped(command.name, ":") + ":" + command.description) + "\n";
        text += "_" + program.name + "-" + command.name + "()\n{\n  _arguments -S" + zshOptions(program.name, command) +
                zshArguments(program.name, command) + "\n}\n\n";
    }
    return text + "_" + program.name +
           "()\n{\n"
           "  local curcontext=$curcontext state line\n"
           "  typeset -A opt_args\n"
           "  _arguments -C -S" +
           zshOptions(program.name, program.own) +
           " \\\n    ': :->command' '*:: :->arguments'\n"
           "  case $state in\n"
           "  command)\n"
           "    local -a commands=(\n" +
           commands +
           "    )\n"
           "    _describe -t commands command commands ;;\n"
           "  arguments)\n"
           "    curcontext=${curcontext%:*}-$words[1]:\n"
           "    (( $+functions[_" +
           program.name + "-$words[1]] )) && _" + program.name +
           "-$words[1] ;;\n"
           "  esac\n}\n\n";
}

std::string CompletionText::ofOrders(const std::string& program, const std::vector<OrderPlaces>& orders)
{
    std::string cases;
    Texts verbs;
    for (const OrderPlaces& order : orders) {
        if (order.opening.find(' ') == std::string::npos)
            verbs.push_back(order.opening);
        Texts places;
        for (const OrderPlaces::Place& place : order.places)
            places.push_back(quoted((place.isRequired ? "required " : "optional ") + join(place.words)));
        cases += "    " + quoted(order.opening) + ") seconds=" + quoted(join(order.seconds)) + " places=(" +
                 join(places) + ") ;;\n";
    }
    return "_" + program + "_verbs=" + quoted(join(verbs)) + "\n\n_" + program +
           "_places() # VERB, or VERB SECOND: is it one?\n{\n  case $* in\n" + cases +
           "    *) return 1 ;;\n  esac\n}\n\n";
}

} // namespace Vantor

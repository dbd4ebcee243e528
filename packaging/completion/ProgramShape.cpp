#include "packaging/completion/ProgramShape.h"

#include <algorithm>
#include <cctype>
#include <sstream>

#include <CLI/CLI.hpp>

namespace Vantor {

namespace {

using Kind = ValueShape::Kind;

// "0..5"; nothing for more than a few.
std::vector<std::string> fewNumbers(const std::string& range)
{
    std::vector<std::string> numbers;
    if (range.size() == 4 && range.compare(1, 2, "..") == 0 && std::isdigit(range[0]) != 0 &&
        std::isdigit(range[3]) != 0)
        for (char digit = range[0]; digit <= range[3]; ++digit)
            numbers.emplace_back(1, digit);
    return numbers;
}

// What the help calls a value says what it is.
ValueShape valueCalled(const std::string& name, const KnownWords& words)
{
    if (name == "FILE" || name == "PATH")
        return {name, Kind::File, {}};
    if (name == "DIR")
        return {name, Kind::Folder, {}};
    if (name == "IMAGE")
        return {name, Kind::Picture, {}};
    const auto known = words.find(name);
    if (known != words.end())
        return {name, name.find(',') == std::string::npos ? Kind::Word : Kind::Words, known->second};
    if (name == "COMMAND")
        return {name, Kind::Order, {}};
    if (name == "PROGRAM")
        return {name, Kind::Program, {}};
    const std::vector<std::string> numbers = fewNumbers(name);
    return {name, numbers.empty() ? Kind::Free : Kind::Word, numbers};
}

// "TIME 'COMMAND'" is two values, "UINT:UINT in [0 - 31]" one.
std::vector<ValueShape> valuesOf(const CLI::Option& option, const KnownWords& words)
{
    std::vector<ValueShape> values;
    if (option.get_items_expected_max() == 0)
        return values;
    std::string names = option.get_option_text().empty() ? option.get_type_name() : option.get_option_text();
    names = names.substr(0, names.find(":UINT"));
    names.erase(std::remove(names.begin(), names.end(), '\''), names.end());
    std::istringstream text(names);
    for (std::string name; text >> name;)
        values.push_back(valueCalled(name, words));
    return values;
}

OptionShape optionOf(const CLI::App& app, const CLI::Option& option, const KnownWords& words)
{
    OptionShape shape;
    for (const std::string& name : option.get_snames())
        shape.names.push_back("-" + name);
    for (const std::string& name : option.get_lnames())
        shape.names.push_back("--" + name);
    shape.description = option.get_description();
    std::replace(shape.description.begin(), shape.description.end(), '\n', ' ');
    shape.values = valuesOf(option, words);
    shape.isRepeatable = option.get_expected_max() > 1;
    shape.isAlone = &option == app.get_help_ptr() || &option == app.get_version_ptr();
    for (const CLI::Option* const other : option.get_excludes())
        if (!other->get_positional())
            shape.excludes.push_back(other->get_name());
    return shape;
}

CommandShape commandOf(const CLI::App& app, const KnownWords& words)
{
    CommandShape shape;
    shape.name = app.get_parent() == nullptr ? "" : app.get_name();
    shape.description = app.get_description();
    for (const CLI::Option* const option : app.get_options())
        if (option->get_positional()) {
            shape.arguments.push_back(valueCalled(option->get_name(), words));
            shape.isLastArgumentRepeatable = option->get_expected_max() > 1;
        } else {
            shape.options.push_back(optionOf(app, *option, words));
        }
    return shape;
}

} // namespace

ProgramShape shapeOf(const CLI::App& app, const KnownWords& words)
{
    ProgramShape shape{app.get_name(), commandOf(app, words), {}};
    for (const CLI::App* const subcommand : app.get_subcommands({})) {
        CommandShape command = commandOf(*subcommand, words);
        if (subcommand->get_fallthrough())
            for (const OptionShape& option : shape.own.options)
                if (!option.isAlone)
                    command.options.push_back(option);
        shape.commands.push_back(command);
    }
    return shape;
}

} // namespace Vantor

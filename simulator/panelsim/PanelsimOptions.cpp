#include "simulator/panelsim/PanelsimOptions.h"

#include "simulator/bus/PanelBus.h"
#include "simulator/bus/QuantityText.h"
#include "simulator/bus/UserText.h"
#include "simulator/panelsim/LcdOption.h"
#include "simulator/panelsim/OrderLine.h"
#include "simulator/panelsim/PanelsimHelp.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdio>
#include <iostream>
#include <sstream>
#include <string_view>
#include <utility>

#include <CLI/CLI.hpp>

namespace Vantor {

namespace {

using TimeAndOrder = std::pair<std::string, std::string>;

bool isOption(const std::string& word)
{
    return word.size() > 1 && word[0] == '-';
}

// COMMAND as several arguments, for want of quotes: the parser would take the further
// ones for PROGRAM, or complain of that program's arguments. `first` is where COMMAND
// begins; empty when all is well.
std::string findUnquotedOrder(const std::vector<std::string>& words, std::size_t first)
{
    if (first >= words.size() || !isOrderVerb(words[first]))
        return {};
    const bool hasSeparator = std::find(words.begin(), words.end(), "--") != words.end();
    std::string order = words[first];
    std::string unquoted;
    for (std::size_t i = first + 1; i < words.size() && !isOption(words[i]); ++i) {
        order += " " + words[i];
        // Without a separator, PROGRAM may be among these words.
        if (hasSeparator || parsePanelOrder(order).order)
            unquoted = order;
    }
    return unquoted;
}

void refuseUnquotedOrders(int argc, char** argv)
{
    const std::vector<std::string> words(argv, argv + argc);
    for (std::size_t i = 1; i < words.size() && words[i] != "--"; ++i) {
        if (words[i] != "--at")
            continue;
        const std::string order = findUnquotedOrder(words, i + 2);
        if (!order.empty())
            throw CLI::ValidationError("--at " + words[i + 1], "quote COMMAND: '" + UserText::shown(order) + "'");
    }
}

// It would be taken for PROGRAM.
void refuseSeparatePort(int argc, char** argv)
{
    for (int i = 1; i + 1 < argc && argv[i] != std::string_view("--"); ++i) {
        const std::string_view next = argv[i + 1];
        if (argv[i] == std::string_view("--web") && !next.empty() &&
            next.find_first_not_of("0123456789") == std::string_view::npos)
            throw CLI::ValidationError("--web", "its port stands behind '=': --web=" + UserText::shown(next));
    }
}

TimedOrder parseTimedOrder(const TimeAndOrder& text)
{
    const ParsedTime time = parseTime(text.first);
    if (!time.time)
        throw CLI::ValidationError("--at " + text.first, time.error);
    const ParsedOrder parsed = OrderLine::parse(text.second);
    if (!parsed.order)
        throw CLI::ValidationError("--at '" + text.second + "'", parsed.error);
    return {*time.time, *parsed.order};
}

std::map<std::uint16_t, PanelScreen::Size> parseLcdSizes(const std::vector<std::string>& texts)
{
    std::map<std::uint16_t, PanelScreen::Size> sizes;
    for (const std::string& text : texts) {
        const ParsedLcdOption lcd = parseLcdOption(text);
        if (!lcd.option)
            throw CLI::ValidationError("--lcd", lcd.error);
        if (!sizes.emplace(lcd.option->lcd, lcd.option->size).second)
            throw CLI::ValidationError("--lcd", "LCD " + std::to_string(lcd.option->lcd) + " is given twice");
    }
    return sizes;
}

// Only digits: the parser would take -1 for the largest number there is.
std::string refuseSign(const std::string& text)
{
    const bool isNumber = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
    return isNumber ? "" : "expected a number from 0, found '" + text + "'";
}

std::string refuseEmpty(const std::string& text)
{
    return text.empty() ? "needs a name" : "";
}

// A capture between the lines of PROGRAM would be of no use to anybody.
std::string refuseNoFile(const std::string& text)
{
    return text == "-" ? "needs the name of a file" : refuseEmpty(text);
}

std::string formatId(const PanelsimOptions& options)
{
    char text[10];
    std::snprintf(text, sizeof text, "%04x:%04x", options.vendorId, options.productId);
    return text;
}

// "dead:beef"
void parseId(const std::string& text, PanelsimOptions& options)
{
    const auto isDigit = [](unsigned char digit) { return std::isxdigit(digit) != 0; };
    if (text.size() != 9 || text[4] != ':' || std::count_if(text.begin(), text.end(), isDigit) != 8)
        throw CLI::ValidationError("--id", "expected VVVV:PPPP in hexadecimal, found '" + text + "'");
    options.vendorId = static_cast<std::uint16_t>(std::stoul(text.substr(0, 4), nullptr, 16));
    options.productId = static_cast<std::uint16_t>(std::stoul(text.substr(5), nullptr, 16));
}

std::string refuseDriver(const std::string& text)
{
    constexpr std::size_t longest = 63;
    return text.empty() || text.size() > longest || text.find_first_of("/\n") != std::string::npos
               ? "needs a driver's name, without '/' and of at most 63 bytes"
               : "";
}

std::chrono::nanoseconds parseChunkTime(const std::string& text)
{
    constexpr std::chrono::seconds longest{1000};
    const ParsedTime time = parseTime(text, PlainTime::Milliseconds);
    if (!time.time)
        throw CLI::ValidationError("--chunk-time", time.error);
    if (*time.time > longest)
        throw CLI::ValidationError("--chunk-time", "at most 1000s, found '" + text + "'");
    return *time.time;
}

// What is quoted of the command line is cut and made fit to be seen, wherever the parser
// has put it.
std::string makeShown(std::string message, int argc, char** argv)
{
    const std::vector<std::string> words(argv, argv + argc);
    for (const std::string& word : words) {
        // Of --option=VALUE, it may be VALUE alone.
        const std::size_t equals = word.find('=');
        for (const std::string& quoted :
             {word, equals != std::string::npos ? word.substr(equals + 1) : std::string()}) {
            const std::string shown = UserText::shown(quoted);
            if (shown == quoted)
                continue;
            for (auto at = message.find(quoted); at != std::string::npos; at = message.find(quoted, at + shown.size()))
                message.replace(at, quoted.size(), shown);
        }
    }
    return message;
}

// Of words that nobody expects, the parser lists all, with the values and the "--" between them.
std::string explain(const CLI::App& app, const CLI::ParseError& error)
{
    auto extras = app.remaining(true);
    extras.erase(std::remove(extras.begin(), extras.end(), "--"), extras.end());
    if (extras.empty())
        return error.what();
    if (app.get_subcommands().empty() && !isOption(extras.front()))
        return "'" + extras.front() + "' is no subcommand: there are run, attach and tell";
    // The value of a mistyped option passes for the program, and the program for too much.
    const auto option = std::find_if(extras.begin(), extras.end(), isOption);
    return "'" + (option != extras.end() ? *option : extras.front()) + "' was not expected";
}

// Help and version to standard output, a complaint to standard error: the exit code.
int answer(const CLI::App& app, const CLI::ParseError& error, int argc, char** argv)
{
    std::ostringstream ignored;
    if (app.exit(error, std::cout, ignored) != 0)
        std::cerr << "panelsim: " << makeShown(explain(app, error), argc, argv)
                  << "\nRun with --help for more information.\n";
    else if (!std::cout.flush())
        std::cerr << "panelsim: cannot write to standard output\n";
    else
        return 0;
    return PanelsimExit::failure;
}

constexpr char flagValue[] = "true"; // of a flag that has none of its own

// What the command line says in words that need a second look.
struct RawOptions {
    std::vector<TimeAndOrder> timed;
    std::vector<std::string> lcds;
    std::string chunkTime;
    std::string id;
    bool withoutScatterGather = false;
    std::string web; // flagValue without a value
    std::vector<unsigned int> ignoredTypes;
};

void addCommonOptions(CLI::App& command, PanelsimOptions& options, RawOptions& raw)
{
    command
        .add_option("--seed", options.seed,
                    "Device id in the packets of panel 0, and one more for each further panel; hosts replace it")
        ->check(refuseSign, "")
        ->capture_default_str();
    command
        .add_option("--max-packet", options.maxPacketSize,
                    "Packet limit in bytes that the panels announce; hosts ignore 1024 or less and use 1100")
        ->check(refuseSign, "")
        ->check(CLI::Range(0U, static_cast<unsigned int>(UINT16_MAX)))
        ->capture_default_str();
    command
        .add_option("--script", options.scriptFile, "Lines TIME COMMAND, as --at has them, or what --log has written")
        ->type_name("FILE")
        ->check(refuseEmpty, "");
    command.add_option("--id", raw.id, "USB vendor and product id of the panels, in hexadecimal")
        ->type_name("VVVV:PPPP")
        ->capture_default_str();
    command.add_option("--log", options.logFile, "Write one line for each thing that happens; - is standard error")
        ->type_name("FILE")
        ->check(refuseEmpty, "");
    command
        .add_option("--record", options.captureFile,
                    "Write all that crosses the links, as a capture that Wireshark and tshark open")
        ->type_name("FILE")
        ->check(refuseNoFile, "");
    command
        .add_option("--control", options.controlPath,
                    "Take commands of 'panelsim tell' at a socket of this name, not of one of its own")
        ->type_name("PATH")
        ->check(refuseEmpty, "");
    command.add_flag(
        "--web", raw.web,
        "Serve a page that shows the panels, at a free port of this machine or at --web=PORT, --web=ADDRESS:PORT");
    command.add_option("--lcd", raw.lcds, "Size of LCD L in pixels; may be repeated")
        ->type_name("L=WxH")
        ->allow_extra_args(false);
    command.add_option("--png", options.pngFolder, "Write what the LCDs show at the end, as PNG files")
        ->type_name("DIR")
        ->check(refuseEmpty, "");
    command.add_flag("--show", options.show, "Print what the LCDs show at the end");
    command.add_option("--flash-dir", options.flashFolder, "Keep what is in the panels' flash memory, as files")
        ->type_name("DIR")
        ->check(refuseEmpty, "");
    command
        .add_option("--chunk-time", raw.chunkTime,
                    "In which a panel writes a chunk of firmware, at most 1000s; a plain number is milliseconds")
        ->type_name("TIME")
        ->capture_default_str();
}

void addPanels(CLI::App& command, PanelsimOptions& options, const char* description)
{
    command.add_option("--panels", options.panels, description)
        ->check(refuseSign, "")
        ->check(CLI::Range(0U, PanelBus::maxPanels))
        ->capture_default_str();
}

void addTimedOrders(CLI::App& command, RawOptions& raw, const char* description)
{
    command.add_option("--at", raw.timed, description)
        ->type_name("TIME 'COMMAND'")
        ->allow_extra_args(false); // would take the -- before PROGRAM for its own end
}

std::set<PacketType> parseTypes(const std::vector<unsigned int>& numbers)
{
    std::set<PacketType> types;
    for (const unsigned int number : numbers)
        types.insert(static_cast<PacketType>(number));
    return types;
}

void addCaptureOptions(CLI::App& run, PanelsimOptions& options, RawOptions& raw)
{
    CLI::Option* const replay =
        run.add_option("--replay", options.replayFile, "Have the panels do and say what they did in a capture")
            ->type_name("FILE")
            ->check(refuseEmpty, "");
    for (const char* const name : {"--panels", "--max-packet", "--seed", "--flash-dir", "--chunk-time"})
        replay->excludes(run.get_option(name));
    run.add_flag("--fast", options.fast, "Replay without the capture's own pace")->needs(replay);
    CLI::Option* const expect =
        run.add_option("--expect", options.expectFile, "Compare what PROGRAM sends with what was sent in a capture")
            ->type_name("FILE")
            ->check(refuseEmpty, "");
    run.add_flag("--whole-order", options.wholeOrder, "Compare the order between records of different types, too")
        ->needs(expect);
    run.add_option("--ignore-type", raw.ignoredTypes,
                   "Neither wait for records of this type nor compare them; may be repeated")
        ->type_name("TYPE")
        ->allow_extra_args(false)
        ->check(refuseSign, "")
        ->check(CLI::Range(0U, 255U));
}

void addRun(CLI::App& app, PanelsimOptions& options, RawOptions& raw)
{
    CLI::App* const run = app.add_subcommand("run", "Run PROGRAM on a bus of its own");
    addPanels(*run, options, "Panels plugged in before PROGRAM starts");
    addTimedOrders(*run, raw, "What happens TIME after PROGRAM's start; may be repeated");
    addCommonOptions(*run, options, raw);
    run->add_flag("--no-scatter-gather", raw.withoutScatterGather, "Have libusb split transfers into pieces of 16 KiB");
    addCaptureOptions(*run, options, raw);
    run->add_flag("--autosuspend", options.autosuspend, "Have sysfs say that the kernel may suspend the panels");
    run->add_option("--kernel-driver", options.kernelDriver, "A driver of the kernel that holds the panels")
        ->type_name("NAME")
        ->check(refuseDriver, "");
    run->add_option("PROGRAM", options.program, "The program and its arguments, after --")->required();
    run->footer(PanelsimHelp::getRunFooter());
    run->final_callback([&options] { options.subcommand = PanelsimOptions::Subcommand::Run; });
}

void addAttach(CLI::App& app, PanelsimOptions& options, RawOptions& raw)
{
    CLI::App* const attach = app.add_subcommand("attach", "Plug panels into this machine's kernel, for any program");
    addPanels(*attach, options, "Panels plugged in at the start");
    addTimedOrders(*attach, raw, "What happens TIME after that; may be repeated");
    addCommonOptions(*attach, options, raw);
    attach->add_option("--vhci", options.vhciFolder, "Where sysfs has the kernel's first virtual host controller")
        ->type_name("DIR")
        ->capture_default_str();
    attach->footer(PanelsimHelp::getAttachFooter());
    attach->final_callback([&options] { options.subcommand = PanelsimOptions::Subcommand::Attach; });
}

void addTell(CLI::App& app, PanelsimOptions& options)
{
    CLI::App* const tell = app.add_subcommand("tell", "Give COMMANDs to a simulation that is running");
    tell->add_option("--to", options.controlPath, "The simulation's control socket, when there are several")
        ->type_name("PATH")
        ->check(refuseEmpty, "");
    CLI::Option* const list =
        tell->add_flag("--list", options.list, "Print the simulations that are running: socket, process, command line");
    tell->add_option("COMMAND", options.commands, "Each in quotes; - reads lines from standard input")->excludes(list);
    tell->footer(PanelsimHelp::getTellFooter());
    tell->final_callback([&options] { options.subcommand = PanelsimOptions::Subcommand::Tell; });
}

// Before the first is told: of several words, for want of quotes, one may be a command.
void checkCommands(PanelsimOptions& options)
{
    std::vector<std::string>& commands = options.commands;
    if (commands.empty() && !options.list)
        throw CLI::RequiredError("COMMAND");
    if (commands == std::vector<std::string>{"-"}) {
        options.fromInput = true;
        commands.clear();
    }
    std::string all;
    for (const std::string& command : commands)
        all += (all.empty() ? "" : " ") + command;
    for (const std::string& command : commands) {
        const std::string error = command == "quit" ? "" : OrderLine::parse(command).error;
        if (error.empty())
            continue;
        if (commands.size() > 1 && OrderLine::parse(all).order)
            throw CLI::ValidationError("tell", "quote COMMAND: '" + UserText::shown(all) + "'");
        throw CLI::ValidationError("'" + command + "'", error);
    }
}

// The parser takes "[ -e file ]" for a list and leaves the brackets away.
void restoreProgram(int argc, char** argv, std::vector<std::string>& program)
{
    char** const end = argv + argc;
    char** const separator = std::find(argv, end, std::string_view("--"));
    if (!program.empty() && separator < end - 1 && program.front() == separator[1])
        program.assign(separator + 1, end);
}

void define(CLI::App& app, PanelsimOptions& options, RawOptions& raw)
{
    raw.id = formatId(options);
    raw.chunkTime = std::to_string(options.chunkTime / std::chrono::milliseconds(1)) + "ms";
    app.name("panelsim");
    app.description("Simulated panels, for a program that uses libusb or for the whole machine.");
    app.set_version_flag("--version", "panelsim " MORVANE_PANELSIM_VERSION);
    app.require_subcommand(1);
    addRun(app, options, raw);
    addAttach(app, options, raw);
    addTell(app, options);
}

} // namespace

PanelsimArguments parsePanelsimArguments(int argc, char** argv)
{
    PanelsimArguments arguments;
    PanelsimOptions& options = arguments.options;
    RawOptions raw;
    CLI::App app;
    define(app, options, raw);
    try {
        refuseUnquotedOrders(argc, argv);
        refuseSeparatePort(argc, argv);
        app.parse(argc, argv);
        restoreProgram(argc, argv, options.program);
        for (const TimeAndOrder& text : raw.timed)
            options.timedOrders.push_back(parseTimedOrder(text));
        options.lcdSizes = parseLcdSizes(raw.lcds);
        options.chunkTime = parseChunkTime(raw.chunkTime);
        if (options.subcommand == PanelsimOptions::Subcommand::Tell)
            checkCommands(options);
        options.ignoredTypes = parseTypes(raw.ignoredTypes);
        if (!options.ignoredTypes.empty() && options.replayFile.empty() && options.expectFile.empty())
            throw CLI::RequiresError("--ignore-type", "--replay or --expect");
        parseId(raw.id, options);
        if (!raw.web.empty())
            options.webAddress = raw.web == flagValue ? "" : raw.web;
    } catch (const CLI::ParseError& error) {
        arguments.exitCode = answer(app, error, argc, argv);
        return arguments;
    }
    options.scatterGather = !raw.withoutScatterGather;
    arguments.run = true;
    return arguments;
}

void showPanelsimArguments(const std::function<void(const CLI::App&)>& look)
{
    PanelsimOptions options;
    RawOptions raw;
    CLI::App app;
    define(app, options, raw);
    look(app);
}

} // namespace Vantor

#include "panelctl/CommandLine.h"

#include "libMorvaneHostUsb/UsbManager.h"
#include "panelctl/command/DrawCommand.h"
#include "panelctl/command/InfoCommand.h"
#include "panelctl/command/ListCommand.h"
#include "panelctl/command/SendCommand.h"
#include "panelctl/command/StatsCommand.h"
#include "panelctl/command/WatchCommand.h"
#include "panelctl/doctor/Ailment.h"
#include "panelctl/doctor/DoctorCommand.h"
#include "panelctl/doctor/PanelRule.h"
#include "panelctl/flash/FlashCommand.h"
#include "panelctl/picture/DitherNames.h"
#include "panelctl/session/PacketNames.h"
#include "panelctl/session/UsbIds.h"
#include "panelctl/terminal/Failure.h"
#include "panelctl/terminal/Wording.h"
#include "protocol/PacketType.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <limits>
#include <set>
#include <sstream>

#include <CLI/CLI.hpp>

namespace Vantor {

namespace {

using Seconds = std::chrono::duration<double>;

constexpr const char* helpFooter = "Panels are named by uid (0104) or by bus and ports (1-4), as `panelctl list`\n"
                                   "shows them. Results go to standard output; the library's log and errors go to\n"
                                   "standard error.\n"
                                   "\n"
                                   "Exit codes:\n"
                                   "  0    done; of list and stats also when a panel has not described itself\n"
                                   "  1    failed: the panel (of list and stats: one of them) can't be used, the\n"
                                   "       record or picture is refused, output can't be written\n"
                                   "  2    bad arguments, an unreadable file, or no word on which of several panels\n"
                                   "  3    no panel attached, or not the one asked for\n"
                                   "  4    the panel went away meanwhile\n"
                                   "  5    timed out\n"
                                   "  6    flash: the panel is left half written, or has confirmed nothing\n"
                                   "  7    flash: all is written, but the panel does not answer since\n"
                                   "  10+  doctor: what is amiss, see `panelctl doctor --help`\n"
                                   "  130  interrupted by Ctrl-C (143 by SIGTERM), after an orderly shutdown";

constexpr const char* moreHelp = "`panelctl --help` shows the common options and the exit codes.";

constexpr const char* statsFooter =
    "Without --every and --duration the panels are asked for their information, and it\n"
    "is shown at once; the exit code is 1 when one of them can't be used. The counts\n"
    "are those of this panelctl, which holds the panels meanwhile: what another program\n"
    "does with them is not in them. A panel's begin when it comes, also when it comes\n"
    "back. What is 0 in both columns is left out.\n"
    "\n";

constexpr const char* drawFooter = "The picture, of any PNG kind, is laid on white where it is transparent, and made\n"
                                   "grey: (299 R + 587 G + 114 B + 500) / 1000, in integers. Gamma and colour\n"
                                   "profiles are ignored. It is then scaled to fit --size, with its aspect and\n"
                                   "centred on white: every pixel becomes the mean, rounded half up, of the area\n"
                                   "that it covers. A picture of exactly that size is not touched. 16 bits are\n"
                                   "rounded to 8; at most 16384 pixels a side and 16777216 in all are read.\n"
                                   "--invert turns all of it around, margins and transparent parts included.\n"
                                   "\n"
                                   "The picture is dithered before it gets its margins, which stay clean. Dithering\n"
                                   "passes errors on, and what exceeds white wraps: white beside grey gets dark\n"
                                   "specks, and with floyd-steinberg smooth shades get some too. For drawings and\n"
                                   "text use --dither threshold. Dark pixels are sent as 1 (on).\n"
                                   "\n"
                                   "The panel does not tell the size of its LCDs: what lies outside is not shown,\n"
                                   "and nobody notices.\n"
                                   "\n"
                                   "Without --encoded it goes as rows of packed bits. If W is not a multiple of 8,\n"
                                   "a second layer repeats the last 8 columns, because a slice of packed bits is\n"
                                   "cut to whole bytes; if that can't be (W below 8, or the 8 columns begin beyond\n"
                                   "column 255) it goes as run-length words. Nothing outside W x H is drawn on.\n"
                                   "\n";

constexpr const char* flashFooter = "Give the main MCU's image, the servo MCU's, or both; an MCU without one is left\n"
                                    "as it is. Before anything is sent the files are checked (at most 16 MiB each),\n"
                                    "the panel is asked for its packet limit, and you are shown what is going to\n"
                                    "happen, and asked.\n"
                                    "\n"
                                    "--timeout is the longest wait for the panel's information (default 5) and, from\n"
                                    "3 up, the longest time without progress and for an answer afterwards (default\n"
                                    "30): a healthy upgrade stands still for 0.7 s between two images, and while a\n"
                                    "panel erases.\n"
                                    "\n"
                                    "The time shown beforehand is a usual panel's, which takes 0.11 s for a chunk of\n"
                                    "4,096 bytes. Progress is a bar on a terminal, and a line for each 5 %\n"
                                    "elsewhere and with --log-level 4 or 5.\n"
                                    "\n"
                                    "While it is written a first Ctrl-C or SIGTERM only warns, as the panel would be\n"
                                    "left half written; a second one leaves. Two within half a second count as one.\n"
                                    "Before the start, and while it waits for the panel's answer at the end, the\n"
                                    "first one leaves. After an upgrade that failed, do as the message says.\n"
                                    "A terminal that is closed, or output that nobody reads, does not end it, nor\n"
                                    "change the exit code; a line on standard error then says how it went.\n"
                                    "\n"
                                    "Exit codes:\n"
                                    "  0    written, every chunk confirmed, and the panel answers again\n"
                                    "  1    the panel can't be used or takes too small packets, or you said no\n"
                                    "  2    bad arguments or files, no word on which panel, or nobody to ask\n"
                                    "  3    no panel attached, or not the one asked for\n"
                                    "  4    the panel went away: half written if that was meanwhile\n"
                                    "  5    no information from the panel: nothing was written\n"
                                    "  6    left half written, or nothing confirmed: no progress any more, or a chunk\n"
                                    "       not confirmed\n"
                                    "  7    all is written, but the panel does not answer since\n"
                                    "  130  interrupted, by Ctrl-C first (143: by SIGTERM): nothing sent, left half\n"
                                    "       written or all written, as the message says";

constexpr const char* jsonFlag = "--json";

constexpr const char* doctorFooter =
    "A line for each check: ok, or what was found, why that is a problem, and behind $\n"
    "the commands that mend it. A line that begins with - tells what could not be\n"
    "looked at. Errors keep a panel from being used, warnings do not. Nothing is\n"
    "changed. Root sees more: which program of another user drives a panel.\n"
    "It ends within --timeout and three seconds.\n"
    "\n"
    "Exit codes: 0 when a panel can be used and nothing is amiss; else that of the\n"
    "first error or, without one, of the first warning, no-udevd last of these:\n";

// Seconds.
constexpr double defaultTimeout = 5;
constexpr double defaultPatience = 30; // of flash, for progress

std::string describeVersion()
{
    return "panelctl " MORVANE_PANELCTL_VERSION "\nlibMorvaneHostUsb " + UsbManager::getVersion() + "\npanels " +
           UsbIds::join(UsbIds::list(), ", ");
}

// The parser adds it.
std::string withoutLastNewline(std::string text)
{
    text.pop_back();
    return text;
}

std::chrono::nanoseconds toNanoseconds(double seconds)
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(Seconds(seconds));
}

// Refuses what is no time to wait: shorter than `shortest`, not a number, or over a day.
CLI::Validator timeFrom(double shortest)
{
    return CLI::Validator(
        [shortest](const std::string& text) {
            double seconds = 0;
            if (CLI::detail::lexical_cast(text, seconds) && seconds >= shortest && seconds <= 86400)
                return std::string();
            std::ostringstream refusal;
            refusal << quote(text) << " is not a time in seconds, from " << shortest << " to 86400";
            return refusal.str();
        },
        "");
}

template <typename Number> CLI::Validator numberBetween(Number low, Number high, const std::string& what)
{
    return CLI::Validator(
        [=](const std::string& text) {
            Number value{};
            const bool isGood = text.find_first_not_of("0123456789") == std::string::npos && !text.empty() &&
                                (text.size() == 1 || text[0] != '0') && CLI::detail::lexical_cast(text, value) &&
                                value >= low && value <= high;
            return isGood
                       ? std::string()
                       : quote(text) + " is not " + what + ", " + std::to_string(low) + " to " + std::to_string(high);
        },
        "");
}

// "144x168" with 'x', "10,20" with ','; both numbers plain decimal, `low` to 255.
template <typename Number>
bool parsePair(const std::string& text, char separator, int low, Number& first, Number& second)
{
    const std::size_t middle = text.find(separator);
    if (middle == std::string::npos)
        return false;
    const CLI::Validator isSide = numberBetween(low, 255, "");
    if (!isSide(text.substr(0, middle)).empty() || !isSide(text.substr(middle + 1)).empty())
        return false;
    first = static_cast<Number>(std::stoi(text));
    second = static_cast<Number>(std::stoi(text.substr(middle + 1)));
    return true;
}

// "0,FirmwareUpgradeCommand"
bool parseTypes(const std::string& text, std::set<PacketType>& types)
{
    std::istringstream list(text + ",");
    for (std::string word; std::getline(list, word, ',');) {
        const std::optional<PacketType> type = PacketNames::parse(word);
        if (!type)
            return false;
        types.insert(*type);
    }
    return true;
}

// Refuses as not `what` a value that can't be parsed.
CLI::Option* addParsed(CLI::App& command, const std::string& name, const std::string& description,
                       const std::string& what, const std::function<bool(const std::string&)>& parse)
{
    return command.add_option_function<std::string>(
        name,
        [name, what, parse](const std::string& text) {
            if (!parse(text))
                throw CLI::ValidationError(name, quote(text) + " is not " + what);
        },
        description);
}

// Absolute, without a slash at its end: of this system itself nothing is left.
std::string rootFrom(const std::string& folder)
{
    std::error_code error;
    if (!std::filesystem::is_directory(folder, error))
        throw CLI::ValidationError("--root", quote(folder) + " is not a folder");
    std::string path = std::filesystem::absolute(folder).lexically_normal().string();
    while (!path.empty() && path.back() == '/')
        path.pop_back();
    return path;
}

// The parser with what it fills.
class Parser {
public:
    Parser();
    CommandLine parse(int argc, char** argv);
    const CLI::App& getApp() const { return m_app; }

private:
    void addList();
    void addInfo();
    void addWatch();
    void addStats();
    void addSend();
    void addDraw();
    void addFlash();
    void addDoctor();
    std::chrono::nanoseconds getTimeout() const;
    CLI::App* add(const char* name, const char* description, std::function<std::unique_ptr<Command>()> make);
    CLI::Option* addPanel(CLI::App& command);
    void addDithering(CLI::App& command);
    std::string listCommands() const;
    std::string hint(const std::string& command, const std::string& option) const;
    Failure refusal(const std::string& complaint) const;
    void refuseEmptyValues(int argc, char** argv) const;
    void refuseExtras(int argc, char** argv, const CLI::App& command) const;
    std::string explain(const CLI::ParseError& error) const;
    std::string explainRepetition(const CLI::ParseError& error) const;
    std::string explainExtras() const;

    CLI::App m_app;
    std::vector<std::pair<CLI::App*, std::function<std::unique_ptr<Command>()>>> m_commands;

    int m_logLevel = 2;
    std::optional<double> m_timeout;
    std::optional<std::string> m_panel;
    std::optional<double> m_duration;
    std::optional<double> m_every;
    WatchCommand::Options m_watch;
    StatsCommand::Options m_stats;
    SendCommand::Options m_send;
    DrawCommand::Options m_draw;
    FlashCommand::Options m_flash;
    DoctorCommand::Options m_doctor;
};

Parser::Parser() : m_app("Finds panels on the USB bus and talks to them.", "panelctl")
{
    m_app.require_subcommand(0, 1);
    m_app.fallthrough();
    m_app.get_formatter()->column_width(26);
    m_app.set_help_flag("-h,--help", "Print this help, or a command's");
    m_app.set_version_flag(
        "--version", describeVersion,
        "Print the versions of the tool and the library, and\nthe USB ids of the panels that they know");
    m_app
        .add_option("--log-level", m_logLevel,
                    "The library's log: 0 none, 2 errors (default),\n3 summaries, 4 device life, threads and "
                    "firmware,\n5 transfers; each with those before it")
        ->option_text("0..5")
        ->check(numberBetween(0, 5, "a log level"));
    m_app
        .add_option("--timeout", m_timeout,
                    "Longest wait for a panel's information, and for\na record or picture to leave (default 5)")
        ->option_text("SECONDS")
        ->check(timeFrom(0.001));
    m_app.add_flag(jsonFlag, "Say everything as JSON on standard output, one object\na line: docs/json.md");
    m_app.footer(helpFooter);
    addList();
    addInfo();
    addWatch();
    addStats();
    addSend();
    addDraw();
    addFlash();
    addDoctor();
}

CLI::App* Parser::add(const char* name, const char* description, std::function<std::unique_ptr<Command>()> make)
{
    CLI::App* const command = m_app.add_subcommand(name, description);
    command->footer(moreHelp);
    m_commands.emplace_back(command, std::move(make));
    return command;
}

std::chrono::nanoseconds Parser::getTimeout() const
{
    return toNanoseconds(m_timeout.value_or(defaultTimeout));
}

CLI::Option* Parser::addPanel(CLI::App& command)
{
    return command.add_option("--panel", m_panel, "Which panel, if several are attached")->option_text("PANEL");
}

void Parser::addList()
{
    CLI::App* const command =
        add("list", "List the panels attached", [this] { return std::make_unique<ListCommand>(getTimeout()); });
    command->footer("Exit code 0 also when a panel gave no information; 1 when one can't be used,\n"
                    "3 when there is none.\n\n" +
                    std::string(moreHelp));
}

void Parser::addInfo()
{
    CLI::App* const command = add("info", "Show what a panel says of itself",
                                  [this] { return std::make_unique<InfoCommand>(getTimeout(), m_panel); });
    command->add_option("PANEL", m_panel, "Which panel; short for --panel")
        ->option_text(" ")
        ->excludes(addPanel(*command));
}

void Parser::addWatch()
{
    CLI::App* const command = add("watch", "Print arrivals, departures and packets as they come", [this] {
        if (m_duration)
            m_watch.duration = toNanoseconds(*m_duration);
        m_watch.panel = m_panel;
        return std::make_unique<WatchCommand>(m_watch);
    });
    command->add_option("--duration", m_duration, "End after this time")->option_text("SECONDS")->check(timeFrom(0));
    command->add_option("--count", m_watch.count, "End after this many packets")
        ->option_text("N")
        ->check(numberBetween<std::uint64_t>(1, std::numeric_limits<std::int64_t>::max(), "a number of packets"));
    command->add_option("--bytes", m_watch.shownBytes, "Show at most this many bytes of a packet")
        ->option_text("N")
        ->check(numberBetween<std::uint64_t>(0, 65535, "a number of bytes"));
    command
        ->add_option("--panel", m_panel,
                     "Show this panel alone, also when it comes back;\nbus and ports where none is yet are waited for")
        ->option_text("PANEL");
    command->add_flag("--stats", m_watch.hasStatistics, "Show at the end what `panelctl stats` shows");
    addParsed(*command, "--type", "Show packets of these types alone: numbers, or\nnames like DeviceInformation",
              "a list of types, each 0 to 255 or one of " + PacketNames::listAll(),
              [this](const std::string& text) { return parseTypes(text, m_watch.types); })
        ->option_text("TYPE[,TYPE...]");
}

void Parser::addStats()
{
    CLI::App* const command = add("stats", "Show what the library counts, per panel and in all", [this] {
        if (m_duration)
            m_stats.duration = toNanoseconds(*m_duration);
        if (m_every)
            m_stats.every = toNanoseconds(*m_every);
        m_stats.panel = m_panel;
        m_stats.timeout = getTimeout();
        return std::make_unique<StatsCommand>(m_stats);
    });
    command->add_option("--every", m_every, "Show it each time so much has passed")
        ->option_text("SECONDS")
        ->check(timeFrom(0.1));
    command->add_option("--duration", m_duration, "Listen for this time, and show it at the end")
        ->option_text("SECONDS")
        ->check(timeFrom(0));
    command->add_option("--panel", m_panel, "Show this panel alone, also when it comes back")->option_text("PANEL");
    command->footer(statsFooter + std::string(moreHelp));
}

void Parser::addSend()
{
    CLI::App* const command = add("send", "Send a record to a panel, and wait until it has left", [this] {
        if (m_send.hex.has_value() == m_send.file.has_value())
            throw Failure(ExitCode::Usage, "send: give the record's payload with either --hex or --file.");
        m_send.panel = m_panel;
        return std::make_unique<SendCommand>(getTimeout(), m_send);
    });
    command->add_option("--type", m_send.type, "The record's type")
        ->option_text("0..46")
        ->check(numberBetween(0, packetTypeCount - 1, "a record type"))
        ->required();
    command->add_option("--key", m_send.key, "Send it as the latest value of this key")
        ->option_text("N")
        ->check(numberBetween<std::uint64_t>(0, std::numeric_limits<std::uint32_t>::max(), "a key"));
    command
        ->add_option("--hex", m_send.hex, "The payload, two digits a byte: 'de ad 00 01',\nde:ad:00:01 or 0xdead0001")
        ->option_text("DIGITS");
    command->add_option("--file", m_send.file, "The payload, as the file's bytes; - is standard\ninput")
        ->option_text("FILE");
    addPanel(*command);
    command->add_option("--repeat", m_send.repeat, "Send it this often, one after the other")
        ->option_text("N")
        ->check(numberBetween<std::uint64_t>(1, 1000000000, "a number of times"));
}

void Parser::addDraw()
{
    CLI::App* const command = add("draw", "Draw a PNG file on an LCD, and wait until it has left", [this] {
        m_draw.panel = m_panel;
        return std::make_unique<DrawCommand>(getTimeout(), m_draw);
    });
    command->add_option("IMAGE", m_draw.file, "The picture, a PNG file")->option_text(" ")->required();
    command->add_option("--lcd", m_draw.lcd, "The LCD's number")
        ->option_text("L")
        ->check(numberBetween(0, 65535, "an LCD"))
        ->required();
    addPanel(*command);
    addParsed(*command, "--size", "Scaled to fit this size (default 144x168)", "a size, 1x1 to 255x255",
              [this](const std::string& text) { return parsePair(text, 'x', 1, m_draw.width, m_draw.height); })
        ->option_text("WxH");
    addParsed(*command, "--at", "Column and row of its top left corner\n(default 0,0)", "a position, 0,0 to 255,255",
              [this](const std::string& text) { return parsePair(text, ',', 0, m_draw.x, m_draw.y); })
        ->option_text("X,Y");
    addDithering(*command);
    command->add_flag("--invert", m_draw.invert, "Black for white, before it is dithered");
    command->add_flag("--encoded", m_draw.encoded, "Send it as run-length words");
    command->footer(drawFooter + std::string(moreHelp));
}

void Parser::addFlash()
{
    CLI::App* const command = add("flash", "Write firmware to a panel", [this] {
        constexpr double shortest = std::chrono::duration<double>(FlashCommand::shortestPatience).count();
        if (m_timeout && *m_timeout < shortest)
            throw Failure(ExitCode::Usage, "flash: --timeout: less than 3 s may end a healthy upgrade: a panel may "
                                           "have to erase for a chunk.");
        m_flash.panel = m_panel;
        m_flash.informationLimit = getTimeout();
        m_flash.patience = toNanoseconds(m_timeout.value_or(defaultPatience));
        return std::make_unique<FlashCommand>(m_flash);
    });
    command->add_option("--main", m_flash.mainFile, "The main MCU's image")->option_text("FILE");
    command->add_option("--servo", m_flash.servoFile, "The servo MCU's image")->option_text("FILE");
    addPanel(*command);
    command->add_flag("--yes", m_flash.isConfirmed, "Do not ask");
    command->footer(flashFooter);
}

void Parser::addDoctor()
{
    CLI::App* const command = add("doctor", "Say why no panel can be used, and what mends it", [this] {
        m_doctor.timeout = getTimeout();
        return std::make_unique<DoctorCommand>(m_doctor);
    });
    command
        ->add_option_function<std::string>(
            "--root", [this](const std::string& folder) { m_doctor.places.root = rootFrom(folder); },
            "Look below this folder for udev's rules and\nsocket, users and groups: another system's.\n"
            "For those no commands are shown then")
        ->option_text("DIR");
    command->set_version_flag(
        "--rule", [] { return withoutLastNewline(PanelRule::text); },
        "Print the udev rule that belongs to this build,\nand look at nothing");
    command->footer(doctorFooter + explainAilments() + "\n" + moreHelp);
}

void Parser::addDithering(CLI::App& command)
{
    addParsed(command, "--dither", DitherNames::listAll() + "\n(default)", DitherNames::listAll(),
              [this](const std::string& name) {
                  const std::optional<LcdHelper::DitherType> type = DitherNames::parse(name);
                  m_draw.dither = type.value_or(m_draw.dither);
                  return type.has_value();
              })
        ->option_text("HOW");
    command.add_option("--threshold", m_draw.threshold, "Darker pixels become black (default 128)")
        ->option_text("0..255")
        ->check(numberBetween(0, 255, "a threshold"));
}

// "list, info and flash"
std::string Parser::listCommands() const
{
    std::string text;
    for (std::size_t i = 0; i < m_commands.size(); ++i)
        text += (i == 0 ? "" : i + 1 < m_commands.size() ? ", " : " and ") + m_commands[i].first->get_name();
    return text;
}

// Names the help that shows the option: the command's, if one was named and the option is its own.
std::string Parser::hint(const std::string& command, const std::string& option) const
{
    const bool isCommon = command.empty() || m_app.get_option_no_throw(option) != nullptr;
    return "\n`panelctl " + (isCommon ? "" : command + " ") + "--help` shows what there is.";
}

// A complaint about an option begins with its name.
Failure Parser::refusal(const std::string& complaint) const
{
    const std::vector<CLI::App*> commands = m_app.get_subcommands();
    return {ExitCode::Usage, complaint + "." +
                                 hint(commands.empty() ? "" : commands.front()->get_name(),
                                      complaint.substr(0, complaint.find_first_of(": ")))};
}

// The parser would take the next argument for the value, be it a command's name.
void Parser::refuseEmptyValues(int argc, char** argv) const
{
    std::string command;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        const bool isCommand = std::any_of(m_commands.begin(), m_commands.end(), [&argument](const auto& entry) {
            return entry.first->get_name() == argument;
        });
        if (command.empty() && isCommand)
            command = argument;
        if (argument.compare(0, 2, "--") == 0 && argument.find('=') + 1 == argument.size())
            throw Failure(ExitCode::Usage, quote(argument) +
                                               " has no value. Write it behind the '=', or in place of "
                                               "the '=' as the next argument: '' if it is empty." +
                                               hint(command, argument.substr(0, argument.size() - 1)));
    }
}

// The parser takes options behind "--" for options all the same, if the command has no more words.
void Parser::refuseExtras(int argc, char** argv, const CLI::App& command) const
{
    std::set<std::string> taken;
    for (const CLI::Option* const option : command.get_options())
        if (option->get_positional())
            taken.insert(option->results().begin(), option->results().end());
    taken.insert("--");
    for (char** word = std::find(argv, argv + argc, std::string("--")); word < argv + argc; ++word)
        if (taken.count(*word) == 0)
            throw refusal(quote(*word) + " was not expected");
}

std::string Parser::explain(const CLI::ParseError& error) const
{
    if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr)
        return explainExtras();
    if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr)
        return explainRepetition(error);
    // What the checks above refuse, they quote.
    return dynamic_cast<const CLI::ConversionError*>(&error) != nullptr ? makePrintable(error.what()) : error.what();
}

// The parser's own words for an option that came again name a count, and no mistake.
std::string Parser::explainRepetition(const CLI::ParseError& error) const
{
    std::vector<const CLI::Option*> options = m_app.get_options();
    for (const auto& command : m_commands)
        for (const CLI::Option* const option : command.first->get_options())
            options.push_back(option);
    const auto again =
        std::find_if(options.begin(), options.end(), [](const CLI::Option* option) { return option->count() > 1; });
    if (again == options.end())
        return error.what();
    return (*again)->get_name() + " was given " +
           ((*again)->count() == 2 ? "twice" : std::to_string((*again)->count()) + " times");
}

// One at a time: the next one is often only the first one's value.
std::string Parser::explainExtras() const
{
    const std::vector<std::string> extras = m_app.remaining(true);
    const std::string& first = extras.front();
    if (m_app.get_subcommands().empty() && first.compare(0, 1, "-") != 0)
        return quote(first) + " is no command: there are " + listCommands();
    return quote(first) + " was not expected";
}

CommandLine Parser::parse(int argc, char** argv)
{
    CommandLine line;
    refuseEmptyValues(argc, argv);
    try {
        m_app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        std::ostringstream out;
        std::ostringstream ignored;
        if (m_app.exit(error, out, ignored) != 0)
            throw refusal(explain(error));
        line.text = out.str();
        return line;
    }
    line.logLevel = m_logLevel;
    for (const auto& [app, make] : m_commands)
        if (app->parsed()) {
            refuseExtras(argc, argv, *app);
            line.command = make();
        }
    if (!line.command)
        throw refusal("no command given: there are " + listCommands());
    return line;
}

} // namespace

Output::Form CommandLine::formOf(int argc, char** argv)
{
    char** const end = std::find(argv, argv + argc, std::string("--")); // what follows are no options
    return std::find(argv, end, std::string(jsonFlag)) != end ? Output::Form::Json : Output::Form::Text;
}

CommandLine CommandLine::parse(int argc, char** argv)
{
    return Parser().parse(argc, argv);
}

void CommandLine::show(const std::function<void(const CLI::App&)>& look)
{
    look(Parser().getApp());
}

} // namespace Vantor

#include "panelfleet/CommandLine.h"

#include "libMorvaneHostUsb/Version.h"
#include "panelctl/terminal/Wording.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <sstream>

#include <CLI/CLI.hpp>

namespace Vantor {

namespace {

constexpr const char* programFooter = "Exit codes:\n"
                                      "  0    all that was selected is done; of list: something was listed\n"
                                      "  1    something unforeseen, or output can't be written\n"
                                      "  2    a wrong argument, configuration or file\n"
                                      "  3    nothing was selected; of status: no panel has that job\n"
                                      "  4    no broker: it can't be reached, does not let this client in, or does\n"
                                      "       not deliver what it must\n"
                                      "  5    a panel has failed, or it is not known what became of it\n"
                                      "  6    none of these, but panels are away, or of status under way\n"
                                      "  130  ended by Ctrl-C (143 by SIGTERM)";

constexpr const char* selectionFooter =
    "Panels are named as `panelfleet list` has them: shop-17/1-4.2. Patterns are the\n"
    "shell's: *, ?, [a-m]; quote them. Each option may be given several times. With\n"
    "--host and --place both must fit.\n";

constexpr const char* flashFooter =
    "\n"
    "Give an image of this machine, --main or --servo, at most 16 MiB; or the names of\n"
    "files that lie on the hosts, below their gateways' firmware.folder.\n"
    "\n"
    "Nothing is kept but the jobs that the broker retains: the same command with the\n"
    "same id goes on where an earlier one ended, was killed, or ran on another machine.\n"
    "A panel whose job has failed is not flashed again under its id; give another one.\n"
    "\n"
    "Once --stop-after panels have failed, also in earlier runs of this id, no more\n"
    "begins, and what is under way is waited for. So it is after a first Ctrl-C; a\n"
    "second one ends the program, and the gateways go on with what is under way.\n";

constexpr const char* moreHelp = "\n`panelfleet --help` shows the exit codes.";

constexpr int usageCode = 2;

bool isId(const std::string& text)
{
    return !text.empty() && text.size() <= 64 && std::all_of(text.begin(), text.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_' ||
               c == '.';
    });
}

bool isSum(const std::string& text)
{
    return text.size() == 64 && text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
}

bool isName(const std::string& text)
{
    return !text.empty() && text.size() <= 255 && text.front() != '/';
}

bool isGiven(const std::string& text)
{
    return !text.empty();
}

// "90", "90s", "5m", "2h", "1d"
std::optional<std::chrono::seconds> parseWait(const std::string& text)
{
    std::uint32_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [unit, error] = std::from_chars(text.data(), end, number);
    constexpr std::string_view units = "smhd";
    constexpr std::int64_t lengths[] = {1, 60, 3600, 86400};
    if (error != std::errc() || end - unit > 1 || (unit != end && units.find(*unit) == std::string_view::npos))
        return std::nullopt;
    const std::chrono::seconds time(number * (unit == end ? 1 : lengths[units.find(*unit)]));
    return time <= std::chrono::hours(24) ? std::optional(time) : std::nullopt;
}

CLI::Validator expecting(bool (*isGood)(const std::string&), const std::string& what)
{
    return CLI::Validator(
        [isGood, what](const std::string& text) {
            return isGood(text) ? std::string() : quote(text) + " is not " + what;
        },
        "");
}

CLI::Validator numberTo(unsigned int most)
{
    return CLI::Validator(
        [most](const std::string& text) {
            const bool isNumber = !text.empty() && text.size() <= 7 && text[0] != '0' &&
                                  text.find_first_not_of("0123456789") == std::string::npos;
            const int number = isNumber ? std::stoi(text) : 0;
            return number >= 1 && number <= static_cast<int>(most)
                       ? std::string()
                       : quote(text) + " is not a number from 1 to " + std::to_string(most);
        },
        "");
}

// The parser with what it fills.
class FleetParser {
public:
    FleetParser();
    CommandLine parse(int argc, char** argv);
    const CLI::App& getApp() const { return m_app; }

private:
    CLI::App& add(const char* name, const char* description);
    void addId(CLI::App& command);
    void addFlash();
    std::string findMistake() const;

    CLI::App m_app;
    CommandLine m_line;
    CLI::App* m_list = nullptr;
    CLI::App* m_flash = nullptr;
    CLI::App* m_status = nullptr;
};

FleetParser::FleetParser() : m_app("Rolls firmware out over a fleet of panels, by MQTT 5.", "panelfleet")
{
    m_app.set_version_flag("--version", "panelfleet " MORVANE_VERSION_STRING);
    m_app.require_subcommand(1);
    m_app.footer(programFooter);
    m_list = &add("list", "Say which panels there are.");
    m_list->footer(std::string("Without a selection: all.\n\n") + selectionFooter + moreHelp);
    addFlash();
    m_status = &add("status", "Say how far a roll-out is.");
    addId(*m_status);
    m_status->footer(std::string("Without a selection: all.\n\n") + selectionFooter + moreHelp);
}

CLI::App& FleetParser::add(const char* name, const char* description)
{
    CLI::App& command = *m_app.add_subcommand(name, description);
    command.add_option("panels", m_line.selection.panels, "These panels")
        ->option_text("HOST/PLACE...")
        ->check(expecting(Selection::isPanel, "HOST/PLACE"));
    const auto addPatterns = [&command](const char* option, std::vector<std::string>& target, const char* text) {
        command.add_option(option, target, text)
            ->option_text("PATTERN")
            ->allow_extra_args(false)
            ->check(expecting(isGiven, "a pattern"));
    };
    addPatterns("--host", m_line.selection.hosts, "The panels of these hosts");
    addPatterns("--place", m_line.selection.places, "The panels at these places");
    command.add_flag("--all", m_line.selection.isAll, "Every panel of every host");
    command
        .add_option("--config", m_line.configurationFile,
                    "Where the broker is, in TOML; by default\n~/.config/panelfleet.toml, if it exists")
        ->option_text("FILE")
        ->check(expecting(isGiven, "a file"));
    command.add_option("--broker", m_line.broker, "Where the broker is")
        ->option_text("ADDRESS[:PORT]")
        ->check(expecting(isGiven, "an address"));
    command.add_flag("--json", m_line.isJson, "Say everything as JSON, an object a line");
    return command;
}

void FleetParser::addId(CLI::App& command)
{
    command.add_option("--id", m_line.id, "The jobs' id: letters, digits, -, _ and .")
        ->option_text("ID")
        ->required()
        ->check(expecting(isId, "an id: 1 to 64 letters, digits, '-', '_' and '.'"));
}

void FleetParser::addFlash()
{
    m_flash = &add("flash", "Flash panels, a few at a time.");
    addId(*m_flash);
    const auto addText = [this](const char* option, std::string& target, const char* text, const char* word,
                                const CLI::Validator& check) {
        m_flash->add_option(option, target, text)->option_text(word)->check(check);
    };
    addText("--main", m_line.mainFile, "The main MCU's image", "FILE", expecting(isGiven, "a file"));
    addText("--servo", m_line.servoFile, "The servo MCU's image", "FILE", expecting(isGiven, "a file"));
    const char* const name = "a file's name below the gateways' folder";
    addText("--file-main", m_line.fileMain, "The main MCU's image on the hosts", "NAME", expecting(isName, name));
    addText("--file-servo", m_line.fileServo, "The servo MCU's image on the hosts", "NAME", expecting(isName, name));
    const char* const sum = "a SHA-256: 64 hexadecimal digits";
    addText("--sha256-main", m_line.sumMain, "What --file-main has to be", "SUM", expecting(isSum, sum));
    addText("--sha256-servo", m_line.sumServo, "What --file-servo has to be", "SUM", expecting(isSum, sum));
    m_flash->add_option("--at-once", m_line.atOnce, "Upgrades under way at a time (default 4)")
        ->option_text("N")
        ->check(numberTo(1000));
    m_flash->add_option("--stop-after", m_line.stopAfter, "Begin no more after M failures (default 1)")
        ->option_text("M")
        ->check(numberTo(1000000));
    m_flash
        ->add_option_function<std::string>(
            "--wait",
            [this](const std::string& text) {
                const auto time = parseWait(text);
                if (!time)
                    throw CLI::ValidationError("--wait", quote(text) + " is not a time, as in 90s, 5m, 2h; to 1d");
                m_line.wait = *time;
            },
            "Wait for panels that are away, that long after\nthe last upgrade (default 0s)")
        ->option_text("TIME");
    m_flash->add_flag("--dry-run", m_line.isDryRun, "Say what would be done, and do nothing");
    m_flash->footer(std::string(selectionFooter) + flashFooter + moreHelp);
}

// What no option alone can tell; empty: nothing.
std::string FleetParser::findMistake() const
{
    if (!m_flash->parsed())
        return "";
    const bool hasNames = !m_line.fileMain.empty() || !m_line.fileServo.empty();
    const int ways = !m_line.mainFile.empty() + !m_line.servoFile.empty() + (hasNames ? 1 : 0);
    if (ways != 1)
        return "flash: expected one of --main and --servo, or --file-main, --file-servo or both of these";
    if (m_line.fileMain.empty() && !m_line.sumMain.empty())
        return "flash: --sha256-main: expected with --file-main";
    if (m_line.fileServo.empty() && !m_line.sumServo.empty())
        return "flash: --sha256-servo: expected with --file-servo";
    if (m_line.selection.isEmpty())
        return "flash: which panels? Expected HOST/PLACE, --host, --place or --all";
    return "";
}

CommandLine FleetParser::parse(int argc, char** argv)
{
    try {
        m_app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        std::ostringstream out;
        std::ostringstream ignored;
        const bool isGood = m_app.exit(error, out, ignored) == 0;
        m_line.command = CommandLine::Command::Nothing;
        m_line.exitCode = isGood ? 0 : usageCode;
        m_line.text = isGood ? out.str() : makePrintable(error.what());
        return m_line;
    }
    const std::string mistake = findMistake();
    if (!mistake.empty()) {
        m_line.exitCode = usageCode;
        m_line.text = mistake;
    } else {
        m_line.command = m_list->parsed()    ? CommandLine::Command::List
                         : m_flash->parsed() ? CommandLine::Command::Flash
                                             : CommandLine::Command::Status;
    }
    return m_line;
}

} // namespace

CommandLine CommandLine::parse(int argc, char** argv)
{
    return FleetParser().parse(argc, argv);
}

void CommandLine::show(const std::function<void(const CLI::App&)>& look)
{
    look(FleetParser().getApp());
}

} // namespace Vantor

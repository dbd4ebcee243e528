#include "simulator/PanelsimOptions.h"

#include "simulator/LcdOption.h"
#include "simulator/VirtualBus.h"

#include <algorithm>
#include <cstddef>
#include <set>
#include <utility>

#include <CLI/CLI.hpp>

namespace Vantor {

namespace {

using TimeAndCommand = std::pair<std::string, std::string>;

constexpr char footer[] =
    R"(Panels are numbered from 0; panel P sits at port P+1 of bus 1 and can be left out when it is 0.
TIME is 250ms, 2s or 1.5s; a plain number is seconds. What happens at 0 has happened before
PROGRAM starts. COMMAND, in quotes, is one of:
  plug [P]
  unplug [P]
  fault [P] out|in stall|silent|short=BYTES|status=ERRNO|delay=MS [once|sticky]
  fault [P] boot reply=CODE|lose|ignore|delay=MS|duplicate|corrupt=OFFSET|unplug [skip=N] [once|sticky]
  fault [P] clear
  emit [P] type=T hex=HEX|size=N [count=C] [every=MS]

A fault meets the next transfer of the panel's endpoint, records to the panel (out) or packets from
it (in); once is the default, sticky goes on until 'fault clear' or 'unplug'.
  stall         the endpoint halts; out and in. Clearing the halt ends a sticky one
  silent        the transfer is never answered; the host gives up on it in its own time. In: what the
                panel has to say waits for the next read
  short=BYTES   out: only the first BYTES are taken; in: only the first BYTES of what the panel has to
                say are given. The rest is lost
  status=ERRNO  the transfer fails: EPROTO, EILSEQ, ETIME, EPIPE, ECOMM, ENOSR, EIO, EREMOTEIO, ENODEV,
                EXDEV, EINVAL, EOVERFLOW or ESHUTDOWN; out loses its bytes, in loses nothing
  delay=MS      out: taken MS later; in: given MS after there is something to give

A boot fault meets the next firmware record, a request or a chunk of an upgrade, or the one after N
others; sticky, all from then on:
  reply=CODE    nothing is written, the answer is CODE, hexadecimal (0, 1, 2, f0, f1, f2)
  lose          done, but not answered
  ignore        as if the record had never come
  delay=MS      done and answered MS later
  duplicate     answered twice
  corrupt=OFFSET  byte 0 to 13 of the answer is inverted
  unplug        the panel is gone before it takes the record; 'plug' brings it back

A panel takes firmware upgrades: it writes a chunk in 110 ms, or --chunk-time, and answers. Its flash,
2 MiB for the main MCU and 1 MiB for the servo MCU, outlives unplugging. With --flash-dir it outlives
the run, too: panelP-main.bin and panelP-servo.bin in DIR are loaded at the start, and written when the
panel is unplugged and at the end, each if an upgrade has written to it. At the end, standard error
says what became of upgrades:
  panelsim: panel 0: main MCU: 12000 bytes, verified
  panelsim: panel 0: servo MCU: incomplete, 8192 of 12000 bytes
or "12000 bytes, does not match its CRC".

The lines of --log begin with the seconds since the bus was set up, shortly before PROGRAM's start.

LCDs are white when a panel is plugged in, 144x168 unless --lcd says otherwise, and drawn on by
LCD slices; a panel shows at most 64 of them, of any numbers. --png and --show tell what is on them when PROGRAM has ended:
of a panel that is unplugged by then, what it showed last; of one that was plugged back, only what
was drawn since. --png writes panelP-lcdL.png for each LCD drawn on (8-bit grey when all its pixels
are grey, else RGB) and leaves other files in DIR alone. --show prints a column for each pixel and
two rows of pixels in a line.

Exit code: that of PROGRAM, or 128+N when signal N ended it;
  120  a panel saw a violation of the wire (each is printed)
  125  wrong usage, or panelsim itself failed
  126  PROGRAM cannot be executed
  127  PROGRAM was not found

SIGINT and SIGTERM go on to PROGRAM, which is killed if it is still there 3 s later.

Example: a panel that is pulled after 2 s and comes back
  panelsim run --at 2s 'unplug 0' --at 3.5s 'plug 0' -- panelctl watch --duration 6)";

bool isOption(const std::string& word)
{
    return word.size() > 1 && word[0] == '-';
}

// COMMAND as several arguments, for want of quotes: the parser would take the further
// ones for PROGRAM, or complain of that program's arguments. `first` is where COMMAND
// begins; empty when all is well.
std::string findUnquotedCommand(const std::vector<std::string>& words, std::size_t first)
{
    static const std::set<std::string> verbs{"plug", "unplug", "fault", "emit"};
    if (first >= words.size() || verbs.count(words[first]) == 0)
        return {};
    const bool hasSeparator = std::find(words.begin(), words.end(), "--") != words.end();
    std::string command = words[first];
    std::string unquoted;
    for (std::size_t i = first + 1; i < words.size() && !isOption(words[i]); ++i) {
        command += " " + words[i];
        // Without a separator, PROGRAM may be among these words.
        if (hasSeparator || parsePanelCommand(command).command)
            unquoted = command;
    }
    return unquoted;
}

void refuseUnquotedCommands(int argc, char** argv)
{
    const std::vector<std::string> words(argv, argv + argc);
    for (std::size_t i = 1; i < words.size() && words[i] != "--"; ++i) {
        if (words[i] != "--at")
            continue;
        const std::string command = findUnquotedCommand(words, i + 2);
        if (!command.empty())
            throw CLI::ValidationError("--at " + words[i + 1], "quote COMMAND: '" + command + "'");
    }
}

unsigned int panelOf(const PanelCommand& command)
{
    return std::visit([](const auto& alternative) { return alternative.panel; }, command);
}

PanelsimOptions::TimedCommand parseTimedCommand(const TimeAndCommand& text)
{
    const ParsedTime time = parseTime(text.first);
    if (!time.time)
        throw CLI::ValidationError("--at " + text.first, time.error);
    const ParsedCommand command = parsePanelCommand(text.second);
    if (!command.command)
        throw CLI::ValidationError("--at '" + text.second + "'", command.error);
    if (panelOf(*command.command) >= VirtualBus::maxPanels)
        throw CLI::ValidationError("--at '" + text.second + "'",
                                   "panels are numbered 0 to " + std::to_string(VirtualBus::maxPanels - 1));
    return {*time.time, *command.command};
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

} // namespace

PanelsimArguments parsePanelsimArguments(int argc, char** argv)
{
    PanelsimArguments arguments;
    PanelsimOptions& options = arguments.options;
    std::vector<TimeAndCommand> timed;
    std::vector<std::string> lcds;
    bool withoutScatterGather = false;
    auto chunkTime = static_cast<unsigned int>(options.chunkTime / std::chrono::milliseconds(1));

    CLI::App app("Runs a program that uses libusb on a USB bus with simulated panels.", "panelsim");
    app.set_version_flag("--version", "panelsim " MORVANE_VERSION);
    app.require_subcommand(1);
    CLI::App* const run = app.add_subcommand("run", "Run PROGRAM on a bus of its own");
    run->add_option("--panels", options.panels, "Panels plugged in before PROGRAM starts")
        ->check(CLI::Range(0U, VirtualBus::maxPanels))
        ->capture_default_str();
    run->add_option("--seed", options.seed,
                    "Device id in the packets of panel 0, and one more for each further panel; hosts replace it")
        ->capture_default_str();
    run->add_option("--max-packet", options.maxPacketSize,
                    "Packet limit in bytes that the panels announce; hosts ignore 1024 or less and use 1100")
        ->capture_default_str();
    run->add_option("--at", timed, "What happens TIME after PROGRAM's start; may be repeated")
        ->type_name("TIME 'COMMAND'")
        ->allow_extra_args(false); // would take the -- before PROGRAM for its own end
    run->add_flag("--no-scatter-gather", withoutScatterGather, "Have libusb split transfers into pieces of 16 KiB");
    run->add_option("--log", options.logFile, "Write one line for each thing that happens; - is standard error")
        ->type_name("FILE");
    run->add_option("--lcd", lcds, "Size of LCD L in pixels; may be repeated")
        ->type_name("L=WxH")
        ->allow_extra_args(false);
    run->add_option("--png", options.pngFolder, "Write what the LCDs show at the end, as PNG files")->type_name("DIR");
    run->add_flag("--show", options.show, "Print what the LCDs show at the end");
    run->add_option("--flash-dir", options.flashFolder, "Keep what is in the panels' flash memory, as files")
        ->type_name("DIR");
    run->add_option("--chunk-time", chunkTime, "Milliseconds in which a panel writes a chunk of firmware")
        ->type_name("MS")
        ->check(CLI::Range(0U, 1'000'000U))
        ->capture_default_str();
    run->add_option("PROGRAM", options.program, "The program and its arguments, after --")->required();
    run->footer(footer);
    try {
        refuseUnquotedCommands(argc, argv);
        app.parse(argc, argv);
        for (const TimeAndCommand& text : timed)
            options.timedCommands.push_back(parseTimedCommand(text));
        options.lcdSizes = parseLcdSizes(lcds);
    } catch (const CLI::ParseError& error) {
        arguments.exitCode = app.exit(error) == 0 ? 0 : PanelsimExit::failure;
        return arguments;
    }
    options.scatterGather = !withoutScatterGather;
    options.chunkTime = std::chrono::milliseconds(chunkTime);
    arguments.run = true;
    return arguments;
}

} // namespace Vantor

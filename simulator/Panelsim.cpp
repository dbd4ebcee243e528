// panelsim: runs a program on a virtual USB bus with simulated panels.
#include "simulator/ClientProcess.h"
#include "simulator/FlashFolder.h"
#include "simulator/FlashReport.h"
#include "simulator/PanelsimOptions.h"
#include "simulator/PngWriter.h"
#include "simulator/ScreenText.h"
#include "simulator/VirtualBus.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <exception>
#include <filesystem>
#include <map>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <unistd.h>

using namespace Vantor;

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds patience{3}; // with a program that ignores a signal
constexpr Clock::time_point never = Clock::time_point::max();

std::shared_ptr<std::FILE> openFile(const std::string& path)
{
    if (path == "-")
        return {stderr, [](std::FILE*) {}};
    std::shared_ptr<std::FILE> file(std::fopen(path.c_str(), "w"),
                                    [](std::FILE* open) { open != nullptr ? std::fclose(open) : 0; });
    if (!file)
        throw std::system_error(errno, std::generic_category(), path);
    return file;
}

// One line for each thing that happens, with the seconds since the bus began; empty
// without a file.
VirtualBus::Log openLog(const std::string& path)
{
    if (path.empty())
        return {};
    const std::shared_ptr<std::FILE> file = openFile(path);
    return [file, start = Clock::now()](const std::string& line) {
        const std::chrono::duration<double> now = Clock::now() - start;
        std::fprintf(file.get(), "%12.6f %s\n", now.count(), line.c_str());
        std::fflush(file.get());
    };
}

// Null when flash is not kept in files.
std::unique_ptr<FlashFolder> openFlashFolder(const PanelsimOptions& options)
{
    return options.flashFolder.empty() ? nullptr : std::make_unique<FlashFolder>(options.flashFolder);
}

VirtualBus::Options busOptions(const PanelsimOptions& options, FlashFolder* flashFolder)
{
    VirtualBus::Options bus;
    bus.scatterGather = options.scatterGather;
    bus.panel.maxPacketSize = options.maxPacketSize;
    bus.panel.seed = options.seed;
    bus.panel.keepRecords = false;
    bus.panel.lcdSizes = options.lcdSizes;
    bus.panel.bootLoader.chunkTime = options.chunkTime;
    if (flashFolder != nullptr)
        bus.keepFlash = [flashFolder](unsigned int panel, const BootLoader::Flash& flash) {
            flashFolder->save(panel, flash);
        };
    bus.log = openLog(options.logFile);
    if (options.logFile != "-") // which has the line already
        bus.complain = [](const std::string& line) { std::fprintf(stderr, "panelsim: %s\n", line.c_str()); };
    return bus;
}

sigset_t handledSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGCHLD);
    return signals;
}

// The next handled signal, 0 when there is none until `end`.
int waitForSignal(Clock::time_point end, siginfo_t& info)
{
    const sigset_t signals = handledSignals();
    if (end == never)
        return sigwaitinfo(&signals, &info);
    const auto left = std::max(std::chrono::nanoseconds(end - Clock::now()), std::chrono::nanoseconds(0));
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
    const timespec timeout{seconds.count(), (left - seconds).count()};
    return std::max(sigtimedwait(&signals, &info, &timeout), 0);
}

// Until the program ends. A signal that a terminal sends reaches the program, too, so
// only others go on to it.
void attend(ClientProcess& program)
{
    Clock::time_point end = never;
    while (!program.hasEnded()) {
        siginfo_t info{};
        const int number = waitForSignal(end, info);
        if (number == SIGINT || number == SIGTERM) {
            if (info.si_code != SI_KERNEL)
                program.sendSignal(number);
            if (end == never)
                end = Clock::now() + patience;
        } else if (Clock::now() >= end) {
            program.sendSignal(SIGKILL);
            end = never;
        }
    }
}

// Before anything runs, so that a wrong DIR costs nobody a long run.
void preparePngFolder(const std::string& folder)
{
    if (folder.empty())
        return;
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (!error && access(folder.c_str(), W_OK | X_OK) != 0)
        error.assign(errno, std::generic_category());
    if (error)
        throw std::runtime_error("cannot write pictures to '" + folder + "': " + error.message());
}

// By panel and LCD.
std::map<std::pair<unsigned int, unsigned int>, PanelScreen> takeScreens(VirtualBus& bus)
{
    std::map<std::pair<unsigned int, unsigned int>, PanelScreen> screens;
    for (unsigned int panel = 0; panel < VirtualBus::maxPanels; ++panel)
        bus.visit(panel, [&screens, panel](PanelModel& model) {
            for (const auto& [lcd, screen] : model.getScreens())
                screens.emplace(std::pair(panel, lcd), screen);
        });
    return screens;
}

void showScreen(unsigned int panel, unsigned int lcd, const PanelScreen& screen)
{
    const auto background =
        isatty(STDOUT_FILENO) != 0 ? ScreenText::Background::Terminal : ScreenText::Background::Paper;
    std::printf("panel %u, LCD %u (%ux%u):\n%s", panel, lcd, screen.getWidth(), screen.getHeight(),
                ScreenText::render(screen, background).c_str());
}

void reportScreens(VirtualBus& bus, const PanelsimOptions& options)
{
    if (!options.show && options.pngFolder.empty())
        return;
    const auto screens = takeScreens(bus);
    if (screens.empty())
        std::fprintf(stderr, "panelsim: no LCD was drawn on\n");
    for (const auto& [number, screen] : screens) {
        const auto& [panel, lcd] = number;
        if (options.show)
            showScreen(panel, lcd, screen);
        if (!options.pngFolder.empty())
            PngWriter::write(
                options.pngFolder + "/panel" + std::to_string(panel) + "-lcd" + std::to_string(lcd) + ".png", screen);
    }
}

void loadFlash(VirtualBus& bus, const FlashFolder& folder)
{
    for (unsigned int panel = 0; panel < VirtualBus::maxPanels; ++panel)
        bus.setFlash(panel, folder.load(panel, BootLoader::Options{}));
}

void reportUpgrades(unsigned int panel, const BootLoader& bootLoader)
{
    const auto lines = describeUpgrades(bootLoader.getFlash());
    for (const std::string& line : lines)
        std::fprintf(stderr, "panelsim: panel %u: %s\n", panel, line.c_str());
    if (lines.empty() && bootLoader.getStatistics().records != 0)
        std::fprintf(stderr, "panelsim: panel %u: firmware records, but none opened an upgrade\n", panel);
}

void finishFlash(VirtualBus& bus, FlashFolder* folder)
{
    for (unsigned int panel = 0; panel < VirtualBus::maxPanels; ++panel)
        bus.visit(panel, [panel, folder](PanelModel& model) {
            reportUpgrades(panel, model.getBootLoader());
            if (folder != nullptr)
                folder->save(panel, model.getBootLoader().getFlash());
        });
}

// What happens at 0 has happened before the program sees the bus: no race with it.
void prepareBus(VirtualBus& bus, const PanelsimOptions& options)
{
    for (unsigned int panel = 0; panel < options.panels; ++panel)
        bus.plug(panel);
    for (const PanelsimOptions::TimedCommand& timed : options.timedCommands)
        if (timed.time.count() == 0)
            bus.execute(timed.command);
}

void scheduleCommands(VirtualBus& bus, const PanelsimOptions& options)
{
    for (const PanelsimOptions::TimedCommand& timed : options.timedCommands)
        if (timed.time.count() != 0)
            bus.schedule(timed.time, timed.command);
}

int run(const PanelsimOptions& options)
{
    preparePngFolder(options.pngFolder);
    const std::unique_ptr<FlashFolder> flashFolder = openFlashFolder(options);
    // Before there are threads, so that only waitForSignal takes these.
    std::signal(SIGCHLD, SIG_DFL);
    const sigset_t signals = handledSignals();
    sigset_t originalMask;
    pthread_sigmask(SIG_BLOCK, &signals, &originalMask);

    VirtualBus bus(busOptions(options, flashFolder.get()));
    if (flashFolder)
        loadFlash(bus, *flashFolder);
    prepareBus(bus, options);
    int exitCode = 0;
    try {
        ClientProcess program(options.program, VirtualBus::getClientEnvironment(), originalMask);
        scheduleCommands(bus, options);
        attend(program);
        exitCode = program.getExitCode();
    } catch (const std::system_error& error) {
        std::fprintf(stderr, "panelsim: cannot run %s\n", error.what());
        return error.code() == std::errc::no_such_file_or_directory ? PanelsimExit::notFound
                                                                    : PanelsimExit::notExecutable;
    }
    const auto violations = bus.getViolations();
    for (const std::string& violation : violations)
        std::fprintf(stderr, "panelsim: violation: %s\n", violation.c_str());
    finishFlash(bus, flashFolder.get());
    reportScreens(bus, options);
    return violations.empty() ? exitCode : PanelsimExit::violation;
}

} // namespace

int main(int argc, char** argv)
{
    const PanelsimArguments arguments = parsePanelsimArguments(argc, argv);
    if (!arguments.run)
        return arguments.exitCode;
    try {
        return run(arguments.options);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "panelsim: %s\n", error.what());
        return PanelsimExit::failure;
    }
}

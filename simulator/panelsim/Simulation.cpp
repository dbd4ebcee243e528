#include "simulator/panelsim/Simulation.h"

#include "simulator/bus/QuantityText.h"
#include "simulator/bus/UserText.h"
#include "simulator/panelsim/ControlPath.h"
#include "simulator/panelsim/FileClash.h"
#include "simulator/panelsim/FlashReport.h"
#include "simulator/panelsim/OrderLine.h"
#include "simulator/panelsim/OrderScript.h"
#include "simulator/panelsim/PngWriter.h"
#include "simulator/picture/ScreenText.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <map>
#include <numeric>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <unistd.h>

namespace Vantor {

namespace {

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
        throw std::runtime_error("cannot write pictures to '" + UserText::shown(folder) + "': " + error.message());
}

// Before anything is opened.
const PanelsimOptions& withoutClash(const PanelsimOptions& options)
{
    FileClash::refuse(options);
    return options;
}

std::vector<TimedOrder> readOrders(const PanelsimOptions& options)
{
    std::vector<TimedOrder> orders = options.timedOrders;
    if (options.scriptFile.empty())
        return orders;
    const std::vector<TimedOrder> script = OrderScript::read(options.scriptFile);
    orders.insert(orders.end(), script.begin(), script.end());
    return orders;
}

void complain(const std::string& line)
{
    std::fprintf(stderr, "panelsim: %s\n", line.c_str());
}

// Hears on its thread, as long as it lives, what a bus complains of, in place of everybody.
class Asker {
public:
    Asker() { s_current = this; }
    ~Asker() { s_current = nullptr; }
    Asker(const Asker&) = delete;
    Asker& operator=(const Asker&) = delete;

    static Asker* getCurrent() { return s_current; }

    void hear(const std::string& line)
    {
        if (!line.empty())
            m_heard += (m_heard.empty() ? "" : "; ") + line;
    }
    const std::string& getHeard() const { return m_heard; }

private:
    static thread_local Asker* s_current;
    std::string m_heard;
};

thread_local Asker* Asker::s_current = nullptr;

// Somebody has a wrong time, or the program was too quick.
void reportPending(const std::vector<TimedOrder>& pending)
{
    constexpr std::size_t most = 10; // a script may have thousands
    for (std::size_t i = 0; i < std::min(pending.size(), most); ++i)
        std::fprintf(stderr, "panelsim: not carried out, the end came before: %s %s\n",
                     formatSeconds(pending[i].time).c_str(),
                     UserText::shown(formatPanelOrder(pending[i].order)).c_str());
    if (pending.size() > most)
        std::fprintf(stderr, "panelsim: nor were %zu later commands\n", pending.size() - most);
}

// By panel and LCD.
std::map<std::pair<unsigned int, unsigned int>, PanelScreen> takeScreens(PanelBus& bus)
{
    std::map<std::pair<unsigned int, unsigned int>, PanelScreen> screens;
    for (unsigned int panel = 0; panel < PanelBus::maxPanels; ++panel)
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

// A picture that can't be written is a failure, and does not keep others from it.
void reportScreens(PanelBus& bus, const PanelsimOptions& options, std::vector<std::string>& failures)
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
        if (options.pngFolder.empty())
            continue;
        try {
            PngWriter::write(
                options.pngFolder + "/panel" + std::to_string(panel) + "-lcd" + std::to_string(lcd) + ".png", screen);
        } catch (const std::runtime_error& error) {
            failures.emplace_back(error.what());
        }
    }
}

void reportUpgrades(unsigned int panel, const BootLoader& bootLoader)
{
    const auto lines = describeUpgrades(bootLoader.getFlash());
    for (const std::string& line : lines)
        std::fprintf(stderr, "panelsim: panel %u: %s\n", panel, line.c_str());
    if (lines.empty() && bootLoader.getStatistics().records != 0)
        std::fprintf(stderr, "panelsim: panel %u: firmware records, but none opened an upgrade\n", panel);
}

// The failures; one does not keep the other panels' flash from being saved.
std::vector<std::string> finishFlash(PanelBus& bus, FlashFolder* folder)
{
    std::vector<std::string> failures;
    const auto save = [&failures, folder](unsigned int panel, const BootLoader::Flash& flash) {
        try {
            folder->save(panel, flash);
        } catch (const std::runtime_error& error) {
            failures.emplace_back(error.what());
        }
    };
    for (unsigned int panel = 0; panel < PanelBus::maxPanels; ++panel)
        bus.visit(panel, [panel, folder, &save](PanelModel& model) {
            reportUpgrades(panel, model.getBootLoader());
            if (folder != nullptr)
                save(panel, model.getBootLoader().getFlash());
        });
    return failures;
}

} // namespace

Simulation::Simulation(const PanelsimOptions& options)
    : m_options(withoutClash(options)), m_captures(options, complain), m_orders(readOrders(options))
{
    preparePngFolder(options.pngFolder);
    if (!options.flashFolder.empty())
        m_flashFolder = std::make_unique<FlashFolder>(options.flashFolder);
    if (options.webAddress)
        m_web = std::make_unique<WebView>(*options.webAddress);
}

void Simulation::setUp(PanelBus::Options& bus)
{
    bus.panel.maxPacketSize = m_options.maxPacketSize;
    bus.panel.vendorId = m_options.vendorId;
    bus.panel.productId = m_options.productId;
    bus.panel.seed = m_options.seed;
    bus.panel.keepRecords = false;
    bus.panel.lcdSizes = m_options.lcdSizes;
    bus.panel.bootLoader.chunkTime = m_options.chunkTime;
    if (m_flashFolder)
        bus.keepFlash = [this](unsigned int panel, const BootLoader::Flash& flash) {
            m_flashFolder->save(panel, flash);
        };
    if (!m_options.logFile.empty()) {
        m_log = std::make_unique<LogFile>(m_options.logFile, complain);
        bus.log = [this](const std::string& line) { m_log->write(line); };
    }
    if (!m_options.captureFile.empty()) {
        m_capture = std::make_unique<CaptureFile>(m_options.captureFile, complain);
        bus.record = [this](CapturedUrb urb) { m_capture->write(std::move(urb)); };
    }
    if (m_web)
        bus.watcher = &m_web->getWatcher();
    const bool isInTheLog = m_options.logFile == "-"; // which is standard error, too
    bus.complain = [isInTheLog](const std::string& line) {
        if (Asker* const asker = Asker::getCurrent())
            asker->hear(line);
        else if (!isInTheLog)
            complain(line);
    };
    m_captures.setUp(bus, [log = bus.log, told = bus.complain](const std::string& line) {
        if (log)
            log(line);
        if (told)
            told(line);
    });
}

void Simulation::begin(PanelBus& bus)
{
    if (m_flashFolder)
        for (unsigned int panel = 0; panel < PanelBus::maxPanels; ++panel)
            bus.setFlash(panel, m_flashFolder->load(panel, BootLoader::Options{}));
    std::vector<unsigned int> panels(m_options.panels);
    std::iota(panels.begin(), panels.end(), 0U);
    for (const unsigned int panel : m_captures.getFirstPanels().value_or(panels))
        bus.plug(panel);
    for (const TimedOrder& timed : m_orders)
        if (timed.time.count() == 0)
            bus.execute(timed.order);
}

void Simulation::schedule(PanelBus& bus)
{
    if (m_log)
        m_log->begin();
    if (m_web)
        m_web->begin();
    for (const TimedOrder& timed : m_orders)
        if (timed.time.count() != 0)
            bus.schedule(timed.time, timed.order);
}

std::string Simulation::carryOut(PanelBus& bus, const std::string& line)
{
    const ParsedOrder parsed = OrderLine::parse(line);
    const auto refuse = [&line](const std::string& why) { return "'" + UserText::shown(line) + "': " + why; };
    if (!parsed.order)
        return refuse(parsed.error);
    try {
        bus.execute(*parsed.order);
    } catch (const std::exception& error) {
        return refuse(error.what());
    }
    return {};
}

std::string Simulation::answer(PanelBus& bus, const std::string& line)
{
    const std::string text(OrderLine::contentOf(line));
    if (text.empty())
        return {};
    if (text == "quit")
        return "'quit': only attach takes it; a run ends with its program";
    Asker asker;
    asker.hear(carryOut(bus, text));
    return asker.getHeard();
}

std::unique_ptr<ControlSocket> Simulation::openControl(const ControlConnection::Execute& execute) const
{
    if (!m_options.controlPath.empty())
        return std::make_unique<ControlSocket>(m_options.controlPath, execute);
    try {
        return std::make_unique<ControlSocket>(ControlPath::make(ControlPath::folder()), execute);
    } catch (const std::runtime_error& error) {
        complain("without a control socket: " + std::string(error.what()));
        return nullptr;
    }
}

std::unique_ptr<WebView::Server> Simulation::openWeb(const WebView::UseBus& useBus, const WebView::Execute& execute)
{
    if (!m_web)
        return nullptr;
    auto server = m_web->open(useBus, execute);
    std::fprintf(stderr, "panelsim: the panels are at %s\n", server->getUrl().c_str());
    if (const std::string url = server->getNetworkUrl(); !url.empty())
        std::fprintf(stderr, "panelsim: for other machines, at %s\n", url.c_str());
    return server;
}

int Simulation::finish(PanelBus& bus)
{
    reportPending(bus.takePending());
    const auto violations = bus.getViolations();
    for (const std::string& violation : violations)
        std::fprintf(stderr, "panelsim: violation: %s\n", violation.c_str());
    const bool isAsExpected = m_captures.finish(bus, complain);
    auto failures = finishFlash(bus, m_flashFolder.get());
    reportScreens(bus, m_options, failures);
    if (m_log && m_log->hasFailed())
        failures.push_back("lines are missing in the log '" + UserText::shown(m_options.logFile) + "'");
    if (m_capture && m_capture->hasFailed())
        failures.push_back("frames are missing in the capture '" + UserText::shown(m_options.captureFile) + "'");
    for (std::size_t i = 1; i < failures.size(); ++i)
        std::fprintf(stderr, "panelsim: %s\n", failures[i].c_str());
    if (!failures.empty())
        throw std::runtime_error(failures.front());
    if (!violations.empty())
        return PanelsimExit::violation;
    return isAsExpected ? 0 : PanelsimExit::difference;
}

} // namespace Vantor

#include "simulator/usbfs/UsbfsBus.h"

#include "simulator/bus/OrderExecution.h"
#include "simulator/usbfs/SysfsDescription.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>
#include <utility>

#include <linux/usbdevice_fs.h>
#include <unistd.h>

namespace Vantor {

namespace {

constexpr unsigned int highestDevice = 127;

// A client that has just opened the node of a panel when it is pulled still connects to
// its handler, and umockdev ends a client whose handler goes at that very moment. So many
// panels later it is not at that any more.
constexpr std::size_t keptHandlers = 16;

constexpr char preloadedLibrary[] = "libumockdev-preload.so.0";

constexpr std::uint32_t capabilities = USBDEVFS_CAP_ZERO_PACKET | USBDEVFS_CAP_BULK_CONTINUATION |
                                       USBDEVFS_CAP_NO_PACKET_SIZE_LIM | USBDEVFS_CAP_REAP_AFTER_DISCONNECT;

PanelModel::Clock startClock()
{
    const auto start = std::chrono::steady_clock::now();
    return [start] { return std::chrono::steady_clock::now() - start; };
}

void throwOnError(GError* error, const char* what)
{
    if (error == nullptr)
        return;
    const std::string message = std::string(what) + ": " + error->message;
    g_error_free(error);
    throw std::runtime_error(message);
}

std::string rootOf(UMockdevTestbed* testbed)
{
    const std::unique_ptr<char, decltype(&g_free)> root(umockdev_testbed_get_root_dir(testbed), g_free);
    return root.get();
}

} // namespace

void UsbfsBus::GObjectRelease::operator()(void* object) const
{
    g_object_unref(object);
}

UsbfsBus::UsbfsBus(Options options)
    : m_options(std::move(options)), m_testbed(umockdev_testbed_new()), m_root(rootOf(m_testbed.get())),
      m_listeners(m_root)
{
    m_share.clock = startClock();
    m_share.log = m_options.log;
    m_share.capabilities = capabilities | (m_options.scatterGather ? USBDEVFS_CAP_BULK_SCATTER_GATHER : 0U);
    addToSysfs(SysfsDescription::describeRootHub());
    m_timeThread = std::thread(&UsbfsBus::runTime, this);
}

UsbfsBus::~UsbfsBus()
{
    {
        const std::lock_guard<std::mutex> lock(m_share.mutex);
        m_ending = true;
        m_share.deadlineMoved.notify_one();
    }
    m_timeThread.join();
    m_testbed.reset(); // ends umockdev's thread
}

std::vector<std::string> UsbfsBus::getClientEnvironment()
{
    constexpr std::string_view preload = "LD_PRELOAD=";
    std::vector<std::string> environment;
    std::string preloaded = std::string(preload) + preloadedLibrary;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        const std::string_view text = *variable;
        if (text.substr(0, preload.size()) == preload)
            preloaded += ":" + std::string(text.substr(preload.size()));
        else
            environment.emplace_back(text);
    }
    environment.push_back(preloaded);
    return environment;
}

void UsbfsBus::plug(unsigned int panel)
{
    const std::lock_guard<std::mutex> hotplugLock(m_hotplugMutex);
    UsbfsPanel* plugged = nullptr;
    {
        const std::lock_guard<std::mutex> lock(m_share.mutex);
        if (panel >= maxPanels)
            return complain(panel, "has no port");
        if (findPlugged(panel) != nullptr)
            return complain(panel, "is plugged already");
        const UsbfsPanel::Address address = assignAddress(panel);
        PanelModel::Options options = m_options.panel;
        options.seed += panel;
        m_panels.push_back(std::make_unique<UsbfsPanel>(m_share, address, std::move(options), takeFlash(panel),
                                                        m_root + SysfsDescription::nodePath(address)));
        plugged = m_panels.back().get();
        log(panel, "plug, port " + std::to_string(address.port) + ", device " + std::to_string(address.device));
    }
    show(*plugged);
}

// With m_hotplugMutex, without m_share.mutex: umockdev's thread takes it.
void UsbfsBus::show(UsbfsPanel& panel)
{
    const UsbfsPanel::Address& address = panel.getAddress();
    detachOld(address.device);
    forgetOld();
    GError* error = nullptr;
    umockdev_testbed_attach_ioctl(m_testbed.get(), SysfsDescription::nodePath(address).c_str(), panel.getIoctlHandler(),
                                  &error);
    throwOnError(error, "attach");
    const auto descriptors = panel.getModel().getDescriptors();
    // One at a time, as each is an event.
    for (const auto& describe : {SysfsDescription::describePanel, SysfsDescription::describeInterface})
        if (awaitListeners(address.panel))
            addToSysfs(describe(address, descriptors));
}

// Takes unplugged panels off umockdev, all but the last few, and one that had this device
// number. With m_hotplugMutex, without m_share.mutex.
void UsbfsBus::detachOld(unsigned int device)
{
    std::vector<UsbfsPanel*> old;
    {
        const std::lock_guard<std::mutex> lock(m_share.mutex);
        std::size_t kept = 0;
        for (auto panel = m_panels.rbegin(); panel != m_panels.rend(); ++panel) {
            const bool isAttached = !(*panel)->isPlugged() && (*panel)->getIoctlHandler() != nullptr;
            if (isAttached && ((*panel)->getAddress().device == device || ++kept > keptHandlers))
                old.push_back(panel->get());
        }
    }
    for (UsbfsPanel* const panel : old) {
        GError* error = nullptr;
        umockdev_testbed_detach_ioctl(m_testbed.get(), SysfsDescription::nodePath(panel->getAddress()).c_str(), &error);
        throwOnError(error, "detach");
        panel->letGo();
    }
}

// With m_hotplugMutex, without m_share.mutex.
void UsbfsBus::forgetOld()
{
    const std::lock_guard<std::mutex> lock(m_share.mutex);
    for (auto panel = m_panels.begin(); panel != m_panels.end();) {
        if (!(*panel)->hasBeenLetGo() || findLast((*panel)->getAddress().panel) == panel->get()) {
            ++panel;
            continue;
        }
        m_pastViolations.keep((*panel)->getAddress().panel, (*panel)->getModel());
        panel = m_panels.erase(panel);
    }
}

// Waits until the client can be told of one more thing; false at the end of the bus. With
// m_hotplugMutex, without m_share.mutex.
bool UsbfsBus::awaitListeners(unsigned int panel)
{
    constexpr std::chrono::milliseconds pass{20};
    bool isLogged = false;
    while (!m_listeners.awaitRoom(pass)) {
        const std::lock_guard<std::mutex> lock(m_share.mutex);
        if (m_ending)
            return false;
        if (!std::exchange(isLogged, true))
            log(panel, "waits until the program has read what it was told of earlier");
        // Time goes on, also when it is this thread that should see to it.
        for (const auto& known : m_panels)
            known->settle();
    }
    return true;
}

void UsbfsBus::setFlash(unsigned int panel, BootLoader::Flash flash)
{
    const std::lock_guard<std::mutex> lock(m_share.mutex);
    m_flash[panel] = std::move(flash);
}

BootLoader::Flash UsbfsBus::takeFlash(unsigned int panel)
{
    if (auto set = m_flash.extract(panel))
        return std::move(set.mapped());
    UsbfsPanel* const last = findLast(panel);
    return last != nullptr ? last->getModel().takeFlash() : BootLoader::Flash{};
}

void UsbfsBus::unplug(unsigned int panel)
{
    const std::lock_guard<std::mutex> hotplugLock(m_hotplugMutex);
    UsbfsPanel* plugged = nullptr;
    {
        const std::lock_guard<std::mutex> lock(m_share.mutex);
        plugged = findPlugged(panel);
        if (plugged == nullptr)
            return complain(panel, "is not plugged");
    }
    remove(*plugged);
}

// A panel that a fault has unplugged, off the bus.
void UsbfsBus::removePulled()
{
    const std::lock_guard<std::mutex> hotplugLock(m_hotplugMutex);
    UsbfsPanel* pulled = nullptr;
    {
        const std::lock_guard<std::mutex> lock(m_share.mutex);
        pulled = findPulled();
    }
    if (pulled != nullptr)
        remove(*pulled);
}

// With m_hotplugMutex, without m_share.mutex.
void UsbfsBus::remove(UsbfsPanel& panel)
{
    const unsigned int number = panel.getAddress().panel;
    const std::string sysfsPath = "/sys" + SysfsDescription::panelPath(panel.getAddress());
    const std::string interfacePath = "/sys" + SysfsDescription::interfacePath(panel.getAddress());
    BootLoader::Flash flash;
    {
        const std::lock_guard<std::mutex> lock(m_share.mutex);
        log(number, "unplug");
        panel.unplug();
        if (m_options.keepFlash)
            flash = panel.getModel().getBootLoader().getFlash();
    }
    if (awaitListeners(number))
        umockdev_testbed_uevent(m_testbed.get(), sysfsPath.c_str(), "remove");
    // By itself, as the link to it in /sys/bus would stay.
    umockdev_testbed_remove_device(m_testbed.get(), interfacePath.c_str());
    umockdev_testbed_remove_device(m_testbed.get(), sysfsPath.c_str());
    if (m_options.keepFlash)
        m_options.keepFlash(number, flash);
}

void UsbfsBus::execute(const PanelOrder& command)
{
    if (const auto* const plugIn = std::get_if<PlugOrder>(&command))
        return plug(plugIn->panel);
    if (const auto* const pullOut = std::get_if<UnplugOrder>(&command))
        return unplug(pullOut->panel);
    const std::lock_guard<std::mutex> lock(m_share.mutex);
    apply(command);
}

// The rest of a repeated emission goes back to the timeline.
void UsbfsBus::apply(const PanelOrder& command)
{
    const unsigned int panel = OrderExecution::panelOf(command);
    const std::string line = OrderExecution::describe(command);
    UsbfsPanel* const plugged = findPlugged(panel);
    if (plugged != nullptr) {
        log(panel, line);
        OrderExecution::carryOut(command, plugged->getModel());
        plugged->settle();
    } else if (OrderExecution::needsPanel(command)) {
        complain(panel, "is not plugged: " + line);
    } else {
        log(panel, "is not plugged: " + line);
    }
    if (const auto rest = OrderExecution::restOf(command)) {
        m_timeline.add(m_share.clock() + rest->every, *rest);
        m_share.deadlineMoved.notify_one();
    }
}

void UsbfsBus::schedule(std::chrono::nanoseconds delay, const PanelOrder& command)
{
    const std::lock_guard<std::mutex> lock(m_share.mutex);
    m_timeline.add(m_share.clock() + delay, command);
    m_share.deadlineMoved.notify_one();
}

bool UsbfsBus::visit(unsigned int panel, const std::function<void(PanelModel&)>& visitor)
{
    const std::lock_guard<std::mutex> lock(m_share.mutex);
    UsbfsPanel* const last = findLast(panel);
    if (last == nullptr)
        return false;
    visitor(last->getModel());
    last->settle();
    return true;
}

std::vector<std::string> UsbfsBus::getViolations() const
{
    const std::lock_guard<std::mutex> lock(m_share.mutex);
    std::vector<std::string> violations = m_pastViolations.getLines();
    for (const auto& panel : m_panels)
        PastViolations::append(panel->getAddress().panel, panel->getModel(), violations);
    return violations;
}

void UsbfsBus::complain(unsigned int panel, const std::string& line) const
{
    log(panel, line);
    if (m_options.complain)
        m_options.complain("panel " + std::to_string(panel) + ": " + line);
}

void UsbfsBus::log(unsigned int panel, const std::string& line) const
{
    if (m_share.log)
        m_share.log("panel " + std::to_string(panel) + ": " + line);
}

UsbfsPanel* UsbfsBus::findPlugged(unsigned int panel) const
{
    const auto found = std::find_if(m_panels.begin(), m_panels.end(), [panel](const auto& known) {
        return known->isPlugged() && known->getAddress().panel == panel;
    });
    return found != m_panels.end() ? found->get() : nullptr;
}

// Plugged in last under this number.
UsbfsPanel* UsbfsBus::findLast(unsigned int panel) const
{
    const auto found = std::find_if(m_panels.rbegin(), m_panels.rend(),
                                    [panel](const auto& known) { return known->getAddress().panel == panel; });
    return found != m_panels.rend() ? found->get() : nullptr;
}

UsbfsPanel* UsbfsBus::findPulled() const
{
    const auto found =
        std::find_if(m_panels.begin(), m_panels.end(), [](const auto& known) { return known->isPulled(); });
    return found != m_panels.end() ? found->get() : nullptr;
}

// Device numbers go up, as the kernel's, and start again when they run out.
UsbfsPanel::Address UsbfsBus::assignAddress(unsigned int panel)
{
    const auto isTaken = [this](unsigned int device) {
        return std::any_of(m_panels.begin(), m_panels.end(), [device](const auto& known) {
            return known->isPlugged() && known->getAddress().device == device;
        });
    };
    do {
        m_lastDevice = m_lastDevice < highestDevice ? m_lastDevice + 1 : 2;
    } while (isTaken(m_lastDevice));
    return {panel, 1, panel + 1, m_lastDevice};
}

void UsbfsBus::addToSysfs(const std::string& description)
{
    GError* error = nullptr;
    umockdev_testbed_add_from_string(m_testbed.get(), description.c_str(), &error);
    throwOnError(error, "virtual bus");
}

void UsbfsBus::runTime()
{
    std::unique_lock<std::mutex> lock(m_share.mutex);
    while (!m_ending) {
        const auto now = m_share.clock();
        for (const auto& panel : m_panels)
            panel->settle();
        if (const UsbfsPanel* const pulled = findPulled()) {
            const unsigned int panel = pulled->getAddress().panel;
            lock.unlock();
            attempt(panel, [this] { removePulled(); });
            lock.lock();
            continue;
        }
        if (const auto command = m_timeline.takeDue(now)) {
            lock.unlock();
            attempt(OrderExecution::panelOf(*command), [this, &command] { execute(*command); });
            lock.lock();
            continue;
        }
        m_share.wakeTime = nextWakeTime();
        if (m_share.wakeTime == std::chrono::nanoseconds::max())
            m_share.deadlineMoved.wait(lock);
        else
            m_share.deadlineMoved.wait_for(lock, m_share.wakeTime - now);
    }
}

// There is nobody to throw to.
void UsbfsBus::attempt(unsigned int panel, const std::function<void()>& action) const
{
    try {
        action();
    } catch (const std::exception& error) {
        const std::lock_guard<std::mutex> lock(m_share.mutex);
        complain(panel, error.what());
    }
}

std::chrono::nanoseconds UsbfsBus::nextWakeTime() const
{
    auto time = m_timeline.getNextTime().value_or(std::chrono::nanoseconds::max());
    for (const auto& panel : m_panels)
        if (const auto deadline = panel->getModel().nextDeadline())
            time = std::min(time, *deadline);
    return time;
}

} // namespace Vantor

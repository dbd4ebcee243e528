#include "simulator/usbfs/UsbfsBus.h"

#include "simulator/usbfs/SysfsDescription.h"

#include <algorithm>
#include <iterator>
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

// Leaves a mutex alone for as long as it lives.
class Unlocked {
public:
    explicit Unlocked(std::unique_lock<std::mutex>& lock) : m_lock(lock) { m_lock.unlock(); }
    ~Unlocked() { m_lock.lock(); }
    Unlocked(const Unlocked&) = delete;
    Unlocked& operator=(const Unlocked&) = delete;

private:
    std::unique_lock<std::mutex>& m_lock;
};

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

UsbfsBus::UsbfsBus(const Options& options)
    : m_rack(options), m_isSuspendable(options.autosuspend), m_testbed(umockdev_testbed_new()),
      m_root(rootOf(m_testbed.get())), m_listeners(m_root)
{
    m_share.capabilities = capabilities | (options.scatterGather ? USBDEVFS_CAP_BULK_SCATTER_GATHER : 0U);
    m_share.kernelDriver = options.kernelDriver;
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
        if (!m_rack.canPlug(panel))
            return;
        const UsbfsPanel::Address address = assignAddress(panel);
        m_panels.push_back(std::make_unique<UsbfsPanel>(m_rack, panel, m_share, address,
                                                        m_root + SysfsDescription::nodePath(address)));
        plugged = m_panels.back().get();
        m_rack.log(panel, "plug, port " + std::to_string(address.port) + ", device " + std::to_string(address.device));
    }
    show(*plugged);
}

// Without m_share.mutex, as what follows: umockdev's thread takes it.
void UsbfsBus::show(UsbfsPanel& panel)
{
    const UsbfsPanel::Address& address = panel.getAddress();
    detachOld(address.device);
    forgetOld();
    GError* error = nullptr;
    umockdev_testbed_attach_ioctl(m_testbed.get(), SysfsDescription::nodePath(address).c_str(), panel.getIoctlHandler(),
                                  &error);
    throwOnError(error, "attach");
    // One at a time, as each is an event.
    for (const std::string& description :
         {SysfsDescription::describePanel(address, panel.getModel(), m_isSuspendable),
          SysfsDescription::describeInterface(address, panel.getModel(), m_share.kernelDriver)})
        if (awaitListeners(panel.getNumber()))
            addToSysfs(description);
}

// Takes unplugged panels off umockdev, all but the last few, and one that had this device
// number.
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

void UsbfsBus::forgetOld()
{
    const std::lock_guard<std::mutex> lock(m_share.mutex);
    for (auto panel = m_panels.begin(); panel != m_panels.end();) {
        const bool isLast =
            std::none_of(std::next(panel), m_panels.end(),
                         [number = (*panel)->getNumber()](const auto& later) { return later->getNumber() == number; });
        panel = isLast || !(*panel)->hasBeenLetGo() ? std::next(panel) : m_panels.erase(panel);
    }
}

// Waits until the client can be told of one more thing; false at its end, or the bus's.
bool UsbfsBus::awaitListeners(unsigned int panel)
{
    constexpr std::chrono::milliseconds pass{20};
    bool isLogged = false;
    while (!m_listeners.awaitRoom(pass)) {
        const std::lock_guard<std::mutex> lock(m_share.mutex);
        if (m_ending || m_isClientLetGo)
            return false;
        if (!std::exchange(isLogged, true))
            m_rack.log(panel, "waits until the program has read what it was told of earlier");
        // Time goes on, also when it is this thread that should see to it.
        m_rack.settle();
    }
    return true;
}

void UsbfsBus::letGoOfClient()
{
    const std::lock_guard<std::mutex> lock(m_share.mutex);
    m_isClientLetGo = true;
}

void UsbfsBus::setFlash(unsigned int panel, BootLoader::Flash flash)
{
    const std::lock_guard<std::mutex> lock(m_share.mutex);
    m_rack.setFlash(panel, std::move(flash));
}

void UsbfsBus::unplug(unsigned int panel)
{
    const std::lock_guard<std::mutex> hotplugLock(m_hotplugMutex);
    UsbfsPanel* plugged = nullptr;
    {
        const std::lock_guard<std::mutex> lock(m_share.mutex);
        if (!m_rack.canUnplug(panel))
            return;
        plugged = findPlugged([panel](const UsbfsPanel& known) { return known.getNumber() == panel; });
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

void UsbfsBus::remove(UsbfsPanel& panel)
{
    const unsigned int number = panel.getNumber();
    const std::string sysfsPath = "/sys" + SysfsDescription::panelPath(panel.getAddress());
    const std::string interfacePath = "/sys" + SysfsDescription::interfacePath(panel.getAddress());
    {
        const std::lock_guard<std::mutex> lock(m_share.mutex);
        m_rack.tellUnplug(number);
        panel.unplug();
    }
    if (awaitListeners(number))
        umockdev_testbed_uevent(m_testbed.get(), sysfsPath.c_str(), "remove");
    // By itself, as the link to it in /sys/bus would stay.
    umockdev_testbed_remove_device(m_testbed.get(), interfacePath.c_str());
    umockdev_testbed_remove_device(m_testbed.get(), sysfsPath.c_str());
    keepFlash(panel);
}

// To a disk, which nobody should wait for: without the lock, as it changes no more.
void UsbfsBus::keepFlash(UsbfsPanel& panel) MORVANE_NO_THREAD_SAFETY_ANALYSIS
{
    m_rack.keepFlash(panel);
}

void UsbfsBus::execute(const PanelOrder& order)
{
    {
        const std::lock_guard<std::mutex> lock(m_share.mutex);
        m_rack.logOrder(order);
    }
    if (PanelRack::plugOrUnplug(*this, order))
        return;
    const std::lock_guard<std::mutex> lock(m_share.mutex);
    m_rack.execute(order);
    m_share.deadlineMoved.notify_one();
}

void UsbfsBus::schedule(std::chrono::nanoseconds delay, const PanelOrder& order)
{
    const std::lock_guard<std::mutex> lock(m_share.mutex);
    m_rack.schedule(delay, order);
    m_share.deadlineMoved.notify_one();
}

std::vector<TimedOrder> UsbfsBus::takePending()
{
    const std::lock_guard<std::mutex> lock(m_share.mutex);
    return m_rack.takePending();
}

bool UsbfsBus::visit(unsigned int panel, const std::function<void(PanelModel&)>& visitor)
{
    const std::lock_guard<std::mutex> lock(m_share.mutex);
    return m_rack.visit(panel, visitor);
}

std::vector<std::string> UsbfsBus::getViolations() const
{
    const std::lock_guard<std::mutex> lock(m_share.mutex);
    return m_rack.getViolations();
}

template <typename Condition> UsbfsPanel* UsbfsBus::findPlugged(Condition condition) const
{
    const auto found = std::find_if(m_panels.begin(), m_panels.end(), [&condition](const auto& known) {
        return known->isPlugged() && condition(*known);
    });
    return found != m_panels.end() ? found->get() : nullptr;
}

UsbfsPanel* UsbfsBus::findPulled() const
{
    return findPlugged([](const UsbfsPanel& known) { return known.isPulled(); });
}

// Device numbers go up, as the kernel's, and start again when they run out.
UsbfsPanel::Address UsbfsBus::assignAddress(unsigned int panel)
{
    const auto isTaken = [this](unsigned int device) MORVANE_REQUIRES(m_share.mutex) {
        return findPlugged([device](const UsbfsPanel& known) { return known.getAddress().device == device; });
    };
    do {
        m_lastDevice = m_lastDevice < highestDevice ? m_lastDevice + 1 : 2;
    } while (isTaken(m_lastDevice));
    return {1, panel + 1, m_lastDevice};
}

void UsbfsBus::addToSysfs(const std::string& description)
{
    GError* error = nullptr;
    umockdev_testbed_add_from_string(m_testbed.get(), description.c_str(), &error);
    throwOnError(error, "virtual bus");
}

// Not analysed: a condition needs std::unique_lock, which carries no annotation.
void UsbfsBus::runTime() MORVANE_NO_THREAD_SAFETY_ANALYSIS
{
    std::unique_lock<std::mutex> lock(m_share.mutex);
    while (!m_ending) {
        m_rack.settle();
        if (const UsbfsPanel* const pulled = findPulled()) {
            m_rack.attempt(pulled->getNumber(), [this, &lock] {
                const Unlocked unlocked(lock);
                removePulled();
            });
        } else if (const auto order = m_rack.takeDue()) {
            m_rack.attempt(panelOf(*order), [this, &lock, &order] {
                const Unlocked unlocked(lock);
                execute(*order);
            });
        } else {
            const auto next = m_rack.getNextTime();
            m_share.wakeTime = next.value_or(std::chrono::nanoseconds::max());
            if (next)
                m_share.deadlineMoved.wait_for(lock, *next - m_rack.now());
            else
                m_share.deadlineMoved.wait(lock);
        }
    }
}

} // namespace Vantor

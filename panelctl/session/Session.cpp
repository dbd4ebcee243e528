#include "panelctl/session/Session.h"

#include "panelctl/session/Diagnosis.h"
#include "panelctl/terminal/Failure.h"
#include "panelctl/terminal/Output.h"
#include "panelctl/terminal/Wording.h"
#include "protocol/ReqDeviceInfo.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <utility>

#include <libusb-1.0/libusb.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace Vantor {

namespace {

// The library does not announce at once that it has given a panel up.
constexpr std::chrono::milliseconds deathStep{100};

// A panel that restarts may lose a request.
constexpr std::chrono::seconds repeatStep{2};

// What a user may write for a panel: its uid, with or without 0x and leading
// zeros, or its place.
bool isNamedBy(const Panel& panel, std::string selector)
{
    selector = toLower(selector);
    if (selector == panel.getPlace())
        return true;
    if (selector.compare(0, 2, "0x") == 0)
        selector.erase(0, 2);
    if (selector.empty() || selector.size() > 4)
        return false;
    return std::string(4 - selector.size(), '0') + selector == panel.getUidText();
}

// A number from 1 to 255 at `offset`, which is moved behind it.
bool skipNumber(const std::string& text, std::size_t& offset)
{
    const std::size_t begin = offset;
    offset = std::min(text.find_first_not_of("0123456789", begin), text.size());
    const std::size_t digits = offset - begin;
    return digits >= 1 && digits <= 3 && text[begin] != '0' && std::stoi(text.substr(begin, digits)) <= 255;
}

// "1-4.2": bus and ports, whether or not a panel is there.
bool isPlace(const std::string& text)
{
    std::size_t offset = 0;
    if (!skipNumber(text, offset))
        return false;
    for (char separator = '-'; separator == '-' || offset < text.size(); separator = '.')
        if (offset == text.size() || text[offset++] != separator || !skipNumber(text, offset))
            return false;
    return true;
}

std::string enumerate(const std::vector<Panel>& panels)
{
    std::string text;
    for (const Panel& panel : panels)
        text += (text.empty() ? "" : ", ") + panel.getUidText() + " (" + panel.getPlace() + ")";
    return text;
}

int tryLibusb()
{
    libusb_context* context = nullptr;
    const int error = libusb_init(&context);
    if (error == LIBUSB_SUCCESS)
        libusb_exit(context);
    return error;
}

} // namespace

NoLibusb::NoLibusb(int code) : Failure(ExitCode::Failed, FailureKind::noLibusb, explainNoLibusb(code)), m_code(code) {}

Session::Session(const Interrupt& interrupt, bool keepPackets)
    : m_manager(nullptr), m_interrupt(interrupt), m_keepPackets(keepPackets),
      m_wakeDescriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (m_wakeDescriptor < 0)
        throw Failure(ExitCode::Failed, "no event descriptor: " + describeError(errno) + ".");
    // As many descriptors are in use now as when the library does the same.
    if (const int error = tryLibusb(); error != LIBUSB_SUCCESS) {
        close(m_wakeDescriptor);
        throw NoLibusb(error);
    }
    m_manager = UsbManager::getUsbManager();
    m_manager->registerObserver(this);
    m_manager->initialise();
}

Session::~Session()
{
    stop();
    close(m_wakeDescriptor);
}

void Session::stop()
{
    if (m_manager != nullptr)
        UsbManager::destroyUsbManager();
    m_manager = nullptr;
}

std::vector<Panel> Session::getPanels() const
{
    std::vector<Panel> panels;
    for (auto& device : m_manager->getDeviceListSafe()) {
        const std::optional<DeviceInformation> information = getInformation(device->getUid());
        panels.emplace_back(std::move(device), information);
    }
    std::sort(panels.begin(), panels.end(),
              [](const Panel& left, const Panel& right) { return left.getUid() < right.getUid(); });
    return panels;
}

std::optional<Panel> Session::findPanel(std::uint16_t uid) const
{
    std::shared_ptr<UsbDevice> device = m_manager->getDevice(uid);
    if (!device)
        return std::nullopt;
    return Panel(std::move(device), getInformation(uid));
}

Session::Clock::time_point Session::getArrival(const Panel& panel) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_attached.find(panel.getUid());
    return found == m_attached.end() ? Clock::now() : found->second.arrival; // about to be announced
}

Panel Session::choosePanel(const std::optional<std::string>& selector) const
{
    const std::vector<Panel> panels = getPanels();
    if (panels.empty())
        throw Failure(ExitCode::NoPanel, explainNoPanel());
    if (!selector) {
        if (panels.size() > 1)
            throw Failure(ExitCode::Usage, FailureKind::whichPanel,
                          std::to_string(panels.size()) + " panels are attached: " + enumerate(panels) +
                              ".\nSay which one with --panel.");
        return panels.front();
    }
    const auto named = std::find_if(panels.begin(), panels.end(),
                                    [&selector](const Panel& panel) { return isNamedBy(panel, *selector); });
    if (named == panels.end())
        throw Failure(ExitCode::NoPanel, FailureKind::noSuchPanel,
                      "no panel is called " + quote(*selector) + ". Attached: " + enumerate(panels) +
                          ".\nName one by its uid or, in brackets here, its bus and ports.");
    return *named;
}

std::optional<Panel> Session::choosePanelOrPlace(const std::string& selector) const
{
    const std::vector<Panel> panels = getPanels();
    const bool isThere =
        std::any_of(panels.begin(), panels.end(), [&](const Panel& panel) { return isNamedBy(panel, selector); });
    if (!isThere && isPlace(selector))
        return std::nullopt;
    return choosePanel(selector);
}

void Session::awaitInformation(std::chrono::nanoseconds limit)
{
    for (const Panel& panel : getPanels())
        requestInformation(panel);
    waitUntil(Clock::now() + limit, deathStep, [this] {
        const std::vector<Panel> panels = getPanels();
        return std::all_of(panels.begin(), panels.end(),
                           [](const Panel& panel) { return panel.getInformation() || !panel.isAlive(); });
    });
}

Panel Session::awaitInformation(const Panel& panel, std::chrono::nanoseconds limit)
{
    if (!panel.isAlive())
        throw Failure(ExitCode::Failed, FailureKind::panelUnusable, explainNotAlive(panel), panel.getReason());
    requestInformation(panel);
    const bool inTime = waitUntil(Clock::now() + limit, deathStep, [this, &panel] {
        return !panel.isAlive() || getInformation(panel.getUid()).has_value();
    });
    if (!panel.isAlive())
        throw Failure(ExitCode::PanelLeft, FailureKind::panelLeft, explainLeft(panel) + " Nothing was sent.",
                      panel.getReason());
    const std::optional<DeviceInformation> information = getInformation(panel.getUid());
    if (!inTime || !information)
        throw Failure(ExitCode::TimedOut, explainNoInformation(panel, limit));
    return panel.with(*information);
}

bool Session::answersAnew(const std::string& place, std::chrono::nanoseconds limit)
{
    forgetInformation(place);
    auto nextTime = Clock::now() + repeatStep;
    return waitUntil(Clock::now() + limit, deathStep, [this, &place, &nextTime] {
        if (Clock::now() >= nextTime) {
            m_asked.clear();
            nextTime += repeatStep;
        }
        for (const Panel& panel : getPanels()) {
            if (panel.getPlace() != place)
                continue;
            if (panel.isAlive() && panel.getInformation())
                return true;
            requestInformation(panel);
        }
        return false;
    });
}

bool Session::isAttached(const std::string& place) const
{
    const std::vector<Panel> panels = getPanels();
    return std::any_of(panels.begin(), panels.end(),
                       [&place](const Panel& panel) { return panel.getPlace() == place; });
}

// By its place, as the library takes a panel that it has given up in anew, under another uid.
bool Session::wasUsable(const std::string& place) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_usablePlaces.count(place) != 0;
}

void Session::complainOf(const std::vector<Panel>& panels, std::chrono::nanoseconds limit, Output& output) const
{
    std::string unusable;
    std::optional<Reason> reason; // of the first one
    for (const Panel& panel : panels) {
        if (!panel.isAlive()) {
            unusable += (unusable.empty() ? "" : "\n") + explainNotAlive(panel);
            reason = reason ? reason : panel.getReason();
        } else if (!panel.getInformation()) {
            output.warn({"no-information", explainNoInformation(panel, limit), panel.getUidText()});
        }
    }
    if (!unusable.empty())
        throw Failure(ExitCode::Failed, FailureKind::panelUnusable, unusable, reason);
}

std::string Session::explainNotAlive(const Panel& panel) const
{
    return wasUsable(panel.getPlace()) ? explainGivenUp(panel) : explainUnusable(panel);
}

std::optional<PanelEvent> Session::nextEvent(Clock::time_point deadline)
{
    std::optional<PanelEvent> event;
    waitUntil(deadline, std::chrono::hours(1), [this, &event] {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_events.empty())
            return false;
        event = std::move(m_events.front());
        m_events.pop_front();
        return true;
    });
    return event;
}

bool Session::waitUntil(Clock::time_point deadline, std::chrono::nanoseconds step,
                        const std::function<bool()>& condition)
{
    for (;;) {
        Interrupt::check();
        if (condition())
            return true;
        const auto left = std::chrono::duration_cast<std::chrono::nanoseconds>(deadline - Clock::now());
        if (left <= left.zero())
            return false;
        sleep(std::min(left, step));
    }
}

// The library asks by itself two seconds after it found a panel; a tool that was
// started a moment ago need not wait for that.
void Session::requestInformation(const Panel& panel)
{
    noteWhetherUsable(panel);
    if (panel.isAlive() && !panel.getInformation() && m_asked.insert(panel.getUid()).second)
        panel.getDevice().getPacker().addData(ReqDeviceInfo{1});
}

void Session::forgetInformation(const std::string& place)
{
    for (const Panel& panel : getPanels()) {
        if (panel.getPlace() != place)
            continue;
        m_asked.erase(panel.getUid());
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_information.erase(panel.getUid());
    }
}

std::optional<DeviceInformation> Session::getInformation(std::uint16_t uid) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_information.find(uid);
    if (found == m_information.end())
        return std::nullopt;
    return found->second;
}

void Session::noteWhetherUsable(const Panel& panel)
{
    if (!panel.isAlive())
        return;
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_usablePlaces.insert(panel.getPlace());
}

void Session::noteArrival(std::uint16_t uid)
{
    const std::weak_ptr<UsbDevice> device = m_manager->getDevice(uid);
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_attached[uid] = {Clock::now(), device};
}

// Tells why it is gone. The library still holds it while it announces that.
std::optional<Reason> Session::forget(std::uint16_t uid)
{
    std::shared_ptr<UsbDevice> device;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_information.erase(uid);
        const auto attached = m_attached.find(uid);
        if (attached != m_attached.end()) {
            device = attached->second.device.lock();
            m_attached.erase(attached);
        }
    }
    return device ? Panel(device, std::nullopt).getReason() : std::nullopt;
}

void Session::onDeviceAdded(std::uint16_t uid)
{
    // Now, as the panel may have left by the time the event is fetched.
    const std::optional<Panel> panel = findPanel(uid);
    if (panel)
        noteWhetherUsable(*panel);
    noteArrival(uid);
    const bool isUsable = panel && panel->isAlive();
    add({PanelEvent::Kind::Arrived, Clock::now(), uid, {}, {}, isUsable ? panel->getPlace() : ""});
}

void Session::onDeviceRemoved(std::uint16_t uid)
{
    add({PanelEvent::Kind::Departed, Clock::now(), uid, {}, {}, {}, {}, forget(uid)});
}

void Session::onMessageBegin(std::uint16_t /*deviceId*/, const UsbMessage& message)
{
    if (m_keepPackets)
        m_buffer.assign(message.data, message.data + message.size);
    m_delivered = 0;
}

void Session::onMessageEnd(std::uint16_t deviceId)
{
    const std::optional<Malformation> malformation = Malformation::find(m_buffer, m_delivered);
    if (!malformation)
        return;
    const auto begin = m_buffer.begin() + static_cast<std::ptrdiff_t>(malformation->offset);
    add({PanelEvent::Kind::Malformed, Clock::now(), deviceId, {}, {begin, m_buffer.end()}, {}, malformation});
}

void Session::onParsedPacket(std::uint16_t deviceId, const PacketType& type, const DataPacketUnion& data,
                             unsigned int length)
{
    if (type == PacketType::DeviceInformation) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_information[deviceId] = data.deviceInformation;
    }
    ++m_delivered;
    const std::uint8_t* const payload = payloadOf(data);
    if (m_keepPackets)
        add({PanelEvent::Kind::Packet, Clock::now(), deviceId, type, {payload, payload + length}, {}});
    else
        wake();
}

void Session::add(PanelEvent event)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_events.push_back(std::move(event));
    }
    wake();
}

void Session::wake() const
{
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(m_wakeDescriptor, &one, sizeof one);
}

// Until the library tells something, a signal comes or the time is over.
void Session::sleep(std::chrono::nanoseconds time) const
{
    std::array<pollfd, 2> sources{{{m_interrupt.getDescriptor(), POLLIN, 0}, {m_wakeDescriptor, POLLIN, 0}}};
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
    const timespec limit{static_cast<std::time_t>(seconds.count()), static_cast<long>((time - seconds).count())};
    if (ppoll(sources.data(), sources.size(), &limit, nullptr) <= 0)
        return;
    if (sources[0].revents != 0)
        m_interrupt.drain(); // noted by now; one that is tolerated must not wake every wait
    if (sources[1].revents != 0) {
        std::uint64_t count = 0;
        [[maybe_unused]] const ssize_t taken = read(m_wakeDescriptor, &count, sizeof count);
    }
}

} // namespace Vantor

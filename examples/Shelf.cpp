// A product's beginning: a shelf of panels, told apart by where they are plugged in. Each has
// keys and lamps; a key switches its lamp, clicks, and changes the picture. A service of
// systemd, see shelf.service. docs/product.md goes through it.

#include "libMorvaneHostUsb/LcdPicture.h"
#include "libMorvaneHostUsb/Log.h"
#include "libMorvaneHostUsb/UsbManager.h"
#include "protocol/PacketHeader.h"
#include "protocol/ReqDeviceInfo.h"
#include "wire/PanelLink.h"
#include "wire/RecordHeader.h"

#include <array>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace Vantor;

namespace {

// The application's own records, as it has agreed upon them with the panel's firmware.
constexpr auto lampType = static_cast<PacketType>(5);   // to the panel: a Lamp; the latest counts
constexpr auto clickType = static_cast<PacketType>(12); // to the panel: a Click; each one counts
constexpr auto keyType = static_cast<PacketType>(13);   // from the panel: the number of a key, pressed
constexpr auto hadType = static_cast<PacketType>(14);   // from the panel: run and number of the last click it has had

struct Lamp {
    std::uint8_t number;
    std::uint8_t isOn;
};
struct __attribute__((packed)) Click {
    std::uint32_t run;    // of this program; numbers begin anew with each
    std::uint32_t number; // one more each time: a packet may be sent twice, and the panel drops what it has had
    std::uint8_t key;
};

// A record that never fits would hold back all behind it. One larger than this has to be
// compared with the maxPacketSize of getDeviceInfo(), each time.
static_assert(sizeof(PacketHeader) + sizeof(RecordHeader) + sizeof(Click) <= PanelLink::packetLimitFloor);

// To the journal: 3 is an error, 6 informational. Called with locks of the library held.
void say(char priority, std::string_view text)
{
    const std::string line = std::string{'<', priority, '>'}.append(text).append("\n");
    if (write(STDERR_FILENO, line.data(), line.size()) < 0) {
        // Nobody is left to tell.
    }
}

// What sd_notify does; nothing where no service manager asks for it.
void notify(std::string_view state)
{
    const char* const path = std::getenv("NOTIFY_SOCKET"); // NOLINT(concurrency-mt-unsafe): nobody sets it
    const std::size_t length = path != nullptr ? std::strlen(path) : 0;
    sockaddr_un address{};
    if (length == 0 || length >= sizeof address.sun_path)
        return;
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path, length);
    if (path[0] == '@')
        address.sun_path[0] = 0; // an abstract one
    const int channel = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sendto(channel, state.data(), state.size(), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&address),
           static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length));
    close(channel);
}

// "1-4.2": bus 1, port 2 of what is plugged into port 4. A uid is no such thing, but a handle.
std::string placeOf(UsbDevice& panel)
{
    std::string place = std::to_string(panel.getUid() >> 8);
    char separator = '-';
    for (const unsigned int port : panel.getPortNumbers())
        place.append(1, std::exchange(separator, '.')).append(std::to_string(port));
    return place;
}

struct Event {
    enum Kind { Added, Removed, Record } kind;
    std::uint16_t uid;
    PacketType type;
    std::vector<std::uint8_t> payload;
};

// Brings what the library tells, on its threads, to the application's. A callback waits for
// nothing but the taking of the events.
class Events : public UsbManager::Observer {
public:
    void onDeviceAdded(std::uint16_t uid) override { add({Event::Added, uid, {}, {}}); }
    void onDeviceRemoved(std::uint16_t uid) override { add({Event::Removed, uid, {}, {}}); }
    void onParsedPacket(std::uint16_t uid, const PacketType& type, const DataPacketUnion& data,
                        unsigned int length) override
    {
        add({Event::Record, uid, type, {payloadOf(data), payloadOf(data) + length}});
    }

    std::deque<Event> take()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        eventfd_t count = 0;
        eventfd_read(m_signal, &count);
        return std::exchange(m_events, {});
    }

    int getSignal() const { return m_signal; } // readable while there are events

private:
    void add(Event event)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_events.push_back(std::move(event));
        eventfd_write(m_signal, 1);
    }

    const int m_signal = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    std::mutex m_mutex;
    std::deque<Event> m_events;
};

// What a place has to show, whether a panel is there or not.
struct Slot {
    std::array<bool, 8> lamps{};
    std::deque<Click> clicks; // that no panel has said it has had
    std::uint32_t lastClick = 0;
};

// Threads: one. It holds no lock, so it may call the library as it likes, and finds a panel
// anew each time: one that is held comes back under another uid.
class Shelf {
public:
    explicit Shelf(UsbManager& manager) : m_manager(manager) {}

    void handle(const Event& event)
    {
        if (event.kind == Event::Removed)
            remove(event.uid);
        else if (const auto panel = m_manager.getDevice(event.uid)) // else it has gone again
            event.kind == Event::Added ? add(*panel) : receive(*panel, event);
    }

private:
    struct Panel {
        std::string place;
        bool isReady; // its device information has come, before which nothing is sent
    };

    void add(UsbDevice& panel)
    {
        if (!panel.isAlive())
            return; // the log says why; every five seconds the library tries again
        Panel& known = m_panels[panel.getUid()] = {placeOf(panel), false};
        say('6', "a panel has come at " + known.place);
        notify("STATUS=" + std::to_string(m_panels.size()) + " panels");
        if (panel.getDeviceInfo() != nullptr)
            restore(panel, known);
        else
            panel.getPacker().addData(ReqDeviceInfo{1}); // the library asks as well, in two seconds
    }

    void remove(std::uint16_t uid)
    {
        if (const auto known = m_panels.extract(uid))
            say('6', "the panel at " + known.mapped().place + " has gone");
        notify("STATUS=" + std::to_string(m_panels.size()) + " panels");
    }

    void receive(UsbDevice& panel, const Event& event)
    {
        const auto found = m_panels.find(event.uid);
        if (found == m_panels.end())
            return; // what it had sent before it went; of a uid that is given again this is not seen
        Panel& known = found->second;
        Slot& slot = m_slots[known.place];
        if (event.type == PacketType::DeviceInformation && !known.isReady && panel.getDeviceInfo() != nullptr)
            restore(panel, known);
        else if (event.type == keyType && event.payload.size() == 1 && event.payload[0] < slot.lamps.size())
            press(panel, known.isReady, slot, event.payload[0]);
        else if (event.type == hadType && event.payload.size() == offsetof(Click, key))
            forget(slot, event.payload.data());
    }

    // The panel may be another than before, or have been without power.
    void restore(UsbDevice& panel, Panel& known)
    {
        known.isReady = true;
        const Slot& slot = m_slots[known.place];
        std::uint8_t lamp = 0;
        for (const bool isOn : slot.lamps)
            send(panel, Lamp{lamp++, isOn});
        for (const Click& click : slot.clicks)
            send(panel, click);
        draw(panel, slot);
    }

    void press(UsbDevice& panel, bool isReady, Slot& slot, std::uint8_t key)
    {
        constexpr std::size_t most = 1000; // as many wait at the most in the library, too
        slot.lamps[key] = !slot.lamps[key];
        const bool isKept = slot.clicks.size() < most;
        if (isKept)
            slot.clicks.push_back({m_run, ++slot.lastClick, key});
        else
            say('3', "a click is lost: the panel takes none, or never says what it has had");
        if (!isReady)
            return; // restore will send it
        send(panel, Lamp{key, slot.lamps[key]});
        if (isKept)
            send(panel, slot.clicks.back());
        draw(panel, slot);
    }

    void forget(Slot& slot, const std::uint8_t* payload) const
    {
        Click had{};
        std::memcpy(&had, payload, offsetof(Click, key));
        while (had.run == m_run && !slot.clicks.empty() && slot.clicks.front().number <= had.number)
            slot.clicks.pop_front();
    }

    // State is keyed: of what still waits a lamp's latest replaces the others.
    static void send(UsbDevice& panel, const Lamp& lamp)
    {
        panel.getPacker().addStructData(&lamp, sizeof lamp, lampType, lamp.number);
    }

    // Events are not: each is sent.
    static void send(UsbDevice& panel, const Click& click)
    {
        panel.getPacker().addStructData(&click, sizeof click, clickType);
    }

    // A bar for each lamp, dark when it is on.
    static void draw(UsbDevice& panel, const Slot& slot)
    {
        constexpr unsigned int width = 100;
        constexpr unsigned int bar = 8;
        std::vector<unsigned char> grey;
        for (const bool isOn : slot.lamps)
            grey.insert(grey.end(), std::size_t{width} * bar, isOn ? 0 : 255);
        const auto height = static_cast<unsigned int>(slot.lamps.size()) * bar;
        for (const ClientLcdBitmap& layer : LcdPicture(grey.data(), width, height, BitmapImage::Gray8).makeLayers(0))
            panel.getPacker().drawBitmapData(layer);
    }

    UsbManager& m_manager;
    const std::uint32_t m_run = static_cast<std::uint32_t>(std::chrono::system_clock::now().time_since_epoch().count());
    std::map<std::uint16_t, Panel> m_panels; // by uid
    std::map<std::string, Slot> m_slots;     // by place
};

// Until a signal comes. The watchdog is fed once a second, while this thread comes by and the
// library's worker makes its passes.
void run(UsbManager& manager, Events& events, int signals)
{
    Shelf shelf(manager);
    std::array<pollfd, 2> waited{{{signals, POLLIN, 0}, {events.getSignal(), POLLIN, 0}}};
    std::chrono::steady_clock::time_point due;
    for (std::uint64_t seen = 0; waited[0].revents == 0; poll(waited.data(), waited.size(), 1000)) {
        for (const Event& event : events.take())
            shelf.handle(event);
        const std::uint64_t passes = manager.getStatistics().passes;
        if (passes == seen || std::chrono::steady_clock::now() < due)
            continue;
        notify("WATCHDOG=1");
        seen = passes;
        due = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    }
}

// What was written last gets half a second, all panels together.
void letLeave(UsbManager& manager)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
    for (const auto& panel : manager.getDeviceListSafe()) {
        while (panel->isAlive() && panel->getPacker().hasMoreData() && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

// SIGTERM and SIGINT can be read there; in no thread that is begun later do they do anything else.
int makeSignalDescriptor()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signalfd(-1, &signals, SFD_CLOEXEC);
}

} // namespace

int main()
{
    const int signals = makeSignalDescriptor();
    std::signal(SIGPIPE, SIG_IGN);
    setLogSink([](LogLevel::Level level, std::string_view text) { say(level == LogLevel::Error ? '3' : '6', text); });
    if (libusb_init(nullptr) != 0) { // the library would go on, and crash
        say('3', "libusb does not start");
        return 1;
    }
    libusb_exit(nullptr);
    Events events;
    UsbManager* const manager = UsbManager::getUsbManager();
    manager->registerObserver(&events);
    manager->initialise();

    notify("READY=1\nSTATUS=0 panels"); // one may come at any time
    run(*manager, events, signals);
    notify("STOPPING=1");
    letLeave(*manager);
    UsbManager::destroyUsbManager(); // lets transfers under way end, and releases the panels
    return 0;
}

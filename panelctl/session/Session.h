#pragma once

#include "libMorvaneHostUsb/ThreadAnnotations.h"
#include "libMorvaneHostUsb/UsbManager.h"
#include "panelctl/session/Malformation.h"
#include "panelctl/session/Panel.h"
#include "panelctl/terminal/Failure.h"
#include "panelctl/terminal/Interrupt.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Vantor {

class Output;

// What a panel did, as the library told it.
struct PanelEvent {
    enum class Kind {
        Arrived,
        Departed,
        Packet,
        Malformed, // what the parser has left of a buffer, behind the packets before that
    };

    Kind kind;
    std::chrono::steady_clock::time_point time;
    std::uint16_t uid;
    PacketType type;                   // of a packet
    std::vector<std::uint8_t> payload; // of a packet; of what is malformed, all that was left
    std::string place;                 // of an arrival: as Panel::getPlace; empty when it can't be used
    std::optional<Malformation> malformation = {};
    std::optional<Reason> reason = {}; // of a departure: why the library let go of it
};

// libusb can't be started: the library would not survive the attempt.
class NoLibusb : public Failure {
public:
    explicit NoLibusb(int code);

    int getCode() const { return m_code; } // libusb's

private:
    int m_code;
};

// The library, from start to orderly stop, for the length of one command. Its
// callbacks are turned into events and information that the main thread fetches.
//
// Threads: everything public belongs to the main thread; the library's threads
// come in through the observer.
class Session final : private UsbManager::Observer {
public:
    using Clock = std::chrono::steady_clock;

    // Starts the library: panels already attached are known on return. Packets
    // are kept as events only if asked for, so that nobody's backlog grows.
    // Throws NoLibusb.
    Session(const Interrupt& interrupt, bool keepPackets);
    ~Session() override;
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Stops the library; the destructor does it too. Only events may be fetched afterwards.
    void stop();

    // All panels attached now, by uid.
    std::vector<Panel> getPanels() const;
    std::optional<Panel> findPanel(std::uint16_t uid) const;

    // Since when the library has it: its counts begin there.
    Clock::time_point getArrival(const Panel& panel) const;

    // What the library has counted of all panels; not once it is stopped.
    ManagerStatistics getStatistics() const { return m_manager->getStatistics(); }

    // The one that `selector` names, as a uid or a place; without a selector, the only
    // one. Throws Failure that lists what is there.
    Panel choosePanel(const std::optional<std::string>& selector) const;

    // The same where a panel is waited for: nothing when a place is named where none is yet.
    std::optional<Panel> choosePanelOrPlace(const std::string& selector) const;

    // Asks every panel without information for it, and waits until all that can
    // answer have done so or the time is over.
    void awaitInformation(std::chrono::nanoseconds limit);

    // The same for one panel, which is returned with its information. Throws Failure that tells
    // how far the panel got.
    Panel awaitInformation(const Panel& panel, std::chrono::nanoseconds limit);

    // Asks the panel at `place` once more, and waits for its answer or, when it has left, for
    // it to come back there and describe itself. False when the time is over.
    bool answersAnew(const std::string& place, std::chrono::nanoseconds limit);

    bool isAttached(const std::string& place) const;

    // Whether the panel at this place was ever alive.
    bool wasUsable(const std::string& place) const;

    // Warns of those that have not described themselves within `limit`, and throws Failure
    // when any is not alive.
    void complainOf(const std::vector<Panel>& panels, std::chrono::nanoseconds limit, Output& output) const;

    // Why a panel that is attached is not alive, as far as it is known.
    std::string explainNotAlive(const Panel& panel) const;

    // The next event in order, or nothing when the time is over.
    std::optional<PanelEvent> nextEvent(Clock::time_point deadline);

    // Waits until the condition holds; false when the time is over. It is looked at
    // after every event, and every `step`. Throws Interrupted.
    bool waitUntil(Clock::time_point deadline, std::chrono::nanoseconds step, const std::function<bool()>& condition);

private:
    void onDeviceAdded(std::uint16_t uid) override;
    void onDeviceRemoved(std::uint16_t uid) override;
    void onMessageBegin(std::uint16_t deviceId, const UsbMessage& message) override;
    void onMessageEnd(std::uint16_t deviceId) override;
    void onParsedPacket(std::uint16_t deviceId, const PacketType& type, const DataPacketUnion& data,
                        unsigned int length) override;

    void add(PanelEvent event);
    void wake() const;
    void sleep(std::chrono::nanoseconds time) const;
    void requestInformation(const Panel& panel);
    void forgetInformation(const std::string& place);
    std::optional<DeviceInformation> getInformation(std::uint16_t uid) const;
    void noteWhetherUsable(const Panel& panel);
    void noteArrival(std::uint16_t uid);
    std::optional<Reason> forget(std::uint16_t uid);

    struct Attached {
        Clock::time_point arrival;
        std::weak_ptr<UsbDevice> device; // what is held would keep its uid from the panel that comes back
    };

    UsbManager* m_manager; // null once stopped
    const Interrupt& m_interrupt;
    const bool m_keepPackets;
    int m_wakeDescriptor;            // readable when the library has told something
    std::set<std::uint16_t> m_asked; // for their information

    // The receive thread's own: the buffer that is being parsed, and the records of it so far.
    std::vector<std::uint8_t> m_buffer;
    std::size_t m_delivered = 0;

    mutable std::mutex m_mutex;
    std::deque<PanelEvent> m_events MORVANE_GUARDED_BY(m_mutex);
    std::map<std::uint16_t, DeviceInformation>
        m_information MORVANE_GUARDED_BY(m_mutex); // own copies, as the library's change
    std::map<std::uint16_t, Attached> m_attached MORVANE_GUARDED_BY(m_mutex);
    std::set<std::string> m_usablePlaces MORVANE_GUARDED_BY(m_mutex); // where a panel was alive
};

} // namespace Vantor

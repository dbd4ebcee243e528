#pragma once

#include "simulator/bus/LinkTap.h"
#include "simulator/panel/ControlEndpoint.h"
#include "simulator/panel/PanelModel.h"
#include "simulator/usbfs/ClientMemory.h"

#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <vector>

namespace Vantor {

// One open file on a panel's node: what the kernel's usbfs does between a program's
// ioctls and the device. Keeps the URBs that the program has submitted and not yet
// reaped.
//
// A transfer that the program has split (without scatter-gather) arrives as one URB
// and its continuations; as in the kernel, a continuation goes out only when all
// before it was transferred whole, and comes back unused when it was not.
//
// Threads: one at a time. Lifetime: the model, the control endpoint, the tap and the
// counter must outlive it.
class UsbfsFile {
public:
    // `lastUrb` numbers the URBs of all files on one model.
    UsbfsFile(PanelModel& model, ControlEndpoint& control, const LinkTap& tap, std::uint32_t capabilities,
              PanelModel::UrbId& lastUrb);
    ~UsbfsFile();
    UsbfsFile(const UsbfsFile&) = delete;
    UsbfsFile& operator=(const UsbfsFile&) = delete;

    // Serves one ioctl: 0 or a negative errno.
    int handle(unsigned long request, const ClientMemory& argument);

    // Takes a completion of the model; false when it is not of this file.
    bool complete(const PanelModel::Completion& completion);

    bool hasReapable() const { return !m_done.empty(); }

    // The device is gone: only reaping works from now on.
    void disconnect();

private:
    struct Urb {
        ClientMemory memory;
        std::uint8_t endpoint;
        std::uint32_t flags;
        std::uint32_t length;
        PanelModel::UrbId id;
        std::vector<std::uint8_t> data; // to the device, then from it
        std::size_t dataOffset = 0;     // of `data` in the client's buffer
        int status = 0;
        std::uint32_t actualLength = 0;

        bool isIn() const;
        bool isContinuation() const;
        LinkTap::Transfer describe() const;
    };

    int clearHalt(std::uint8_t endpoint);
    int setInterface(const ClientMemory& argument);
    int setConfiguration(const ClientMemory& argument);
    void tellRequest(const ControlEndpoint::Setup& setup);
    int submit(const ClientMemory& argument);
    int submitControl(Urb urb, const ControlEndpoint::Setup& setup);
    int submitBulk(Urb urb);
    int startOrHold(Urb urb);
    int start(Urb& urb);
    int discard(std::uintptr_t address);
    int reap(const ClientMemory& argument);

    bool isPending(std::uint8_t endpoint) const;
    void goOn(std::uint8_t endpoint);
    void breakOff(std::uint8_t endpoint);
    void giveBack(Urb urb, int status);
    void finish(Urb urb, int status);

    PanelModel& m_model;
    ControlEndpoint& m_control;
    const LinkTap& m_tap;
    const std::uint32_t m_capabilities;
    PanelModel::UrbId& m_lastUrb;

    bool m_connected = true;
    std::map<PanelModel::UrbId, Urb> m_pending;     // with the model
    std::map<std::uint8_t, std::deque<Urb>> m_held; // by endpoint, behind pending ones
    std::set<std::uint8_t> m_broken;                // endpoints whose transfer has failed
    std::deque<Urb> m_done;                         // to be reaped
};

} // namespace Vantor

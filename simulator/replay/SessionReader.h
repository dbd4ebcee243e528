#pragma once

#include "simulator/capture/CapturedUrb.h"
#include "simulator/replay/RecordedSession.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Vantor {

// Makes a RecordedSession of a capture, which may be of a whole bus: finds the panels among
// its devices.
//
// A device is a panel when it has a panel's product id. When the capture does not say, it
// is one if a packet has crossed its link. A panel that appears when another has left is
// that one, plugged back; of several that have left, the one that left first.
//
// Threads: one at a time.
class SessionReader {
public:
    // The next frame.
    void add(CapturedUrb urb);

    // The capture ends here; `cut` says why it should go on, if it should. Throws
    // std::runtime_error with the cause alone when no panel is in it, or more than a bus has.
    RecordedSession finish(const std::string& cut = "");

    // A whole file. Throws std::runtime_error with the cause alone.
    static RecordedSession readFile(const std::string& path);

private:
    struct Frame {
        CapturedUrb urb;
        std::size_t number;
    };

    // A device from one enumeration to the next.
    struct Device {
        std::uint16_t bus;
        std::uint8_t number;
        std::vector<Frame> frames;
        bool isGone = false;
    };

    void noteCut(const CapturedUrb& urb);
    Device& deviceOf(const CapturedUrb& urb);
    static bool isPanel(const Device& device);
    static std::chrono::nanoseconds findZero(const std::vector<const Device*>& panels);
    void readLife(const Device& device, std::chrono::nanoseconds zero, bool isCut, RecordedSession& session) const;

    std::vector<Device> m_devices; // in the order in which they appear
    std::size_t m_frames = 0;
    std::chrono::nanoseconds m_begin{0}; // of the first
    std::size_t m_headless = 0;          // frames without a header
    std::string m_firstCut;              // frame of which not all is there, in words
};

} // namespace Vantor

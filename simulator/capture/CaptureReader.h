#pragma once

#include "simulator/capture/CapturedUrb.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include <pcap/pcap.h>

namespace Vantor {

// The frames of a capture file, one after the other: pcap or pcapng, of either byte order,
// of link type 220 (USB_LINUX_MMAPPED) or 189 (USB_LINUX), as usbmon's captures and those
// of CaptureWriter are.
//
// Nothing in a file is believed: a frame that is not what its header says comes out
// marked, with what there is of it.
//
// Threads: one at a time.
class CaptureReader {
public:
    // Throws std::runtime_error with the cause alone.
    explicit CaptureReader(const std::string& path);
    ~CaptureReader();
    CaptureReader(const CaptureReader&) = delete;
    CaptureReader& operator=(const CaptureReader&) = delete;

    // The next frame; none at the end. Throws std::runtime_error with the cause alone when
    // the file goes on with what is no frame, or ends within one; there is nothing more then.
    std::optional<CapturedUrb> next();

private:
    struct Release {
        void operator()(pcap_t* capture) const { pcap_close(capture); }
    };

    std::unique_ptr<pcap_t, Release> m_capture;
    std::size_t m_headerSize = 0; // of each frame
    std::size_t m_frames = 0;     // so far
    bool m_isOver = false;
};

} // namespace Vantor

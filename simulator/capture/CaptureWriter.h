#pragma once

#include "simulator/capture/CapturedUrb.h"

#include <cstddef>
#include <cstdio>
#include <memory>
#include <vector>

#include <pcap/pcap.h>

namespace Vantor {

// A capture file in the making: pcap with nanoseconds, link type 220
// (USB_LINUX_MMAPPED), in this machine's byte order.
//
// Each frame is in the file when `write` returns, in one piece: a program that is killed
// leaves a whole capture behind.
//
// Threads: one at a time.
class CaptureWriter {
public:
    // What Wireshark takes; of a longer frame, only so much is written.
    static constexpr std::size_t longestFrame = 262144;

    // Takes the file over, which nobody has written to. Throws std::runtime_error with the
    // cause alone.
    explicit CaptureWriter(std::FILE* file);
    ~CaptureWriter();
    CaptureWriter(const CaptureWriter&) = delete;
    CaptureWriter& operator=(const CaptureWriter&) = delete;

    // `presentLength` and `flaw` follow from the data. Throws std::runtime_error with the
    // cause alone; what is in the file then is no whole capture.
    void write(const CapturedUrb& urb);

private:
    struct Release {
        void operator()(pcap_t* capture) const { pcap_close(capture); }
        void operator()(pcap_dumper_t* dumper) const { pcap_dump_close(dumper); }
    };

    void flush();

    std::vector<char> m_buffer; // the file's own
    std::vector<std::uint8_t> m_frame;
    std::unique_ptr<pcap_t, Release> m_capture;
    std::unique_ptr<pcap_dumper_t, Release> m_dumper;
};

} // namespace Vantor

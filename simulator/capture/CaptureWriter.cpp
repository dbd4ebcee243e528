#include "simulator/capture/CaptureWriter.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>

#include <pcap/usb.h>

namespace Vantor {

namespace {

static_assert(sizeof(pcap_usb_header_mmapped) == 64, "as it is in files");

constexpr std::size_t frameHeadSize = 64; // what pcap writes before a frame is less

pcap_usb_header_mmapped makeHeader(const CapturedUrb& urb)
{
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(urb.time);
    const auto rest = std::chrono::duration_cast<std::chrono::microseconds>(urb.time - seconds);
    pcap_usb_header_mmapped header{};
    header.id = urb.id;
    header.event_type = static_cast<std::uint8_t>(urb.event);
    header.transfer_type = static_cast<std::uint8_t>(urb.transfer);
    header.endpoint_number = urb.endpoint;
    header.device_address = urb.device;
    header.bus_id = urb.bus;
    header.setup_flag = urb.setupFlag;
    header.data_flag = urb.dataFlag;
    header.ts_sec = seconds.count();
    header.ts_usec = static_cast<std::int32_t>(rest.count());
    header.status = urb.status;
    header.urb_len = urb.length;
    header.data_len = static_cast<std::uint32_t>(urb.data.size());
    std::memcpy(&header.s.setup, urb.setup.data(), urb.setup.size());
    header.interval = urb.interval;
    header.xfer_flags = urb.flags;
    return header;
}

timeval makeTime(std::chrono::nanoseconds time)
{
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
    timeval value{};
    value.tv_sec = static_cast<time_t>(seconds.count());
    value.tv_usec = static_cast<suseconds_t>((time - seconds).count()); // of a capture with nanoseconds, those
    return value;
}

} // namespace

CaptureWriter::CaptureWriter(std::FILE* file) : m_buffer(longestFrame + frameHeadSize)
{
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> owned(file, std::fclose);
    m_frame.reserve(longestFrame);
    // One write for each frame, however long.
    std::setvbuf(file, m_buffer.data(), _IOFBF, m_buffer.size());
    m_capture.reset(
        pcap_open_dead_with_tstamp_precision(DLT_USB_LINUX_MMAPPED, longestFrame, PCAP_TSTAMP_PRECISION_NANO));
    if (!m_capture)
        throw std::runtime_error("libpcap has no memory");
    // It closes the file if it fails.
    m_dumper.reset(pcap_dump_fopen(m_capture.get(), owned.release()));
    if (!m_dumper)
        throw std::runtime_error(pcap_geterr(m_capture.get()));
    flush();
}

CaptureWriter::~CaptureWriter() = default;

void CaptureWriter::write(const CapturedUrb& urb)
{
    const pcap_usb_header_mmapped header = makeHeader(urb);
    const auto* const headerBytes = reinterpret_cast<const std::uint8_t*>(&header);
    const std::size_t captured = std::min(urb.data.size(), longestFrame - sizeof header);
    m_frame.assign(headerBytes, headerBytes + sizeof header);
    m_frame.insert(m_frame.end(), urb.data.begin(), urb.data.begin() + static_cast<std::ptrdiff_t>(captured));

    pcap_pkthdr frame{};
    frame.ts = makeTime(urb.time);
    frame.caplen = static_cast<bpf_u_int32>(m_frame.size());
    frame.len = static_cast<bpf_u_int32>(sizeof header + urb.data.size());
    pcap_dump(reinterpret_cast<u_char*>(m_dumper.get()), &frame, m_frame.data());
    flush();
}

// pcap_dump says nothing of what it could not write.
void CaptureWriter::flush()
{
    errno = 0;
    if (pcap_dump_flush(m_dumper.get()) == 0 && std::ferror(pcap_dump_file(m_dumper.get())) == 0)
        return;
    throw std::runtime_error(errno != 0 ? std::generic_category().message(errno) : "an earlier frame is missing");
}

} // namespace Vantor

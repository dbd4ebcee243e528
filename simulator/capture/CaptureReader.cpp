#include "simulator/capture/CaptureReader.h"

#include "simulator/capture/InputFile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <system_error>

#include <pcap/usb.h>
#include <unistd.h>

namespace Vantor {

namespace {

static_assert(sizeof(pcap_usb_header) == 48 && sizeof(pcap_usb_header_mmapped) == 64, "as they are in files");

std::size_t headerSizeOf(pcap_t* capture)
{
    switch (const int type = pcap_datalink(capture)) {
    case DLT_USB_LINUX:
        return sizeof(pcap_usb_header);
    case DLT_USB_LINUX_MMAPPED:
        return sizeof(pcap_usb_header_mmapped);
    default:
        const char* const name = pcap_datalink_val_to_name(type);
        throw std::runtime_error("it has link type " + std::to_string(type) +
                                 (name != nullptr ? " (" + std::string(name) + ")" : "") +
                                 ", a capture of Linux's USB has 220 or 189");
    }
}

std::chrono::nanoseconds timeOf(const pcap_pkthdr& frame)
{
    // A pcapng file may claim any time. Of the seconds that nanoseconds can't hold, nobody
    // needs more than that there are too many.
    constexpr std::int64_t latest = std::chrono::nanoseconds::max() / std::chrono::seconds(1) - 1;
    const auto seconds = std::clamp<std::int64_t>(frame.ts.tv_sec, 0, latest);
    const auto rest = std::clamp<std::int64_t>(frame.ts.tv_usec, 0, std::nano::den - 1);
    return std::chrono::seconds(seconds) + std::chrono::nanoseconds(rest);
}

// `header`: what a file of link type 189 lacks is 0.
void takeHeader(const pcap_usb_header_mmapped& header, CapturedUrb& urb)
{
    urb.id = header.id;
    urb.event = static_cast<CapturedUrb::Event>(header.event_type);
    urb.transfer = static_cast<CapturedUrb::Transfer>(header.transfer_type);
    urb.endpoint = header.endpoint_number;
    urb.device = header.device_address;
    urb.bus = header.bus_id;
    urb.setupFlag = header.setup_flag;
    urb.dataFlag = header.data_flag;
    urb.status = header.status;
    urb.length = header.urb_len;
    urb.presentLength = header.data_len;
    std::memcpy(urb.setup.data(), &header.s.setup, urb.setup.size());
    urb.interval = header.interval;
    urb.flags = header.xfer_flags;
}

// Descriptors lie about in the data of an isochronous transfer.
std::uint32_t lengthOfData(const CapturedUrb& urb)
{
    return urb.transfer != CapturedUrb::Transfer::Isochronous ? urb.length : 0;
}

CapturedUrb parseFrame(const pcap_pkthdr& frame, const std::uint8_t* bytes, std::size_t headerSize)
{
    CapturedUrb urb;
    urb.time = timeOf(frame);
    urb.frameSize = frame.caplen;
    if (frame.caplen < headerSize) {
        urb.flaw = CapturedUrb::Flaw::NoHeader;
        return urb;
    }
    pcap_usb_header_mmapped header{};
    std::memcpy(&header, bytes, headerSize);
    takeHeader(header, urb);
    if (urb.dataFlag != CapturedUrb::follows)
        return urb;

    const std::size_t size = std::min<std::size_t>(urb.presentLength, frame.caplen - headerSize);
    urb.data.assign(bytes + headerSize, bytes + headerSize + size);
    if (size < urb.presentLength && frame.len <= frame.caplen)
        urb.flaw = CapturedUrb::Flaw::TooShort;
    else if (size < std::max(urb.presentLength, lengthOfData(urb))) // the kernel cuts off, too
        urb.flaw = CapturedUrb::Flaw::Snapped;
    return urb;
}

// By gzip, as Wireshark does on request and reads without a word.
bool isCompressed(std::FILE* file)
{
    std::rewind(file);
    const int first = std::fgetc(file);
    return first == 0x1F && std::fgetc(file) == 0x8B;
}

} // namespace

CaptureReader::CaptureReader(const std::string& path)
{
    const int descriptor = InputFile::open(path); // libpcap would take "-" for standard input
    std::FILE* const file = descriptor >= 0 ? fdopen(descriptor, "rb") : nullptr;
    if (file == nullptr) {
        const int cause = errno;
        if (descriptor >= 0)
            close(descriptor);
        throw std::runtime_error(std::generic_category().message(cause));
    }
    std::array<char, PCAP_ERRBUF_SIZE> error{};
    m_capture.reset(pcap_fopen_offline_with_tstamp_precision(file, PCAP_TSTAMP_PRECISION_NANO, error.data()));
    if (!m_capture) {
        const bool isGzip = isCompressed(file);
        std::fclose(file);
        throw std::runtime_error(isGzip ? "it is compressed: gunzip it first" : error.data());
    }
    m_headerSize = headerSizeOf(m_capture.get());
}

CaptureReader::~CaptureReader() = default;

std::optional<CapturedUrb> CaptureReader::next()
{
    if (m_isOver)
        return std::nullopt;
    pcap_pkthdr* frame = nullptr;
    const u_char* bytes = nullptr;
    const int result = pcap_next_ex(m_capture.get(), &frame, &bytes);
    m_isOver = result != 1;
    if (result == PCAP_ERROR_BREAK) // the end
        return std::nullopt;
    if (result != 1)
        throw std::runtime_error("behind frame " + std::to_string(m_frames) + ": " + pcap_geterr(m_capture.get()));
    ++m_frames;
    return parseFrame(*frame, bytes, m_headerSize);
}

} // namespace Vantor

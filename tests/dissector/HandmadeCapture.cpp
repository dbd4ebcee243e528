#include "tests/dissector/HandmadeCapture.h"

#include <algorithm>

namespace Vantor {

namespace {

constexpr std::size_t partSize = 16384;
constexpr std::uint8_t control = 2;
constexpr std::uint8_t bulk = 3;

std::uint8_t low(std::uint16_t value)
{
    return static_cast<std::uint8_t>(value);
}

std::uint8_t high(std::uint16_t value)
{
    return static_cast<std::uint8_t>(value >> 8);
}

template <typename Send> void inParts(const Bytes& data, Send send)
{
    for (std::size_t at = 0; at < data.size(); at += partSize) {
        const auto begin = data.begin() + static_cast<std::ptrdiff_t>(at);
        send(Bytes(begin, begin + static_cast<std::ptrdiff_t>(std::min(partSize, data.size() - at))));
    }
}

} // namespace

HandmadeCapture::HandmadeCapture() : m_file(24)
{
    put(m_file, 0, 0xA1B2C3D4); // pcap, microseconds
    put(m_file, 4, 0x00040002); // 2.4
    put(m_file, 16, 262144);
    put(m_file, 20, 220);
}

void HandmadeCapture::enumerate(std::uint8_t device, std::uint16_t vendor, std::uint16_t product)
{
    control(device, {0x80, 6, 0, 1, 0, 0, 18, 0},
            {18, 1, 0, 2, 0, 0, 0, 64, low(vendor), high(vendor), low(product), high(product), 0, 1, 0, 0, 0, 1});
    control(device, {0x80, 6, 0, 2, 0, 0, 32, 0}, {9, 2, 32, 0, 1,    1, 0, 0xC0, 0, 9, 4, 0,    0, 2, 0xFF, 0,
                                                   0, 0, 7,  5, 0x02, 2, 0, 2,    0, 7, 5, 0x81, 2, 0, 2,    0});
}

void HandmadeCapture::control(std::uint8_t device, const Bytes& setup, const Bytes& answer)
{
    add({'S', Vantor::control, 0x80, device}, setup, {});
    add({'C', Vantor::control, 0x80, device}, {}, answer);
    ++m_urb;
}

unsigned int HandmadeCapture::out(std::uint8_t device, const Bytes& data, std::size_t kept)
{
    const unsigned int frame = add({'S', bulk, 0x02, device}, {}, data, kept);
    add({'C', bulk, 0x02, device}, {}, {});
    ++m_urb;
    return frame;
}

unsigned int HandmadeCapture::in(std::uint8_t device, const Bytes& data, std::size_t kept)
{
    add({'S', bulk, 0x81, device}, {}, {});
    const unsigned int frame = add({'C', bulk, 0x81, device}, {}, data, kept);
    ++m_urb;
    return frame;
}

unsigned int HandmadeCapture::outInParts(std::uint8_t device, const Bytes& data)
{
    unsigned int frame = 0;
    inParts(data, [&](const Bytes& part) { frame = out(device, part); });
    return frame;
}

unsigned int HandmadeCapture::inInParts(std::uint8_t device, const Bytes& data)
{
    unsigned int frame = 0;
    inParts(data, [&](const Bytes& part) { frame = in(device, part); });
    return frame;
}

unsigned int HandmadeCapture::add(const Urb& urb, const Bytes& setup, const Bytes& data, std::size_t kept)
{
    constexpr std::size_t recordHeader = 16;
    constexpr std::size_t urbHeader = 64;
    Bytes frame(recordHeader + urbHeader);
    put(frame, 0, m_milliseconds / 1000);
    put(frame, 4, m_milliseconds % 1000 * 1000);
    put(frame, 8, static_cast<std::uint32_t>(urbHeader + std::min(kept, data.size())));
    put(frame, 12, static_cast<std::uint32_t>(urbHeader + data.size()));

    std::uint8_t* const header = frame.data() + recordHeader;
    put(frame, recordHeader, m_urb);
    header[8] = static_cast<std::uint8_t>(urb.event);
    header[9] = urb.transfer;
    header[10] = urb.endpoint;
    header[11] = urb.device;
    header[12] = 1; // bus
    header[14] = setup.empty() ? '-' : 0;
    if (data.empty())
        header[15] = urb.event == 'S' ? '<' : '>';
    put(frame, recordHeader + 28, urb.event == 'S' ? static_cast<std::uint32_t>(-115) : 0);
    put(frame, recordHeader + 32, static_cast<std::uint32_t>(data.size()));
    put(frame, recordHeader + 36, static_cast<std::uint32_t>(data.size()));
    std::copy(setup.begin(), setup.end(), header + 40);

    m_file.insert(m_file.end(), frame.begin(), frame.end());
    m_file.insert(m_file.end(), data.begin(), data.begin() + static_cast<std::ptrdiff_t>(std::min(kept, data.size())));
    ++m_milliseconds;
    return ++m_frames;
}

} // namespace Vantor

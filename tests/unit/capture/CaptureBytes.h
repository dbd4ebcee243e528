#pragma once

#include "simulator/capture/CapturedUrb.h"
#include "tests/support/Bytes.h"

namespace Vantor {

// A bulk write of four bytes as it is submitted, and a bulk read of 512 bytes that brings
// three, and what a capture has of them. Captures here are little-endian.
namespace CaptureBytes {

using namespace std::chrono_literals;

inline CapturedUrb makeSubmittedWrite()
{
    CapturedUrb urb;
    urb.id = 0x1122334455667788;
    urb.endpoint = 0x02;
    urb.device = 5;
    urb.bus = 1;
    urb.status = -115;
    urb.length = 4;
    urb.presentLength = 4;
    urb.flags = 0x40;
    urb.data = {0xDE, 0xAD, 0xBE, 0xEF};
    urb.time = 1700000000s + 123456789ns;
    return urb;
}

inline CapturedUrb makeCompletedRead()
{
    CapturedUrb urb;
    urb.id = 2;
    urb.event = CapturedUrb::Event::Complete;
    urb.endpoint = 0x81;
    urb.device = 0x7F;
    urb.bus = 0x0102;
    urb.length = 3;
    urb.presentLength = 3;
    urb.flags = 0x200;
    urb.data = {1, 2, 3};
    urb.time = 1700000001s;
    return urb;
}

// Magic of pcap with nanoseconds, version 2.4, time zone, accuracy, longest frame 262144,
// link type 220.
const Bytes fileHeader = {0x4D, 0x3C, 0xB2, 0xA1, 2, 0, 4, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 4, 0, 220, 0, 0, 0};

const Bytes submittedWrite = {
    0x00, 0xF1, 0x53, 0x65, 0x15, 0xCD, 0x5B, 0x07, // 1700000000 s, 123456789 ns
    68,   0,    0,    0,    68,   0,    0,    0,    // bytes captured, bytes there were
    0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11, // id
    'S',  3,    0x02, 5,    1,    0,    '-',  0,    // bulk, endpoint, device, bus; no setup, data follows
    0x00, 0xF1, 0x53, 0x65, 0,    0,    0,    0,    // seconds
    0x40, 0xE2, 0x01, 0x00, 0x8D, 0xFF, 0xFF, 0xFF, // 123456 us; -115
    4,    0,    0,    0,    4,    0,    0,    0,    // length, bytes of it here
    0,    0,    0,    0,    0,    0,    0,    0,    // setup
    0,    0,    0,    0,    0,    0,    0,    0,    // interval, start frame
    0x40, 0,    0,    0,    0,    0,    0,    0,    // flags: zero packet; descriptors
    0xDE, 0xAD, 0xBE, 0xEF,
};

const Bytes completedRead = {
    0x01, 0xF1, 0x53, 0x65, 0,    0,    0,    0, // 1700000001 s
    67,   0,    0,    0,    67,   0,    0,    0,    2, 0, 0, 0, 0, 0, 0, 0, 'C', 3, 0x81, 0x7F,
    2,    1,    '-',  0,    0x01, 0xF1, 0x53, 0x65, 0, 0, 0, 0, 0, 0, 0, 0, 0,   0, 0,    0, // status 0
    3,    0,    0,    0,    3,    0,    0,    0,    0, 0, 0, 0, 0, 0, 0, 0, 0,   0, 0,    0,
    0,    0,    0,    0,    0,    2,    0,    0,    0, 0, 0, 0, // flags: in
    1,    2,    3,
};

} // namespace CaptureBytes

} // namespace Vantor

#pragma once

#include "benchmarks/link/Measurement.h"

#include <vector>

namespace Vantor {

// A libusb without a bus, linked in the place of the real one: a send is over at once, a
// read as soon as there is a packet to give, and both come back through the thread that
// runs the events. What it costs, it costs the library and the bare loop alike.
//
// Threads: any. Lifetime: that of the program.
namespace StubLibusb {

void attach(unsigned int panels); // to be found by who starts then

// The next `times` reads of each of the first panels bring this packet. What waits for
// a read is always the packet given last.
void give(const std::vector<unsigned char>& packet, unsigned int times, unsigned int panels);

// Sends are kept back until they are let go.
void holdSends();
void letSendsGo();

Tally& getSent(); // sends that have come back

} // namespace StubLibusb

} // namespace Vantor

#pragma once

#include <string>
#include <vector>

namespace Vantor {

// The words behind the subject's name. A contender is "library" or anything else.
using Arguments = std::vector<std::string>;

// What is measured with panels on the virtual bus. Each needs a program start of its own,
// and throws when the panels do not do what it waits for.
void measureThroughput(const Arguments& arguments); // ROUNDS PACKETS
void measureLatency(const Arguments& arguments);    // SAMPLES
void measureStart(const Arguments& arguments);      // PANELS ROUNDS
void measureArrival(const Arguments& arguments);    // PANELS LOG CONTENDER
void measureFirmware(const Arguments& arguments);   // CHUNK-MS BYTES CALLBACK-MS LIMIT-S
void measureIdle(const Arguments& arguments);       // PANELS SECONDS CONTENDER
void measureReception(const Arguments& arguments);  // PANELS RECORDS CONTENDER CASE

} // namespace Vantor

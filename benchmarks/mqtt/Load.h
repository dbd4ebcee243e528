#pragma once

#include "benchmarks/mqtt/LightClient.h"

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace Vantor {

// What all loads on a gateway need.

// The words behind the subject's name.
using Arguments = std::vector<std::string>;

using Clock = std::chrono::steady_clock;

// As Python's time.monotonic_ns has it.
std::int64_t nanosecondsOf(Clock::time_point time);

std::uint16_t portOf(const std::string& text);

// A command for a place of the host, of QoS 1, to be answered there.
Message makeCommand(const std::string& host, const std::string& rest, std::string payload,
                    const std::string& answerTopic, std::string id);

// A picture that differs in every row from one of another parity: rows that an LCD has are not
// sent again.
void alternate(Message& picture, std::uint64_t number);

// "taken" and so on.
std::string wordOf(const Message& answer);

std::string contentOf(const std::string& path);

// The places of so many panels, when all are there. Throws std::runtime_error when they don't come.
std::vector<std::string> awaitPlaces(std::uint16_t port, const std::string& host, std::size_t count);

// The subjects. Each is a run of the program; figures go to standard output.
void runEcho(const Arguments& arguments);         // PORT TOPIC, until it is killed
void measureLatency(const Arguments& arguments);  // PORT HOST PLACE ROUNDS PNG ECHO-TOPIC
void measurePaced(const Arguments& arguments);    // PORT HOST PLACE SECONDS RECORDS-A-SECOND
void runStream(const Arguments& arguments);       // PORT TOPIC ANSWER-TOPIC BYTES SECONDS RECORDS-A-SECOND
void measureThrough(const Arguments& arguments);  // PORT HOST PANELS WINDOW SECONDS PAYLOAD
void measureBroker(const Arguments& arguments);   // PORT TOPIC WINDOW SECONDS PAYLOAD
void measureSessions(const Arguments& arguments); // PORT SESSIONS PANELS
void runWeek(const Arguments& arguments); // PORT HOST PANELS SECONDS RECORDS-A-SECOND PICTURES-A-SECOND PNG LIST

} // namespace Vantor

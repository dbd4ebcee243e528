#pragma once

#include "libMorvaneHostUsb/DeviceStatistics.h"
#include "panel2mqtt/desk/Answer.h"

#include <cstdint>
#include <optional>
#include <string>

namespace Vantor {

// A panel, as it is told.
struct PanelInfo {
    std::string description;
    unsigned int maxPacketSize = 0;
    unsigned int payloadLimit = 0;
};

// This gateway, at one connection.
struct HostState {
    bool isOnline = false;
    std::uint64_t epoch = 0; // grows with each connection
    std::string run;         // another one after each start
    std::string version;
};

// Who serves a host, or would like to.
struct HostClaim {
    std::string run;
    std::uint64_t since = 0; // milliseconds since 1970, when it was started
    bool isServing = false;

    // The one that was there first stays.
    bool isBefore(const HostClaim& other) const
    {
        return isServing != other.isServing ? isServing : since != other.since ? since < other.since : run < other.run;
    }
};

struct PlaceState {
    bool isOnline = false;
    std::uint64_t epoch = 0;
    std::string since; // "2026-11-22T22:19:31Z"
    std::string reason;
};

// A firmware upgrade, as it is told.
struct JobState {
    std::string state; // "queued", "writing", "written", "answering", "failed" or "interrupted"
    std::uint32_t bytesWritten = 0;
    std::uint32_t totalBytes = 0;
    std::string since; // as of a place
    std::string reason;
    std::string mainSum{}; // SHA-256 of the image, in hexadecimal digits; empty: none
    std::string servoSum{};

    bool isOver() const { return state == "answering" || state == "failed" || state == "interrupted"; }
};

// The payloads of docs/mqtt.md.
//
// Threads: stateless.
namespace DeskJson {

const char* nameOf(Answer::Word word);

std::string write(const HostState& state);
std::string write(const HostClaim& claim);
std::string write(const PlaceState& state);
std::string write(const JobState& state);
std::string write(const std::string& place, const PanelInfo& info);
std::string write(const Answer& answer, const std::string& host, const std::string& place);

// What was written by whomever: nothing if it can't be read.
std::optional<HostState> readHostState(const std::string& text);
std::optional<HostClaim> readHostClaim(const std::string& text);
std::optional<PlaceState> readPlaceState(const std::string& text);
std::optional<JobState> readJobState(const std::string& text);
std::optional<PanelInfo> readPanelInfo(const std::string& text);
std::optional<Answer> readAnswer(const std::string& text);

} // namespace DeskJson

} // namespace Vantor

#pragma once

#include "panelctl/session/Panel.h"

#include <chrono>
#include <cstdint>
#include <string>

namespace Vantor {

// What panelctl says when something is in the way: what was found, why that is no
// use, and the next step. First line first, further lines separated by newlines.

// "endpoint 0x02"
std::string nameEndpoint(unsigned int address);

std::string explainNoPanel();

// libusb does not start, with its code. The first line, and what to look at.
std::string explainNoLibusb(int code);

// A panel that is attached and was never alive: it could not be opened or claimed.
std::string explainUnusable(const Panel& panel);

// A panel that is attached and was alive before.
std::string explainGivenUp(const Panel& panel);

// Why a panel is alive no longer: "it was unplugged".
std::string explainEnd(const Panel& panel);

// A panel that was alive and is so no longer.
std::string explainLeft(const Panel& panel);

// A panel that has not described itself within `limit`.
std::string explainNoInformation(const Panel& panel, std::chrono::nanoseconds limit);

// A record or a picture (`thing`) of `bytes` with its packets, of which the panel has
// taken no more than `taken` within `limit`.
std::string explainNotTaken(const Panel& panel, const std::string& thing, std::uint64_t taken, std::uint64_t bytes,
                            std::chrono::nanoseconds limit);

// A packet of which the panel has taken a part only: with one record in it, or of a picture.
std::string explainRecordCutShort(const Panel& panel, std::uint64_t taken, std::uint64_t bytes);
std::string explainPictureCutShort(const Panel& panel, std::uint64_t taken, std::uint64_t bytes);

} // namespace Vantor

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace Vantor {

// The messages of USB/IP, by which a virtual host controller of the kernel talks to a
// device: a header of 48 bytes, every number in it big-endian, and the data of the
// transfer behind it. Requests are read here and replies written. Pure.
namespace UsbIpMessage {

constexpr std::size_t headerSize = 48;
constexpr std::size_t setupSize = 8;

// Of one transfer; what a kernel lets all programs have together, unless it is told
// otherwise.
constexpr std::uint32_t maxLength = 16 * 1024 * 1024;

// Of Submit::flags.
constexpr std::uint32_t shortNotOk = 0x0001;
constexpr std::uint32_t zeroPacket = 0x0040;

// A transfer for the device. Its data, `length` bytes, follow unless it is `isIn`.
struct Submit {
    std::uint32_t sequence;
    bool isIn;
    std::uint8_t endpoint; // 0 to 15
    std::uint32_t flags;
    std::uint32_t length;
    std::uint32_t packets; // 0 or 0xFFFFFFFF, as no transfer of a panel is isochronous
    std::array<std::uint8_t, setupSize> setup;
};

// The kernel wants transfer `target` back.
struct Unlink {
    std::uint32_t sequence;
    std::uint32_t target;
};

using Request = std::variant<Submit, Unlink>;

// Without a request: `error` says what is wrong. Then nothing is known of what follows.
struct ParsedRequest {
    std::optional<Request> request;
    std::string error;
};

ParsedRequest parseRequest(const std::uint8_t* header, std::size_t size);

// The end of a transfer: `status` is 0 or a negative errno. `data` is empty unless the
// transfer is a read, whose length is then that of `data`.
std::vector<std::uint8_t> makeSubmitReply(const Submit& request, std::int32_t status, std::uint32_t actualLength,
                                          const std::vector<std::uint8_t>& data);

// -ECONNRESET: the transfer is given back hereby, and has no other reply. 0: it had its
// reply already, or never was.
std::vector<std::uint8_t> makeUnlinkReply(const Unlink& request, std::int32_t status);

} // namespace UsbIpMessage

} // namespace Vantor

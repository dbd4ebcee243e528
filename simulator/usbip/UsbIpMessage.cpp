#include "simulator/usbip/UsbIpMessage.h"

#include <algorithm>

namespace Vantor {

namespace {

constexpr std::uint32_t commandSubmit = 1;
constexpr std::uint32_t commandUnlink = 2;
constexpr std::uint32_t replySubmit = 3;
constexpr std::uint32_t replyUnlink = 4;

constexpr std::uint32_t highestEndpoint = 15;
constexpr std::uint32_t notIsochronous = 0xFFFFFFFF;

// Offsets in the header: what all messages have, then what each has there.
constexpr std::size_t commandAt = 0;
constexpr std::size_t sequenceAt = 4;
constexpr std::size_t directionAt = 12;
constexpr std::size_t endpointAt = 16;
constexpr std::size_t flagsAt = 20;
constexpr std::size_t targetAt = 20;
constexpr std::size_t statusAt = 20;
constexpr std::size_t lengthAt = 24;
constexpr std::size_t packetsAt = 32;
constexpr std::size_t setupAt = 40;

std::uint32_t load(const std::uint8_t* header, std::size_t offset)
{
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < sizeof value; ++i)
        value = value << 8 | header[offset + i];
    return value;
}

void store(std::vector<std::uint8_t>& message, std::size_t offset, std::uint32_t value)
{
    for (std::size_t i = 0; i < sizeof value; ++i)
        message[offset + i] = static_cast<std::uint8_t>(value >> (24 - 8 * i));
}

// What a reply does not set is 0.
std::vector<std::uint8_t> makeReply(std::uint32_t command, std::uint32_t sequence, std::int32_t status)
{
    std::vector<std::uint8_t> reply(UsbIpMessage::headerSize);
    store(reply, commandAt, command);
    store(reply, sequenceAt, sequence);
    store(reply, statusAt, static_cast<std::uint32_t>(status));
    return reply;
}

UsbIpMessage::ParsedRequest refuse(std::string error)
{
    return {std::nullopt, std::move(error)};
}

UsbIpMessage::ParsedRequest parseSubmit(const std::uint8_t* header)
{
    const std::uint32_t direction = load(header, directionAt);
    const std::uint32_t endpoint = load(header, endpointAt);
    UsbIpMessage::Submit submit{};
    submit.sequence = load(header, sequenceAt);
    submit.flags = load(header, flagsAt);
    submit.length = load(header, lengthAt);
    submit.packets = load(header, packetsAt);
    if (direction > 1)
        return refuse("a transfer in direction " + std::to_string(direction) + ", there are 0 (out) and 1 (in)");
    if (endpoint > highestEndpoint)
        return refuse("a transfer for endpoint " + std::to_string(endpoint) + ", the highest is " +
                      std::to_string(highestEndpoint));
    if (submit.length > UsbIpMessage::maxLength)
        return refuse("a transfer of " + std::to_string(submit.length) + " bytes, at most " +
                      std::to_string(UsbIpMessage::maxLength) + " are taken");
    if (submit.packets != 0 && submit.packets != notIsochronous)
        return refuse("an isochronous transfer, a panel has none");
    submit.isIn = direction == 1;
    submit.endpoint = static_cast<std::uint8_t>(endpoint);
    std::copy_n(header + setupAt, submit.setup.size(), submit.setup.begin());
    return {submit, {}};
}

} // namespace

UsbIpMessage::ParsedRequest UsbIpMessage::parseRequest(const std::uint8_t* header, std::size_t size)
{
    if (size < headerSize)
        return refuse("a header of " + std::to_string(size) + " bytes, it has " + std::to_string(headerSize));
    switch (const std::uint32_t command = load(header, commandAt)) {
    case commandSubmit:
        return parseSubmit(header);
    case commandUnlink:
        return {Unlink{load(header, sequenceAt), load(header, targetAt)}, {}};
    default:
        return refuse("command " + std::to_string(command) + ", there are 1 (submit) and 2 (unlink)");
    }
}

std::vector<std::uint8_t> UsbIpMessage::makeSubmitReply(const Submit& request, std::int32_t status,
                                                        std::uint32_t actualLength,
                                                        const std::vector<std::uint8_t>& data)
{
    std::vector<std::uint8_t> reply = makeReply(replySubmit, request.sequence, status);
    store(reply, lengthAt, actualLength);
    // Kernels differ in how they write "none"; each understands its own.
    store(reply, packetsAt, request.packets);
    reply.insert(reply.end(), data.begin(), data.end());
    return reply;
}

std::vector<std::uint8_t> UsbIpMessage::makeUnlinkReply(const Unlink& request, std::int32_t status)
{
    return makeReply(replyUnlink, request.sequence, status);
}

} // namespace Vantor

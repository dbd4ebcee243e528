#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <vector>

#include <umockdev.h>

namespace Vantor {

// A piece of the client's memory, fetched while an ioctl of that client waits for its
// answer. What is written here reaches the client with the answer of an ioctl whose
// argument leads to it.
//
// Copies are the same piece. Throws std::runtime_error when the client is gone.
class ClientMemory {
public:
    // The argument of the ioctl that `client` waits for: a piece that holds nothing
    // but the argument itself.
    static ClientMemory argumentOf(UMockdevIoctlClient* client);

    // The `length` bytes that the pointer at `offset` points to. The same pointer
    // always leads to the same piece. `length` is not 0.
    ClientMemory follow(std::size_t offset, std::size_t length) const;

    // Makes the pointer at `offset` point to `target`. Once for each pointer.
    void point(std::size_t offset, const ClientMemory& target);

    // Where the piece is in the client.
    std::uintptr_t getAddress() const;

    template <typename T> T read(std::size_t offset = 0) const
    {
        T value;
        std::memcpy(&value, bytesAt(offset, sizeof value), sizeof value);
        return value;
    }

    std::vector<std::uint8_t> readBytes(std::size_t offset, std::size_t length) const;

    template <typename T> void write(std::size_t offset, const T& value) { writeBytes(offset, &value, sizeof value); }

    void writeBytes(std::size_t offset, const void* bytes, std::size_t length);

private:
    explicit ClientMemory(UMockdevIoctlData* data); // takes over one reference

    const std::uint8_t* bytesAt(std::size_t offset, std::size_t length) const;

    std::shared_ptr<UMockdevIoctlData> m_data;
};

} // namespace Vantor

#pragma once

#include "protocol/PacketType.h"
#include "simulator/panel/SliceDecoder.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace Vantor {

// What was drawn on one LCD: the layer that is being drawn, and which slice each pixel is of.
//
// Threads: one at a time.
class SliceTrail {
public:
    struct Mark {
        std::uint64_t number; // of the LCD's slices, from 0
        std::chrono::nanoseconds time;
        std::uint32_t bytes;
        bool isEncoded;
        std::uint8_t x;
        std::uint8_t y;
        std::uint8_t width;
        std::uint8_t rows;
        std::uint8_t bitsPerPixel;
    };

    // Slices that go on where the one before ended, of one encoding, width and depth.
    struct Layer {
        std::chrono::nanoseconds time; // of the last slice
        bool isEncoded;
        unsigned int bitsPerPixel;
        unsigned int x;
        unsigned int y;
        unsigned int width;
        unsigned int height;
        std::uint64_t slices;
        std::uint64_t bytes;
    };

    // So many slices are known; when they are too many, those that a newer one of the same place
    // and size has covered go first, then the oldest.
    static constexpr std::size_t capacity = 1024;

    void add(std::chrono::nanoseconds time, PacketType type, const SliceDecoder::Slice& slice, std::size_t bytes);

    std::uint64_t getSlices() const { return m_slices; }
    std::uint64_t getBytes() const { return m_bytes; }
    const std::optional<Layer>& getLayer() const { return m_layer; }

    // The slice that drew the pixel last; nothing when that is forgotten, or was none.
    std::optional<Mark> find(unsigned int x, unsigned int y) const;

private:
    void extendLayer(const Mark& mark);
    void makeRoom();

    std::uint64_t m_slices = 0;
    std::uint64_t m_bytes = 0;
    std::optional<Layer> m_layer;
    std::vector<Mark> m_marks; // the oldest first
};

} // namespace Vantor

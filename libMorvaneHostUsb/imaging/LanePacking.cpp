#include "libMorvaneHostUsb/imaging/LanePacking.h"

#include "libMorvaneHostUsb/imaging/ByteLanes.h"

namespace Vantor {

namespace {

using LongLanes = std::uint64_t __attribute__((vector_size(16)));
using PixelLanes = std::uint32_t __attribute__((vector_size(16)));

constexpr std::size_t stepSize = laneCount;

// Above 255 nothing is light.
class LightTest {
public:
    explicit LightTest(int threshold)
        : m_threshold(allLanes(static_cast<unsigned int>(threshold > 255 ? 255 : threshold))),
          m_possible(allLanes(threshold > 255 ? 0 : 255))
    {}

    ByteLanes operator()(const unsigned char* pixels) const { return ifPossible(isReached(pixels)); }

    // Its two halves, of which the second is the same for any number of pixels.
    ByteLanes isReached(const unsigned char* pixels) const { return areAtLeast(loadLanes(pixels), m_threshold); }
    ByteLanes ifPossible(ByteLanes light) const { return light & m_possible; }

private:
    ByteLanes m_threshold;
    ByteLanes m_possible;
};

// All of them, where there are enough for one step: the last may do again what is done.
template <typename Step> std::size_t forEachStep(std::size_t count, const Step& step)
{
    if (count < stepSize)
        return 0;
    for (std::size_t at = 0; at < count - stepSize; at += stepSize)
        step(at);
    step(count - stepSize);
    return count;
}

PixelLanes loadPixels(const unsigned int* pixels)
{
    PixelLanes lanes;
    std::memcpy(&lanes, pixels, sizeof lanes);
    return lanes;
}

// Each eight lanes, of which each has a bit of its own, in the first of them.
LongLanes gathered(ByteLanes bits)
{
    LongLanes sums = LongLanes(bits);
    sums |= sums >> 32;
    sums |= sums >> 16;
    return sums | sums >> 8;
}

} // namespace

std::size_t LanePacking::dither(unsigned char* pixels, std::size_t count, int threshold)
{
    const LightTest isLight(threshold);
    return forEachStep(count, [&](std::size_t at) { storeLanes(pixels + at, isLight(pixels + at)); });
}

std::size_t LanePacking::packColumns(unsigned char* bytes, const unsigned char* pixels, std::size_t stride,
                                     unsigned int rows, unsigned int firstBit, std::size_t count, int threshold)
{
    const LightTest test(threshold);
    const ByteLanes column = allLanes((1U << rows) - 1);
    return forEachStep(count, [&](std::size_t at) {
        ByteLanes light{}; // from the lowest row up: a light pixel's 255 is -1
        for (const unsigned char* row = pixels + at + rows * stride; row != pixels + at;)
            light = light + light - test.isReached(row -= stride);
        const LongLanes dark = LongLanes(~test.ifPossible(light) & column) << firstBit;
        storeLanes(bytes + at, loadLanes(bytes + at) | ByteLanes(dark));
    });
}

std::size_t LanePacking::packRow(unsigned char* bytes, const unsigned char* pixels, std::size_t count, int threshold)
{
    constexpr ByteLanes bits = {128, 64, 32, 16, 8, 4, 2, 1, 128, 64, 32, 16, 8, 4, 2, 1};
    const LightTest isLight(threshold);
    std::size_t done = 0;
    for (; count - done >= stepSize; done += stepSize) {
        const LongLanes packed = gathered(~isLight(pixels + done) & bits);
        unsigned char* const target = bytes + done / 8;
        target[0] = static_cast<unsigned char>(target[0] | packed[0]);
        target[1] = static_cast<unsigned char>(target[1] | packed[1]);
    }
    return done;
}

std::uint32_t LanePacking::findEndsOfRuns(const unsigned int* pixels)
{
    PixelLanes ends{};
    PixelLanes bits = {1, 2, 4, 8};
    for (int i = 0; i < runStep; i += 4) {
        ends |= PixelLanes(loadPixels(pixels + i) != loadPixels(pixels + i + 1)) & bits;
        bits <<= 4;
    }
    const LongLanes halves = LongLanes(ends);
    const std::uint64_t both = halves[0] | halves[1];
    return static_cast<std::uint32_t>(both | both >> 32);
}

} // namespace Vantor

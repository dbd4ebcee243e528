#include "libMorvaneHostUsb/imaging/LanePacking.h"

#include "libMorvaneHostUsb/imaging/ByteLanes.h"

namespace Vantor {

namespace {

using LongLanes = std::uint64_t __attribute__((vector_size(16)));

constexpr std::size_t stepSize = laneCount;

// Above 255 nothing is too light.
class DarkTest {
public:
    explicit DarkTest(int threshold)
        : m_threshold(allLanes(static_cast<unsigned int>(threshold > 255 ? 255 : threshold))),
          m_always(allLanes(threshold > 255 ? 255 : 0))
    {}

    ByteLanes operator()(const unsigned char* pixels) const
    {
        return ~areAtLeast(loadLanes(pixels), m_threshold) | m_always;
    }

private:
    ByteLanes m_threshold;
    ByteLanes m_always;
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
    const DarkTest isDark(threshold);
    return forEachStep(count, [&](std::size_t at) { storeLanes(pixels + at, ~isDark(pixels + at)); });
}

std::size_t LanePacking::packColumns(unsigned char* bytes, const unsigned char* pixels, std::size_t stride,
                                     unsigned int rows, unsigned int firstBit, std::size_t count, int threshold)
{
    const DarkTest isDark(threshold);
    return forEachStep(count, [&](std::size_t at) {
        ByteLanes columns = loadLanes(bytes + at);
        for (unsigned int row = 0; row < rows; ++row)
            columns |= isDark(pixels + row * stride + at) & allLanes(1U << (firstBit + row));
        storeLanes(bytes + at, columns);
    });
}

std::size_t LanePacking::packRow(unsigned char* bytes, const unsigned char* pixels, std::size_t count, int threshold)
{
    constexpr ByteLanes bits = {128, 64, 32, 16, 8, 4, 2, 1, 128, 64, 32, 16, 8, 4, 2, 1};
    const DarkTest isDark(threshold);
    std::size_t done = 0;
    for (; count - done >= stepSize; done += stepSize) {
        const LongLanes packed = gathered(isDark(pixels + done) & bits);
        unsigned char* const target = bytes + done / 8;
        target[0] = static_cast<unsigned char>(target[0] | packed[0]);
        target[1] = static_cast<unsigned char>(target[1] | packed[1]);
    }
    return done;
}

} // namespace Vantor

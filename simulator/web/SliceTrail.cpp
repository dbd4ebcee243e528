#include "simulator/web/SliceTrail.h"

#include <algorithm>
#include <unordered_set>

namespace Vantor {

namespace {

std::uint32_t rectangleOf(const SliceTrail::Mark& mark)
{
    return static_cast<std::uint32_t>(mark.x) << 24 | static_cast<std::uint32_t>(mark.y) << 16 |
           static_cast<std::uint32_t>(mark.width) << 8 | mark.rows;
}

} // namespace

void SliceTrail::add(std::chrono::nanoseconds time, PacketType type, const SliceDecoder::Slice& slice,
                     std::size_t bytes)
{
    const Mark mark{m_slices++,
                    time,
                    static_cast<std::uint32_t>(bytes),
                    type == PacketType::EncodedLcdSlice,
                    slice.x,
                    slice.y,
                    slice.width,
                    slice.rows,
                    slice.bitsPerPixel};
    m_bytes += bytes;
    extendLayer(mark);
    if (m_marks.size() == capacity)
        makeRoom();
    m_marks.push_back(mark);
}

void SliceTrail::extendLayer(const Mark& mark)
{
    const bool goesOn = m_layer && m_layer->isEncoded == mark.isEncoded && m_layer->x == mark.x &&
                        m_layer->width == mark.width && m_layer->bitsPerPixel == mark.bitsPerPixel &&
                        m_layer->y + m_layer->height == mark.y;
    if (!goesOn)
        m_layer = Layer{mark.time, mark.isEncoded, mark.bitsPerPixel, mark.x, mark.y, mark.width, 0, 0, 0};
    m_layer->time = mark.time;
    m_layer->height += mark.rows;
    ++m_layer->slices;
    m_layer->bytes += mark.bytes;
}

// Pictures come again and again, in slices of the same places. Half of what is left goes when
// they don't, so that this is rare.
void SliceTrail::makeRoom()
{
    std::unordered_set<std::uint32_t> places;
    std::vector<Mark> kept;
    for (auto mark = m_marks.rbegin(); mark != m_marks.rend() && kept.size() < capacity / 2; ++mark)
        if (places.insert(rectangleOf(*mark)).second)
            kept.push_back(*mark);
    std::reverse(kept.begin(), kept.end());
    m_marks = std::move(kept);
    m_marks.reserve(capacity);
}

std::optional<SliceTrail::Mark> SliceTrail::find(unsigned int x, unsigned int y) const
{
    const auto drew = [x, y](const Mark& mark) {
        return x >= mark.x && x - mark.x < mark.width && y >= mark.y && y - mark.y < mark.rows;
    };
    const auto found = std::find_if(m_marks.rbegin(), m_marks.rend(), drew);
    return found != m_marks.rend() ? std::optional(*found) : std::nullopt;
}

} // namespace Vantor

#pragma once

#include "simulator/panel/PanelModel.h"
#include "tests/support/Bytes.h"

#include <chrono>
#include <cstddef>
#include <cstdint>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {

inline bool operator==(const PanelModel::Completion& left, const PanelModel::Completion& right)
{
    return left.urb == right.urb && left.status == right.status && left.actualLength == right.actualLength &&
           left.data == right.data;
}

inline void PrintTo(const PanelModel::Completion& completion, std::ostream* out)
{
    *out << "URB " << completion.urb << " status " << completion.status << " length " << completion.actualLength
         << " data " << testing::PrintToString(completion.data);
}

// A panel in virtual time.
class PanelModelFixture : public testing::Test {
protected:
    using Completion = PanelModel::Completion;

    static constexpr PanelFault::Direction out = PanelFault::Direction::Out;
    static constexpr PanelFault::Direction in = PanelFault::Direction::In;

    static PanelFault fault(PanelFault::Direction direction, PanelFault::Kind kind, bool sticky = false)
    {
        PanelFault result;
        result.direction = direction;
        result.kind = kind;
        result.sticky = sticky;
        return result;
    }

    static PanelModel::Options options(std::uint16_t maxPacketSize = 8192, bool keepRecords = true)
    {
        PanelModel::Options result;
        result.maxPacketSize = maxPacketSize;
        result.keepRecords = keepRecords;
        return result;
    }

    // A frame of `size` bytes, at least 11, with one record of type 9 in it.
    static Bytes frame(std::size_t size)
    {
        Bytes bytes(size, 0x5A);
        const Bytes start{
            static_cast<std::uint8_t>(size),      static_cast<std::uint8_t>(size >> 8),       1, 0, 0, 0, 0, 0, 9,
            static_cast<std::uint8_t>(size - 11), static_cast<std::uint8_t>((size - 11) >> 8)};
        std::copy(start.begin(), start.end(), bytes.begin());
        return bytes;
    }

    static Bytes part(const Bytes& bytes, std::size_t begin, std::size_t end)
    {
        return {bytes.begin() + static_cast<std::ptrdiff_t>(begin), bytes.begin() + static_cast<std::ptrdiff_t>(end)};
    }

    PanelModel::Clock clock()
    {
        return [this] { return m_now; };
    }

    const PanelModel::Owner m_owner = &m_now;
    const PanelModel::Owner m_other = this;
    std::chrono::nanoseconds m_now{0};
    PanelModel m_panel{options(), clock()};
};

} // namespace Vantor

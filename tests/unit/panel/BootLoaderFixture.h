#pragma once

#include "simulator/panel/BootLoader.h"
#include "tests/support/BootRecords.h"

#include <algorithm>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {

// A boot loader in virtual time.
class BootLoaderFixture : public testing::Test {
protected:
    using State = BootLoader::State;

    static constexpr auto requestType = static_cast<PacketType>(41);
    static constexpr auto chunkType = static_cast<PacketType>(44);

    // The chunk at `begin` of an image.
    static Bytes part(const Bytes& image, std::size_t begin)
    {
        const std::size_t end = std::min<std::size_t>(begin + 4096, image.size());
        return {image.begin() + static_cast<std::ptrdiff_t>(begin), image.begin() + static_cast<std::ptrdiff_t>(end)};
    }

    static BootFault fault(BootFault::Kind kind, unsigned int skip = 0, bool sticky = false)
    {
        BootFault result;
        result.kind = kind;
        result.skip = skip;
        result.sticky = sticky;
        return result;
    }

    void take(PacketType type, const Bytes& payload) { EXPECT_TRUE(m_loader.take(type, payload, m_now)); }

    std::vector<Bytes> repliesAt(std::chrono::nanoseconds time)
    {
        m_now = time;
        return m_loader.takeReplies(m_now);
    }

    // The answers to a record, when everything is done.
    std::vector<Bytes> answers(PacketType type, const Bytes& payload)
    {
        take(type, payload);
        return repliesAt(m_now + std::chrono::seconds(10));
    }

    void announce(const Bytes& payload)
    {
        ASSERT_THAT(answers(requestType, payload), testing::ElementsAre(BootRecords::reply(2)));
    }

    // Of the chunk at `address`, when it has been written.
    static Bytes writtenReply(std::uint8_t board, const Bytes& image, std::uint32_t address)
    {
        const Bytes data = part(image, address);
        return BootRecords::reply(1, board, address, static_cast<std::uint32_t>(data.size()),
                                  BootRecords::checksumOf(BootRecords::chunk(board, address, data)));
    }

    void expectWritten(std::uint8_t board, const Bytes& image, std::uint32_t address)
    {
        EXPECT_THAT(answers(chunkType, BootRecords::chunk(board, address, part(image, address))),
                    testing::ElementsAre(writtenReply(board, image, address)));
    }

    std::chrono::nanoseconds m_now{0};
    BootLoader m_loader{BootLoader::Options{}, BootLoader::Flash{}};
};

} // namespace Vantor

// What a host and a script of faults may do to a boot loader. An input is a sequence of
// operations, each a byte that says which and a few that say how (see Script). Records
// have their right checksum here, which no fuzzer guesses; those with a wrong one come as
// raw bytes.
#include "simulator/panel/BootLoader.h"
#include "simulator/panel/ImageCrc.h"
#include "tests/fuzz/Require.h"
#include "tests/support/BootRecords.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>

using namespace Vantor;

namespace {

using BootRecords::sign;

// So small that an input fills it.
constexpr std::uint32_t mainCapacity = 20000;
constexpr std::uint32_t servoCapacity = 9000;

BootLoader::Options options()
{
    BootLoader::Options result;
    result.mainCapacity = mainCapacity;
    result.servoCapacity = servoCapacity;
    return result;
}

class Script {
public:
    Script(const std::uint8_t* data, std::size_t size) : m_data(data), m_size(size) {}

    void run()
    {
        while (m_size != 0) {
            step();
            check();
        }
        m_now += std::chrono::hours(24);
        collect();
        require(!m_loader.nextDeadline() || *m_loader.nextDeadline() > m_now, "what is due is done");
    }

private:
    std::uint8_t byte()
    {
        if (m_size == 0)
            return 0;
        --m_size;
        return *m_data++;
    }

    std::uint32_t word() { return byte() | static_cast<std::uint32_t>(byte()) << 8; }

    void step()
    {
        switch (byte() % 7) {
        case 0:
            return announce();
        case 1:
            return send();
        case 2:
            return sendRaw();
        case 3:
            m_now += std::chrono::milliseconds(byte());
            return;
        case 4:
            return injectFault();
        case 5:
            return m_loader.powerOff(m_now);
        default:
            return collect();
        }
    }

    // Sizes of 16 bits, and few CRCs, so that one is met again; 0 stands for that of an
    // image filled with 0x55.
    void announce()
    {
        Bytes bytes(34);
        for (const std::size_t offset : {std::size_t{10}, std::size_t{22}}) {
            const std::uint32_t size = word();
            const std::uint8_t crc = byte();
            put(bytes, offset, size);
            put(bytes, offset + 4, crc != 0 ? crc : calculateImageCrc(Bytes(size, 0x55)));
        }
        bytes[19] = 0x30;
        take(41, sign(bytes));
    }

    // Board, number of the chunk (or an address in between), length, what it is filled with.
    void send()
    {
        Bytes bytes(4109);
        bytes[0] = byte();
        const std::uint32_t where = byte();
        put(bytes, 1, where < 128 ? where * 4096 : where * 16777);
        put(bytes, 5, word());
        std::fill(bytes.begin() + 9, bytes.end() - 4, byte());
        take(44, sign(bytes));
    }

    void sendRaw()
    {
        const std::uint8_t type = byte();
        Bytes bytes(std::min<std::size_t>(word(), m_size));
        for (std::uint8_t& next : bytes)
            next = byte();
        take(type, bytes);
    }

    void injectFault()
    {
        BootFault fault;
        fault.kind = static_cast<BootFault::Kind>(byte() % 7);
        fault.sticky = byte() % 2 != 0;
        fault.skip = byte();
        fault.code = byte();
        fault.offset = fault.code % 14;
        fault.delay = std::chrono::milliseconds(word());
        m_loader.inject(fault);
    }

    void take(std::uint8_t type, const Bytes& payload)
    {
        if (!m_loader.take(static_cast<PacketType>(type), payload, m_now))
            m_loader.powerOff(m_now);
    }

    void collect()
    {
        for (const Bytes& reply : m_loader.takeReplies(m_now))
            require(reply.size() == 14, "a reply has 14 bytes");
    }

    static void checkImage(const BootLoader::Image& image, std::uint32_t capacity)
    {
        require(image.bytes.size() <= capacity, "an image fits the flash");
        require(image.size <= capacity && image.written <= image.size, "no more is written than announced");
        require(image.written == 0 || image.written == image.bytes.size(), "what is written is there");
        require(image.written % 4096 == 0 || image.written == image.size, "chunks are whole");
        if (image.state == BootLoader::State::Verified)
            require(image.written == image.size && calculateImageCrc(image.bytes) == image.crc, "verified is right");
        if (image.state == BootLoader::State::Incomplete)
            require(image.written < image.size, "incomplete is short");
    }

    void check()
    {
        checkImage(m_loader.getFlash().main, mainCapacity);
        checkImage(m_loader.getFlash().servo, servoCapacity);
        const BootLoader::Statistics& counts = m_loader.getStatistics();
        const std::uint64_t done =
            counts.requestsAccepted + counts.requestsRefused + counts.chunksWritten + counts.chunksRefused;
        require(done + counts.recordsLost <= counts.records, "no record is done twice");
        require(counts.replies <= 2 * done, "no reply is made up");
    }

    const std::uint8_t* m_data;
    std::size_t m_size;
    std::chrono::nanoseconds m_now{0};
    BootLoader m_loader{options(), BootLoader::Flash{}};
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Script(data, size).run();
    return 0;
}

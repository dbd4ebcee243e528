// What a kernel may send to a panel that is plugged into it. An input is a sequence of
// steps, a byte that says which and what it needs: transfers and unlinkings whose answers
// are counted, packets from the panel, and bytes as they are, with which it may end.
#include "simulator/usbip/UsbIpPanel.h"
#include "tests/fuzz/Require.h"
#include "tests/support/Bytes.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>

using namespace Vantor;

namespace {

constexpr std::size_t headerSize = 48;

class Kernel {
public:
    Kernel(const std::uint8_t* data, std::size_t size) : m_data(data), m_left(size) {}

    void run()
    {
        submit(false, 0, 0, {0x00, 9, 1, 0, 0, 0, 0, 0}); // set configuration
        while (m_left > 0 && m_connected)
            step(take());
        m_model.unplug();
        m_usbIp.settle();
        readAnswers();
        require(m_pending.empty() || !m_isTame, "what is pending ends with the panel");
    }

private:
    struct Transfer {
        bool isIn;
        std::uint32_t length;
    };

    std::uint8_t take()
    {
        if (m_left == 0)
            return 0;
        --m_left;
        return *m_data++;
    }

    Bytes take(std::size_t size)
    {
        const std::size_t taken = std::min(size, m_left);
        const Bytes bytes(m_data, m_data + taken);
        m_data += taken;
        m_left -= taken;
        return bytes;
    }

    void step(std::uint8_t kind)
    {
        const std::uint8_t detail = take();
        switch (kind % 8) {
        case 0:
            return submit(true, 1, detail * 64U, {});
        case 1:
            return submit(false, 2, detail, {});
        case 2:
            return submit(detail >= 128, 0, detail, take(8));
        case 3:
            return unlink(m_number > detail ? m_number - detail : detail);
        case 4:
            return m_model.emitRaw(take(detail));
        case 5:
            return inject(detail);
        case 6:
            m_now += std::chrono::milliseconds(detail);
            m_usbIp.settle();
            return readAnswers();
        default:
            return sendAnything(take(detail));
        }
    }

    // What follows may be taken for the rest of it: answers can't be told apart any more.
    void sendAnything(const Bytes& bytes)
    {
        m_isTame = m_isTame && bytes.empty();
        send(bytes);
    }

    void inject(std::uint8_t detail)
    {
        PanelFault fault;
        fault.direction = (detail & 1) != 0 ? PanelFault::Direction::In : PanelFault::Direction::Out;
        fault.kind = static_cast<PanelFault::Kind>((detail >> 1) % 5);
        fault.sticky = (detail & 0x80) != 0;
        fault.bytes = detail;
        fault.status = -71;
        fault.delay = std::chrono::milliseconds(detail);
        m_model.inject(fault);
    }

    static void append(Bytes& bytes, std::uint32_t word)
    {
        for (int shift = 24; shift >= 0; shift -= 8)
            bytes.push_back(static_cast<std::uint8_t>(word >> shift));
    }

    void submit(bool isIn, std::uint32_t endpoint, std::uint32_t length, Bytes setup)
    {
        Bytes message;
        for (const std::uint32_t word :
             {1U, ++m_number, 0x10002U, isIn ? 1U : 0U, endpoint, length & 0x41U, length, 0U, 0U, 0U})
            append(message, word);
        setup.resize(8);
        message.insert(message.end(), setup.begin(), setup.end());
        if (!isIn) {
            Bytes data = take(length);
            data.resize(length);
            message.insert(message.end(), data.begin(), data.end());
        }
        m_pending[m_number] = {isIn, length};
        send(message);
    }

    void unlink(std::uint32_t target)
    {
        Bytes message;
        for (const std::uint32_t word : {2U, ++m_number, 0x10002U, 0U, 0U, target})
            append(message, word);
        message.resize(headerSize);
        m_unlinks[m_number] = target;
        send(message);
    }

    void send(const Bytes& bytes)
    {
        m_connected = m_usbIp.receive(bytes.data(), bytes.size());
        require(m_connected || !m_isTame, "what a kernel may send is understood");
        readAnswers();
    }

    static std::uint32_t wordAt(const std::uint8_t* bytes)
    {
        return static_cast<std::uint32_t>(bytes[0]) << 24 | static_cast<std::uint32_t>(bytes[1]) << 16 |
               static_cast<std::uint32_t>(bytes[2]) << 8 | bytes[3];
    }

    void readAnswers()
    {
        const Bytes output = m_usbIp.takeOutput();
        for (std::size_t at = 0; m_isTame && at < output.size();) {
            require(output.size() - at >= headerSize, "an answer has a header");
            const std::uint8_t* const header = output.data() + at;
            at += headerSize;
            if (wordAt(header) == 3)
                at += endTransfer(wordAt(header + 4), wordAt(header + 24));
            else
                endUnlink(wordAt(header + 4), wordAt(header + 20));
            require(at <= output.size(), "an answer has its data");
        }
    }

    std::size_t endTransfer(std::uint32_t number, std::uint32_t length)
    {
        const auto found = m_pending.find(number);
        require(found != m_pending.end(), "a transfer is answered once");
        const Transfer transfer = found->second;
        require(length <= transfer.length, "no more than there is room for");
        m_pending.erase(found);
        return transfer.isIn ? length : 0;
    }

    void endUnlink(std::uint32_t number, std::uint32_t status)
    {
        const auto found = m_unlinks.find(number);
        require(found != m_unlinks.end(), "an unlinking is answered once");
        const bool givesBack = status != 0;
        require(givesBack == (m_pending.erase(found->second) != 0), "the answer says whether the transfer had one");
        m_unlinks.erase(found);
    }

    const std::uint8_t* m_data;
    std::size_t m_left;
    std::chrono::nanoseconds m_now{0};
    PanelModel m_model{{}, [this] { return m_now; }};
    UsbIpPanel m_usbIp{m_model};
    std::uint32_t m_number = 0;
    std::map<std::uint32_t, Transfer> m_pending;
    std::map<std::uint32_t, std::uint32_t> m_unlinks; // target by number
    bool m_connected = true;
    bool m_isTame = true;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Kernel(data, size).run();
    return 0;
}

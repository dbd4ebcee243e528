// An upgrade of the main MCU, with an application that is quick or slow to return from its
// callback.
#include "benchmarks/link/LibraryLink.h"
#include "benchmarks/link/Subjects.h"
#include "protocol/FirmwareData.h"

#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include <unistd.h>

namespace Vantor {

namespace {

constexpr Contender limit{"chunks x chunk time", "limit"};
constexpr std::chrono::milliseconds look{2};

// A file of bytes that are not all the same, removed at the end.
class Image {
public:
    explicit Image(std::size_t size)
    {
        std::vector<char> bytes(size);
        for (std::size_t i = 0; i < size; ++i)
            bytes[i] = static_cast<char>(i * 31 >> 3);
        const int descriptor = mkstemp(m_path.data());
        const bool isWritten = descriptor >= 0 && write(descriptor, bytes.data(), size) == static_cast<ssize_t>(size);
        if (descriptor >= 0)
            close(descriptor);
        if (!isWritten)
            throw std::runtime_error("cannot write an image to " + m_path);
    }
    ~Image() { unlink(m_path.c_str()); }
    Image(const Image&) = delete;
    Image& operator=(const Image&) = delete;

    const std::string& getPath() const { return m_path; }

private:
    std::string m_path = "/tmp/linkImageXXXXXX";
};

struct Upgrade {
    double seconds;
    std::uint32_t written;
};

Upgrade upgrade(UsbDevice& panel, const std::string& image, std::chrono::seconds patience)
{
    const auto written = std::make_shared<std::atomic<std::uint32_t>>(0);
    const Clock::time_point start = Clock::now();
    panel.startFirmwareUpgrade(image, "", [written](const UsbDevice::FirmwareProgress& progress) {
        if (progress.totalBytes != 0)
            *written = progress.bytesWritten;
    });
    while (panel.isUpdating() && Clock::now() - start < patience)
        std::this_thread::sleep_for(look);
    return {microsecondsSince(start) / 1e6, *written};
}

} // namespace

void measureFirmware(const Arguments& arguments)
{
    Report report("firmware");
    const std::string& chunkTime = arguments.at(0);
    const unsigned long size = std::stoul(arguments.at(1));
    const std::chrono::milliseconds callbackTime(std::stol(arguments.at(2)));
    const std::chrono::seconds patience(std::stol(arguments.at(3)));

    const Image image(size);
    Upgrade result{};
    {
        LibraryLink link({{}, [callbackTime](PacketType) { std::this_thread::sleep_for(callbackTime); }});
        link.awaitPacketLimits(1);
        result = upgrade(*link.getPanel(), image.getPath(), patience);
    }
    constexpr unsigned long chunk = sizeof FirmwareData::data;
    const unsigned long chunks = (size + chunk - 1) / chunk;
    const std::string name =
        std::to_string(size) + " bytes, " + chunkTime + " ms a chunk, callback of " + arguments.at(2) + " ms";
    report.add(name, library, result.seconds, "s",
               result.written == size ? "once"
                                      : "not finished: " + std::to_string(result.written) + " bytes are written");
    report.add(name, limit, static_cast<double>(chunks) * std::stod(chunkTime) / 1e3, "s",
               std::to_string(chunks) + " chunks; the library leaves 0.1 s from one to the next");
}

} // namespace Vantor

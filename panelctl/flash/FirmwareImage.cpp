#include "panelctl/flash/FirmwareImage.h"

#include "panelctl/terminal/Failure.h"
#include "panelctl/terminal/Wording.h"
#include "protocol/FirmwareData.h"
#include "protocol/PacketPacker.h"
#include "wire/PanelLink.h"

#include <cerrno>
#include <cstdio>
#include <memory>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Vantor {

namespace {

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

// `name` is the option and the path: "--main: 'main.bin'".
[[noreturn]] void refuse(const std::string& name, const std::string& reason)
{
    throw Failure(ExitCode::Usage, name + " " + reason);
}

[[noreturn]] void refuseUnreadable(const std::string& name, int error)
{
    refuse(name, "can't be read: " + describeError(error) + ".");
}

// Opened without blocking, as a pipe that nobody writes to would otherwise hang it.
File openPlainFile(const std::string& name, const std::string& path)
{
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0)
        refuseUnreadable(name, errno);
    File file(fdopen(descriptor, "rb"), std::fclose);
    struct stat status {};
    if (!file || fstat(descriptor, &status) != 0)
        refuseUnreadable(name, errno);
    if (S_ISDIR(status.st_mode))
        refuse(name, "is a directory. Name the firmware image itself.");
    if (!S_ISREG(status.st_mode))
        refuse(name, "is a pipe or a device: only plain files can be flashed. Copy it to one first.");
    return file;
}

std::vector<std::uint8_t> readWhole(const std::string& name, const std::string& path)
{
    const File file = openPlainFile(name, path);
    std::vector<std::uint8_t> bytes(FirmwareImage::largestSize + 1);
    bytes.resize(std::fread(bytes.data(), 1, bytes.size(), file.get()));
    if (std::ferror(file.get()) != 0)
        refuseUnreadable(name, errno);
    if (bytes.empty())
        refuse(name, "is empty: there is nothing to write.");
    if (bytes.size() > FirmwareImage::largestSize)
        refuse(name, "is larger than 16 MiB: that is no microcontroller's firmware. Is it the right file?");
    return bytes;
}

std::uint32_t crcOf(const std::vector<std::uint8_t>& bytes)
{
    PacketPacker packer(PanelLink::initialPacketLimit);
    return packer.calculateCrc32(bytes.data(), static_cast<unsigned int>(bytes.size()), 0);
}

} // namespace

FirmwareImage::FirmwareImage(std::string option, std::string path)
    : m_option(std::move(option)), m_path(std::move(path))
{
    if (m_path.empty())
        refuse(m_option + ":", "the name is empty.");
    const std::vector<std::uint8_t> bytes = readWhole(m_option + ": " + quote(m_path), m_path);
    m_size = static_cast<std::uint32_t>(bytes.size());
    m_crc = crcOf(bytes);
}

void FirmwareImage::requireUnchanged() const
{
    const FirmwareImage now(m_option, m_path);
    if (now.m_size != m_size || now.m_crc != m_crc)
        refuse(m_option + ": " + quote(m_path), "has changed since it was checked. Nothing was sent.");
}

std::uint32_t FirmwareImage::getChunks() const
{
    return (m_size + FirmwareData::chunkSize - 1) / FirmwareData::chunkSize;
}

std::string FirmwareImage::describe() const
{
    return formatNumber(m_size, "byte") + " in " + formatNumber(getChunks(), "chunk") + ", CRC-32 0x" +
           formatHex(m_crc, 8) + ", from " + quote(m_path);
}

} // namespace Vantor

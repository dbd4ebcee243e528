#include "panel2mqtt/panels/FirmwareFolder.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <system_error>

#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Vantor {

namespace {

class OwnedFile {
public:
    explicit OwnedFile(int descriptor) : m_descriptor(descriptor) {}
    ~OwnedFile()
    {
        if (m_descriptor >= 0)
            close(m_descriptor);
    }
    OwnedFile(OwnedFile&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
    OwnedFile& operator=(OwnedFile&& other) noexcept
    {
        std::swap(m_descriptor, other.m_descriptor);
        return *this;
    }

    int get() const { return m_descriptor; }
    bool isOpen() const { return m_descriptor >= 0; }

private:
    int m_descriptor;
};

std::string describeError(int error)
{
    return std::generic_category().message(error);
}

std::string sha256Of(const std::string& bytes)
{
    std::array<unsigned char, EVP_MAX_MD_SIZE> sum{};
    unsigned int length = 0;
    if (EVP_Digest(bytes.data(), bytes.size(), sum.data(), &length, EVP_sha256(), nullptr) != 1)
        return "";
    constexpr const char* digits = "0123456789abcdef";
    std::string text;
    for (unsigned int i = 0; i < length; ++i) {
        text += digits[sum[i] >> 4];
        text += digits[sum[i] & 15];
    }
    return text;
}

bool writeWhole(int descriptor, const std::string& bytes)
{
    for (std::size_t done = 0; done < bytes.size();) {
        const ssize_t count = write(descriptor, bytes.data() + done, bytes.size() - done);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return false;
        done += static_cast<std::size_t>(count);
    }
    return true;
}

// No more than that, and a byte to show that there is more.
std::optional<std::string> readUpTo(int descriptor, std::size_t most)
{
    std::string bytes;
    std::array<char, 65536> buffer{};
    while (bytes.size() <= most) {
        const ssize_t count = read(descriptor, buffer.data(), std::min(buffer.size(), most + 1 - bytes.size()));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return std::nullopt;
        if (count == 0)
            break;
        bytes.append(buffer.data(), static_cast<std::size_t>(count));
    }
    return bytes;
}

// Step by step, so that no link leads out of the folder; without waiting for a pipe's writer.
OwnedFile openBelow(const std::string& folder, const std::string& name)
{
    OwnedFile place(open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    for (std::size_t begin = 0; place.isOpen();) {
        const std::size_t end = std::min(name.find('/', begin), name.size());
        const std::string part = name.substr(begin, end - begin);
        if (part.empty() || part == "..") {
            errno = EINVAL;
            return OwnedFile(-1);
        }
        if (end == name.size())
            return OwnedFile(
                openat(place.get(), part.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
        place = OwnedFile(openat(place.get(), part.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        begin = end + 1;
    }
    return place;
}

} // namespace

FirmwareShelf::Result FirmwareFolder::keep(const std::string& bytes)
{
    auto file = std::make_shared<const OwnedFile>(memfd_create("firmware", MFD_CLOEXEC));
    if (!file->isOpen() || !writeWhole(file->get(), bytes))
        return "the gateway has no memory for the image: " + describeError(errno);
    ShelfImage image;
    image.path = "/proc/self/fd/" + std::to_string(file->get());
    image.size = static_cast<std::uint32_t>(bytes.size());
    image.sha256 = sha256Of(bytes);
    image.keeper = std::move(file);
    return image;
}

FirmwareShelf::Result FirmwareFolder::fetch(const std::string& name, std::size_t most)
{
    if (m_folder.empty())
        return std::string("the gateway's configuration has no firmware.folder");
    const OwnedFile file = openBelow(m_folder, name);
    if (!file.isOpen()) {
        const int error = errno;
        return error == ELOOP || error == ENOTDIR
                   ? std::string("there is no such file without a symbolic link on the way")
                   : describeError(error);
    }
    struct stat status {};
    if (fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode))
        return std::string("no regular file");
    const auto bytes = readUpTo(file.get(), most);
    if (!bytes)
        return describeError(errno);
    if (bytes->empty())
        return std::string("the file is empty");
    if (bytes->size() > most)
        return "the file has more than " + std::to_string(most) + " bytes";
    return keep(*bytes);
}

} // namespace Vantor

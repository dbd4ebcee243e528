#include "panel2mqtt/broker/PasswordFile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Vantor {

namespace {

[[noreturn]] void failFile(const std::string& file, const std::string& what, const std::string& why)
{
    throw std::runtime_error("the " + what + " in " + file + " can't be read: " + why);
}

class OpenFile {
public:
    OpenFile(const std::string& file, const std::string& what)
        : m_descriptor(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK))
    {
        if (m_descriptor < 0)
            failFile(file, what, std::generic_category().message(errno));
        struct stat facts = {};
        if (fstat(m_descriptor, &facts) != 0 || !S_ISREG(facts.st_mode)) {
            close(m_descriptor);
            failFile(file, what, "it is no regular file");
        }
    }
    ~OpenFile() { close(m_descriptor); }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

    // As much as a password can be in MQTT, and one byte more.
    std::string readBeginning() const
    {
        std::string text;
        std::array<char, 4096> part;
        ssize_t count = 0;
        while (text.size() <= maxPassword && (count = read(m_descriptor, part.data(), part.size())) > 0)
            text.append(part.data(), static_cast<std::size_t>(count));
        if (count < 0)
            throw std::system_error(errno, std::generic_category());
        return text;
    }

    static constexpr std::size_t maxPassword = 65535;

private:
    const int m_descriptor;
};

} // namespace

std::string readPassword(const std::string& file)
{
    const char* const what = "password";
    std::string text;
    try {
        text = OpenFile(file, what).readBeginning();
    } catch (const std::system_error& error) {
        failFile(file, what, error.code().message());
    }
    text.resize(std::min(text.find_first_of("\r\n"), text.size()));
    if (text.empty())
        throw std::runtime_error("there is no password in the first line of " + file);
    if (text.size() > OpenFile::maxPassword || text.find('\0') != std::string::npos)
        throw std::runtime_error("the first line of " + file + " is no password");
    return text;
}

void requireReadable(const std::string& file, const std::string& what)
{
    const OpenFile readable(file, what);
}

} // namespace Vantor

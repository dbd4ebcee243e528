#include "simulator/FlashFolder.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

#include <unistd.h>

namespace Vantor {

namespace {

std::string textOf(int error)
{
    return std::generic_category().message(error);
}

// Nothing when the file is not there.
std::vector<std::uint8_t> readFile(const std::string& name, std::uint32_t capacity)
{
    std::error_code error;
    const auto status = std::filesystem::status(name, error);
    if (status.type() == std::filesystem::file_type::not_found)
        return {};
    const auto refuse = [&name](const std::string& cause) {
        throw std::runtime_error("cannot load flash from '" + name + "': " + cause);
    };
    if (error)
        refuse(error.message());
    if (!std::filesystem::is_regular_file(status))
        refuse("not a file");
    const auto size = std::filesystem::file_size(name, error);
    if (error)
        refuse(error.message());
    if (size > capacity)
        refuse(std::to_string(size) + " bytes, the flash has " + std::to_string(capacity));
    std::ifstream file(name, std::ios::binary);
    if (!file)
        refuse(textOf(errno));
    std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(file), {}};
    if (file.bad() || bytes.size() != size)
        refuse("reading stopped after " + std::to_string(bytes.size()) + " of " + std::to_string(size) + " bytes");
    return bytes;
}

// 0 or an errno.
int writeFile(const std::string& name, const std::vector<std::uint8_t>& bytes)
{
    std::FILE* const file = std::fopen(name.c_str(), "wb");
    if (file == nullptr)
        return errno;
    errno = 0;
    int error = 0;
    if (std::fwrite(bytes.data(), 1, bytes.size(), file) != bytes.size())
        error = errno != 0 ? errno : EIO;
    if (std::fclose(file) != 0 && error == 0)
        error = errno;
    return error;
}

} // namespace

FlashFolder::FlashFolder(std::string path) : m_path(std::move(path))
{
    std::error_code error;
    std::filesystem::create_directories(m_path, error);
    if (!error && access(m_path.c_str(), W_OK | X_OK) != 0)
        error.assign(errno, std::generic_category());
    if (error)
        throw std::runtime_error("cannot keep flash in '" + m_path + "': " + error.message());
}

std::string FlashFolder::fileName(unsigned int panel, const char* mcu) const
{
    return m_path + "/panel" + std::to_string(panel) + "-" + mcu + ".bin";
}

BootLoader::Flash FlashFolder::load(unsigned int panel, const BootLoader::Options& options) const
{
    BootLoader::Flash flash;
    flash.main.bytes = readFile(fileName(panel, "main"), options.mainCapacity);
    flash.servo.bytes = readFile(fileName(panel, "servo"), options.servoCapacity);
    return flash;
}

void FlashFolder::save(unsigned int panel, const BootLoader::Flash& flash)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    saveImage(fileName(panel, "main"), flash.main);
    saveImage(fileName(panel, "servo"), flash.servo);
}

void FlashFolder::saveImage(const std::string& name, const BootLoader::Image& image) const
{
    if (image.state == BootLoader::State::Untouched || image.bytes.empty())
        return;
    // In the same folder, or the renaming would copy; of this process alone.
    const std::string temporary = name + "." + std::to_string(getpid());
    int error = writeFile(temporary, image.bytes);
    if (error == 0 && std::rename(temporary.c_str(), name.c_str()) != 0)
        error = errno;
    if (error == 0)
        return;
    std::remove(temporary.c_str());
    throw std::runtime_error("cannot write flash to '" + name + "': " + textOf(error));
}

} // namespace Vantor

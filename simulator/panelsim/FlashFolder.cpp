#include "simulator/panelsim/FlashFolder.h"

#include "simulator/bus/UserText.h"
#include "simulator/panelsim/OutputFile.h"

#include <cerrno>
#include <cstdint>
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
    const auto status = std::filesystem::symlink_status(name, error);
    if (status.type() == std::filesystem::file_type::not_found)
        return {};
    const auto refuse = [&name](const std::string& cause) {
        throw std::runtime_error("cannot load flash from '" + UserText::shown(name) + "': " + cause);
    };
    if (error)
        refuse(error.message());
    if (std::filesystem::is_symlink(status)) // which would not be written to either
        refuse("it is a symbolic link");
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

} // namespace

FlashFolder::FlashFolder(std::string path) : m_path(std::move(path))
{
    std::error_code error;
    std::filesystem::create_directories(m_path, error);
    if (!error && access(m_path.c_str(), W_OK | X_OK) != 0)
        error.assign(errno, std::generic_category());
    if (error)
        throw std::runtime_error("cannot keep flash in '" + UserText::shown(m_path) + "': " + error.message());
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
    try {
        OutputFile::replace(name, image.bytes);
    } catch (const std::runtime_error& error) {
        throw std::runtime_error("cannot write flash to '" + UserText::shown(name) + "': " + error.what());
    }
}

} // namespace Vantor

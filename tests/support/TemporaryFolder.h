#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

namespace Vantor {

// As a string, or as Bytes. Empty if there is no such file.
template <typename Content = std::string> Content contentOf(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return Content(std::istreambuf_iterator<char>(file), {});
}

template <typename Content> void writeFile(const std::string& path, const Content& content)
{
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(content.data()), static_cast<std::streamsize>(content.size()));
    EXPECT_TRUE(file.flush()) << path;
}

// A folder for the length of a test, with all that is in it.
class TemporaryFolder {
public:
    TemporaryFolder() : m_path(testing::TempDir() + "test.XXXXXX")
    {
        if (mkdtemp(m_path.data()) == nullptr)
            throw std::runtime_error("no temporary folder");
    }
    ~TemporaryFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::string& getPath() const { return m_path; }
    std::string operator/(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

// The same for one file.
class TemporaryFile {
public:
    template <typename Content = std::string>
    explicit TemporaryFile(const Content& content = {}) : m_folder(), m_path(m_folder / "file")
    {
        write(content);
    }
    explicit TemporaryFile(const char* content) : TemporaryFile(std::string(content)) {}

    const std::string& getPath() const { return m_path; }
    std::string read() const { return contentOf(m_path); }
    template <typename Content = std::string> void write(const Content& content) const { writeFile(m_path, content); }

private:
    TemporaryFolder m_folder;
    std::string m_path;
};

} // namespace Vantor

#include "simulator/panelsim/FileClash.h"

#include "tests/support/TemporaryFolder.h"

#include <filesystem>
#include <stdexcept>

#include <gtest/gtest.h>

namespace Vantor {
namespace {

class FileClashTest : public testing::Test {
protected:
    void SetUp() override { writeFile(m_folder / "file", std::string("precious")); }

    // Empty when all is well. The test's folder is called FOLDER.
    std::string refusal() const
    {
        try {
            FileClash::refuse(m_options);
        } catch (const std::runtime_error& error) {
            std::string text = error.what();
            const std::size_t at = text.find(m_folder.getPath());
            return at != std::string::npos ? text.replace(at, m_folder.getPath().size(), "FOLDER") : text;
        }
        return {};
    }

    const TemporaryFolder m_folder;
    const std::string m_file = m_folder / "file";
    PanelsimOptions m_options;
};

TEST_F(FileClashTest, outputThatIsAnInput_isRefused)
{
    m_options.captureFile = m_file;
    m_options.replayFile = m_file;
    EXPECT_EQ(refusal(), "--record 'FOLDER/file' is also what --replay reads");
    m_options.replayFile.clear();
    m_options.expectFile = m_file;
    EXPECT_EQ(refusal(), "--record 'FOLDER/file' is also what --expect reads");
    m_options.captureFile.clear();
    m_options.expectFile.clear();
    m_options.logFile = m_file;
    m_options.scriptFile = m_file;
    EXPECT_EQ(refusal(), "--log 'FOLDER/file' is also what --script reads");
}

TEST_F(FileClashTest, fileOfAnotherName_isTheSame)
{
    std::filesystem::create_hard_link(m_file, m_folder / "hard");
    std::filesystem::create_symlink("file", m_folder / "soft");
    m_options.captureFile = m_file;
    for (const char* const name : {"hard", "soft", "./file"}) {
        m_options.replayFile = m_folder / name;
        EXPECT_EQ(refusal(), "--record 'FOLDER/file' is also what --replay reads") << name;
    }
}

TEST_F(FileClashTest, twoOutputs_areTwoFiles)
{
    m_options.logFile = m_folder / "new";
    m_options.captureFile = m_folder / "./new";
    EXPECT_EQ(refusal(), "--record 'FOLDER/./new' is also what --log writes");
    m_options.logFile = "unlikely-to-be-here";
    m_options.captureFile = "./unlikely-to-be-here";
    EXPECT_EQ(refusal(), "--record './unlikely-to-be-here' is also what --log writes");
}

TEST_F(FileClashTest, fileAmongPicturesOrFlash_isRefused)
{
    m_options.pngFolder = m_folder.getPath() + "/pictures/";
    m_options.scriptFile = m_folder / "pictures/panel0-lcd1.png";
    EXPECT_EQ(refusal(), "--script 'FOLDER/pictures/panel0-lcd1.png' is also what --png may write");
    m_options.scriptFile.clear();
    m_options.flashFolder = m_folder.getPath();
    m_options.logFile = m_folder / "panel3-main.bin";
    EXPECT_EQ(refusal(), "--log 'FOLDER/panel3-main.bin' is also what --flash-dir may write");
}

TEST_F(FileClashTest, filesThatAreTheirOwn_areTaken)
{
    EXPECT_EQ(refusal(), "");
    m_options.replayFile = m_file;
    m_options.expectFile = m_file; // both read it
    m_options.logFile = m_folder / "log";
    m_options.captureFile = m_folder / "capture";
    m_options.pngFolder = m_folder.getPath();
    m_options.flashFolder = m_folder.getPath();
    EXPECT_EQ(refusal(), "");
    m_options.logFile = "/dev/null"; // keeps nothing
    m_options.captureFile = "/dev/null";
    m_options.scriptFile = "/dev/null";
    EXPECT_EQ(refusal(), "");
    m_options.logFile = "-"; // no file of that name
    m_options.scriptFile = "-";
    EXPECT_EQ(refusal(), "");
}

} // namespace
} // namespace Vantor

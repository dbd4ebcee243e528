#include "simulator/panelsim/LineInput.h"

#include <array>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace Vantor {

class LineInputTest : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(pipe(m_ends.data()), 0);
        m_input = std::make_unique<LineInput>(m_ends[0]);
    }

    void TearDown() override
    {
        close(m_ends[0]);
        closeWriter();
    }

    void closeWriter()
    {
        if (m_ends[1] >= 0)
            close(m_ends[1]);
        m_ends[1] = -1;
    }

    void write(const std::string& text)
    {
        ASSERT_EQ(::write(m_ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
        m_input->read();
    }

    std::vector<std::string> lines()
    {
        std::vector<std::string> taken;
        while (const auto line = m_input->takeLine())
            taken.push_back(*line);
        return taken;
    }

    std::array<int, 2> m_ends{-1, -1};
    std::unique_ptr<LineInput> m_input;
};

TEST_F(LineInputTest, lines_inAnyPieces)
{
    write("pl");
    EXPECT_THAT(lines(), testing::IsEmpty());
    write("ug\nunplug\n\nem");
    EXPECT_THAT(lines(), testing::ElementsAre("plug", "unplug", ""));
    write("it\n");
    EXPECT_THAT(lines(), testing::ElementsAre("emit"));
}

TEST_F(LineInputTest, end_completesTheLastLine)
{
    write("quit");
    EXPECT_EQ(m_input->getDescriptor(), m_ends[0]);
    EXPECT_FALSE(m_input->hasEnded());
    closeWriter();
    m_input->read();
    EXPECT_EQ(m_input->getDescriptor(), -1);
    EXPECT_TRUE(m_input->hasEnded());
    EXPECT_THAT(lines(), testing::ElementsAre("quit"));
    m_input->read(); // nothing more comes
    EXPECT_THAT(lines(), testing::IsEmpty());
}

TEST_F(LineInputTest, descriptorThatCannotBeRead_givesNoMoreButHasNotEnded)
{
    LineInput input(m_ends[1]);
    input.read();
    EXPECT_EQ(input.getDescriptor(), -1);
    EXPECT_FALSE(input.hasEnded());
    EXPECT_FALSE(input.takeLine());
}

TEST_F(LineInputTest, endlessLine_isKeptInPartOnly)
{
    const std::string piece(4096, 'x');
    for (std::size_t i = 0; i < LineInput::longestLine / piece.size() + 10; ++i)
        write(piece);
    write("\nplug\n");
    const auto taken = lines();
    ASSERT_EQ(taken.size(), 2U);
    EXPECT_EQ(taken[0].size(), LineInput::longestLine + 1);
    EXPECT_EQ(taken[1], "plug");
}

} // namespace Vantor

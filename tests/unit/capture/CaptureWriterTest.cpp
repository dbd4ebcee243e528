#include "simulator/capture/CaptureWriter.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/unit/capture/CaptureBytes.h"

#include <memory>
#include <stdexcept>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {
namespace {

class CaptureWriterTest : public testing::Test {
protected:
    Bytes written() const { return contentOf<Bytes>(m_file.getPath()); }

    const TemporaryFile m_file;
    CaptureWriter m_writer{std::fopen(m_file.getPath().c_str(), "w")};
};

TEST_F(CaptureWriterTest, beforeAnyFrame_theFileIsACapture)
{
    EXPECT_EQ(written(), CaptureBytes::fileHeader);
}

TEST_F(CaptureWriterTest, aSubmittedWrite_isInTheFileAtOnce)
{
    m_writer.write(CaptureBytes::makeSubmittedWrite());
    EXPECT_EQ(written(), joined({CaptureBytes::fileHeader, CaptureBytes::submittedWrite}));
}

TEST_F(CaptureWriterTest, aCompletedRead_standsBehindTheFrameBeforeIt)
{
    m_writer.write(CaptureBytes::makeSubmittedWrite());
    m_writer.write(CaptureBytes::makeCompletedRead());
    EXPECT_EQ(written(), joined({CaptureBytes::fileHeader, CaptureBytes::submittedWrite, CaptureBytes::completedRead}));
}

TEST_F(CaptureWriterTest, aControlRequest_hasItsSetup)
{
    CapturedUrb urb;
    urb.transfer = CapturedUrb::Transfer::Control;
    urb.endpoint = 0x80;
    urb.setupFlag = CapturedUrb::follows;
    urb.dataFlag = CapturedUrb::noDataIn;
    urb.length = 18;
    urb.setup = {0x80, 6, 0, 1, 0, 0, 18, 0};
    m_writer.write(urb);
    const Bytes file = written();
    ASSERT_EQ(file.size(), 24U + 16 + 64);
    const Bytes frame(file.begin() + 40, file.end());
    EXPECT_EQ(Bytes(frame.begin() + 8, frame.begin() + 16), (Bytes{'S', 2, 0x80, 0, 0, 0, 0, '<'}));
    EXPECT_EQ(Bytes(frame.begin() + 32, frame.begin() + 48),
              (Bytes{18, 0, 0, 0, 0, 0, 0, 0, 0x80, 6, 0, 1, 0, 0, 18, 0}));
}

TEST_F(CaptureWriterTest, ofAFrameThatIsTooLong_onlyAsMuchIsWrittenAsOthersRead)
{
    CapturedUrb urb = CaptureBytes::makeSubmittedWrite();
    urb.data.assign(262144 - 64 + 1, 7);
    urb.length = static_cast<std::uint32_t>(urb.data.size());
    m_writer.write(urb);
    const Bytes file = written();
    ASSERT_EQ(file.size(), 24U + 16 + 262144);
    EXPECT_EQ(Bytes(file.begin() + 32, file.begin() + 40), (Bytes{0, 0, 4, 0, 1, 0, 4, 0})); // 262144 of 262145
    EXPECT_EQ(Bytes(file.begin() + 72, file.begin() + 80), (Bytes{0xC1, 0xFF, 3, 0, 0xC1, 0xFF, 3, 0})); // 262081
}

std::string errorOf(const std::function<void()>& action)
{
    try {
        action();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return {};
}

TEST(CaptureWriter, onAFullDisk_saysSo)
{
    std::unique_ptr<CaptureWriter> writer;
    EXPECT_EQ(errorOf([&writer] { writer = std::make_unique<CaptureWriter>(std::fopen("/dev/full", "w")); }),
              "No space left on device");
}

} // namespace
} // namespace Vantor

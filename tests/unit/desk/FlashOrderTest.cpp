#include "panel2mqtt/desk/FlashOrder.h"

#include <map>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

namespace Vantor {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using Properties = std::vector<std::pair<std::string, std::string>>;

const std::string sumOfMessages(64, 'a');
const std::string sumOfFiles(64, 'b');

// Every message has one sum, every file another.
class FakeShelf : public FirmwareShelf {
public:
    Result keep(const std::string& bytes) override
    {
        ++kept;
        return ShelfImage{"message", static_cast<std::uint32_t>(bytes.size()), sumOfMessages, nullptr};
    }
    Result fetch(const std::string& name, std::size_t most) override
    {
        fetched.push_back(name);
        if (most != 16777216)
            return std::string("another bound");
        const auto found = files.find(name);
        if (found == files.end())
            return std::string("No such file or directory");
        return ShelfImage{"file " + name, found->second, sumOfFiles, nullptr};
    }

    std::map<std::string, std::uint32_t> files{{"a.bin", 100}, {"v2/b.bin", 200}};
    int kept = 0;
    std::vector<std::string> fetched;
};

class FlashOrderTest : public testing::Test {
protected:
    FlashOrder::Result read(std::string payload, Properties properties)
    {
        Message message;
        message.payload = std::move(payload);
        message.userProperties = std::move(properties);
        return FlashOrder::read(message, m_shelf);
    }

    FlashOrder::Images accept(std::string payload, Properties properties)
    {
        auto made = read(std::move(payload), std::move(properties));
        if (const auto* const answer = std::get_if<Answer>(&made)) {
            ADD_FAILURE() << answer->reason;
            return {};
        }
        return std::get<FlashOrder::Images>(std::move(made));
    }

    std::string refuse(std::string payload, Properties properties)
    {
        const auto made = read(std::move(payload), std::move(properties));
        const auto* const answer = std::get_if<Answer>(&made);
        if (answer == nullptr || answer->word != Answer::Word::Refused)
            return "not refused";
        return answer->reason;
    }

    FakeShelf m_shelf;
};

TEST_F(FlashOrderTest, payloadWithItsSum_isTheMainImage)
{
    const auto images = accept("image", {{"sha256", sumOfMessages}});
    ASSERT_TRUE(images.main);
    EXPECT_EQ(images.main->path, "message");
    EXPECT_EQ(images.main->size, 5u);
    EXPECT_FALSE(images.servo);
}

TEST_F(FlashOrderTest, sumInCapitals_isTheSame)
{
    EXPECT_TRUE(accept("image", {{"sha256", std::string(64, 'A')}, {"mcu", "main"}}).main);
}

TEST_F(FlashOrderTest, mcuServo_isTheServoImage)
{
    const auto images = accept("image", {{"sha256", sumOfMessages}, {"mcu", "servo"}});
    EXPECT_FALSE(images.main);
    EXPECT_TRUE(images.servo);
}

TEST_F(FlashOrderTest, payloadWithoutOrWithAWrongSum_isRefused)
{
    EXPECT_THAT(refuse("image", {}), HasSubstr("sha256 is missing"));
    EXPECT_EQ(m_shelf.kept, 0);
    EXPECT_EQ(refuse("image", {{"sha256", sumOfFiles}}), "sha256 is not that of the image, which is " + sumOfMessages);
    for (const std::string& wrong : {std::string(63, 'a'), std::string(65, 'a'), std::string(63, 'a') + "g",
                                     std::string(63, 'a') + '\0', std::string()})
        EXPECT_EQ(refuse("image", {{"sha256", wrong}}), "sha256 must be 64 hexadecimal digits");
}

TEST_F(FlashOrderTest, otherMcu_isRefused)
{
    EXPECT_EQ(refuse("image", {{"sha256", sumOfMessages}, {"mcu", "Main"}}), "mcu must be main or servo");
}

TEST_F(FlashOrderTest, sixteenMebibytes_areTheMost)
{
    std::string image;
    image.resize(16777216);
    EXPECT_TRUE(accept(image, {{"sha256", sumOfMessages}}).main);
    image.resize(16777217);
    const auto made = read(image, {{"sha256", sumOfMessages}});
    EXPECT_EQ(std::get<Answer>(made).word, Answer::Word::TooLarge);
}

TEST_F(FlashOrderTest, files_areTheImagesThatTheyAreNamedFor)
{
    const auto images = accept("", {{"main", "v2/b.bin"}, {"servo", "a.bin"}});
    ASSERT_TRUE(images.main && images.servo);
    EXPECT_EQ(images.main->path, "file v2/b.bin");
    EXPECT_EQ(images.servo->path, "file a.bin");
    EXPECT_FALSE(accept("", {{"servo", "a.bin"}}).main);
}

TEST_F(FlashOrderTest, fileWithItsSum_isChecked)
{
    EXPECT_TRUE(accept("", {{"servo", "a.bin"}, {"sha256-servo", sumOfFiles}}).servo);
    EXPECT_THAT(refuse("", {{"servo", "a.bin"}, {"sha256-servo", sumOfMessages}}), HasSubstr("sha256-servo is not"));
    EXPECT_THAT(refuse("", {{"main", "a.bin"}, {"sha256-main", "12"}}), HasSubstr("sha256-main must be 64"));
}

TEST_F(FlashOrderTest, noSuchFile_isRefusedWithTheReason)
{
    EXPECT_EQ(refuse("", {{"main", "c.bin"}}), "main: No such file or directory");
    EXPECT_EQ(refuse("", {{"main", "a.bin"}, {"servo", "c.bin"}}), "servo: No such file or directory");
}

TEST_F(FlashOrderTest, nameThatLeavesTheFolder_isRefusedUnopened)
{
    for (const char* const name :
         {"", "/a.bin", "../a.bin", "v2/../a.bin", "v2/..", "..", ".", "./a.bin", "v2//b.bin", "v2/", "a\nb", "a\x7f"})
        EXPECT_THAT(refuse("", {{"main", name}}), HasSubstr("main must be a file's name below")) << name;
    EXPECT_THAT(refuse("", {{"main", std::string("a.bin\0", 6)}}), HasSubstr("main must be"));
    EXPECT_THAT(refuse("", {{"main", std::string(256, 'a')}}), HasSubstr("main must be"));
    EXPECT_THAT(m_shelf.fetched, IsEmpty());
    m_shelf.files["..a"] = 1;
    EXPECT_TRUE(accept("", {{"main", "..a"}}).main);
}

TEST_F(FlashOrderTest, nothing_isRefused)
{
    EXPECT_THAT(refuse("", {}), HasSubstr("there is no image"));
}

TEST_F(FlashOrderTest, propertiesOfTheOtherForm_areRefused)
{
    for (const char* const name : {"main", "servo", "sha256-main", "sha256-servo"})
        EXPECT_THAT(refuse("image", {{"sha256", sumOfMessages}, {name, "a.bin"}}), HasSubstr(name));
    EXPECT_THAT(refuse("", {{"main", "a.bin"}, {"sha256", sumOfFiles}}), HasSubstr("sha256: for an image"));
    EXPECT_THAT(refuse("", {{"main", "a.bin"}, {"mcu", "main"}}), HasSubstr("mcu: for an image"));
    EXPECT_THAT(refuse("", {{"main", "a.bin"}, {"sha256-servo", sumOfFiles}}), HasSubstr("sha256-servo: of no file"));
}

} // namespace
} // namespace Vantor

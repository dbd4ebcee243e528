#include "panel2mqtt/broker/PasswordFile.h"

#include "tests/support/TemporaryFolder.h"

#include <stdexcept>

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace Vantor {

namespace {

std::string complaintOf(const std::string& file)
{
    try {
        readPassword(file);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "none";
}

TEST(PasswordFile, firstLine_isThePassword)
{
    EXPECT_EQ(readPassword(TemporaryFile("secret").getPath()), "secret");
    EXPECT_EQ(readPassword(TemporaryFile("secret\n").getPath()), "secret");
    EXPECT_EQ(readPassword(TemporaryFile(" a b \r\nother\n").getPath()), " a b ");
    EXPECT_EQ(readPassword(TemporaryFile(std::string(65535, 'x')).getPath()).size(), 65535U);
}

TEST(PasswordFile, fileWithoutPassword_isToldWithoutItsContent)
{
    const TemporaryFile empty("\nsecret\n");
    EXPECT_EQ(complaintOf(empty.getPath()), "there is no password in the first line of " + empty.getPath());
    const TemporaryFile large(std::string(65536, 'x'));
    EXPECT_EQ(complaintOf(large.getPath()), "the first line of " + large.getPath() + " is no password");
    const TemporaryFile binary(std::string("a\0b", 3));
    EXPECT_EQ(complaintOf(binary.getPath()), "the first line of " + binary.getPath() + " is no password");
}

TEST(PasswordFile, noFile_isTold)
{
    const TemporaryFolder folder;
    EXPECT_EQ(complaintOf(folder / "none"),
              "the password in " + folder / "none" + " can't be read: No such file or directory");
    EXPECT_EQ(complaintOf(folder.getPath()),
              "the password in " + folder.getPath() + " can't be read: it is no regular file");
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(complaintOf(folder / "pipe"),
              "the password in " + folder / "pipe" + " can't be read: it is no regular file");
    EXPECT_EQ(complaintOf("/dev/zero"), "the password in /dev/zero can't be read: it is no regular file");
}

} // namespace

} // namespace Vantor

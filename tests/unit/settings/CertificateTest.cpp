#include "panel2mqtt/settings/Certificate.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/unit/settings/PemFiles.h"

#include <gtest/gtest.h>

namespace Vantor {
namespace {

using std::chrono::hours;

TEST(Certificate, file_allOfItsCertificatesWithTheirTimes)
{
    const PemKey key;
    const auto now = std::chrono::system_clock::now();
    const TemporaryFile file("a comment\n" + key.makeCertificate(hours(-2), hours(3)) + "\n" +
                             key.makeCertificate(hours(4), hours(5)));
    const std::vector<Certificate> all = Certificate::readAll(file.getPath());
    ASSERT_EQ(all.size(), 2u);
    EXPECT_LT(abs(all[0].getBegin() - (now - hours(2))), std::chrono::seconds(60));
    EXPECT_LT(abs(all[0].getEnd() - (now + hours(3))), std::chrono::seconds(60));
    EXPECT_LT(abs(all[1].getBegin() - (now + hours(4))), std::chrono::seconds(60));
}

TEST(Certificate, otherFiles_haveNone)
{
    EXPECT_TRUE(Certificate::readAll("/nonexistent").empty());
    EXPECT_TRUE(Certificate::readAll(TemporaryFile("").getPath()).empty());
    EXPECT_TRUE(Certificate::readAll(TemporaryFile(PemKey().asPem()).getPath()).empty());
    const std::string whole = PemKey().makeCertificate(hours(-1), hours(1));
    for (std::size_t size = 0; size + 2 < whole.size(); size += 9)
        EXPECT_TRUE(Certificate::readAll(TemporaryFile(whole.substr(0, size)).getPath()).empty()) << size;
}

TEST(Certificate, key_isItsOwnOrNot)
{
    const PemKey key;
    const TemporaryFile file(key.makeCertificate(hours(-1), hours(1)));
    const Certificate certificate = Certificate::readAll(file.getPath()).at(0);
    EXPECT_EQ(certificate.compareKey(TemporaryFile(key.asPem()).getPath()), Certificate::Fit::Fits);
    EXPECT_EQ(certificate.compareKey(TemporaryFile(PemKey().asPem()).getPath()), Certificate::Fit::OtherKey);
    EXPECT_EQ(certificate.compareKey(TemporaryFile(key.asPem("secret")).getPath()), Certificate::Fit::NoKey);
    EXPECT_EQ(certificate.compareKey(file.getPath()), Certificate::Fit::NoKey);
    EXPECT_EQ(certificate.compareKey("/nonexistent"), Certificate::Fit::NoKey);
}

} // namespace
} // namespace Vantor

#include "panel2mqtt/settings/SettingsFile.h"
#include "tests/support/TemporaryFolder.h"

#include <regex>
#include <set>
#include <string>
#include <variant>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {
namespace {

using std::chrono::seconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const SettingsFile::Surroundings machine{"shop-17", ""};

Settings settingsOf(const std::string& content, const SettingsFile::Surroundings& surroundings = machine)
{
    const auto read = SettingsFile::parse(content, "f", surroundings);
    if (const auto* const problems = std::get_if<SettingsFile::Problems>(&read)) {
        ADD_FAILURE() << problems->front();
        return {};
    }
    return std::get<Settings>(read);
}

SettingsFile::Problems problemsOf(const std::string& content, const SettingsFile::Surroundings& surroundings = machine)
{
    const auto read = SettingsFile::parse(content, "f", surroundings);
    const auto* const problems = std::get_if<SettingsFile::Problems>(&read);
    return problems != nullptr ? *problems : SettingsFile::Problems{};
}

// What is expected of the key in the last line, which is the second.
std::string expectedOf(const std::string& table, const std::string& line)
{
    const SettingsFile::Problems problems = problemsOf("[" + table + "]\n" + line + "\n");
    if (problems.empty())
        return "taken";
    const std::string beginning = "f:2: " + table + "." + line.substr(0, line.find(' ')) + ": expected ";
    EXPECT_EQ(problems.front().compare(0, beginning.size(), beginning), 0) << problems.front();
    return problems.front().substr(beginning.size());
}

void expectDefaults(const Settings& settings)
{
    EXPECT_EQ(settings.host, "shop-17");
    EXPECT_EQ(settings.broker.address, "127.0.0.1");
    EXPECT_FALSE(settings.broker.usesTls);
    EXPECT_EQ(settings.broker.keepAlive, seconds(30));
    EXPECT_EQ(settings.gotQos, 0);
    EXPECT_EQ(settings.statsEvery, seconds(60));
    EXPECT_EQ(settings.forgetAfter, seconds(86400));
    EXPECT_EQ(settings.wait, seconds(60));
}

void expectNothingElse(const Settings& settings)
{
    EXPECT_EQ(settings.broker.port, 0);
    EXPECT_EQ(settings.broker.authorityFile, "");
    EXPECT_EQ(settings.broker.certificateFile, "");
    EXPECT_EQ(settings.broker.keyFile, "");
    EXPECT_EQ(settings.broker.user, "");
    EXPECT_EQ(settings.broker.passwordFile, "");
    EXPECT_FALSE(settings.gotTypes.has_value());
    EXPECT_EQ(settings.firmwareFolder, "");
}

TEST(SettingsFile, empty_isTheDefaults)
{
    expectDefaults(settingsOf(""));
    expectNothingElse(settingsOf(""));
    expectNothingElse(settingsOf("[broker]\n[panels]\n[firmware]\n"));
}

TEST(SettingsFile, everyKey_isTaken)
{
    const Settings settings = settingsOf(R"(
host = "Shop_1.example"
[broker]
address = "broker.example.org"
port = 8884
tls = true
authority = "/a"
certificate = "/c"
key = "/k"
user = "u"
password_file = "/p"
keep_alive = 5
[panels]
got = [12, 5, 5, 0, 255]
got_qos = 1
stats_every = 0
forget_after = "2h"
wait = "1m"
[firmware]
folder = "/f"
)");
    EXPECT_EQ(settings.host, "Shop_1.example");
    EXPECT_EQ(settings.broker.address, "broker.example.org");
    EXPECT_EQ(settings.broker.port, 8884);
    EXPECT_TRUE(settings.broker.usesTls);
    EXPECT_EQ(settings.broker.authorityFile, "/a");
    EXPECT_EQ(settings.broker.certificateFile, "/c");
    EXPECT_EQ(settings.broker.keyFile, "/k");
    EXPECT_EQ(settings.broker.user, "u");
    EXPECT_EQ(settings.broker.passwordFile, "/p");
    EXPECT_EQ(settings.broker.keepAlive, seconds(5));
    EXPECT_EQ(settings.gotTypes, (std::set<std::uint8_t>{0, 5, 12, 255}));
    EXPECT_EQ(settings.gotQos, 1);
    EXPECT_EQ(settings.statsEvery, seconds(0));
    EXPECT_EQ(settings.forgetAfter, seconds(7200));
    EXPECT_EQ(settings.wait, seconds(60));
    EXPECT_EQ(settings.firmwareFolder, "/f");
}

TEST(SettingsFile, packagedExample_isTheDefaults)
{
    const std::string content = contentOf(MORVANE_SETTINGS_EXAMPLE);
    ASSERT_THAT(content, HasSubstr("[broker]"));
    expectDefaults(settingsOf(content));
    expectNothingElse(settingsOf(content));
}

TEST(SettingsFile, packagedExampleUncommented_isTheDefaultsAndExamples)
{
    const std::string content =
        std::regex_replace(contentOf(MORVANE_SETTINGS_EXAMPLE), std::regex("\n#([a-z_]+ = )"), "\n$1");
    const Settings settings = settingsOf(content, {"another", ""});
    expectDefaults(settings);
    EXPECT_EQ(settings.broker.port, 1883);
    for (const std::string& text :
         {settings.broker.authorityFile, settings.broker.certificateFile, settings.broker.keyFile, settings.broker.user,
          settings.broker.passwordFile, settings.firmwareFolder})
        EXPECT_NE(text, "");
    EXPECT_EQ(settings.gotTypes, (std::set<std::uint8_t>{5, 12}));
}

TEST(SettingsFile, severalProblems_areToldAtOnceInTheirOrder)
{
    EXPECT_THAT(problemsOf("[panels]\nwait = -1\ncolour = 1\n[broker]\nport = 0\ntls = \"no\"\n[extra]\n"),
                ElementsAre("f:2: panels.wait: expected a time from 1 s to 1 d: a number of seconds, or as in \"90s\", "
                            "\"5m\", \"2h\", \"1d\"",
                            "f:3: panels.colour: unknown; expected got, got_qos, stats_every, forget_after, wait",
                            "f:5: broker.port: expected a number from 1 to 65535",
                            "f:6: broker.tls: expected true or false",
                            "f:7: extra: unknown; expected host, broker, panels, firmware"));
}

TEST(SettingsFile, noToml_saysWhere)
{
    const SettingsFile::Problems problems = problemsOf("[broker]\nport = \n");
    ASSERT_EQ(problems.size(), 1u);
    EXPECT_EQ(problems.front().compare(0, 5, "f:2: "), 0) << problems.front();
    EXPECT_THAT(problemsOf("host = \"a\"\nhost = \"b\"\n"), ElementsAre(HasSubstr("f:2: ")));
    EXPECT_THAT(problemsOf("\xFF\xFE"), ElementsAre(HasSubstr("f:1: ")));
    EXPECT_EQ(problemsOf("a = " + std::string(100000, '[')).size(), 1u);
}

TEST(SettingsFile, valueInPlaceOfATable_isToldSo)
{
    EXPECT_THAT(problemsOf("broker = \"127.0.0.1\"\n"), ElementsAre("f:1: broker: expected a table: [broker]"));
    EXPECT_THAT(problemsOf("[[panels]]\n"), ElementsAre("f:1: panels: expected a table: [panels]"));
    EXPECT_THAT(problemsOf("[host]\n"), ElementsAre(HasSubstr("f:1: host: expected 1 to 64 letters")));
}

TEST(SettingsFile, numbers_haveBounds)
{
    EXPECT_EQ(expectedOf("broker", "port = 1"), "taken");
    EXPECT_EQ(expectedOf("broker", "port = 65535"), "taken");
    for (const std::string value : {"0", "65536", "-1", "1.0", "\"1883\"", "true", "9223372036854775807"})
        EXPECT_EQ(expectedOf("broker", "port = " + value), "a number from 1 to 65535") << value;
    EXPECT_EQ(expectedOf("panels", "got_qos = 1"), "taken");
    EXPECT_EQ(expectedOf("panels", "got_qos = 2"), "a number from 0 to 1");
}

TEST(SettingsFile, times_haveUnitsAndBounds)
{
    EXPECT_EQ(settingsOf("panels.wait = \"1s\"").wait, seconds(1));
    EXPECT_EQ(settingsOf("panels.wait = 86400").wait, seconds(86400));
    EXPECT_EQ(settingsOf("panels.forget_after = \"365d\"").forgetAfter, seconds(31536000));
    for (const std::string value : {"0", "86401", "\"2d\"", "\"60\"", "\"1w\"", "\"s\"", "\"\"", "\"-1s\"", "\"1 s\"",
                                    "\"1sm\"", "\"4294967296d\"", "\"4294967295d\"", "1.5", "[60]"})
        EXPECT_THAT(expectedOf("panels", "wait = " + value), HasSubstr("a time from 1 s to 1 d")) << value;
    EXPECT_EQ(expectedOf("broker", "keep_alive = 5"), "taken");
    EXPECT_EQ(expectedOf("broker", "keep_alive = 3600"), "taken");
    EXPECT_THAT(expectedOf("broker", "keep_alive = 4"), HasSubstr("a time from 5 s to 1 h"));
    EXPECT_THAT(expectedOf("broker", "keep_alive = 3601"), HasSubstr("a time from 5 s to 1 h"));
    EXPECT_THAT(expectedOf("panels", "stats_every = -1"), HasSubstr("a time from 0 s to 1 d"));
    EXPECT_THAT(expectedOf("panels", "forget_after = 0"), HasSubstr("a time from 1 s to 365 d"));
}

TEST(SettingsFile, types_areBytes)
{
    EXPECT_FALSE(settingsOf("").publishes(0));
    EXPECT_TRUE(settingsOf("").publishes(255));
    const Settings chosen = settingsOf("panels.got = [0, 7]");
    EXPECT_TRUE(chosen.publishes(0));
    EXPECT_FALSE(chosen.publishes(6));
    EXPECT_FALSE(settingsOf("panels.got = []").publishes(7));
    for (const std::string value : {"7", "[256]", "[-1]", "[\"7\"]", "[[7]]", "[7.0]"})
        EXPECT_EQ(expectedOf("panels", "got = " + value),
                  "types of records, as in [5, 12], each a number from 0 to 255")
            << value;
}

TEST(SettingsFile, paths_areAbsolute)
{
    for (const std::string value : {"\"ca.pem\"", "\"\"", "\"/\"", "\"/a\\u0000\"", "1"})
        EXPECT_EQ(expectedOf("broker", "authority = " + value), "an absolute path") << value;
    EXPECT_EQ(expectedOf("firmware", "folder = \"images\""), "an absolute path");
}

TEST(SettingsFile, address_isNoUrl)
{
    for (const std::string value : {"\"\"", "\"mqtt://a\"", "\"a:1883\"", "\"[::1]\"", "\"u@a\"", "\"a b\"", "1"})
        EXPECT_EQ(expectedOf("broker", "address = " + value), "a name or an address, without a port") << value;
    EXPECT_EQ(settingsOf("broker.address = \"::1\"").broker.address, "::1");
}

TEST(SettingsFile, hostName_asTopicsHaveIt)
{
    for (const std::string name : {"a", "all2", "ALL", "A-b_c.9"})
        EXPECT_TRUE(SettingsFile::isHostName(name)) << name;
    EXPECT_TRUE(SettingsFile::isHostName(std::string(64, 'x')));
    for (const std::string name : {"", "all", "a/b", "+", "#", "a b", "\xC3\xA4"})
        EXPECT_FALSE(SettingsFile::isHostName(name)) << name;
    EXPECT_FALSE(SettingsFile::isHostName(std::string(65, 'x')));
    EXPECT_THAT(problemsOf("\nhost = \"all\"\n"),
                ElementsAre("f:2: host: expected 1 to 64 letters, digits, '-', '_' and '.', and not \"all\""));
}

TEST(SettingsFile, machineWithoutAUsableName_needsOne)
{
    EXPECT_THAT(problemsOf("", {"a b", ""}),
                ElementsAre("f: host: this machine's name, 'a b', can't be in topics; expected another"));
    EXPECT_THAT(problemsOf("host = \"x\"", {"a b", ""}), IsEmpty());
}

TEST(SettingsFile, plainTextBeyondThisMachine_isAnError)
{
    EXPECT_THAT(problemsOf("[broker]\naddress = \"10.0.0.1\"\n"),
                ElementsAre("f:2: broker.address: a broker on another machine; expected with tls = true"));
    EXPECT_THAT(problemsOf("[broker]\naddress = \"10.0.0.1\"\ntls = true"), IsEmpty());
    EXPECT_THAT(problemsOf("[broker]\naddress = \"127.8.8.8\"\n"), IsEmpty());
}

TEST(SettingsFile, certificateAndKey_comeTogether)
{
    EXPECT_THAT(problemsOf("[broker]\ncertificate = \"/c\"\n"),
                ElementsAre("f:2: broker.certificate: expected with broker.key"));
    EXPECT_THAT(problemsOf("[broker]\nkey = \"/k\"\n"),
                ElementsAre("f:2: broker.key: expected with broker.certificate"));
}

TEST(SettingsFile, credential_isThePasswordUnlessAnotherIsNamed)
{
    const TemporaryFolder folder;
    const SettingsFile::Surroundings surroundings{"h", folder.getPath()};
    EXPECT_EQ(settingsOf("", surroundings).broker.passwordFile, "");
    writeFile(folder / "password", std::string("secret\n"));
    EXPECT_EQ(settingsOf("", surroundings).broker.passwordFile, folder / "password");
    EXPECT_EQ(settingsOf("broker.password_file = \"/p\"", surroundings).broker.passwordFile, "/p");
}

TEST(SettingsFile, file_isReadOrNot)
{
    const TemporaryFolder folder;
    const std::string path = folder / "settings.toml";
    const auto problemOf = [&path] {
        const auto read = SettingsFile::read(path, machine);
        const auto* const problems = std::get_if<SettingsFile::Problems>(&read);
        return problems != nullptr ? problems->front() : "none";
    };
    EXPECT_EQ(problemOf(), path + ": can't be read: No such file or directory");
    writeFile(path, std::string("host = 1\n"));
    EXPECT_THAT(problemOf(), HasSubstr(path + ":1: host: expected "));
    writeFile(path, std::string("host = \"x\"\n"));
    EXPECT_EQ(problemOf(), "none");
    writeFile(path, std::string((1 << 20) + 1, '#'));
    EXPECT_EQ(problemOf(), path + ": larger than 1 MiB: expected a configuration file");
    const auto read = SettingsFile::read(folder.getPath(), machine);
    EXPECT_THAT(std::get<SettingsFile::Problems>(read),
                ElementsAre(folder.getPath() + ": can't be read: Is a directory"));
}

} // namespace
} // namespace Vantor

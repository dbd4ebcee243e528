#include "panel2mqtt/settings/SettingsFile.h"

#include "panel2mqtt/broker/Loopback.h"
#include "panelctl/terminal/Wording.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <utility>

#include <arpa/inet.h>
#include <toml++/toml.h>
#include <unistd.h>

namespace Vantor {

namespace {

using std::chrono::seconds;

constexpr std::size_t maxFileSize = std::size_t{1} << 20;
constexpr std::size_t maxHostName = 64;

// Takes a value, or says what is expected in its place.
using Rule = std::function<std::string(const toml::node&)>;
using Rules = std::vector<std::pair<std::string, Rule>>;

Rule takeFlag(bool& target)
{
    return [&target](const toml::node& node) -> std::string {
        const std::optional<bool> flag = node.value_exact<bool>();
        if (!flag)
            return "true or false";
        target = *flag;
        return {};
    };
}

template <typename Number> Rule takeNumber(Number& target, std::int64_t least, std::int64_t most)
{
    return [&target, least, most](const toml::node& node) -> std::string {
        const std::optional<std::int64_t> number = node.value_exact<std::int64_t>();
        if (!number || *number < least || *number > most)
            return "a number from " + std::to_string(least) + " to " + std::to_string(most);
        target = static_cast<Number>(*number);
        return {};
    };
}

Rule takeText(std::string& target, bool (*isGood)(const std::string&), const char* expected)
{
    return [&target, isGood, expected](const toml::node& node) -> std::string {
        const std::optional<std::string> text = node.value_exact<std::string>();
        if (!text || !isGood(*text))
            return expected;
        target = *text;
        return {};
    };
}

bool isAbsolutePath(const std::string& text)
{
    return text.size() > 1 && text[0] == '/' && text.find('\0') == std::string::npos;
}

Rule takePath(std::string& target)
{
    return takeText(target, isAbsolutePath, "an absolute path");
}

bool isSomeText(const std::string& text)
{
    return !text.empty() && text.size() <= UINT16_MAX && text.find('\0') == std::string::npos;
}

// No URL, and no port behind it.
bool isBrokerAddress(const std::string& text)
{
    in6_addr ignored = {};
    if (inet_pton(AF_INET6, text.c_str(), &ignored) == 1)
        return true;
    return !text.empty() && text.size() < 254 && std::all_of(text.begin(), text.end(), [](char character) {
        return character > ' ' && character < '\x7F' && std::string(":/@[]").find(character) == std::string::npos;
    });
}

std::optional<seconds> parseTime(const std::string& text)
{
    std::uint32_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [unit, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || end - unit != 1)
        return std::nullopt;
    switch (*unit) {
    case 's':
        return seconds(number);
    case 'm':
        return std::chrono::minutes(number);
    case 'h':
        return std::chrono::hours(number);
    case 'd':
        return std::chrono::hours(std::int64_t{24} * number);
    default:
        return std::nullopt;
    }
}

std::string describeTime(seconds time)
{
    constexpr std::pair<std::int64_t, char> units[] = {{86400, 'd'}, {3600, 'h'}, {60, 'm'}};
    for (const auto& [length, letter] : units) {
        if (time.count() != 0 && time.count() % length == 0)
            return std::to_string(time.count() / length) + " " + letter;
    }
    return std::to_string(time.count()) + " s";
}

Rule takeTime(seconds& target, seconds least, seconds most)
{
    return [&target, least, most](const toml::node& node) -> std::string {
        std::optional<seconds> time;
        if (const auto number = node.value_exact<std::int64_t>())
            time = seconds(*number);
        else if (const auto text = node.value_exact<std::string>())
            time = parseTime(*text);
        if (!time || *time < least || *time > most)
            return "a time from " + describeTime(least) + " to " + describeTime(most) +
                   ": a number of seconds, or as in \"90s\", \"5m\", \"2h\", \"1d\"";
        target = *time;
        return {};
    };
}

Rule takeTypes(std::optional<std::set<std::uint8_t>>& target)
{
    return [&target](const toml::node& node) -> std::string {
        const char* const expected = "types of records, as in [5, 12], each a number from 0 to 255";
        const toml::array* const numbers = node.as_array();
        if (numbers == nullptr)
            return expected;
        std::set<std::uint8_t> types;
        for (const toml::node& element : *numbers) {
            const std::optional<std::int64_t> type = element.value_exact<std::int64_t>();
            if (!type || *type < 0 || *type > UINT8_MAX)
                return expected;
            types.insert(static_cast<std::uint8_t>(*type));
        }
        target = std::move(types);
        return {};
    };
}

std::string listKeys(const Rules& rules)
{
    std::string keys;
    for (const auto& [key, rule] : rules)
        keys += (keys.empty() ? "" : ", ") + key;
    return keys;
}

// Goes through one file's tables, and keeps what is wrong.
class SettingsReader {
public:
    SettingsReader(const std::string& name, Settings& settings) : m_name(name), m_settings(settings) {}

    void readFile(const toml::table& file);
    // What no key alone can tell.
    void complete(const SettingsFile::Surroundings& surroundings);
    SettingsFile::Problems takeProblems();

private:
    using Line = toml::source_index;

    void readTable(const std::string& prefix, const toml::table& table, const Rules& rules);
    Rule takeTable(const std::string& key, Rules rules);
    Rules makeBrokerRules();
    Rules makePanelsRules();
    void tell(Line line, const std::string& key, const std::string& text);
    void requireBoth(const char* given, const char* missing);

    const std::string& m_name;
    Settings& m_settings;
    std::map<std::string, Line> m_lines; // of the keys that stand in the file
    std::vector<std::pair<Line, std::string>> m_problems;
};

void SettingsReader::readFile(const toml::table& file)
{
    readTable("", file,
              {{"host", takeText(m_settings.host, SettingsFile::isHostName,
                                 "1 to 64 letters, digits, '-', '_' and '.', and not \"all\"")},
               {"broker", takeTable("broker", makeBrokerRules())},
               {"panels", takeTable("panels", makePanelsRules())},
               {"firmware", takeTable("firmware", {{"folder", takePath(m_settings.firmwareFolder)}})}});
}

Rules SettingsReader::makeBrokerRules()
{
    BrokerSettings& broker = m_settings.broker;
    return {{"address", takeText(broker.address, isBrokerAddress, "a name or an address, without a port")},
            {"port", takeNumber(broker.port, 1, UINT16_MAX)},
            {"tls", takeFlag(broker.usesTls)},
            {"authority", takePath(broker.authorityFile)},
            {"certificate", takePath(broker.certificateFile)},
            {"key", takePath(broker.keyFile)},
            {"user", takeText(broker.user, isSomeText, "a name")},
            {"password_file", takePath(broker.passwordFile)},
            {"keep_alive", takeTime(broker.keepAlive, seconds(5), std::chrono::hours(1))}};
}

Rules SettingsReader::makePanelsRules()
{
    const seconds day = std::chrono::hours(24);
    return {{"got", takeTypes(m_settings.gotTypes)},
            {"got_qos", takeNumber(m_settings.gotQos, 0, 1)},
            {"stats_every", takeTime(m_settings.statsEvery, seconds(0), day)},
            {"forget_after", takeTime(m_settings.forgetAfter, seconds(1), 365 * day)},
            {"wait", takeTime(m_settings.wait, seconds(1), day)}};
}

void SettingsReader::readTable(const std::string& prefix, const toml::table& table, const Rules& rules)
{
    for (const auto& [key, node] : table) {
        const std::string own(key.str());
        const std::string name = prefix + own;
        const Line line = key.source().begin.line;
        const auto rule =
            std::find_if(rules.begin(), rules.end(), [&own](const auto& one) { return one.first == own; });
        if (rule == rules.end()) {
            tell(line, makePrintable(name), "unknown; expected " + listKeys(rules));
            continue;
        }
        m_lines[name] = line;
        const std::string expected = rule->second(node);
        if (!expected.empty())
            tell(line, name, "expected " + expected);
    }
}

Rule SettingsReader::takeTable(const std::string& key, Rules rules)
{
    return [this, key, rules = std::move(rules)](const toml::node& node) -> std::string {
        const toml::table* const table = node.as_table();
        if (table == nullptr)
            return "a table: [" + key + "]";
        readTable(key + ".", *table, rules);
        return {};
    };
}

void SettingsReader::complete(const SettingsFile::Surroundings& surroundings)
{
    if (m_lines.count("host") == 0) {
        m_settings.host = surroundings.machineName;
        if (!SettingsFile::isHostName(m_settings.host))
            tell(0, "host",
                 "this machine's name, " + quote(m_settings.host) + ", can't be in topics; expected another");
    }
    requireBoth("broker.certificate", "broker.key");
    requireBoth("broker.key", "broker.certificate");
    if (!m_settings.broker.usesTls && !isLoopback(m_settings.broker.address))
        tell(m_lines["broker.address"], "broker.address", "a broker on another machine; expected with tls = true");
    const std::string credential = surroundings.credentialsFolder + "/password";
    if (m_lines.count("broker.password_file") == 0 && !surroundings.credentialsFolder.empty() &&
        access(credential.c_str(), F_OK) == 0)
        m_settings.broker.passwordFile = credential;
}

void SettingsReader::requireBoth(const char* given, const char* missing)
{
    if (m_lines.count(given) != 0 && m_lines.count(missing) == 0)
        tell(m_lines[given], given, std::string("expected with ") + missing);
}

void SettingsReader::tell(Line line, const std::string& key, const std::string& text)
{
    m_problems.emplace_back(line, m_name + (line != 0 ? ":" + std::to_string(line) : "") + ": " + key + ": " + text);
}

// A table's keys come by their names, not in the order of the file.
SettingsFile::Problems SettingsReader::takeProblems()
{
    std::stable_sort(m_problems.begin(), m_problems.end(),
                     [](const auto& left, const auto& right) { return left.first < right.first; });
    SettingsFile::Problems texts;
    for (auto& [line, text] : m_problems)
        texts.push_back(std::move(text));
    return texts;
}

} // namespace

SettingsFile::Surroundings SettingsFile::Surroundings::ofProcess()
{
    Surroundings surroundings;
    std::array<char, 256> name{};
    if (gethostname(name.data(), name.size() - 1) == 0)
        surroundings.machineName = name.data();
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody sets it
    if (const char* const folder = std::getenv("CREDENTIALS_DIRECTORY"))
        surroundings.credentialsFolder = folder;
    return surroundings;
}

std::variant<Settings, SettingsFile::Problems> SettingsFile::read(const std::string& path,
                                                                  const Surroundings& surroundings)
{
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "re"), std::fclose);
    std::string content(maxFileSize + 1, '\0');
    if (file)
        content.resize(std::fread(content.data(), 1, content.size(), file.get()));
    if (!file || std::ferror(file.get()) != 0)
        return Problems{path + ": can't be read: " + describeError(errno)};
    if (content.size() > maxFileSize)
        return Problems{path + ": larger than 1 MiB: expected a configuration file"};
    return parse(content, path, surroundings);
}

std::variant<Settings, SettingsFile::Problems> SettingsFile::parse(const std::string& content, const std::string& name,
                                                                   const Surroundings& surroundings)
{
    Settings settings;
    SettingsReader reader(name, settings);
    try {
        reader.readFile(toml::parse(content));
    } catch (const toml::parse_error& error) {
        return Problems{name + ":" + std::to_string(error.source().begin.line) + ": " +
                        std::string(error.description())};
    }
    reader.complete(surroundings);
    Problems problems = reader.takeProblems();
    if (!problems.empty())
        return problems;
    return settings;
}

bool SettingsFile::isHostName(const std::string& name)
{
    const auto isAllowed = [](char character) {
        return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
               (character >= '0' && character <= '9') || character == '-' || character == '_' || character == '.';
    };
    return !name.empty() && name.size() <= maxHostName && name != "all" &&
           std::all_of(name.begin(), name.end(), isAllowed);
}

} // namespace Vantor

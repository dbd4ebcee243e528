#include "tests/dissector/Dissection.h"

#include "tests/support/TemporaryFolder.h"
#include "tests/support/ToolRun.h"

#include <algorithm>
#include <regex>
#include <sstream>

#include <gtest/gtest.h>

namespace Vantor {

std::vector<std::string> splitAt(const std::string& text, char separator)
{
    std::vector<std::string> parts;
    std::string part;
    for (std::istringstream stream(text); std::getline(stream, part, separator);)
        parts.push_back(part);
    return parts;
}

std::string runTshark(const std::vector<std::string>& arguments, const std::string& dissector)
{
    const std::string script = dissector.empty() ? MORVANE_DISSECTOR : dissector;
    // The user's own settings and scripts are not meant.
    const TemporaryFolder home;
    ToolRun::Arguments command{"/usr/bin/env",   "HOME=" + home.getPath(),      "XDG_CONFIG_HOME=" + home.getPath(),
                               "LC_ALL=C.UTF-8", "MORVANE_DISSECTOR=" + script, MORVANE_TSHARK};
    command.insert(command.end(), arguments.begin(), arguments.end());
    command.insert(command.end(), {"-X", "lua_script:" + script}); // a -G is to be first
    const ToolResult result = runTool(command);
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_EQ(result.errors.find("Lua"), std::string::npos) << result.errors;
    return result.output;
}

std::vector<std::string> documentedFields()
{
    const std::string document = contentOf(MORVANE_DOCUMENT);
    const std::regex row("\\n\\| `(morvane\\.[a-z_.]+)` \\|");
    std::vector<std::string> names;
    for (auto match = std::sregex_iterator(document.begin(), document.end(), row); match != std::sregex_iterator();
         ++match)
        names.push_back((*match)[1]);
    return names;
}

Dissection::Dissection(const HandmadeCapture& capture, const Arguments& options)
{
    const TemporaryFile file(capture.getFile());
    read(file.getPath(), options, {});
}

Dissection::Dissection(const std::string& file, const Arguments& options, const std::string& dissector)
{
    read(file, options, dissector);
}

void Dissection::read(const std::string& file, const Arguments& options, const std::string& dissector)
{
    std::vector<std::string> fields{"frame.number", "_ws.col.Info", "_ws.expert.message"};
    for (const std::string& name : documentedFields())
        fields.push_back(name);
    Arguments arguments{"-r", file, "-Y", "morvane", "-T", "fields", "-E", "occurrence=a", "-E", "aggregator=|"};
    for (const std::string& field : fields)
        arguments.insert(arguments.end(), {"-e", field});
    arguments.insert(arguments.end(), options.begin(), options.end());
    for (const std::string& line : splitAt(runTshark(arguments, dissector), '\n')) {
        const std::vector<std::string> values = splitAt(line, '\t');
        std::map<std::string, std::string>& frame = m_frames[static_cast<unsigned int>(std::stoul(values.at(0)))];
        for (std::size_t i = 0; i < values.size(); ++i)
            frame[fields.at(i)] = values[i];
    }
}

std::string Dissection::of(unsigned int frame, const std::string& field) const
{
    const auto values = m_frames.find(frame);
    if (values == m_frames.end())
        return {};
    for (const std::string& name : {field, "morvane." + field})
        if (const auto value = values->second.find(name); value != values->second.end())
            return value->second;
    return {};
}

std::vector<unsigned int> Dissection::getFrames() const
{
    std::vector<unsigned int> frames;
    for (const auto& entry : m_frames)
        frames.push_back(entry.first);
    return frames;
}

std::vector<std::string> Dissection::faultsOf(unsigned int frame) const
{
    std::vector<std::string> faults = splitAt(of(frame, "malformed"), '|');
    for (const std::string& violation : splitAt(of(frame, "violation"), '|'))
        faults.push_back(violation);
    std::sort(faults.begin(), faults.end());
    return faults;
}

} // namespace Vantor

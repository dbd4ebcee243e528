#pragma once

#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace Vantor {

// What a tool said with --json: an object a line. Anything else fails the test.
inline std::vector<nlohmann::json> parseJsonLines(const std::string& output)
{
    EXPECT_TRUE(output.empty() || output.back() == '\n') << output;
    std::vector<nlohmann::json> objects;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        objects.push_back(nlohmann::json::parse(line, nullptr, false));
        EXPECT_TRUE(objects.back().is_object()) << "no JSON object: " << line;
    }
    return objects;
}

// Takes out a member that is another number each time, from `least` to `most`.
inline void takeNumber(nlohmann::json& object, const char* name, double least, double most)
{
    ASSERT_TRUE(object.contains(name) && object[name].is_number()) << name << " in " << object;
    EXPECT_GE(object[name].get<double>(), least) << object;
    EXPECT_LE(object[name].get<double>(), most) << object;
    object.erase(name);
}

} // namespace Vantor

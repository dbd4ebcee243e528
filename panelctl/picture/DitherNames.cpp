#include "panelctl/picture/DitherNames.h"

namespace Vantor::DitherNames {

namespace {

struct DitherName {
    LcdHelper::DitherType type;
    const char* text;
};

constexpr DitherName ditherNames[] = {{LcdHelper::Threshold, "threshold"},
                                      {LcdHelper::Atkinson, "atkinson"},
                                      {LcdHelper::FloydSteinberg, "floyd-steinberg"},
                                      {LcdHelper::Stucki, "stucki"}};

} // namespace

std::optional<LcdHelper::DitherType> parse(const std::string& name)
{
    for (const DitherName& known : ditherNames)
        if (name == known.text)
            return known.type;
    return std::nullopt;
}

std::vector<std::string> list()
{
    std::vector<std::string> names;
    for (const DitherName& known : ditherNames)
        names.emplace_back(known.text);
    return names;
}

std::string listAll()
{
    const std::vector<std::string> names = list();
    std::string text = names.front();
    for (std::size_t i = 1; i < names.size(); ++i)
        text += (i + 1 < names.size() ? ", " : " or ") + names[i];
    return text;
}

} // namespace Vantor::DitherNames

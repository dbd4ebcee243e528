#pragma once

#include "libMorvaneHostUsb/LcdHelper.h"

#include <optional>
#include <string>
#include <vector>

namespace Vantor::DitherNames {

std::optional<LcdHelper::DitherType> parse(const std::string& name);

// As they are offered.
std::vector<std::string> list();

// "threshold, atkinson, floyd-steinberg or stucki"
std::string listAll();

} // namespace Vantor::DitherNames

#pragma once

#include "packaging/completion/OrderPlaces.h"
#include "packaging/completion/ProgramShape.h"

#include <string>
#include <vector>

namespace Vantor {

// Functions in the shells' languages that tell what there is to complete. What is done
// with it stands in the files of this folder that are shell.
namespace CompletionText {

// _NAME_commands, _NAME_options, _NAME_values
std::string forBash(const ProgramShape& program);

// _NAME, _NAME-COMMAND
std::string forZsh(const ProgramShape& program);

// _NAME_places, for both.
std::string ofOrders(const std::string& program, const std::vector<OrderPlaces>& orders);

} // namespace CompletionText

} // namespace Vantor

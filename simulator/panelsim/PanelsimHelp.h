#pragma once

#include <string>

namespace Vantor {

// What panelsim's help says below the options.
namespace PanelsimHelp {
std::string getRunFooter();
std::string getAttachFooter();
std::string getTellFooter();
} // namespace PanelsimHelp

} // namespace Vantor

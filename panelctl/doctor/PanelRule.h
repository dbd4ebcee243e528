#pragma once

#include <string>

namespace Vantor {

// The udev rule that this build installs, and what is said of others.
namespace PanelRule {

extern const char* const fileName;
extern const char* const text;

// Its statements, a line each: no comments, no empty lines, no blanks around them.
std::string strip(const std::string& rule);

// The statement that is about this id ("dead:beef"); empty when there is none.
std::string findStatement(const std::string& rule, const std::string& id);

// The group that a statement gives the node to; empty when it names none.
std::string findGroup(const std::string& statement);

} // namespace PanelRule

} // namespace Vantor

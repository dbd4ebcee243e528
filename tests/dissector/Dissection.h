#pragma once

#include "tests/dissector/HandmadeCapture.h"
#include "tests/support/Bytes.h"

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace Vantor {

// What tshark makes of a capture with the dissector of the source tree: the values of each
// field, as -T fields has them, by frame. Only frames that the dissector takes are there.
class Dissection {
public:
    using Arguments = std::vector<std::string>;

    explicit Dissection(const HandmadeCapture& capture, const Arguments& options = {});
    // Of a file, with another dissector than the tree's if one is named.
    explicit Dissection(const std::string& file, const Arguments& options = {}, const std::string& dissector = {});

    // Several values have '|' between them; a field without the prefix "morvane." needs its
    // whole name. Empty when it is not there.
    std::string of(unsigned int frame, const std::string& field) const;

    // "Malformed" and "violation" together, in alphabetical order.
    std::vector<std::string> faultsOf(unsigned int frame) const;

    bool has(unsigned int frame) const { return m_frames.count(frame) != 0; }
    std::size_t size() const { return m_frames.size(); }
    std::vector<unsigned int> getFrames() const;

private:
    void read(const std::string& file, const Arguments& options, const std::string& dissector);

    std::map<unsigned int, std::map<std::string, std::string>> m_frames;
};

std::vector<std::string> splitAt(const std::string& text, char separator);

// tshark with these arguments: its standard output. It must end well, without a word of Lua.
std::string runTshark(const std::vector<std::string>& arguments, const std::string& dissector = {});

// The first column of the document's table of fields.
std::vector<std::string> documentedFields();

} // namespace Vantor

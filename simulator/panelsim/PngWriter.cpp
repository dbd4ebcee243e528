#include "simulator/panelsim/PngWriter.h"

#include "simulator/bus/UserText.h"
#include "simulator/panelsim/OutputFile.h"
#include "simulator/picture/PngEncoder.h"

#include <stdexcept>

namespace Vantor {

void PngWriter::write(const std::string& path, const PanelScreen& screen)
{
    try {
        OutputFile::replace(path, PngEncoder::encode(screen));
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(UserText::shown(path) + ": " + error.what());
    }
}

} // namespace Vantor

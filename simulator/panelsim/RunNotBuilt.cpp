// In place of RunCommand.cpp where there is no virtual bus.
#include "simulator/panelsim/RunCommand.h"

#include <stdexcept>

namespace Vantor {

int runProgram(const PanelsimOptions& /*options*/)
{
    throw std::runtime_error("'run' needs the virtual bus, which this panelsim was built without "
                             "(MORVANE_VIRTUAL_BUS); 'attach' is there");
}

} // namespace Vantor

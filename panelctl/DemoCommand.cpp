#include "panelctl/DemoCommand.h"

namespace Vantor {

void DemoCommand::run(Session& /*session*/, Output& /*output*/) {}

} // namespace Vantor

#pragma once

#include "panelctl/Command.h"

namespace Vantor {

class DemoCommand : public Command {
public:
    void run(Session& session, Output& output) override;
};

} // namespace Vantor

#pragma once

namespace Vantor {

// Whether this processor has the byte lanes that some sources are built for: all but the
// smallest Arm processors have.
namespace Lanes {

bool areUsed();

// For tests: not beside other users.
void use(bool areUsed);

} // namespace Lanes

} // namespace Vantor

#pragma once

#include "panelctl/doctor/DoctorFacts.h"
#include "panelctl/doctor/Finding.h"

#include <vector>

namespace Vantor {

// What the facts mean: a finding for each check, in the order of the checks. Pure.
std::vector<Finding> judge(const DoctorFacts& facts);

// The one that counts: the first error, or else the first warning, each in the order of
// listAilments, but for NoUdevd as a warning, which is the last; null when nothing is amiss.
const Finding* findWorst(const std::vector<Finding>& findings);

} // namespace Vantor

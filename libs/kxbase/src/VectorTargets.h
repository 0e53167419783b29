// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace kxbase {

// For tests: results must not depend on the kind of vector unit.

/// Names of the kinds of vector unit that this machine has and that code was made for; the best is used.
std::vector<std::string> VectorTargets();
/// From now on vectors are those of this kind; an empty name takes the choice back. For the whole process.
void UseVectorTarget(const std::string& name);

}  // namespace kxbase

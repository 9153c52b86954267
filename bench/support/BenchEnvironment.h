#pragma once

#include <string>

namespace vn::bench {

// The scratch folder of this run (empty before isolateEnvironment).
const std::string& scratchFolder();

// Points every setting, data and home folder into a new scratch folder, so that a run never reads
// or writes the user's own configuration; gives git a fixed identity and the engine the resources
// beside the executable; keeps the terminal so that a benchmark stays interruptible. False when
// no scratch folder could be made.
bool isolateEnvironment();

// Removes the scratch folder and everything in it.
void removeScratchFolder();

}  // namespace vn::bench

#pragma once

#include <vector>

#include "base/Record.h"

namespace vn {

// Which of the tools the engine drives would run, and their versions. One record per tool with
// the keys "name", "path", "source" ("shipped", "custom", "system", or "none" when no
// preference names it), "version", "missing" and
// "note"; the version runs go in parallel.
std::vector<Record> checkTools();

}  // namespace vn

#pragma once

#include <string>
#include <vector>

#include "support/TestEnvironment.h"

namespace vn::test {

// A history of `commits` commits on "main" written with git fast-import (quick even for tens of
// thousands): every 40th commit opens a side branch of three commits that a merge joins again,
// one octopus merge of three branches, the branches "side-last" and "feature", and tags "v1" and
// "v2". Dates rise by a minute per commit. Answers the commits in the order written.
std::vector<std::string> writeShapedHistory(GitRepository& repo, int commits);

}  // namespace vn::test

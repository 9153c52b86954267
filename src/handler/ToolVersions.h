#pragma once

#include <optional>
#include <string>

namespace vn::tool_versions {

// What `TOOL --version` answered, kept in the cache folder for the executable as it is on disk
// (its resolved path, device, inode, size and modification time), so that a command need not
// start the tool once more only to ask. Any change to the binary gives it a new identity.
std::optional<std::string> cached(const std::string& executable);
void remember(const std::string& executable, const std::string& version);

}  // namespace vn::tool_versions

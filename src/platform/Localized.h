#pragma once

#include <string>
#include <string_view>

#include "base/Format.h"

namespace vn {

// The text under `key` in the string table (resources/strings/en.json); the key itself when the
// table has no such entry.
std::string localized(std::string_view key);

// The localised text under `key` used as a format (see vn::format).
template <typename... Args>
std::string localizedFormat(std::string_view key, const Args&... args) {
    return format(localized(key), args...);
}

// Forgets the loaded table so that the next lookup reads it again.
void reloadLocalizedStrings();

}  // namespace vn

#pragma once

#include <cstdint>

namespace vn {

// Bits of the `options` of the diff operations of every backend. Ignoring whitespace has the
// value it has among the patch options, so that the one setting of a repository serves the diff
// shown and the patch made from it.
inline constexpr uint64_t DiffIgnoreWhitespace = 4;

}  // namespace vn

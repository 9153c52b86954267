#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "general/Value.h"

namespace vn {

// JSON text of a value: records keep their key order, dates become ISO 8601 text in UTC, model
// objects give their `jsonValue()`, text that is not valid UTF-8 is repaired.
std::string toJson(const Value& value, bool pretty = false);

// Parses JSON text. Objects become records, integers that fit become Int (else UInt or Double).
std::optional<Value> parseJson(std::string_view text, std::string* error = nullptr);

// "2026-11-21T09:36:37Z" for a point in time.
std::string isoDateString(const Value::Date& date);

}  // namespace vn

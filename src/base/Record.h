#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/Value.h"

namespace vn {

// A keyed record: an insertion-ordered map from text key to value. Records are small (a dozen
// keys), so lookups scan a vector.
class Record {
  public:
    using Entry = std::pair<std::string, Value>;

    Record() = default;
    Record(std::initializer_list<Entry> entries);

    // Sets the value, keeping the key's place when it exists already.
    Record& set(std::string_view key, Value value);
    bool remove(std::string_view key);
    bool contains(std::string_view key) const { return find(key) != nullptr; }
    // The value under the key, or a null value.
    const Value& operator[](std::string_view key) const;
    const Value* find(std::string_view key) const;

    std::string string(std::string_view key, std::string_view fallback = {}) const {
        return (*this)[key].toString(fallback);
    }
    int64_t integer(std::string_view key, int64_t fallback = 0) const {
        return (*this)[key].toInt(fallback);
    }
    bool boolean(std::string_view key, bool fallback = false) const {
        return (*this)[key].toBool(fallback);
    }

    std::size_t size() const { return entries_.size(); }
    bool empty() const { return entries_.empty(); }
    auto begin() const { return entries_.begin(); }
    auto end() const { return entries_.end(); }
    std::vector<std::string> keys() const;

    bool operator==(const Record& other) const { return entries_ == other.entries_; }

  private:
    std::vector<Entry> entries_;
};

}  // namespace vn

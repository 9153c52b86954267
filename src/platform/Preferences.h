#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

#include "base/Record.h"

namespace vn {

// The user's preferences: typed values under fixed keys, kept as JSON in
// $XDG_CONFIG_HOME/varnel/preferences.json. A key that was never set answers its default from the
// one table of defaults.
class Preferences {
  public:
    static Preferences& standard();

    // The table of every preference key the engine reads, with its default.
    static const Record& defaults();

    Value valueForKey(std::string_view key) const;
    bool boolForKey(std::string_view key) const { return valueForKey(key).toBool(); }
    int64_t integerForKey(std::string_view key) const { return valueForKey(key).toInt(); }
    std::string stringForKey(std::string_view key) const { return valueForKey(key).toString(); }
    bool hasStoredValue(std::string_view key) const;

    // Stores the value and writes the file at once; false when the file could not be written
    // (the value is kept for this run).
    bool set(std::string_view key, Value value);
    bool remove(std::string_view key);

    std::string filePath() const;
    // Reads the file again, for example after the configuration folder changed.
    void reload();

  private:
    Preferences();
    bool save();

    mutable std::mutex mutex_;
    std::string path_;
    Record stored_;
};

}  // namespace vn

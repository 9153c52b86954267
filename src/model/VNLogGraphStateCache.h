#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "model/VNLogGraphEntry.h"

// Graph states at row numbers of one history listing, kept on disk so that a page deep into the
// history continues the layout from the nearest state above it instead of from the first row.
//
// One file per listing under the cache folder, named by a digest of the listing's identity (the
// repository, its references and the log options), which the file repeats and is checked against.
// A file that is unreadable, damaged, of another format or of another identity counts as empty.
// Files are replaced whole through a temporary file; each holds a bounded number of states and
// the folder a bounded number of files.
class VNLogGraphStateCache {
  public:
    static constexpr std::size_t MaxStatesPerFile = 48;
    static constexpr std::size_t MaxFiles = 24;

    // `identity` is any text that changes whenever the listing's rows could change.
    VNLogGraphStateCache(std::string folder, std::string identity);

    // $XDG_CACHE_HOME/varnel/log-graph, or ~/.cache/varnel/log-graph.
    static std::string defaultFolder();

    // The known state after the first n rows of the listing with the greatest n not above
    // `rows`, with that n; nothing when none is known.
    std::optional<std::pair<uint64_t, std::shared_ptr<const VNLogGraphEntry>>> nearest(
        uint64_t rows) const;
    // Remembers the state after the first `rows` rows (kept in memory until `save`).
    void remember(uint64_t rows, std::shared_ptr<const VNLogGraphEntry> state);
    // Writes the file when something new was remembered; false when it could not be written.
    bool save();

    const std::string& filePath() const { return file_; }

    // The text form of one state, and back; nothing for text that is not one.
    static std::string encode(const VNLogGraphEntry& state);
    static std::shared_ptr<const VNLogGraphEntry> decode(std::string_view text);

  private:
    void load();

    std::string folder_;
    std::string identity_;
    std::string file_;
    std::map<uint64_t, std::shared_ptr<const VNLogGraphEntry>> states_;
    bool changed_ = false;
};

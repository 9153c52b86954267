#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vn::fs {

bool exists(const std::string& path);
bool isDirectory(const std::string& path);
bool isExecutableFile(const std::string& path);

// Reads a whole file; nothing when it cannot be read.
std::optional<std::string> readFile(const std::string& path);

// Writes to a temporary file beside `path` (created exclusively, with `mode`), flushes it and
// renames it over `path`, so that a failed write leaves the old file whole. On failure returns
// false and, when given, sets `error` to a readable reason.
bool writeFileAtomically(const std::string& path, std::string_view contents,
                         std::string* error = nullptr, unsigned mode = 0644);

// Creates the folder and its missing parents.
bool makeDirectories(const std::string& path, unsigned mode = 0755);

std::string lastPathComponent(std::string_view path);
std::string deletingLastPathComponent(std::string_view path);
std::string appendPathComponent(std::string_view path, std::string_view component);
std::string expandTilde(std::string_view path);
std::string homeDirectory();
// Where this program keeps what it can compute again: $XDG_CACHE_HOME/varnel, or
// ~/.cache/varnel.
std::string cacheFolder();

// The first executable called `name` in the folders of PATH (or of `searchPath` when given).
std::optional<std::string> findExecutable(std::string_view name,
                                          const std::string* searchPath = nullptr);

}  // namespace vn::fs

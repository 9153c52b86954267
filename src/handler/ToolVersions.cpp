#include "handler/ToolVersions.h"

#include <sys/stat.h>

#include <climits>
#include <string_view>
#include <vector>

#include "platform/FileSystem.h"

namespace vn::tool_versions {

namespace {

constexpr std::size_t KeptEntries = 16;

std::string cacheFile() {
    return fs::appendPathComponent(fs::cacheFolder(), "tool-versions");
}

struct Identity {
    std::string path;   // resolved
    std::string stamp;  // the stat fields that change with the binary
};

// Nothing when the executable cannot be looked at, so that nothing is kept for it. A line of the
// file is the path, the stamp and the version, separated by tabs.
std::optional<Identity> identity(const std::string& executable) {
    char resolved[PATH_MAX];
    if (!::realpath(executable.c_str(), resolved)) {
        return std::nullopt;
    }
    struct stat info {};
    if (::stat(resolved, &info) != 0 || !S_ISREG(info.st_mode)) {
        return std::nullopt;
    }
    Identity result{resolved, {}};
    if (result.path.find_first_of("\t\n") != std::string::npos) {
        return std::nullopt;
    }
    for (auto number :
         {static_cast<long long>(info.st_dev), static_cast<long long>(info.st_ino),
          static_cast<long long>(info.st_size), static_cast<long long>(info.st_mtim.tv_sec),
          static_cast<long long>(info.st_mtim.tv_nsec), static_cast<long long>(info.st_ctim.tv_sec),
          static_cast<long long>(info.st_ctim.tv_nsec)}) {
        if (!result.stamp.empty()) {
            result.stamp += ' ';
        }
        result.stamp += std::to_string(number);
    }
    return result;
}

struct Entry {
    std::string path;
    std::string stamp;
    std::string version;
};

std::vector<Entry> load() {
    std::vector<Entry> entries;
    std::optional<std::string> text = fs::readFile(cacheFile());
    if (!text) {
        return entries;
    }
    std::string_view rest = *text;
    while (!rest.empty()) {
        std::size_t end = rest.find('\n');
        std::string_view line = rest.substr(0, end);
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
        std::size_t first = line.find('\t');
        std::size_t second = first == std::string_view::npos ? first : line.find('\t', first + 1);
        if (second != std::string_view::npos) {
            entries.push_back({std::string(line.substr(0, first)),
                               std::string(line.substr(first + 1, second - first - 1)),
                               std::string(line.substr(second + 1))});
        }
    }
    return entries;
}

}  // namespace

std::optional<std::string> cached(const std::string& executable) {
    std::optional<Identity> binary = identity(executable);
    if (!binary) {
        return std::nullopt;
    }
    for (Entry& entry : load()) {
        if (entry.path == binary->path && entry.stamp == binary->stamp) {
            return std::move(entry.version);
        }
    }
    return std::nullopt;
}

void remember(const std::string& executable, const std::string& version) {
    std::optional<Identity> binary = identity(executable);
    if (!binary || version.empty() || version.find('\n') != std::string::npos) {
        return;
    }
    auto line = [](std::string_view path, std::string_view stamp, std::string_view answer) {
        return std::string(path).append("\t").append(stamp).append("\t").append(answer) + '\n';
    };
    // The newest answer first; older ones for the same path are dropped, a few others kept.
    std::string text = line(binary->path, binary->stamp, version);
    std::size_t kept = 1;
    for (const Entry& entry : load()) {
        if (kept < KeptEntries && entry.path != binary->path) {
            text += line(entry.path, entry.stamp, entry.version);
            ++kept;
        }
    }
    // A cache that cannot be written only costs the next command one more run of the tool.
    if (fs::makeDirectories(fs::cacheFolder(), 0700)) {
        fs::writeFileAtomically(cacheFile(), text, nullptr, 0600);
    }
}

}  // namespace vn::tool_versions

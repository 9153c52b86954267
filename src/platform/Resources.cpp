#include "platform/Resources.h"

#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <mutex>

#include "platform/FileSystem.h"

namespace vn {

namespace {

std::mutex gMutex;
std::string gOverride;

}  // namespace

std::string Resources::executableFolder() {
    char buffer[PATH_MAX];
    ssize_t n = ::readlink("/proc/self/exe", buffer, sizeof buffer - 1);
    if (n <= 0) {
        return ".";
    }
    return fs::deletingLastPathComponent(std::string(buffer, static_cast<std::size_t>(n)));
}

std::string Resources::path() {
    {
        std::lock_guard<std::mutex> lock(gMutex);
        if (!gOverride.empty()) {
            return gOverride;
        }
    }
    if (const char* env = std::getenv("VARNEL_RESOURCES"); env && *env) {
        return env;
    }
    static const std::string found = [] {
        std::string bin = executableFolder();
        return fs::appendPathComponent(fs::deletingLastPathComponent(bin),
                                       "share/varnel/resources");
    }();
    return found;
}

std::string Resources::pathFor(std::string_view relative) {
    return fs::appendPathComponent(path(), relative);
}

void Resources::setPathOverride(std::string path) {
    std::lock_guard<std::mutex> lock(gMutex);
    gOverride = std::move(path);
}

std::string AppData::path() {
    std::string folder;
    if (const char* xdg = std::getenv("XDG_DATA_HOME"); xdg && *xdg == '/') {
        folder = fs::appendPathComponent(xdg, "varnel");
    } else {
        folder = fs::appendPathComponent(fs::homeDirectory(), ".local/share/varnel");
    }
    fs::makeDirectories(folder, 0700);
    return folder;
}

std::string AppData::pathFor(std::string_view relative) {
    return fs::appendPathComponent(path(), relative);
}

}  // namespace vn

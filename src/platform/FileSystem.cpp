#include "platform/FileSystem.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace vn::fs {

bool exists(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0;
}

bool isDirectory(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool isExecutableFile(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) &&
           ::access(path.c_str(), X_OK) == 0;
}

std::optional<std::string> readFile(const std::string& path) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return std::nullopt;
    }
    std::string data;
    struct stat st;
    if (::fstat(fd, &st) == 0 && st.st_size > 0) {
        data.reserve(static_cast<std::size_t>(st.st_size));
    }
    char buffer[65536];
    for (;;) {
        ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            ::close(fd);
            return std::nullopt;
        }
        if (n == 0) {
            break;
        }
        data.append(buffer, static_cast<std::size_t>(n));
    }
    ::close(fd);
    return data;
}

bool writeFileAtomically(const std::string& path, std::string_view contents, std::string* error,
                         unsigned mode) {
    auto fail = [&](const std::string& what) {
        if (error) {
            *error = what + ": " + std::strerror(errno);
        }
        return false;
    };
    std::string temporary = path + ".XXXXXX";
    int fd = ::mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0) {
        return fail("cannot create a temporary file beside " + path);
    }
    ::fchmod(fd, mode);
    std::size_t written = 0;
    while (written < contents.size()) {
        ssize_t n = ::write(fd, contents.data() + written, contents.size() - written);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            int saved = errno;
            ::close(fd);
            ::unlink(temporary.c_str());
            errno = saved;
            return fail("cannot write " + temporary);
        }
        written += static_cast<std::size_t>(n);
    }
    if (::fsync(fd) != 0 || ::close(fd) != 0) {
        int saved = errno;
        ::unlink(temporary.c_str());
        errno = saved;
        return fail("cannot write " + temporary);
    }
    if (::rename(temporary.c_str(), path.c_str()) != 0) {
        int saved = errno;
        ::unlink(temporary.c_str());
        errno = saved;
        return fail("cannot replace " + path);
    }
    return true;
}

bool makeDirectories(const std::string& path, unsigned mode) {
    if (path.empty()) {
        return false;
    }
    if (isDirectory(path)) {
        return true;
    }
    std::string parent = deletingLastPathComponent(path);
    if (!parent.empty() && parent != path && !isDirectory(parent)) {
        if (!makeDirectories(parent, mode)) {
            return false;
        }
    }
    return ::mkdir(path.c_str(), mode) == 0 || (errno == EEXIST && isDirectory(path));
}

std::string lastPathComponent(std::string_view path) {
    while (path.size() > 1 && path.back() == '/') {
        path.remove_suffix(1);
    }
    std::size_t slash = path.rfind('/');
    if (slash == std::string_view::npos || path.size() == 1) {
        return std::string(path);
    }
    return std::string(path.substr(slash + 1));
}

std::string deletingLastPathComponent(std::string_view path) {
    while (path.size() > 1 && path.back() == '/') {
        path.remove_suffix(1);
    }
    std::size_t slash = path.rfind('/');
    if (slash == std::string_view::npos) {
        return "";
    }
    if (slash == 0) {
        return "/";
    }
    return std::string(path.substr(0, slash));
}

std::string appendPathComponent(std::string_view path, std::string_view component) {
    std::string result(path);
    if (!result.empty() && result.back() != '/') {
        result.push_back('/');
    }
    while (!component.empty() && component.front() == '/') {
        component.remove_prefix(1);
    }
    result.append(component);
    return result;
}

std::string homeDirectory() {
    if (const char* home = std::getenv("HOME"); home && *home) {
        return home;
    }
    if (struct passwd* pw = ::getpwuid(::getuid()); pw && pw->pw_dir) {
        return pw->pw_dir;
    }
    return "/";
}

std::string cacheFolder() {
    const char* cache = std::getenv("XDG_CACHE_HOME");
    std::string base = cache && cache[0] == '/' ? std::string(cache)
                                                : appendPathComponent(homeDirectory(), ".cache");
    return appendPathComponent(base, "varnel");
}

std::string expandTilde(std::string_view path) {
    if (path == "~") {
        return homeDirectory();
    }
    if (path.size() >= 2 && path[0] == '~' && path[1] == '/') {
        return appendPathComponent(homeDirectory(), path.substr(2));
    }
    return std::string(path);
}

std::optional<std::string> findExecutable(std::string_view name, const std::string* searchPath) {
    if (name.find('/') != std::string_view::npos) {
        std::string path(name);
        return isExecutableFile(path) ? std::optional<std::string>(path) : std::nullopt;
    }
    std::string folders;
    if (searchPath) {
        folders = *searchPath;
    } else if (const char* env = std::getenv("PATH")) {
        folders = env;
    } else {
        folders = "/usr/local/bin:/usr/bin:/bin";
    }
    std::size_t start = 0;
    while (start <= folders.size()) {
        std::size_t colon = folders.find(':', start);
        std::string folder =
            folders.substr(start, colon == std::string::npos ? std::string::npos : colon - start);
        if (!folder.empty()) {
            std::string candidate = appendPathComponent(folder, name);
            if (isExecutableFile(candidate)) {
                return candidate;
            }
        }
        if (colon == std::string::npos) {
            break;
        }
        start = colon + 1;
    }
    return std::nullopt;
}

}  // namespace vn::fs

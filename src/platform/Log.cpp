#include "platform/Log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <mutex>

#include "platform/FileSystem.h"
#include "platform/Preferences.h"
#include "platform/SecretRedaction.h"

namespace vn {

namespace {

std::atomic<int> gLevel{Log::Warning};

bool variableSet(const char* name) {
    const char* value = std::getenv(name);
    return value && *value;
}

std::atomic<bool> gToStandardError{variableSet("VARNEL_LOG")};

std::mutex& sinkMutex() {
    static std::mutex mutex;
    return mutex;
}

Log::Sink& sink() {
    static Log::Sink current = Log::standardSink();
    return current;
}

// The open log file, shared by every thread; guarded by the sink's callers' lock and its own.
struct LogFile {
    std::mutex mutex;
    std::string path;
    int fd = -1;
    std::size_t size = 0;
    dev_t device = 0;
    ino_t inode = 0;

    bool open(std::string wanted) {
        path = std::move(wanted);
        fs::makeDirectories(fs::deletingLastPathComponent(path), 0700);
        // The log names repositories and commands: readable by the user alone.
        fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        if (fd < 0) {
            return false;
        }
        struct stat info {};
        if (::fstat(fd, &info) == 0) {
            size = static_cast<std::size_t>(info.st_size);
            device = info.st_dev;
            inode = info.st_ino;
        }
        return true;
    }

    void rotate() {
        ::close(fd);
        fd = -1;
        // Another process may have rotated already; then this renames its fresh file, which
        // loses at most its few lines.
        ::rename(path.c_str(), (path + ".1").c_str());
        open(path);
    }

    void write(const std::string& line) {
        std::lock_guard<std::mutex> lock(mutex);
        // Looked up each time, so that a changed XDG_STATE_HOME (tests) takes effect.
        std::string wanted = Log::logFilePath();
        if (fd >= 0) {
            // Another process may have rotated the file, or the user removed it.
            struct stat info {};
            if (wanted != path || ::stat(path.c_str(), &info) != 0 || info.st_dev != device ||
                info.st_ino != inode) {
                ::close(fd);
                fd = -1;
            }
        }
        if (fd < 0 && !open(std::move(wanted))) {
            return;
        }
        std::string text = line + "\n";
        if (size > 0 && size + text.size() > Log::MaxLogFileSize) {
            rotate();
            if (fd < 0) {
                return;
            }
        }
        const char* data = text.data();
        std::size_t left = text.size();
        while (left > 0) {
            ssize_t written = ::write(fd, data, left);
            if (written < 0) {
                if (errno == EINTR) {
                    continue;
                }
                return;
            }
            data += written;
            left -= static_cast<std::size_t>(written);
            size += static_cast<std::size_t>(written);
        }
    }
};

LogFile& logFile() {
    // Never destroyed: threads may still log while the program exits.
    static LogFile* file = new LogFile;
    return *file;
}

std::string timeStamp() {
    struct timeval tv;
    gettimeofday(&tv, nullptr);
    struct tm local;
    localtime_r(&tv.tv_sec, &local);
    char buffer[64];
    std::size_t n = std::strftime(buffer, sizeof buffer, "%Y-%m-%d %H:%M:%S", &local);
    std::snprintf(buffer + n, sizeof buffer - n, ".%03ld", static_cast<long>(tv.tv_usec / 1000));
    return buffer;
}

std::mutex& assertionMutex() {
    static std::mutex mutex;
    return mutex;
}

AssertionHandler& assertionHandler() {
    static AssertionHandler handler;
    return handler;
}

}  // namespace

char Log::levelLetter(Level level) {
    switch (level) {
        case Error:
            return 'e';
        case Warning:
            return 'w';
        case Info:
            return 'i';
        case Debug:
            return 'd';
        case Verbose:
            return 'v';
    }
    return '?';
}

std::string_view Log::contextPrefix(int context) {
    switch (context) {
        case Git:
            return "[GIT] ";
        case Mercurial:
            return "[MERCURIAL] ";
        case Helper:
            return "[HELPER] ";
        default:
            return "";
    }
}

std::string Log::formatLine(std::string_view stamp, Level level, int context,
                            std::string_view message) {
    std::string line;
    std::string_view prefix = contextPrefix(context);
    line.reserve(stamp.size() + prefix.size() + message.size() + 6);
    line.append(stamp);
    line.append(" (");
    line.push_back(levelLetter(level));
    line.append(") ");
    line.append(prefix);
    line.append(message);
    return line;
}

void Log::log(Level level, int context, std::string_view message) {
    if (!isEnabled(level)) {
        return;
    }
    std::string line =
        formatLine(timeStamp(), level, context, SecretRedaction::redactText(message));
    std::lock_guard<std::mutex> lock(sinkMutex());
    if (sink()) {
        sink()(line);
    }
}

Log::Level Log::level() {
    return static_cast<Level>(gLevel.load(std::memory_order_relaxed));
}

void Log::setLevel(Level level) {
    gLevel.store(level, std::memory_order_relaxed);
}

bool Log::parseLevel(std::string_view text, Level& level) {
    struct Name {
        std::string_view name;
        Level level;
    };
    static constexpr Name names[] = {
        {"error", Error},     {"warning", Warning}, {"info", Info}, {"debug", Debug},
        {"verbose", Verbose}, {"1", Error},         {"2", Warning}, {"4", Info},
        {"8", Debug},         {"16", Verbose},
    };
    for (const Name& n : names) {
        if (text == n.name) {
            level = n.level;
            return true;
        }
    }
    return false;
}

void Log::configureFromEnvironment() {
    gToStandardError.store(variableSet("VARNEL_LOG"));
    Level level;
    if (const char* env = std::getenv("VARNEL_LOG"); env && parseLevel(env, level)) {
        setLevel(level);
        return;
    }
    std::string pref = Preferences::standard().stringForKey("logLevel");
    if (parseLevel(pref, level)) {
        setLevel(level);
    }
}

Log::Sink Log::standardSink() {
    return [](const std::string& line) {
        appendToLogFile(line);
        if (gToStandardError.load()) {
            std::fputs(line.c_str(), stderr);
            std::fputc('\n', stderr);
        }
    };
}

std::string Log::logFilePath() {
    std::string folder;
    if (const char* state = std::getenv("XDG_STATE_HOME"); state && *state == '/') {
        folder = state;
    } else {
        folder = fs::appendPathComponent(fs::homeDirectory(), ".local/state");
    }
    return fs::appendPathComponent(fs::appendPathComponent(folder, "varnel"), "varnel.log");
}

void Log::appendToLogFile(const std::string& line) {
    logFile().write(line);
}

Log::Sink Log::setSink(Sink newSink) {
    std::lock_guard<std::mutex> lock(sinkMutex());
    Sink previous = std::move(sink());
    sink() = std::move(newSink);
    return previous;
}

void internalAssertion(std::string_view text) {
    Log::error(std::string("Internal assertion: ") + std::string(text));
    AssertionHandler handler;
    {
        std::lock_guard<std::mutex> lock(assertionMutex());
        handler = assertionHandler();
    }
    if (handler) {
        handler(text);
        return;
    }
#ifndef NDEBUG
    std::abort();
#endif
}

AssertionHandler setAssertionHandler(AssertionHandler handler) {
    std::lock_guard<std::mutex> lock(assertionMutex());
    AssertionHandler previous = std::move(assertionHandler());
    assertionHandler() = std::move(handler);
    return previous;
}

}  // namespace vn

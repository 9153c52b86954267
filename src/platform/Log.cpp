#include "platform/Log.h"

#include <sys/time.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <mutex>

#include "platform/Preferences.h"

namespace vn {

namespace {

std::atomic<int> gLevel{Log::Warning};

std::mutex& sinkMutex() {
    static std::mutex mutex;
    return mutex;
}

Log::Sink& sink() {
    static Log::Sink current = [](const std::string& line) {
        std::fputs(line.c_str(), stderr);
        std::fputc('\n', stderr);
    };
    return current;
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
    std::string line = formatLine(timeStamp(), level, context, message);
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

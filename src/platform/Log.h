#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace vn {

// One logging facility for the whole engine. A message has a level flag and a context; a line reads
// "<time stamp> (<level letter>) <context prefix><message>". Passwords in URLs and authorization
// headers in a message are masked before the line is written.
class Log {
  public:
    enum Level : int { Error = 1, Warning = 2, Info = 4, Debug = 8, Verbose = 16 };
    enum Context : int { General = 0, Git = 1, Mercurial = 2, Helper = 42 };

    using Sink = std::function<void(const std::string& line)>;

    static void log(Level level, int context, std::string_view message);

    static void error(std::string_view message, int context = General) {
        log(Error, context, message);
    }
    static void warning(std::string_view message, int context = General) {
        log(Warning, context, message);
    }
    static void info(std::string_view message, int context = General) {
        log(Info, context, message);
    }
    static void debug(std::string_view message, int context = General) {
        log(Debug, context, message);
    }
    static void verbose(std::string_view message, int context = General) {
        log(Verbose, context, message);
    }

    // The most detailed level still written: messages whose flag is greater are dropped.
    static Level level();
    static void setLevel(Level level);
    static bool isEnabled(Level level) { return level <= Log::level(); }
    // Reads the level from VARNEL_LOG (a name such as "debug" or a flag) or else the "logLevel"
    // preference, and whether lines also go to standard error (only when VARNEL_LOG is set).
    static void configureFromEnvironment();

    // Replaces where lines go (by default the log file, see below). Returns the previous sink.
    static Sink setSink(Sink sink);
    // The sink lines go to unless another was set: the log file, and standard error as well
    // when VARNEL_LOG was set at start-up (or at the last configureFromEnvironment).
    static Sink standardSink();

    // "$XDG_STATE_HOME/varnel/varnel.log", by default under "~/.local/state". When a line would
    // take the file past MaxLogFileSize, the file becomes "varnel.log.1" (replacing an older
    // one) and a new file is started, so the two together hold at most twice that.
    static std::string logFilePath();
    static constexpr std::size_t MaxLogFileSize = 2 * 1024 * 1024;
    // Writes one line to the log file, rotating it as above; failures are ignored (a log that
    // cannot be written must not stop the program).
    static void appendToLogFile(const std::string& line);

    static char levelLetter(Level level);
    static std::string_view contextPrefix(int context);
    static std::string formatLine(std::string_view timeStamp, Level level, int context,
                                  std::string_view message);
    static bool parseLevel(std::string_view text, Level& level);
};

// Raises an internal assertion: a programming error, not a user-visible failure. It is logged;
// debug builds stop unless a handler was installed (tests install one to observe it).
void internalAssertion(std::string_view text);
using AssertionHandler = std::function<void(std::string_view text)>;
AssertionHandler setAssertionHandler(AssertionHandler handler);

}  // namespace vn

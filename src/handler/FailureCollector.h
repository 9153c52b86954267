#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace vn {

// Gathers the failed tool runs of one request, so that its caller can tell a complete answer
// from one that a failure cut short, and say why. A collector is current on the thread that made
// it until it goes; work handed to other threads takes it along through `bind`. Collectors nest:
// the innermost one gets the failures.
class FailureCollector {
  public:
    struct Failure {
        std::string command;
        int64_t exitCode = 0;
        std::string errorOutput;
    };

    FailureCollector();
    ~FailureCollector();
    FailureCollector(const FailureCollector&) = delete;
    FailureCollector& operator=(const FailureCollector&) = delete;

    // The collector of this thread, or null.
    static FailureCollector* current();
    // Records a failure with the current collector, if there is one.
    static void report(const std::string& command, int64_t exitCode,
                       const std::string& errorOutput);
    // `work`, made to run with this thread's current collector current.
    static std::function<void()> bind(std::function<void()> work);

    void add(Failure failure);
    bool empty() const;
    std::vector<Failure> failures() const;
    // One sentence for the first failure: "git log failed: <the tool's reason>".
    std::string message() const;
    // The tool's reason from its error output: the first "fatal:" or "error:" line without that
    // word, else the first line that is not a hint; the exit code when it said nothing.
    static std::string reason(const std::string& errorOutput, int64_t exitCode);

  private:
    mutable std::mutex mutex_;
    std::vector<Failure> failures_;
    FailureCollector* previous_;
};

}  // namespace vn

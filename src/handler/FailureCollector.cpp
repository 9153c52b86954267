#include "handler/FailureCollector.h"

#include <string_view>

namespace vn {

namespace {

thread_local FailureCollector* currentCollector = nullptr;

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) {
        text.remove_prefix(1);
    }
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r' ||
                             text.back() == '.')) {
        text.remove_suffix(1);
    }
    return text;
}

}  // namespace

FailureCollector::FailureCollector() : previous_(currentCollector) {
    currentCollector = this;
}

FailureCollector::~FailureCollector() {
    currentCollector = previous_;
}

FailureCollector* FailureCollector::current() {
    return currentCollector;
}

void FailureCollector::report(const std::string& command, int64_t exitCode,
                              const std::string& errorOutput) {
    if (FailureCollector* collector = currentCollector) {
        collector->add({command, exitCode, errorOutput});
    }
}

std::function<void()> FailureCollector::bind(std::function<void()> work) {
    FailureCollector* collector = currentCollector;
    return [collector, work = std::move(work)] {
        FailureCollector* saved = currentCollector;
        currentCollector = collector;
        work();
        currentCollector = saved;
    };
}

void FailureCollector::add(Failure failure) {
    std::lock_guard<std::mutex> lock(mutex_);
    failures_.push_back(std::move(failure));
}

bool FailureCollector::empty() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return failures_.empty();
}

std::vector<FailureCollector::Failure> FailureCollector::failures() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return failures_;
}

std::string FailureCollector::message() const {
    std::lock_guard<std::mutex> lock(mutex_);
    if (failures_.empty()) {
        return {};
    }
    const Failure& first = failures_.front();
    return first.command + " failed: " + reason(first.errorOutput, first.exitCode);
}

std::string FailureCollector::reason(const std::string& errorOutput, int64_t exitCode) {
    std::string_view fallback;
    std::string_view text = errorOutput;
    while (!text.empty()) {
        std::size_t end = text.find('\n');
        std::string_view line = trimmed(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        for (std::string_view prefix : {"fatal:", "error:"}) {
            if (line.starts_with(prefix)) {
                std::string_view rest = trimmed(line.substr(prefix.size()));
                if (!rest.empty()) {
                    return std::string(rest);
                }
            }
        }
        if (fallback.empty() && !line.empty() && !line.starts_with("hint:")) {
            fallback = line;
        }
    }
    if (!fallback.empty()) {
        return std::string(fallback);
    }
    return exitCode < 0 ? std::string("it did not finish")
                        : "it exited with status " + std::to_string(exitCode);
}

}  // namespace vn

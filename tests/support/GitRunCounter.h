#pragma once

#include <string>

#include "support/TestEnvironment.h"

namespace vn::test {

// Makes the engine run git through a wrapper that records each run's arguments, for tests that
// count runs; the preferences go back when it goes.
class GitRunCounter {
  public:
    GitRunCounter();
    ~GitRunCounter();
    GitRunCounter(const GitRunCounter&) = delete;
    GitRunCounter& operator=(const GitRunCounter&) = delete;

    // How many recorded runs hold `words` in their arguments.
    int runsWith(const std::string& words) const;
    // The recorded runs, one argument list a line.
    std::string runs() const;
    void clear();

  private:
    TempDir tools_;
    std::string log_;
};

}  // namespace vn::test

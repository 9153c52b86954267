#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace vn::cli {

// Shows git's progress messages (its standard error while it clones, fetches or pushes). On a
// terminal a counted phase ("Receiving objects:  45% (9/20)") becomes a bar redrawn in place
// and other messages are printed above it; elsewhere the passing redraws are dropped and the
// lines git ends each phase with are written as they are. Passwords in URLs are masked.
class ProgressRenderer {
  public:
    using Writer = std::function<void(std::string_view)>;
    ProgressRenderer(bool terminal, Writer write) : terminal_(terminal), write_(std::move(write)) {}

    // Text as git writes it, in pieces of any size.
    void feed(std::string_view text);
    // Writes what is left of an unfinished line and ends a bar in progress.
    void finish();

    // "[##########          ] 50%" for a phase; exposed for tests.
    static std::string bar(int percent, int width = 20);

  private:
    void segment(std::string_view text, bool transient);

    bool terminal_;
    Writer write_;
    std::string pending_;
    bool barShown_ = false;
};

}  // namespace vn::cli

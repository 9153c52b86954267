#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

#include "support/TestEnvironment.h"

namespace vn::test {

// A program the test keeps running in the background (a server); stopped and reaped when the
// object goes. The first line it prints is kept as `firstLine()`.
class BackgroundProcess {
  public:
    BackgroundProcess(const std::string& program, const std::vector<std::string>& args);
    ~BackgroundProcess();
    BackgroundProcess(const BackgroundProcess&) = delete;
    BackgroundProcess& operator=(const BackgroundProcess&) = delete;

    bool running() const { return pid_ > 0; }
    const std::string& firstLine() const { return firstLine_; }

  private:
    pid_t pid_ = -1;
    std::string firstLine_;
};

// git http-backend behind basic authentication, serving the bare repositories in `root()`.
class GitHttpServer {
  public:
    GitHttpServer(const std::string& user, const std::string& password);
    bool running() const { return process_ && process_->running() && port_ > 0; }
    // "http://127.0.0.1:PORT/NAME"
    std::string url(const std::string& name) const;
    const std::string& root() const { return dir_.path(); }
    // "METHOD PATH STATUS" lines, one per request so far.
    std::vector<std::string> requests() const;

  private:
    TempDir dir_;
    TempDir accountDir_;
    std::unique_ptr<BackgroundProcess> process_;
    int port_ = 0;
};

// A GnuPG home with one signing key without a passphrase, made with the real gpg; GNUPGHOME
// points at it while the object lives, and its agent is stopped when it goes.
class GnupgHome {
  public:
    GnupgHome();
    ~GnupgHome();
    bool ready() const { return !fingerprint_.empty(); }
    const std::string& fingerprint() const { return fingerprint_; }
    const std::string& error() const { return error_; }

  private:
    TempDir dir_;
    std::string fingerprint_;
    std::string error_;
    std::string previous_;
    bool hadPrevious_ = false;
};

// Sets an environment variable for the lifetime of the object, then restores it.
class ScopedEnvironment {
  public:
    ScopedEnvironment(std::string name, const std::string& value);
    ~ScopedEnvironment();
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

  private:
    std::string name_;
    std::string previous_;
    bool hadPrevious_ = false;
};

}  // namespace vn::test

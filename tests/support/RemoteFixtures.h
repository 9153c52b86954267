#pragma once

#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "support/TestEnvironment.h"

namespace vn::test {

// A program the test keeps running in the background (a server); stopped and reaped when the
// object goes. The first line it prints is kept as `firstLine()`.
class BackgroundProcess {
  public:
    struct Options {
        // Waits for the first line of standard output (a server's address or port).
        bool readFirstLine = true;
        // Written to its standard input, which is then closed; else it reads /dev/null.
        std::optional<std::string> input;
        // Standard error goes to this file when given.
        std::string errorFile;
    };
    BackgroundProcess(const std::string& program, const std::vector<std::string>& args);
    BackgroundProcess(const std::string& program, const std::vector<std::string>& args,
                      const Options& options);
    ~BackgroundProcess();
    BackgroundProcess(const BackgroundProcess&) = delete;
    BackgroundProcess& operator=(const BackgroundProcess&) = delete;

    bool running() const { return pid_ > 0; }
    // Reaps the program when it has ended by itself; answers whether it is still there.
    bool alive();
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

// Sets (or, given nothing, removes) an environment variable for the lifetime of the object,
// then restores it.
class ScopedEnvironment {
  public:
    ScopedEnvironment(std::string name, const std::optional<std::string>& value);
    ~ScopedEnvironment();
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

  private:
    std::string name_;
    std::string previous_;
    bool hadPrevious_ = false;
};

// A private sshd for the current user on a free port of 127.0.0.1 that accepts one client key,
// protected by a passphrase, and nothing else. While the object lives GIT_SSH_COMMAND points
// git's ssh at a configuration of its own: that key only, no agent, and a known_hosts file that
// already holds the server's key, so that nothing but the passphrase is ever asked.
class SshServer {
  public:
    explicit SshServer(const std::string& passphrase);
    ~SshServer();
    bool running() const { return process_ && port_ > 0; }
    // Why the server is not running.
    const std::string& error() const { return error_; }
    // "ssh://127.0.0.1:PORT" followed by the absolute path.
    std::string url(const std::string& absolutePath) const;
    // A folder for repositories the server hands out.
    const std::string& root() const { return repositories_.path(); }
    // Every file of the server and its client: keys, configurations and sshd's messages.
    const std::string& folder() const { return dir_.path(); }
    std::string log() const;

  private:
    bool start(const std::string& sshd, const std::string& passphrase);

    TempDir dir_;
    TempDir repositories_;
    std::unique_ptr<BackgroundProcess> process_;
    std::unique_ptr<ScopedEnvironment> sshCommand_;
    int port_ = 0;
    std::string error_;
};

// A private session bus with gnome-keyring-daemon's Secret Service on it, its login keyring made
// and unlocked in a temporary data folder. While the object lives DBUS_SESSION_BUS_ADDRESS names
// the bus, so that programs started meanwhile find the service.
class SecretServiceSession {
  public:
    SecretServiceSession();
    ~SecretServiceSession();
    bool running() const { return keyring_ && error_.empty(); }
    const std::string& error() const { return error_; }
    // The bus's socket, the keyring's files (encrypted with a password of the test's) and logs.
    const std::string& folder() const { return dir_.path(); }

  private:
    TempDir dir_;
    std::unique_ptr<BackgroundProcess> bus_;
    std::unique_ptr<ScopedEnvironment> address_;
    std::unique_ptr<BackgroundProcess> keyring_;
    std::string error_;
};

// A free TCP port on 127.0.0.1 at the time of asking; 0 when none could be had.
int freeLocalPort();

}  // namespace vn::test

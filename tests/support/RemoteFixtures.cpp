#include "support/RemoteFixtures.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <thread>

#include "handler/VNTask.h"
#include "platform/FileSystem.h"

extern char** environ;

namespace vn::test {

BackgroundProcess::BackgroundProcess(const std::string& program,
                                     const std::vector<std::string>& args)
    : BackgroundProcess(program, args, Options{}) {}

BackgroundProcess::BackgroundProcess(const std::string& program,
                                     const std::vector<std::string>& args, const Options& options) {
    int outFds[2] = {-1, -1};
    int inFds[2] = {-1, -1};
    if ((options.readFirstLine && ::pipe2(outFds, O_CLOEXEC) != 0) ||
        (options.input && ::pipe2(inFds, O_CLOEXEC) != 0)) {
        return;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (options.readFirstLine) {
        posix_spawn_file_actions_adddup2(&actions, outFds[1], STDOUT_FILENO);
    }
    if (options.input) {
        posix_spawn_file_actions_adddup2(&actions, inFds[0], STDIN_FILENO);
    } else {
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    }
    if (!options.errorFile.empty()) {
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, options.errorFile.c_str(),
                                         O_WRONLY | O_CREAT | O_APPEND, 0600);
    }
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(program.c_str()));
    for (const std::string& arg : args) {
        argv.push_back(const_cast<char*>(arg.c_str()));
    }
    argv.push_back(nullptr);
    pid_t pid = -1;
    int rc = ::posix_spawnp(&pid, program.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    for (int fd : {outFds[1], inFds[0]}) {
        if (fd >= 0) {
            ::close(fd);
        }
    }
    if (rc == 0) {
        pid_ = pid;
    }
    if (inFds[1] >= 0) {
        // A program that ended before reading must not end the test with SIGPIPE.
        struct sigaction ignore {
        }, previous{};
        ignore.sa_handler = SIG_IGN;
        ::sigaction(SIGPIPE, &ignore, &previous);
        if (rc == 0 && !options.input->empty() &&
            ::write(inFds[1], options.input->data(), options.input->size()) < 0) {
            // `alive()` tells the caller.
        }
        ::sigaction(SIGPIPE, &previous, nullptr);
        ::close(inFds[1]);
    }
    if (outFds[0] >= 0) {
        char c;
        while (rc == 0 && ::read(outFds[0], &c, 1) == 1 && c != '\n') {
            firstLine_.push_back(c);
        }
        ::close(outFds[0]);
    }
}

bool BackgroundProcess::alive() {
    if (pid_ <= 0) {
        return false;
    }
    int status = 0;
    if (::waitpid(pid_, &status, WNOHANG) == pid_) {
        pid_ = -1;
        return false;
    }
    return true;
}

BackgroundProcess::~BackgroundProcess() {
    if (pid_ > 0) {
        ::kill(pid_, SIGTERM);
        int status = 0;
        ::waitpid(pid_, &status, 0);
    }
}

GitHttpServer::GitHttpServer(const std::string& user, const std::string& password)
    : dir_("varnel-http"), accountDir_("varnel-account") {
    std::string account = accountDir_.file("account");
    writeFile(account, user + ":" + password + "\n");
    process_ = std::make_unique<BackgroundProcess>(
        "python3",
        std::vector<std::string>{std::string(VARNEL_TEST_SUPPORT_DIR) + "/git_http_server.py",
                                 dir_.path(), account});
    port_ = std::atoi(process_->firstLine().c_str());
}

std::string GitHttpServer::url(const std::string& name) const {
    return "http://127.0.0.1:" + std::to_string(port_) + "/" + name;
}

std::vector<std::string> GitHttpServer::requests() const {
    std::vector<std::string> lines;
    std::string text = readFile(dir_.file("requests.log"));
    std::size_t from = 0;
    while (from < text.size()) {
        std::size_t end = text.find('\n', from);
        lines.push_back(text.substr(from, end - from));
        from = end == std::string::npos ? text.size() : end + 1;
    }
    return lines;
}

GnupgHome::GnupgHome() : dir_("gpg") {
    if (const char* old = std::getenv("GNUPGHOME")) {
        previous_ = old;
        hadPrevious_ = true;
    }
    ::chmod(dir_.path().c_str(), 0700);
    ::setenv("GNUPGHOME", dir_.path().c_str(), 1);
    auto gpg = fs::findExecutable("gpg");
    if (!gpg) {
        error_ = "gpg is not installed";
        return;
    }
    auto made = runProgram(dir_.path(), *gpg,
                           {"--batch", "--passphrase", "", "--quick-gen-key",
                            "Test Signer <signer@example.com>", "ed25519", "sign", "never"});
    if (!made->success()) {
        error_ = made->errorOutput();
        return;
    }
    auto listed = runProgram(dir_.path(), *gpg, {"--list-secret-keys", "--with-colons"});
    const std::string& text = listed->output();
    std::size_t fpr = text.find("\nfpr:");
    if (fpr == std::string::npos) {
        error_ = "no key listed";
        return;
    }
    std::size_t end = text.find('\n', fpr + 1);
    std::string line = text.substr(fpr + 1, end - fpr - 1);
    while (!line.empty() && line.back() == ':') {
        line.pop_back();
    }
    fingerprint_ = line.substr(line.rfind(':') + 1);
}

GnupgHome::~GnupgHome() {
    if (auto gpgconf = fs::findExecutable("gpgconf")) {
        runProgram(dir_.path(), *gpgconf, {"--kill", "gpg-agent"});
    }
    if (hadPrevious_) {
        ::setenv("GNUPGHOME", previous_.c_str(), 1);
    } else {
        ::unsetenv("GNUPGHOME");
    }
}

ScopedEnvironment::ScopedEnvironment(std::string name, const std::optional<std::string>& value)
    : name_(std::move(name)) {
    if (const char* old = std::getenv(name_.c_str())) {
        previous_ = old;
        hadPrevious_ = true;
    }
    if (value) {
        ::setenv(name_.c_str(), value->c_str(), 1);
    } else {
        ::unsetenv(name_.c_str());
    }
}

ScopedEnvironment::~ScopedEnvironment() {
    if (hadPrevious_) {
        ::setenv(name_.c_str(), previous_.c_str(), 1);
    } else {
        ::unsetenv(name_.c_str());
    }
}

namespace {

// Waits up to five seconds for `ready`, giving up early when the program has ended.
bool waitFor(BackgroundProcess& process, const std::function<bool()>& ready) {
    for (int i = 0; i < 500; ++i) {
        if (ready()) {
            return true;
        }
        if (!process.alive()) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

std::string configText(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) {
        text += line + "\n";
    }
    return text;
}

std::string quotedForShell(const std::string& text) {
    std::string out = "'";
    for (char c : text) {
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return out + "'";
}

}  // namespace

int freeLocalPort() {
    int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return 0;
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    int port = 0;
    if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0) {
        port = ntohs(address.sin_port);
    }
    ::close(fd);
    return port;
}

SshServer::SshServer(const std::string& passphrase)
    : dir_("varnel-sshd"), repositories_("varnel-ssh-repos") {
    std::optional<std::string> sshd = fs::findExecutable("sshd");
    for (const char* candidate : {"/usr/sbin/sshd", "/usr/local/sbin/sshd"}) {
        if (!sshd && fs::isExecutableFile(candidate)) {
            sshd = candidate;
        }
    }
    if (!sshd || !fs::findExecutable("ssh") || !fs::findExecutable("ssh-keygen")) {
        error_ = "sshd, ssh or ssh-keygen is not installed (openssh-server, openssh-client)";
        return;
    }
    // sshd started by root insists on its privilege-separation folder, which only the system's
    // own service start makes.
    if (::geteuid() == 0 && !fs::isDirectory("/run/sshd") && ::mkdir("/run/sshd", 0755) != 0) {
        error_ = "sshd runs as root here and /run/sshd is missing and cannot be made";
        return;
    }
    if (!start(*sshd, passphrase)) {
        process_.reset();
        port_ = 0;
    }
}

bool SshServer::start(const std::string& sshd, const std::string& passphrase) {
    const std::string& d = dir_.path();
    ::chmod(d.c_str(), 0700);
    auto keygen = [&](const std::string& file, const std::vector<std::string>& extra) {
        std::vector<std::string> args{"-q", "-t", "ed25519", "-C", "varnel-test", "-f", file};
        args.insert(args.end(), extra.begin(), extra.end());
        auto task = runProgram(d, "ssh-keygen", args);
        if (!task->success()) {
            error_ = "ssh-keygen failed: " + task->errorOutput();
        }
        return task->success();
    };
    if (!keygen(dir_.file("host_key"), {"-N", ""})) {
        return false;
    }
    // The passphrase reaches ssh-keygen the way ssh's own prompts do, through an askpass
    // program, so that it never stands on a command line.
    {
        std::string askpass =
            writeScript(d, "keygen-askpass", "printf '%s\\n' \"$VARNEL_TEST_NEW_PASSPHRASE\"\n");
        ScopedEnvironment phrase("VARNEL_TEST_NEW_PASSPHRASE", passphrase);
        ScopedEnvironment program("SSH_ASKPASS", askpass);
        ScopedEnvironment require("SSH_ASKPASS_REQUIRE", std::string("force"));
        ScopedEnvironment display("DISPLAY", std::string("none"));
        // Two KDF rounds: the tests decrypt the key on every connection.
        if (!keygen(dir_.file("client_key"), {"-a", "2"})) {
            return false;
        }
        ::unlink(askpass.c_str());
    }
    writeFile(dir_.file("authorized_keys"), readFile(dir_.file("client_key.pub")));
    writeFile(dir_.file("ssh_config"),
              configText({"Host *", "  IdentityFile " + dir_.file("client_key"),
                          "  IdentitiesOnly yes", "  IdentityAgent none", "  AddKeysToAgent no",
                          "  PreferredAuthentications publickey", "  NumberOfPasswordPrompts 1",
                          "  UserKnownHostsFile " + dir_.file("known_hosts"),
                          "  GlobalKnownHostsFile /dev/null", "  StrictHostKeyChecking yes",
                          "  UpdateHostKeys no", "  ControlMaster no", "  ControlPath none",
                          "  LogLevel ERROR"}));
    std::string log = dir_.file("sshd.log");
    for (int attempt = 0; attempt < 3; ++attempt) {
        int port = freeLocalPort();
        if (port == 0) {
            error_ = "no free port on 127.0.0.1";
            return false;
        }
        writeFile(dir_.file("sshd_config"),
                  configText({"Port " + std::to_string(port), "ListenAddress 127.0.0.1",
                              "HostKey " + dir_.file("host_key"), "PidFile none",
                              "AuthorizedKeysFile " + dir_.file("authorized_keys"),
                              "AuthenticationMethods publickey", "PubkeyAuthentication yes",
                              "PasswordAuthentication no", "KbdInteractiveAuthentication no",
                              "UsePAM no", "StrictModes no", "UseDNS no", "X11Forwarding no",
                              "AllowTcpForwarding no", "PrintMotd no"}));
        writeFile(log, "");
        process_ = std::make_unique<BackgroundProcess>(
            sshd, std::vector<std::string>{"-D", "-e", "-f", dir_.file("sshd_config")},
            BackgroundProcess::Options{false, std::nullopt, log});
        bool listening = waitFor(
            *process_, [&] { return readFile(log).find("Server listening") != std::string::npos; });
        if (listening) {
            port_ = port;
            break;
        }
        error_ = "sshd did not start: " + readFile(log);
        process_.reset();
        // Another program may have taken the port meanwhile; anything else will not go away.
        if (readFile(log).find("Address already in use") == std::string::npos) {
            return false;
        }
    }
    if (port_ == 0) {
        return false;
    }
    error_.clear();
    std::string hostKey = readFile(dir_.file("host_key.pub"));
    writeFile(dir_.file("known_hosts"), "[127.0.0.1]:" + std::to_string(port_) + " " + hostKey);
    sshCommand_ = std::make_unique<ScopedEnvironment>(
        "GIT_SSH_COMMAND", "ssh -F " + quotedForShell(dir_.file("ssh_config")));
    return true;
}

SshServer::~SshServer() {
    sshCommand_.reset();
    process_.reset();
}

std::string SshServer::url(const std::string& absolutePath) const {
    return "ssh://127.0.0.1:" + std::to_string(port_) + absolutePath;
}

std::string SshServer::log() const {
    return readFile(dir_.file("sshd.log"));
}

SecretServiceSession::SecretServiceSession() : dir_("varnel-secrets") {
    auto daemon = fs::findExecutable("dbus-daemon");
    auto keyring = fs::findExecutable("gnome-keyring-daemon");
    if (!daemon || !keyring) {
        error_ = "dbus-daemon or gnome-keyring-daemon is not installed (dbus, gnome-keyring)";
        return;
    }
    // A bus of its own that starts no services: anything asking for the Secret Service must
    // find the keyring started below, not one the bus would start with the real home.
    std::string config = dir_.file("bus.conf");
    writeFile(
        config,
        configText(
            {"<!DOCTYPE busconfig PUBLIC"
             " \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\""
             " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">",
             "<busconfig>", "<type>session</type>", "<listen>unix:dir=" + dir_.path() + "</listen>",
             "<auth>EXTERNAL</auth>", "<policy context=\"default\">",
             "<allow send_destination=\"*\" eavesdrop=\"true\"/>", "<allow eavesdrop=\"true\"/>",
             "<allow own=\"*\"/>", "</policy>", "</busconfig>"}));
    bus_ = std::make_unique<BackgroundProcess>(
        *daemon,
        std::vector<std::string>{"--config-file=" + config, "--nofork", "--print-address=1"},
        BackgroundProcess::Options{true, std::nullopt, dir_.file("bus.log")});
    if (!bus_->alive() || bus_->firstLine().empty()) {
        error_ = "dbus-daemon did not start: " + readFile(dir_.file("bus.log"));
        return;
    }
    address_ = std::make_unique<ScopedEnvironment>("DBUS_SESSION_BUS_ADDRESS", bus_->firstLine());
    std::string runtime = dir_.file("runtime");
    fs::makeDirectories(runtime, 0700);
    ScopedEnvironment home("HOME", dir_.file("home"));
    ScopedEnvironment data("XDG_DATA_HOME", dir_.file("data"));
    ScopedEnvironment runtimeDir("XDG_RUNTIME_DIR", runtime);
    // The keyring's password on standard input makes and unlocks the login keyring.
    keyring_ = std::make_unique<BackgroundProcess>(
        *keyring, std::vector<std::string>{"--foreground", "--components=secrets", "--unlock"},
        BackgroundProcess::Options{false, std::string("keyring password"),
                                   dir_.file("keyring.log")});
    auto dbusSend = fs::findExecutable("dbus-send");
    bool owned = dbusSend && waitFor(*keyring_, [&] {
                     auto asked =
                         runProgram(dir_.path(), *dbusSend,
                                    {"--session", "--print-reply", "--dest=org.freedesktop.DBus",
                                     "/org/freedesktop/DBus", "org.freedesktop.DBus.NameHasOwner",
                                     "string:org.freedesktop.secrets"});
                     return asked->output().find("boolean true") != std::string::npos;
                 });
    if (!owned) {
        error_ = "gnome-keyring-daemon did not offer the Secret Service: " +
                 readFile(dir_.file("keyring.log"));
    }
}

SecretServiceSession::~SecretServiceSession() {
    keyring_.reset();
    address_.reset();
    bus_.reset();
}

}  // namespace vn::test

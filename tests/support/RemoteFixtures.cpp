#include "support/RemoteFixtures.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "handler/VNTask.h"
#include "platform/FileSystem.h"

extern char** environ;

namespace vn::test {

BackgroundProcess::BackgroundProcess(const std::string& program,
                                     const std::vector<std::string>& args) {
    int pipeFds[2];
    if (::pipe(pipeFds) != 0) {
        return;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipeFds[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, pipeFds[0]);
    posix_spawn_file_actions_addclose(&actions, pipeFds[1]);
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(program.c_str()));
    for (const std::string& arg : args) {
        argv.push_back(const_cast<char*>(arg.c_str()));
    }
    argv.push_back(nullptr);
    pid_t pid = -1;
    int rc = ::posix_spawnp(&pid, program.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(pipeFds[1]);
    if (rc != 0) {
        ::close(pipeFds[0]);
        return;
    }
    pid_ = pid;
    char c;
    while (::read(pipeFds[0], &c, 1) == 1 && c != '\n') {
        firstLine_.push_back(c);
    }
    ::close(pipeFds[0]);
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

ScopedEnvironment::ScopedEnvironment(std::string name, const std::string& value)
    : name_(std::move(name)) {
    if (const char* old = std::getenv(name_.c_str())) {
        previous_ = old;
        hadPrevious_ = true;
    }
    ::setenv(name_.c_str(), value.c_str(), 1);
}

ScopedEnvironment::~ScopedEnvironment() {
    if (hadPrevious_) {
        ::setenv(name_.c_str(), previous_.c_str(), 1);
    } else {
        ::unsetenv(name_.c_str());
    }
}

}  // namespace vn::test

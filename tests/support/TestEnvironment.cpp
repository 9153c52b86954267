#include "support/TestEnvironment.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "handler/VNTask.h"
#include "platform/FileSystem.h"
#include "platform/Preferences.h"

extern char** environ;

namespace vn::test {

TempDir::TempDir(const std::string& prefix) {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/" + prefix + ".XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) {
        ADD_FAILURE() << "mkdtemp failed for " << pattern;
    }
    // Resolved, because git reports real paths and tests compare against them.
    path_ = std::filesystem::canonical(pattern).string();
}

TempDir::~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
}

std::string TempDir::file(const std::string& relative) const {
    return fs::appendPathComponent(path_, relative);
}

const std::string& sandboxPath() {
    static TempDir sandbox("varnel-sandbox");
    return sandbox.path();
}

void isolateEnvironment() {
    std::vector<std::string> gitVariables;
    for (char** e = environ; e && *e; ++e) {
        std::string entry(*e);
        if (entry.rfind("GIT_", 0) == 0 || entry.rfind("HG", 0) == 0) {
            gitVariables.push_back(entry.substr(0, entry.find('=')));
        }
    }
    for (const std::string& name : gitVariables) {
        ::unsetenv(name.c_str());
    }
    const std::string& root = sandboxPath();
    for (const char* sub : {"home", "config", "data", "state", "runtime"}) {
        fs::makeDirectories(fs::appendPathComponent(root, sub), 0700);
    }
    ::setenv("HOME", fs::appendPathComponent(root, "home").c_str(), 1);
    ::setenv("XDG_CONFIG_HOME", fs::appendPathComponent(root, "config").c_str(), 1);
    ::setenv("XDG_DATA_HOME", fs::appendPathComponent(root, "data").c_str(), 1);
    ::setenv("XDG_STATE_HOME", fs::appendPathComponent(root, "state").c_str(), 1);
    ::setenv("XDG_CACHE_HOME", fs::appendPathComponent(root, "cache").c_str(), 1);
    ::setenv("XDG_RUNTIME_DIR", fs::appendPathComponent(root, "runtime").c_str(), 1);
    std::string hgrc = fs::appendPathComponent(root, "hgrc");
    writeFile(hgrc, "[ui]\nusername = Test User <test@example.com>\n");
    ::setenv("HGRCPATH", hgrc.c_str(), 1);
    ::setenv("TZ", "UTC", 1);
    ::setenv("LC_ALL", "C.UTF-8", 1);
    ::setenv("GIT_CONFIG_NOSYSTEM", "1", 1);
    // Passwords go to the sandbox's file store, never to the developer's keyring.
    ::setenv("VARNEL_CREDENTIAL_STORE", "file", 1);
    ::setenv("GIT_AUTHOR_NAME", "Test Author", 1);
    ::setenv("GIT_AUTHOR_EMAIL", "author@example.com", 1);
    ::setenv("GIT_COMMITTER_NAME", "Test Committer", 1);
    ::setenv("GIT_COMMITTER_EMAIL", "committer@example.com", 1);
    ::setenv("GIT_AUTHOR_DATE", "2024-01-02T03:04:05Z", 1);
    ::setenv("GIT_COMMITTER_DATE", "2024-01-02T03:04:05Z", 1);
    ::setenv("EMAIL", "test@example.com", 1);
    tzset();
    writeFile(fs::appendPathComponent(root, "home/.gitconfig"),
              "[init]\n\tdefaultBranch = main\n[commit]\n\tgpgSign = false\n"
              "[user]\n\tname = Test User\n\temail = test@example.com\n");
    Preferences::standard().reload();
}

void writeFile(const std::string& path, const std::string& contents) {
    fs::makeDirectories(fs::deletingLastPathComponent(path));
    std::string error;
    if (!fs::writeFileAtomically(path, contents, &error)) {
        ADD_FAILURE() << "cannot write " << path << ": " << error;
    }
}

std::string readFile(const std::string& path) {
    return fs::readFile(path).value_or("");
}

std::string writeScript(const std::string& folder, const std::string& name,
                        const std::string& body) {
    std::string path = fs::appendPathComponent(folder, name);
    writeFile(path, "#!/bin/sh\n" + body);
    ::chmod(path.c_str(), 0755);
    return path;
}

std::shared_ptr<VNTask> runProgram(const std::string& workingDir, const std::string& program,
                                   const std::vector<std::string>& args) {
    std::string executable = fs::findExecutable(program).value_or(program);
    auto task = VNTask::taskWithCommand(executable, workingDir, args);
    task->run();
    return task;
}

GitRepository::GitRepository() : dir_("varnel-repo") {
    git({"init", "-q"});
}

std::string GitRepository::git(const std::vector<std::string>& args) {
    auto task = runProgram(path(), "git", args);
    if (!task->success()) {
        ADD_FAILURE() << "git " << ::testing::PrintToString(args) << " failed (" << task->exitCode()
                      << "): " << task->errorOutput();
    }
    return task->output();
}

void GitRepository::write(const std::string& relative, const std::string& contents) {
    writeFile(file(relative), contents);
}

std::string GitRepository::commitFile(const std::string& relative, const std::string& contents,
                                      const std::string& message) {
    write(relative, contents);
    git({"add", "--", relative});
    git({"commit", "-q", "-m", message});
    std::string head = git({"rev-parse", "HEAD"});
    while (!head.empty() && head.back() == '\n') {
        head.pop_back();
    }
    return head;
}

}  // namespace vn::test

#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "general/VNRepoHandlerBase.h"

// The Git backend. This part is its frame: which git runs, the words every git command line
// starts with, credentials and password prompts for remotes, failure reports, and whether a
// folder or URL is a Git repository.
class VNRepoHandlerGit : public VNRepoHandlerBase {
  public:
    VNRepoHandlerGit() = default;
    ~VNRepoHandlerGit() override = default;

    // ---- Tools ----
    std::string gitPath() const;
    std::string gitFlowPath() const;
    std::string gitLfsPath() const;

    // ---- Identity and setup ----
    VNRepositoryType repositoryType() const override { return VNRepositoryTypeGit; }
    std::string repositoryTypeName() const override { return "Git"; }
    bool isDistributed() const override { return true; }
    bool hasHashedChangesets() const override { return true; }
    bool hasSequentialRevisions() const override { return false; }
    // "number" (the version as git prints it, such as "2.39.5"), "standard", "location",
    // "exists". `git --version` runs once per git executable; the answer is kept.
    vn::Record versionDetails() override;
    // Sets the detected version without asking git (the application's own check, and tests);
    // nothing returns to asking git.
    void setDetectedGitVersion(std::optional<std::string> version);
    // Whether git of this version has credential helpers (1.7.10 and later).
    static bool versionUsesCredentialHelper(std::string_view version);
    bool useGitCredHelper();
    // Whether a command talking to `url` needs the password-prompt helper: for http(s) only when
    // the credential helper is not used, for every other kind of remote always.
    bool useSshAskPass(const std::string& url);

    // "--no-pager", the shipped git's exec path, colour and path quoting off, the credential
    // helper when used, each of `configs` ("key=value") as "-c", then `command`.
    std::vector<std::string> defaultArgsForPath(const std::string& path,
                                                const std::string& command) override;
    std::vector<std::string> defaultArgsForPath(const std::string& path, const std::string& command,
                                                const std::vector<std::string>& configs);
    // For tasks whose executable is gitFlowPath(): just the command.
    std::vector<std::string> gitflowArgsForPath(const std::string& path,
                                                const std::string& command);

    // ---- Remotes and credentials ----
    // Resolves a remote name (or URL) to its URL and the user and host it names; missing parts
    // are empty.
    void userAndHost(const std::string& path, const std::string& remote, std::string& user,
                     std::string& host, std::string& url);
    // Prepares a task that talks to `remote` for password prompts and authentication re-runs.
    void configureSSHAskpass(const std::string& path, const std::string& remote, VNTask& task);
    // Drops the stored password of the remote's URL, so that the next prompt asks again.
    void authenticationFailed(const std::string& path, const std::string& remote) override;
    std::string urlForAlias(const std::string& path, const std::string& alias) override;

    // ---- Failures ----
    // Reports a failed git command, except the complaints of a repository without commits
    // about "HEAD", which are no error.
    void handleGitFailure(const std::string& command, int64_t exitCode,
                          const std::string& errorOutput, bool displayToUser);
    static bool isHarmlessHeadFailure(std::string_view errorOutput);

    // Appends "--template=..." to a clone or init argument list unless the user's global git
    // configuration names a template folder of its own.
    void addTemplateArguments(std::vector<std::string>& args);

    // ---- Repositories ----
    // True when the folder holds a ".git" folder or file (worktrees and submodules).
    bool validateWorkingDirectory(const std::string& path) override;
    // Whether `git ls-remote` reaches a repository at the path or URL.
    bool validatePathOrURL(const std::string& pathOrURL,
                           VNPathOrURLValidationDelegate* delegate) override;
    bool checkConfigForRepo(const std::string& path, bool fixAndPrompt) override;

    // ---- Working-copy status (VNRepoHandlerGitStatus.cpp) ----

    // ---- History, revisions and references (VNRepoHandlerGitHistory.cpp) ----

    // ---- Diffs (VNRepoHandlerGitDiff.cpp) ----

  private:
    // The "number" of versionDetails, without the rest of the record.
    std::string detectedVersionNumber();

    std::mutex versionMutex_;
    std::optional<std::string> versionOverride_;
    std::string versionGitPath_;
    std::optional<std::string> versionNumber_;
};

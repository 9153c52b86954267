#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "handler/VNRepoHandlerBase.h"

// The Mercurial backend. Every operation is a run of `hg` (or of its command-server client `chg`
// for queries, where installed) whose output is read in a fixed plain form: the user's aliases,
// defaults, templates, colour, pager and verbosity settings never reach what the parsers read.
class VNRepoHandlerMercurial : public VNRepoHandlerBase {
  public:
    VNRepoHandlerMercurial() = default;
    ~VNRepoHandlerMercurial() override = default;

    // Separates the fields of every machine-readable template: U+241E, which metadata typed by
    // people practically never holds, so nothing is escaped.
    static constexpr std::string_view FieldSeparator = "\xE2\x90\x9E";

    // ---- Tools ----
    // The custom Mercurial when the preferences choose one and name it, else the shipped one.
    std::string hgPath() const;
    // Commands that talk to a remote, work on a bundle ("-R") or ask for a passphrase: they must
    // be free to prompt, so they never get "-y".
    static bool commandTakesYes(std::string_view command);

    // ---- Identity and setup ----
    VNRepositoryType repositoryType() const override { return VNRepositoryTypeMercurial; }
    std::string repositoryTypeName() const override { return "Mercurial"; }
    bool isDistributed() const override { return true; }
    bool hasHashedChangesets() const override { return true; }
    bool hasSequentialRevisions() const override { return true; }

    // The command word, "-y" unless the command may prompt, and the certificate override when
    // `needsWebCacertsConfigSetting` is set. For a bundle pass "-R" as the command and append the
    // bundle and the real command.
    std::vector<std::string> defaultArgsForPath(const std::string& path,
                                                const std::string& command) override;
    bool needsWebCacertsConfigSetting() const { return needsWebCacerts_; }
    void setNeedsWebCacertsConfigSetting(bool needs) { needsWebCacerts_ = needs; }

    // ---- Tasks ----
    // The environment that makes `hg` print its plain output whatever the user configured:
    // HGPLAIN (with strict option parsing) and an empty HGPLAINEXCEPT, so that a user's own
    // exceptions cannot bring aliases or colour back.
    static vn::Environment plainEnvironment();
    // A prepared task running `hg` with the default arguments of `command` followed by `args`, in
    // the working copy `path`.
    std::shared_ptr<VNTask> hgTask(const std::string& path, const std::string& command,
                                   std::vector<std::string> args = {});
    // The same with the whole argument vector given (it must begin with default arguments).
    std::shared_ptr<VNTask> hgTaskWithArgs(const std::string& path, std::vector<std::string> args);
    // A task for a query that only reads: like hgTask, but run through the command server where
    // one can be used (see VNHgCommandServer).
    std::shared_ptr<VNTask> hgQueryTask(const std::string& path, const std::string& command,
                                        std::vector<std::string> args = {});
    std::shared_ptr<VNTask> hgQueryTaskWithArgs(const std::string& path,
                                                std::vector<std::string> args);
    // Runs a query task; when it ran through the command server and that failed to start, runs
    // it once more through plain `hg`. Answers the task's success.
    bool runQuery(const std::shared_ptr<VNTask>& task);

    // ---- Failures ----
    // Reports a failed hg command under its label ("hg status", "hg log", ...).
    void handleHgFailure(const std::string& label, int64_t exitCode, const std::string& errorOutput,
                         bool displayToUser);

    // ---- Repositories ----
    // True when the folder holds a ".hg" folder.
    bool validateWorkingDirectory(const std::string& path) override;

  private:
    bool needsWebCacerts_ = false;
};

#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Record.h"

class VNGitRemoteInfo;
class VNLogLabel;

// Reads what git prints about references: `branch -vv`, `branch`, `tag`, `remote -v`,
// `remote show`, `ls-remote`, `for-each-ref` and `stash list` listings, and works out which
// branches `git push` updates. Every function takes text (or facts read from the configuration)
// and answers values; running git is the handler's part.
class VNGitRefsParser {
  public:
    // ---- branch -vv ----
    struct BranchLine {
        std::string name;
        std::string hash;
        // The upstream as git names it ("origin/main"); empty without one.
        std::string upstream;
        int64_t ahead = 0;
        int64_t behind = 0;
        bool current = false;
        // The upstream is a remote-tracking branch (not a local branch).
        bool upstreamIsRemote = false;
    };
    // ---- for-each-ref over local branches ----
    // "--format=%(HEAD)%00%(refname)%00%(upstream)%00%(upstream:track,nobracket)" over
    // "refs/heads/". These are fields, not text for people: no commit subject can pass for an
    // upstream, and for-each-ref, being plumbing, writes the tracking counts in English whatever
    // the locale.
    static std::string branchRefsFormatArgument();
    // One entry per local branch, in git's order; `upstream` is "origin/main" for a
    // remote-tracking branch and the branch name for a local one.
    static std::vector<BranchLine> parseBranchRefs(std::string_view output);
    // Branch name to [ahead, behind] for the branches that are ahead or behind their upstream.
    static vn::Record aheadBehindFromBranchRefs(std::string_view output);
    // Branch name to upstream, for upstreams that are remote-tracking branches ("origin/main").
    static vn::Record trackingBranchesFromBranchRefs(std::string_view output);

    // One entry per local branch; the detached HEAD line is left out. Only a bracket right
    // after the hash (or after the folder of another worktree) is read, so "ahead 3" in a
    // subject is not taken for a count. A branch without upstream whose subject starts with
    // "[" reads like one with an upstream; only an upstream with "/" counts as tracking.
    static std::vector<BranchLine> parseBranchVerbose(std::string_view output);
    // Branch name to [ahead, behind] for the branches that are ahead or behind their upstream.
    static vn::Record aheadBehindFromBranchVerbose(std::string_view output);
    // Branch name to upstream, for upstreams that name a remote ("origin/main").
    static vn::Record trackingBranchesFromBranchVerbose(std::string_view output);

    // ---- Plain listings ----
    // `git branch`: each name from the line's third character; the detached HEAD as "HEAD".
    static std::vector<std::string> parseBranchList(std::string_view output);
    // One name per line (`git tag`, `for-each-ref --format=%(refname)` after the prefix);
    // `stripPrefix` is removed from names that start with it.
    static std::vector<std::string> parseNameList(std::string_view output,
                                                  std::string_view stripPrefix = {});
    // `git remote -v`: remote name to its fetch URL, as written (blanks kept). A separate push
    // URL is kept by parseRemoteUrls.
    static vn::Record parseRemoteVerbose(std::string_view output);
    struct RemoteUrls {
        std::string name;
        std::string fetchUrl;
        // Every URL `git push` sends to, in git's order (the fetch URL when none is set apart).
        std::vector<std::string> pushUrls;
    };
    // `git remote -v`: each remote once, in git's order, with its fetch and push URLs.
    static std::vector<RemoteUrls> parseRemoteUrls(std::string_view output);
    // `git remote -v` as records "name" and "path" (the fetch URL as written, blanks kept), in
    // git's order.
    static std::vector<vn::Record> parseRemotePaths(std::string_view output);
    // `git ls-remote --heads`: branch names, each once, in git's order.
    static std::vector<std::string> parseLsRemoteHeads(std::string_view output);
    // `git stash list --format=%gd<sep>%gs`: records "name" ("stash@{0}") and "msg".
    static std::vector<vn::Record> parseStashList(std::string_view output);

    // ---- Labels ----
    // NUL-separated fields: HEAD marker, reference, object, peeled object, symbolic target.
    static std::string refLabelsFormatArgument();
    // Lines of `for-each-ref` in refLabelsFormatArgument's format: a label for each branch, tag and
    // (with `includeRemotes`) remote branch, pointing at the commit (an annotated tag's target).
    // Symbolic references such as "origin/HEAD" are left out.
    static std::vector<std::shared_ptr<VNLogLabel>> parseRefLabels(std::string_view output,
                                                                   bool includeRemotes);

    // ---- remote show ----
    struct RemoteShow {
        std::string fetchUrl;
        std::string pushUrl;
        std::string headBranch;
        std::vector<std::string> remoteBranches;
        std::vector<std::pair<std::string, std::string>> pull;
        // Local to remote as git lists them; "*" stands for a pattern or "(matching)".
        std::vector<std::pair<std::string, std::string>> push;
        // Git listed "(matching)": branches that exist on both sides.
        bool pushMatching = false;
    };
    static RemoteShow parseRemoteShow(std::string_view output);

    // What decides which branches `git push <remote>` updates when no refspec is given.
    struct PushSettings {
        // The remote being described.
        std::string remote;
        // push.default as configured (empty: git's default, "simple").
        std::string pushDefault;
        bool autoSetupRemote = false;
        bool mirror = false;
        // remote.<name>.push is configured: git's own listing holds the mapping.
        bool hasPushRefspecs = false;
        // The checked-out branch; empty when HEAD is detached.
        std::string currentBranch;
        // branch.<current>.remote and branch.<current>.merge; git refuses to guess among
        // several merge entries.
        std::string currentBranchRemote;
        std::string currentBranchMerge;
        bool severalMerges = false;
        // Every configured remote (git's default remote is the only one, else "origin").
        std::vector<std::string> remotes;
        std::vector<std::string> localBranches;
    };
    // Fills the push mapping of `info` from `show` and the push rules: configured refspecs as git
    // listed them with patterns expanded for each local branch, else push.default ("matching"
    // pairs branches present on both sides; "current", "upstream" and "simple" the checked-out
    // branch as git would push it, or nothing where git would refuse).
    static void completePushMapping(VNGitRemoteInfo& info, const RemoteShow& show,
                                    const PushSettings& settings);
    // Reads what completePushMapping needs from `git config -z --list` output.
    static PushSettings pushSettingsFromConfig(std::string_view configList,
                                               const std::string& remote,
                                               const std::string& currentBranch);

    // The lines of tool output without terminators (a CR before the LF goes too); empty lines
    // are dropped.
    static std::vector<std::string_view> lines(std::string_view text);
};

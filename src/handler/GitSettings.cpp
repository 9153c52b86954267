#include "handler/GitSettings.h"

#include <unordered_set>

namespace vn {

const std::vector<std::string>& GitSettings::pinned() {
    static const std::vector<std::string> settings = {
        // Colour and path quoting, first and in this order since git's own users read them.
        "color.branch=false",
        "color.diff=false",
        "color.status=false",
        "diff.mnemonicprefix=false",
        "core.quotepath=false",
        // A kind of colour set to "always" by the user would beat color.ui, so each is named.
        "color.ui=false",
        "color.grep=false",
        "color.interactive=false",
        "color.showBranch=false",
        "color.remote=false",
        "color.advice=false",
        "color.push=false",
        "color.transport=false",
        // Listings in columns cannot be read one name a line.
        "column.ui=never",
        "column.branch=never",
        "column.status=never",
        "column.tag=never",
        // Patches: the file headers, the lines around each change and where hunks join are what
        // the diff parser and patch staging count on. (An external diff program is refused with
        // --no-ext-diff by each diff command; an empty diff.external would make git fail.)
        "diff.noprefix=false",
        "diff.srcPrefix=a/",
        "diff.dstPrefix=b/",
        "diff.relative=false",
        "diff.suppressBlankEmpty=false",
        "diff.context=3",
        "diff.interHunkContext=0",
        "diff.renames=true",
        "diff.submodule=short",
        "diff.ignoreSubmodules=none",
        "diff.orderFile=/dev/null",
        // Status: porcelain output with renames and no extra lines.
        "status.renames=true",
        "status.branch=false",
        "status.short=false",
        "status.showUntrackedFiles=normal",
        "status.aheadBehind=true",
        "status.showStash=false",
        "status.submoduleSummary=false",
        // History: full hashes, one line per commit, text in UTF-8, no signature checks between
        // the lines, and the root commit's changes shown.
        "log.showSignature=false",
        "log.abbrevCommit=false",
        "log.follow=false",
        "log.date=default",
        "log.showRoot=true",
        "log.decorate=auto",
        "format.pretty=medium",
        "i18n.logOutputEncoding=UTF-8",
        "core.abbrev=auto",
        // Listings in git's own order.
        "branch.sort=refname",
        "tag.sort=refname",
        // History searches read their pattern as a basic regular expression.
        "grep.patternType=basic",
        "grep.extendedRegexp=false",
        "stash.showIncludeUntracked=false",
        "blame.showRoot=false",
        "blame.blankBoundary=false",
        "advice.statusHints=false",
        "advice.detachedHead=false",
    };
    return settings;
}

bool GitSettings::isPinned(std::string_view setting) {
    // Asked for arguments of every command line shown, which can hold thousands of files.
    static const std::unordered_set<std::string_view> lookup(pinned().begin(), pinned().end());
    return lookup.count(setting) != 0;
}

const std::vector<std::string>& GitSettings::decorationFilterArguments() {
    static const std::vector<std::string> arguments = {
        "--decorate-refs=HEAD",          "--decorate-refs=refs/heads/",
        "--decorate-refs=refs/remotes/", "--decorate-refs=refs/tags/",
        "--decorate-refs=refs/stash",    "--decorate-refs=refs/replace/",
    };
    return arguments;
}

}  // namespace vn

#include "git/VNGitRefsParser.h"

#include <gtest/gtest.h>

#include "git/VNGitLogParser.h"
#include "git/VNGitRemoteInfo.h"
#include "model/VNLogLabel.h"

namespace {

using namespace std::string_literals;
using Pairs = std::map<std::string, std::string>;

const std::string N(1, '\0');
const std::string S(VNGitLogParser::FieldSeparator);

std::vector<int64_t> counts(const vn::Record& record, const std::string& branch) {
    std::vector<int64_t> result;
    if (const vn::Value* value = record.find(branch); value && value->array()) {
        for (const vn::Value& v : *value->array()) {
            result.push_back(v.toInt());
        }
    }
    return result;
}

TEST(VNGitRefsParserTest, BranchVerboseLines) {
    struct Case {
        const char* name;
        std::string line;
        std::string branch, hash, upstream;
        int64_t ahead, behind;
        bool current;
    };
    const Case cases[] = {
        {"current, in step", "* main    1a2b3c4 [origin/main] subject", "main", "1a2b3c4",
         "origin/main", 0, 0, true},
        {"ahead", "  topic   1a2b3c4 [origin/topic: ahead 3] s", "topic", "1a2b3c4", "origin/topic",
         3, 0, false},
        {"behind", "  topic   1a2b3c4 [origin/topic: behind 12] s", "topic", "1a2b3c4",
         "origin/topic", 0, 12, false},
        {"both", "  t 1a2b3c4 [up/t: ahead 1, behind 2] s", "t", "1a2b3c4", "up/t", 1, 2, false},
        {"upstream gone", "  old 1a2b3c4 [origin/old: gone] s", "old", "1a2b3c4", "origin/old", 0,
         0, false},
        {"local upstream", "  t 1a2b3c4 [main: ahead 1] s", "t", "1a2b3c4", "main", 1, 0, false},
        {"no upstream, counts in the subject", "  x 1a2b3c4 move ahead 3 and behind 4 [now]", "x",
         "1a2b3c4", "", 0, 0, false},
        {"checked out in another worktree",
         "+ feat    5d45766 (/tmp/my tree) [origin/feature: behind 1] a", "feat", "5d45766",
         "origin/feature", 0, 1, false},
        {"non-ASCII name", "  f\xC3\xBCr 1a2b3c4 [origin/f\xC3\xBCr: ahead 2] s", "f\xC3\xBCr",
         "1a2b3c4", "origin/f\xC3\xBCr", 2, 0, false},
        {"CRLF", "* main 1a2b3c4 [origin/main: ahead 1] s\r", "main", "1a2b3c4", "origin/main", 1,
         0, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto lines = VNGitRefsParser::parseBranchVerbose(c.line + "\n");
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_EQ(lines[0].name, c.branch);
        EXPECT_EQ(lines[0].hash, c.hash);
        EXPECT_EQ(lines[0].upstream, c.upstream);
        EXPECT_EQ(lines[0].ahead, c.ahead);
        EXPECT_EQ(lines[0].behind, c.behind);
        EXPECT_EQ(lines[0].current, c.current);
    }
}

TEST(VNGitRefsParserTest, AheadBehindAndTrackingFromOneListing) {
    std::string output =
        "* (HEAD detached at 1a2b3c4) 1a2b3c4 detached work\n"
        "  main    1a2b3c4 [origin/main: ahead 1, behind 2] a\n"
        "  quiet   1a2b3c4 [origin/quiet] b\n"
        "  local   1a2b3c4 [main: behind 5] c\n"
        "  lone    1a2b3c4 [WIP] subject in brackets\n"
        "+ wt      1a2b3c4 (/tmp/wt) [origin/wt: ahead 4] d\n";
    vn::Record aheadBehind = VNGitRefsParser::aheadBehindFromBranchVerbose(output);
    EXPECT_EQ(aheadBehind.keys(), (std::vector<std::string>{"main", "local", "wt"}));
    EXPECT_EQ(counts(aheadBehind, "main"), (std::vector<int64_t>{1, 2}));
    EXPECT_EQ(counts(aheadBehind, "local"), (std::vector<int64_t>{0, 5}));
    EXPECT_EQ(counts(aheadBehind, "wt"), (std::vector<int64_t>{4, 0}));
    vn::Record tracking = VNGitRefsParser::trackingBranchesFromBranchVerbose(output);
    EXPECT_EQ(tracking.keys(), (std::vector<std::string>{"main", "quiet", "wt"}));
    EXPECT_EQ(tracking.string("main"), "origin/main");
    EXPECT_EQ(tracking.string("wt"), "origin/wt");
}

TEST(VNGitRefsParserTest, BranchList) {
    EXPECT_EQ(VNGitRefsParser::parseBranchList("  feature\n* main\n  with space?\n"),
              (std::vector<std::string>{"feature", "main", "with space?"}));
    for (const char* detached : {"* (HEAD detached at 1a2b3c4)\n", "* (HEAD detached from abc)\n",
                                 "* (no branch)\n", "* (detached from topic)\n"}) {
        SCOPED_TRACE(detached);
        EXPECT_EQ(VNGitRefsParser::parseBranchList(detached + "  main\n"s),
                  (std::vector<std::string>{"HEAD", "main"}));
    }
    EXPECT_TRUE(VNGitRefsParser::parseBranchList("").empty());
}

TEST(VNGitRefsParserTest, NameListsStripTheirPrefix) {
    EXPECT_EQ(
        VNGitRefsParser::parseNameList("refs/heads/b\r\nrefs/heads/a/b\nother\n", "refs/heads/"),
        (std::vector<std::string>{"b", "a/b", "other"}));
    EXPECT_EQ(VNGitRefsParser::parseNameList("v1\nv2\n"), (std::vector<std::string>{"v1", "v2"}));
}

TEST(VNGitRefsParserTest, RemoteVerbose) {
    std::string output =
        "origin\thttps://example.com/r.git (fetch)\n"
        "origin\tssh://git@example.com/r.git (push)\n"
        "spaced\t/srv/my  repos/r (fetch)\n"
        "spaced\t/srv/my  repos/r (push)\n"
        "bare\n"
        "odd\turl-without-marker\n"
        "mirror\thttps://a.example/r (fetch)\n"
        "mirror\thttps://a.example/r (push)\n"
        "mirror\thttps://b.example/r (fetch) (push)\n";
    vn::Record remotes = VNGitRefsParser::parseRemoteVerbose(output);
    EXPECT_EQ(remotes.keys(), (std::vector<std::string>{"origin", "spaced", "mirror"}));
    // The fetch URL is the remote's; blanks inside it are kept.
    EXPECT_EQ(remotes.string("origin"), "https://example.com/r.git");
    EXPECT_EQ(remotes.string("spaced"), "/srv/my  repos/r");
    EXPECT_EQ(remotes.string("mirror"), "https://a.example/r");

    auto urls = VNGitRefsParser::parseRemoteUrls(output);
    ASSERT_EQ(urls.size(), 3u);
    EXPECT_EQ(urls[0].fetchUrl, "https://example.com/r.git");
    EXPECT_EQ(urls[0].pushUrls, (std::vector<std::string>{"ssh://git@example.com/r.git"}));
    // Several push URLs, one of them ending like a marker.
    EXPECT_EQ(urls[2].pushUrls,
              (std::vector<std::string>{"https://a.example/r", "https://b.example/r (fetch)"}));

    auto paths = VNGitRefsParser::parseRemotePaths(output);
    ASSERT_EQ(paths.size(), 3u);
    EXPECT_EQ(paths[0].string("name"), "origin");
    EXPECT_EQ(paths[0].string("path"), "https://example.com/r.git");
    // Here the path is kept exactly, because it is written back.
    EXPECT_EQ(paths[1].string("path"), "/srv/my  repos/r");
}

TEST(VNGitRefsParserTest, LsRemoteHeads) {
    std::string output =
        "1111111111111111111111111111111111111111\tHEAD\n"
        "1111111111111111111111111111111111111111\trefs/heads/main\n"
        "2222222222222222222222222222222222222222\trefs/heads/feature/x\n"
        "2222222222222222222222222222222222222222\trefs/tags/v1\n"
        "3333333333333333333333333333333333333333\trefs/heads/main\n"
        "warning: something odd\n";
    EXPECT_EQ(VNGitRefsParser::parseLsRemoteHeads(output),
              (std::vector<std::string>{"main", "feature/x"}));
}

TEST(VNGitRefsParserTest, StashList) {
    auto stashes = VNGitRefsParser::parseStashList("stash@{0}" + S + "On main: keep " + S +
                                                   " this\nstash@{1}" + S +
                                                   "WIP on topic: 1a2b3c4 subject\nbroken\n");
    ASSERT_EQ(stashes.size(), 2u);
    EXPECT_EQ(stashes[0].string("name"), "stash@{0}");
    EXPECT_EQ(stashes[0].string("msg"), "On main: keep " + S + " this");
    EXPECT_EQ(stashes[1].string("msg"), "WIP on topic: 1a2b3c4 subject");
}

TEST(VNGitRefsParserTest, RefLabels) {
    std::string c1(40, '1'), c2(40, '2'), tagObject(40, 't');
    std::string output =
        "*" + N + "refs/heads/main" + N + c1 + N + "" + N + "\n" + " " + N + "refs/heads/Zeta" + N +
        c2 + N + "" + N + "\n" + " " + N + "refs/tags/annotated" + N + tagObject + N + c1 + N +
        "\n" + " " + N + "refs/tags/light" + N + c2 + N + "" + N + "\n" + " " + N +
        "refs/remotes/origin/HEAD" + N + c1 + N + "" + N + "refs/remotes/origin/main\n" + " " + N +
        "refs/remotes/origin/main" + N + c1 + N + "" + N + "\n" + " " + N + "refs/stash" + N + c2 +
        S + "" + N + "\n";
    auto labels = VNGitRefsParser::parseRefLabels(output, true);
    ASSERT_EQ(labels.size(), 5u);
    EXPECT_EQ(labels[0]->label(), "main");
    EXPECT_TRUE(labels[0]->currentMarker());
    EXPECT_EQ(labels[0]->ref(), "refs/heads/main");
    EXPECT_EQ(labels[1]->label(), "Zeta");
    EXPECT_FALSE(labels[1]->currentMarker());
    // An annotated tag labels the commit it points at, not the tag object.
    EXPECT_EQ(labels[2]->label(), "annotated");
    EXPECT_EQ(labels[2]->type(), VNLogLabel::Tag);
    EXPECT_EQ(labels[2]->commitSHA(), c1);
    EXPECT_EQ(labels[3]->commitSHA(), c2);
    EXPECT_EQ(labels[4]->label(), "origin/main");
    EXPECT_EQ(labels[4]->type(), VNLogLabel::RemoteBranch);
    EXPECT_EQ(VNGitRefsParser::parseRefLabels(output, false).size(), 4u);
}

const char* const QueriedShow =
    "* remote origin\n"
    "  Fetch URL: file:///srv/up.git\n"
    "  Push  URL: ssh://host/up.git\n"
    "  HEAD branch: main\n"
    "  Remote branches:\n"
    "    feature tracked\n"
    "    main    tracked\n"
    "    next    new (next fetch will store in remotes/origin)\n"
    "    refs/remotes/origin/old stale (use 'git remote prune' to remove)\n"
    "  Local branches configured for 'git pull':\n"
    "    feat   merges with remote feature\n"
    "           and with remote next\n"
    "    main   rebases onto remote main\n"
    "    topic  rebases interactively onto remote topic\n"
    "  Local refs configured for 'git push':\n"
    "    feat   forces to review/feat   (create)\n"
    "    main   pushes to prod          (up to date)\n"
    "    main   forces to review/main   (create)\n";

const char* const UnqueriedShow =
    "* remote origin\r\n"
    "  Fetch URL: /srv/my repos/up\r\n"
    "  Push  URL: /srv/my repos/up\r\n"
    "  HEAD branch: (not queried)\r\n"
    "  Remote branches: (status not queried)\r\n"
    "    feature\r\n"
    "    main\r\n"
    "  Local branch configured for 'git pull':\r\n"
    "    main merges with remote main\r\n"
    "  Local ref configured for 'git push' (status not queried):\r\n"
    "    (matching) pushes to (matching)\r\n";

TEST(VNGitRefsParserTest, RemoteShowQueried) {
    auto show = VNGitRefsParser::parseRemoteShow(QueriedShow);
    EXPECT_EQ(show.fetchUrl, "file:///srv/up.git");
    EXPECT_EQ(show.pushUrl, "ssh://host/up.git");
    EXPECT_EQ(show.headBranch, "main");
    // A stale branch is no longer on the remote.
    EXPECT_EQ(show.remoteBranches, (std::vector<std::string>{"feature", "main", "next"}));
    EXPECT_EQ(show.pull, (std::vector<std::pair<std::string, std::string>>{
                             {"feat", "feature"}, {"main", "main"}, {"topic", "topic"}}));
    EXPECT_EQ(show.push, (std::vector<std::pair<std::string, std::string>>{
                             {"feat", "review/feat"}, {"main", "prod"}, {"main", "review/main"}}));
    EXPECT_FALSE(show.pushMatching);
}

TEST(VNGitRefsParserTest, RemoteShowNotQueried) {
    auto show = VNGitRefsParser::parseRemoteShow(UnqueriedShow);
    EXPECT_EQ(show.fetchUrl, "/srv/my repos/up");
    EXPECT_EQ(show.headBranch, "");
    EXPECT_EQ(show.remoteBranches, (std::vector<std::string>{"feature", "main"}));
    EXPECT_EQ(show.pull, (std::vector<std::pair<std::string, std::string>>{{"main", "main"}}));
    EXPECT_EQ(show.push, (std::vector<std::pair<std::string, std::string>>{{"*", "*"}}));
    EXPECT_TRUE(show.pushMatching);

    auto patterns = VNGitRefsParser::parseRemoteShow(
        "  Local refs configured for 'git push' (status not queried):\n"
        "    refs/heads/*      forces to refs/heads/review/*\n"
        "    refs/heads/master pushes to refs/heads/prod\n"
        "    (delete)          pushes to refs/heads/gone\n"
        "  HEAD branch (remote HEAD is ambiguous, may be one of the following):\n"
        "    main\n");
    EXPECT_EQ(patterns.push, (std::vector<std::pair<std::string, std::string>>{
                                 {"*", "review/*"}, {"master", "prod"}}));
    EXPECT_TRUE(patterns.remoteBranches.empty());
    EXPECT_EQ(patterns.headBranch, "");
}

TEST(VNGitRefsParserTest, PushSettingsFromConfig) {
    std::string config =
        "core.bare\nfalse\0"s
        "remote.origin.url\n/srv/up\0"s
        "remote.my.fork.url\nhttps://x/fork\0"s
        "remote.my.fork.push\nrefs/heads/*\0"s
        "remote.my.fork.mirror\0"s
        "push.default\nUpstream\0"s
        "push.autosetupremote\nyes\0"s
        "branch.release/1.0.remote\norigin\0"s
        "branch.release/1.0.merge\nrefs/heads/release/1.0\0"s
        "branch.Other.merge\nrefs/heads/x\0"s;
    auto settings = VNGitRefsParser::pushSettingsFromConfig(config, "my.fork", "release/1.0");
    EXPECT_EQ(settings.remotes, (std::vector<std::string>{"my.fork", "origin"}));
    EXPECT_EQ(settings.pushDefault, "Upstream");
    EXPECT_TRUE(settings.autoSetupRemote);
    EXPECT_TRUE(settings.hasPushRefspecs);
    EXPECT_TRUE(settings.mirror);
    EXPECT_EQ(settings.currentBranchRemote, "origin");
    EXPECT_EQ(settings.currentBranchMerge, "refs/heads/release/1.0");
    EXPECT_FALSE(settings.severalMerges);

    auto origin = VNGitRefsParser::pushSettingsFromConfig(
        config + "branch.release/1.0.merge\nrefs/heads/other\0"s + "push.autosetupremote\n0\0"s,
        "origin", "release/1.0");
    EXPECT_FALSE(origin.hasPushRefspecs);
    EXPECT_FALSE(origin.mirror);
    EXPECT_TRUE(origin.severalMerges);
    EXPECT_FALSE(origin.autoSetupRemote);
}

TEST(VNGitRefsParserTest, PushMappingFollowsGitsPushRules) {
    VNGitRefsParser::RemoteShow matchingShow = VNGitRefsParser::parseRemoteShow(UnqueriedShow);
    struct Case {
        const char* name;
        std::string pushDefault;
        std::string current;
        std::string branchRemote;
        std::string merge;
        std::vector<std::string> remotes;
        bool autoSetup;
        Pairs expected;
    };
    const std::vector<std::string> one = {"origin"};
    const std::vector<std::string> two = {"fork", "origin"};
    const Case cases[] = {
        {"simple: upstream of the same name",
         "",
         "main",
         "origin",
         "refs/heads/main",
         one,
         false,
         {{"main", "main"}}},
        {"simple spelled out",
         "simple",
         "main",
         "origin",
         "refs/heads/main",
         one,
         false,
         {{"main", "main"}}},
        {"simple: upstream of another name is refused",
         "",
         "topic",
         "origin",
         "refs/heads/main",
         one,
         false,
         {}},
        {"simple: no upstream, the only remote is the branch's",
         "",
         "topic",
         "",
         "",
         one,
         false,
         {}},
        {"simple: no upstream, auto set-up pushes it",
         "",
         "topic",
         "",
         "",
         one,
         true,
         {{"topic", "topic"}}},
        {"simple: branch belongs to another remote",
         "",
         "topic",
         "fork",
         "refs/heads/t",
         two,
         false,
         {{"topic", "topic"}}},
        {"simple: several remotes, no origin among them is the branch's",
         "",
         "topic",
         "",
         "",
         {"a", "origin"},
         false,
         {}},
        {"current",
         "current",
         "topic",
         "origin",
         "refs/heads/main",
         one,
         false,
         {{"topic", "topic"}}},
        {"upstream",
         "upstream",
         "topic",
         "origin",
         "refs/heads/main",
         one,
         false,
         {{"topic", "main"}}},
        {"tracking is upstream",
         "tracking",
         "topic",
         "origin",
         "refs/heads/main",
         one,
         false,
         {{"topic", "main"}}},
        {"upstream on another remote is refused",
         "upstream",
         "topic",
         "fork",
         "refs/heads/main",
         two,
         false,
         {}},
        {"upstream without one is refused", "upstream", "topic", "origin", "", one, false, {}},
        {"nothing", "nothing", "main", "origin", "refs/heads/main", one, false, {}},
        {"matching: branches on both sides",
         "matching",
         "main",
         "origin",
         "refs/heads/main",
         one,
         false,
         {{"main", "main"}, {"feature", "feature"}}},
        {"detached HEAD", "", "", "", "", one, false, {}},
        {"case of the setting", "CURRENT", "topic", "", "", one, false, {{"topic", "topic"}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        VNGitRemoteInfo info("origin");
        info.setRemoteBranches({"feature", "main"});
        VNGitRefsParser::PushSettings settings;
        settings.remote = "origin";
        settings.pushDefault = c.pushDefault;
        settings.currentBranch = c.current;
        settings.currentBranchRemote = c.branchRemote;
        settings.currentBranchMerge = c.merge;
        settings.remotes = c.remotes;
        settings.autoSetupRemote = c.autoSetup;
        settings.localBranches = {"feature", "main", "topic"};
        VNGitRefsParser::completePushMapping(info, matchingShow, settings);
        EXPECT_EQ(info.localToRemoteBranchPush(), c.expected);
    }
}

TEST(VNGitRefsParserTest, PushMappingFromRefspecsExpandsPatterns) {
    VNGitRemoteInfo info("origin");
    info.setRemoteBranches({"main"});
    VNGitRefsParser::PushSettings settings;
    settings.remote = "origin";
    settings.hasPushRefspecs = true;
    settings.currentBranch = "main";
    settings.localBranches = {"feature/a", "main", "topic"};

    VNGitRefsParser::RemoteShow show;
    show.push = {{"*", "review/*"}, {"main", "prod"}, {"feature/*", "f/*"}};
    VNGitRefsParser::completePushMapping(info, show, settings);
    // A branch named outright keeps its own target; the first pattern covering a branch wins.
    EXPECT_EQ(
        info.localToRemoteBranchPush(),
        (Pairs{{"feature/a", "review/feature/a"}, {"main", "prod"}, {"topic", "review/topic"}}));

    // An explicit ":" refspec is matching: only branches the remote has.
    VNGitRefsParser::completePushMapping(info, VNGitRefsParser::parseRemoteShow(UnqueriedShow),
                                         settings);
    EXPECT_EQ(info.localToRemoteBranchPush(), (Pairs{{"main", "main"}}));

    settings.mirror = true;
    VNGitRefsParser::completePushMapping(info, show, settings);
    EXPECT_EQ(info.localToRemoteBranchPush(),
              (Pairs{{"feature/a", "feature/a"}, {"main", "main"}, {"topic", "topic"}}));
}

}  // namespace

namespace {

TEST(VNGitRefsParserTest, BranchRefsFields) {
    auto line = [](const std::string& head, const std::string& ref, const std::string& upstream,
                   const std::string& track) {
        return head + N + ref + N + upstream + N + track + "\n";
    };
    std::string output =
        line("*", "refs/heads/main", "refs/remotes/origin/main", "ahead 2, behind 7") +
        line(" ", "refs/heads/ahead", "refs/remotes/up/stream/x", "ahead 3") +
        line(" ", "refs/heads/behind", "refs/remotes/origin/behind", "behind 4") +
        line(" ", "refs/heads/gone", "refs/remotes/origin/gone", "gone") +
        line(" ", "refs/heads/local", "refs/heads/main", "ahead 1") +
        line(" ", "refs/heads/feature/x", "refs/heads/main", "") +
        // A subject never reaches these fields; a branch without upstream has none.
        line(" ", "refs/heads/[origin/fake: ahead 99, behind 7]", "", "") +
        line(" ", "refs/heads/same", "refs/remotes/origin/same", "") + "garbage\n" +
        line(" ", "refs/tags/not-a-branch", "", "");
    auto branches = VNGitRefsParser::parseBranchRefs(output);
    ASSERT_EQ(branches.size(), 8u);
    EXPECT_TRUE(branches[0].current);
    EXPECT_EQ(branches[0].upstream, "origin/main");
    EXPECT_EQ(branches[6].name, "[origin/fake: ahead 99, behind 7]");
    EXPECT_EQ(branches[6].upstream, "");

    vn::Record counts = VNGitRefsParser::aheadBehindFromBranchRefs(output);
    EXPECT_EQ(counts.keys(), (std::vector<std::string>{"main", "ahead", "behind", "local"}));
    EXPECT_EQ(counts["main"], vn::Value(vn::Value::Array{2, 7}));
    EXPECT_EQ(counts["ahead"], vn::Value(vn::Value::Array{3, 0}));
    EXPECT_EQ(counts["behind"], vn::Value(vn::Value::Array{0, 4}));

    vn::Record tracking = VNGitRefsParser::trackingBranchesFromBranchRefs(output);
    EXPECT_EQ(tracking.keys(),
              (std::vector<std::string>{"main", "ahead", "behind", "gone", "same"}));
    EXPECT_EQ(tracking.string("ahead"), "up/stream/x");
}

}  // namespace

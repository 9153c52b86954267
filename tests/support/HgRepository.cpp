#include "support/HgRepository.h"

#include <gtest/gtest.h>

#include "handler/VNTask.h"
#include "platform/FileSystem.h"

namespace vn::test {

namespace {

std::string trimmedLine(std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r' || text.back() == ' ')) {
        text.pop_back();
    }
    return text;
}

}  // namespace

std::string runHg(const std::string& folder, const std::vector<std::string>& args, bool* ok,
                  std::string* errorOutput) {
    std::string hg = fs::findExecutable("hg").value_or("hg");
    auto task = VNTask::taskWithCommand(hg, folder, args);
    // Only the test configuration: the engine's own HGRCPATH would bring in the home folder's
    // configuration, which some tests make hostile on purpose.
    task->setEnvironmentCustomisations(Environment{
        {"HGRCPATH", fs::appendPathComponent(sandboxPath(), "hgrc")},
        {"HGPLAIN", "1"},
        {"HGPLAINEXCEPT", ""},
        {"HGUSER", "Test User <test@example.com>"},
    });
    task->run();
    if (ok) {
        *ok = task->success();
    } else if (!task->success()) {
        ADD_FAILURE() << "hg " << ::testing::PrintToString(args) << " failed (" << task->exitCode()
                      << "): " << task->errorOutput();
    }
    if (errorOutput) {
        *errorOutput = task->errorOutput();
    }
    return task->output();
}

HgRepository::HgRepository() : dir_(std::make_unique<TempDir>("varnel-hg")) {
    path_ = dir_->path();
    hg({"init", "."});
}

HgRepository::HgRepository(std::string existingPath) : path_(std::move(existingPath)) {}

std::string HgRepository::file(const std::string& relative) const {
    return fs::appendPathComponent(path_, relative);
}

std::string HgRepository::hg(const std::vector<std::string>& args) {
    return runHg(path_, args);
}

bool HgRepository::tryHg(const std::vector<std::string>& args, std::string* output) {
    bool ok = false;
    std::string out = runHg(path_, args, &ok);
    if (output) {
        *output = out;
    }
    return ok;
}

void HgRepository::write(const std::string& relative, const std::string& contents) {
    writeFile(file(relative), contents);
}

std::string HgRepository::commitFile(const std::string& relative, const std::string& contents,
                                     const std::string& message) {
    write(relative, contents);
    hg({"add", "--", relative});
    return commit(message);
}

std::string HgRepository::commit(const std::string& message,
                                 const std::vector<std::string>& extra) {
    int minute = commits_++;
    std::string date = "2024-01-02 " + std::to_string(3 + minute / 60) + ":" +
                       std::to_string(minute % 60) + ":05 +0000";
    std::vector<std::string> args{"commit", "-m", message, "-d", date};
    args.insert(args.end(), extra.begin(), extra.end());
    hg(args);
    return trimmedLine(hg({"log", "-r", ".", "--template", "{rev}"}));
}

int writeHostileHgConfig(const std::string& home) {
    const char* settings =
        "[alias]\n"
        "log = log --graph -v --stat\n"
        "status = status --all --print0\n"
        "summary = summary --remote\n"
        "tags = tags -v\n"
        "branches = branches -a\n"
        "heads = heads --topo -v\n"
        "bookmarks = bookmarks -v\n"
        "blame = blame -d -f\n"
        "annotate = annotate -d -f\n"
        "diff = diff --stat\n"
        "resolve = resolve --all -n\n"
        "parents = parents -v\n"
        "cat = cat -v\n"
        "[defaults]\n"
        "log = -l 1 --graph\n"
        "status = -n\n"
        "diff = -U 0 --reverse\n"
        "blame = -q\n"
        "tags = -q\n"
        "[ui]\n"
        "verbose = True\n"
        "quiet = True\n"
        "debug = False\n"
        "logtemplate = {rev} XX {desc}\\n\n"
        "style = compact\n"
        "statuscopies = False\n"
        "tweakdefaults = True\n"
        "relative-paths = True\n"
        "color = always\n"
        "paginate = always\n"
        "[pager]\n"
        "pager = sed s/^/PAGED:/\n"
        "[color]\n"
        "mode = ansi\n"
        "[commands]\n"
        "status.relative = True\n"
        "status.terse = u\n"
        "status.verbose = True\n"
        "[diff]\n"
        "git = False\n"
        "noprefix = True\n"
        "showfunc = True\n"
        "nodates = True\n"
        "unified = 0\n"
        "[extensions]\n"
        "color =\n"
        "pager =\n";
    writeFile(fs::appendPathComponent(home, ".hgrc"), settings);
    int count = 0;
    for (const char* c = settings; *c; ++c) {
        count += *c == '=' ? 1 : 0;
    }
    return count;
}

}  // namespace vn::test

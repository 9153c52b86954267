#include "handler/ToolCheck.h"

#include <functional>

#include "handler/ToolPaths.h"
#include "handler/VNTask.h"
#include "platform/FileSystem.h"
#include "platform/Preferences.h"
#include "platform/WorkQueue.h"

namespace vn {

namespace {

struct ToolProbe {
    const char* name;
    std::function<std::string()> path;
    std::function<std::string()> source;
    std::vector<std::string> versionArgs;
};

std::string whichOneSource(const char* key) {
    return Preferences::standard().integerForKey(key) == 0 ? "shipped" : "custom";
}

std::string firstLine(const std::string& text) {
    std::size_t start = text.find_first_not_of(" \t\r\n");
    if (start == std::string::npos) {
        return "";
    }
    std::size_t end = text.find_first_of("\r\n", start);
    return text.substr(start, end == std::string::npos ? std::string::npos : end - start);
}

Record check(const ToolProbe& tool) {
    std::string path = tool.path();
    std::string source = tool.source();
    Record record{{"name", tool.name}, {"path", path}, {"source", source}, {"version", nullptr}};
    if (path.empty() || !fs::isExecutableFile(path)) {
        record.set("missing", true);
        std::string note = path.empty() ? "not configured" : "not found at this path";
        if (std::string_view(tool.name) == "gpg2") {
            note = path.empty() ? "no folder set in the preference gpgProgram" : note;
        }
        record.set("note", note);
        return record;
    }
    auto task = VNTask::taskWithCommand(path, fs::homeDirectory(), tool.versionArgs);
    task->run();
    std::string version = firstLine(task->output().empty() ? task->errorOutput() : task->output());
    if (!task->success() && version.empty()) {
        record.set("missing", true);
        record.set("note", "does not run: " + firstLine(task->errorOutput()));
        return record;
    }
    record.set("version", version);
    record.set("missing", false);
    record.set("note", "");
    return record;
}

std::function<std::string()> onPath(const char* name) {
    return [name] { return fs::findExecutable(name).value_or(""); };
}

}  // namespace

std::vector<Record> checkTools() {
    const std::vector<ToolProbe> probes = {
        {"git", ToolPaths::gitPath, [] { return whichOneSource("gitWhichOne"); }, {"--version"}},
        {"hg",
         ToolPaths::hgPath,
         [] {
             Preferences& p = Preferences::standard();
             return p.integerForKey("mercurialWhichOne") != 0 &&
                            !p.stringForKey("mercurialCustomPath").empty()
                        ? "custom"
                        : "shipped";
         },
         {"--version"}},
        {"git-flow",
         ToolPaths::gitFlowPath,
         [] { return whichOneSource("gitFlowWhichOne"); },
         {"version"}},
        {"git-lfs",
         ToolPaths::gitLfsPath,
         [] { return whichOneSource("gitLfsWhichOne"); },
         {"version"}},
        {"svn",
         ToolPaths::svnPath,
         [] {
             return Preferences::standard().stringForKey("svnCustomPath").empty() ? "system"
                                                                                  : "custom";
         },
         {"--version", "--quiet"}},
        {"gpg2",
         ToolPaths::gpgPath,
         [] {
             return Preferences::standard().stringForKey("gpgProgram").empty() ? "none" : "custom";
         },
         {"--version"}},
        {"patch", onPath("patch"), [] { return std::string("system"); }, {"--version"}},
        {"file", onPath("file"), [] { return std::string("system"); }, {"--version"}},
    };
    std::vector<Record> results(probes.size());
    WorkGroup group;
    for (std::size_t i = 0; i < probes.size(); ++i) {
        WorkQueue::global().async(group, [&, i] { results[i] = check(probes[i]); });
    }
    group.wait();
    return results;
}

}  // namespace vn

#include "handler/ToolPaths.h"

#include "platform/FileSystem.h"
#include "platform/Preferences.h"
#include "platform/Resources.h"

namespace vn {

namespace {

std::string chosen(const char* whichOneKey, const char* customKey, const char* shipped) {
    Preferences& prefs = Preferences::standard();
    if (prefs.integerForKey(whichOneKey) == 0) {
        return Resources::pathFor(shipped);
    }
    return prefs.stringForKey(customKey);
}

}  // namespace

std::string ToolPaths::gitPath() {
    return chosen("gitWhichOne", "gitCustomPath", "git_local/bin/git");
}

std::string ToolPaths::gitFlowPath() {
    return chosen("gitFlowWhichOne", "gitFlowCustomPath", "git_local/gitflow/git-flow");
}

std::string ToolPaths::gitLfsPath() {
    return chosen("gitLfsWhichOne", "gitLfsCustomPath", "git_local/git-lfs/git-lfs");
}

std::string ToolPaths::hgPath() {
    Preferences& prefs = Preferences::standard();
    std::string custom = prefs.stringForKey("mercurialCustomPath");
    if (prefs.integerForKey("mercurialWhichOne") != 0 && !custom.empty()) {
        return custom;
    }
    return Resources::pathFor("mercurial_local/hg_local");
}

std::string ToolPaths::svnPath() {
    std::string custom = Preferences::standard().stringForKey("svnCustomPath");
    if (!custom.empty()) {
        return custom;
    }
    return fs::findExecutable("svn").value_or("/usr/bin/svn");
}

std::string ToolPaths::gpgPath() {
    std::string folder = Preferences::standard().stringForKey("gpgProgram");
    if (folder.empty()) {
        return "";
    }
    return fs::appendPathComponent(folder, "gpg2");
}

std::string ToolPaths::askpassPath() {
    return Resources::pathFor("bin/VarnelLogin");
}

}  // namespace vn

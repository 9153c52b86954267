#include "support/BenchEnvironment.h"

#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <utility>

#include "platform/Process.h"

namespace vn::bench {

namespace {
std::string gScratch;
}  // namespace

const std::string& scratchFolder() {
    return gScratch;
}

bool isolateEnvironment() {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/varnel-bench.XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) {
        std::perror("mkdtemp");
        return false;
    }
    gScratch = pattern;
    const std::pair<const char*, const char*> folders[] = {
        {"HOME", "home"}, {"XDG_CONFIG_HOME", "config"}, {"XDG_DATA_HOME", "data"}};
    for (const auto& [variable, name] : folders) {
        std::string path = pattern + "/" + name;
        std::filesystem::create_directories(path);
        ::setenv(variable, path.c_str(), 1);
    }
    ::setenv("GIT_CONFIG_NOSYSTEM", "1", 1);
    ::setenv("GIT_AUTHOR_NAME", "Bench", 1);
    ::setenv("GIT_COMMITTER_NAME", "Bench", 1);
    ::setenv("GIT_AUTHOR_EMAIL", "bench@example.com", 1);
    ::setenv("GIT_COMMITTER_EMAIL", "bench@example.com", 1);
    if (!std::getenv("VARNEL_RESOURCES")) {
        // The executable lives in the build's bin/, beside share/varnel/resources.
        std::error_code ec;
        std::filesystem::path exe = std::filesystem::read_symlink("/proc/self/exe", ec);
        if (!ec) {
            std::filesystem::path resources =
                exe.parent_path().parent_path() / "share" / "varnel" / "resources";
            ::setenv("VARNEL_RESOURCES", resources.c_str(), 1);
        }
    }
    vn::Process::setMayStartSession(false);
    return true;
}

void removeScratchFolder() {
    if (!gScratch.empty()) {
        std::error_code ec;
        std::filesystem::remove_all(gScratch, ec);
    }
}

}  // namespace vn::bench

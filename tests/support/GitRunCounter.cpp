#include "support/GitRunCounter.h"

#include <filesystem>

#include "platform/FileSystem.h"
#include "platform/Preferences.h"

namespace vn::test {

GitRunCounter::GitRunCounter() : tools_("varnel-git-counter"), log_(tools_.path() + "/runs") {
    std::string realGit = vn::fs::findExecutable("git").value_or("/usr/bin/git");
    std::string wrapper =
        writeScript(tools_.path(), "git",
                    "printf '%s\\n' \"$*\" >> '" + log_ + "'\nexec '" + realGit + "' \"$@\"\n");
    auto& prefs = vn::Preferences::standard();
    prefs.set("gitWhichOne", 1);
    prefs.set("gitCustomPath", wrapper);
}

GitRunCounter::~GitRunCounter() {
    auto& prefs = vn::Preferences::standard();
    prefs.remove("gitWhichOne");
    prefs.remove("gitCustomPath");
}

int GitRunCounter::runsWith(const std::string& words) const {
    std::string text = runs();
    int count = 0;
    for (std::size_t at = 0; (at = text.find(words, at)) != std::string::npos; ++at) {
        ++count;
    }
    return count;
}

std::string GitRunCounter::runs() const {
    return readFile(log_);
}

void GitRunCounter::clear() {
    std::error_code ignored;
    std::filesystem::remove(log_, ignored);
}

}  // namespace vn::test

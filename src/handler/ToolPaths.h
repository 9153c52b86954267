#pragma once

#include <string>

namespace vn {

// Where the tools the engine drives are, as the preferences choose them: 0 in a "WhichOne" key
// means the copy in the resources, anything else the matching "CustomPath" as stored.
struct ToolPaths {
    static std::string gitPath();
    static std::string gitFlowPath();
    static std::string gitLfsPath();
    // The custom Mercurial only when one is stored; else the shipped one.
    static std::string hgPath();
    // "svnCustomPath" when set, else the svn found on PATH.
    static std::string svnPath();
    // "gpg2" in the folder of the "gpgProgram" preference; empty without that preference.
    static std::string gpgPath();
    // The password-prompt companion given to git and ssh as SSH_ASKPASS.
    static std::string askpassPath();
};

}  // namespace vn

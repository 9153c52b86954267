#pragma once

#include <string>
#include <string_view>

namespace vn {

// The folder installed beside the binaries: companions in bin/, strings/, the shipped tools.
class Resources {
  public:
    // $VARNEL_RESOURCES when set, else share/varnel/resources beside the running executable's
    // folder (the same in the build tree and an installation).
    static std::string path();
    static std::string pathFor(std::string_view relative);
    // For tests and front ends that know better; an empty text returns to the default rule.
    static void setPathOverride(std::string path);
    // The folder of the running executable (where vrnl finds varnel).
    static std::string executableFolder();
};

// The application's data folder, $XDG_DATA_HOME/varnel (created on first use).
class AppData {
  public:
    static std::string path();
    static std::string pathFor(std::string_view relative);
};

}  // namespace vn

#include "platform/Preferences.h"

#include <cstdlib>

#include "base/Json.h"
#include "platform/FileSystem.h"
#include "platform/Log.h"

namespace vn {

namespace {

std::string configFolder() {
    if (const char* xdg = std::getenv("XDG_CONFIG_HOME"); xdg && *xdg == '/') {
        return fs::appendPathComponent(xdg, "varnel");
    }
    return fs::appendPathComponent(fs::homeDirectory(), ".config/varnel");
}

}  // namespace

const Record& Preferences::defaults() {
    // 0 in a "WhichOne" key means the tool shipped in the resources; anything else the
    // matching "CustomPath".
    static const Record table{
        {"gitWhichOne", 0},          {"gitCustomPath", ""},         {"gitFlowWhichOne", 0},
        {"gitFlowCustomPath", ""},   {"gitLfsWhichOne", 0},         {"gitLfsCustomPath", ""},
        {"mercurialWhichOne", 0},    {"mercurialCustomPath", ""},   {"svnCustomPath", ""},
        {"gpgProgram", ""},          {"gitDisableSSLCheck", false}, {"gitLogUseAuthorDate", false},
        {"fileStatusFilterMode", 0}, {"logLevel", "warning"},
    };
    return table;
}

Preferences& Preferences::standard() {
    static Preferences instance;
    return instance;
}

Preferences::Preferences() {
    reload();
}

std::string Preferences::filePath() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return path_;
}

void Preferences::reload() {
    std::string path = fs::appendPathComponent(configFolder(), "preferences.json");
    Record stored;
    if (auto text = fs::readFile(path)) {
        std::string error;
        auto value = parseJson(*text, &error);
        if (value && value->record()) {
            stored = *value->record();
        } else {
            // Logged without touching the file: the user may want to repair it by hand.
            Log::warning("Preferences file " + path + " is not a JSON object: " + error);
        }
    }
    std::lock_guard<std::mutex> lock(mutex_);
    path_ = std::move(path);
    stored_ = std::move(stored);
}

Value Preferences::valueForKey(std::string_view key) const {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (const Value* v = stored_.find(key)) {
            return *v;
        }
    }
    return defaults()[key];
}

bool Preferences::hasStoredValue(std::string_view key) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return stored_.contains(key);
}

bool Preferences::set(std::string_view key, Value value) {
    std::lock_guard<std::mutex> lock(mutex_);
    stored_.set(key, std::move(value));
    return save();
}

bool Preferences::remove(std::string_view key) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!stored_.remove(key)) {
        return true;
    }
    return save();
}

bool Preferences::save() {
    std::string folder = fs::deletingLastPathComponent(path_);
    std::string error;
    if (!fs::makeDirectories(folder, 0700) ||
        !fs::writeFileAtomically(path_, toJson(Value(stored_), true) + "\n", &error, 0600)) {
        Log::error("Cannot save preferences to " + path_ + ": " + error);
        return false;
    }
    return true;
}

}  // namespace vn

#include "platform/Localized.h"

#include <mutex>

#include "base/Json.h"
#include "base/Record.h"
#include "platform/FileSystem.h"
#include "platform/Log.h"
#include "platform/Resources.h"

namespace vn {

namespace {

std::mutex gMutex;
bool gLoaded = false;
Record gTable;

}  // namespace

std::string localized(std::string_view key) {
    std::lock_guard<std::mutex> lock(gMutex);
    if (!gLoaded) {
        gLoaded = true;
        std::string path = Resources::pathFor("strings/en.json");
        auto text = fs::readFile(path);
        auto value = text ? parseJson(*text) : std::nullopt;
        if (value && value->record()) {
            gTable = *value->record();
        } else {
            Log::warning("String table " + path + " is missing or unreadable");
        }
    }
    const Value* v = gTable.find(key);
    return v && v->isString() ? *v->string() : std::string(key);
}

void reloadLocalizedStrings() {
    std::lock_guard<std::mutex> lock(gMutex);
    gLoaded = false;
    gTable = Record();
}

}  // namespace vn

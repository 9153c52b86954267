#include "platform/FileCredentialStore.h"

#include "base/Json.h"
#include "base/Record.h"
#include "platform/FileSystem.h"
#include "platform/Log.h"
#include "platform/Resources.h"

namespace vn {

FileCredentialStore::FileCredentialStore(std::string path) : path_(std::move(path)) {}

std::string FileCredentialStore::defaultPath() {
    return AppData::pathFor("credentials.json");
}

std::optional<std::vector<FileCredentialStore::Entry>> FileCredentialStore::load() const {
    std::vector<Entry> entries;
    if (!fs::exists(path_)) {
        return entries;
    }
    auto text = fs::readFile(path_);
    if (!text) {
        Log::warning("Credential store " + path_ + " cannot be read");
        return std::nullopt;
    }
    auto value = parseJson(*text);
    const Record* root = value ? value->record() : nullptr;
    const Value::Array* list = root ? (*root)["entries"].array() : nullptr;
    if (!list) {
        // The file is left as it is: it may hold passwords the user can still recover.
        Log::warning("Credential store " + path_ + " is not in the expected form; left unchanged");
        return std::nullopt;
    }
    for (const Value& item : *list) {
        if (const Record* record = item.record()) {
            entries.push_back(Entry{record->string("service"), record->string("user"),
                                    record->string("password")});
        }
    }
    return entries;
}

bool FileCredentialStore::save(const std::vector<Entry>& entries) const {
    Value::Array list;
    for (const Entry& entry : entries) {
        list.push_back(
            Record{{"service", entry.service}, {"user", entry.user}, {"password", entry.password}});
    }
    Record root{{"version", 1}, {"entries", std::move(list)}};
    fs::makeDirectories(fs::deletingLastPathComponent(path_), 0700);
    std::string error;
    if (!fs::writeFileAtomically(path_, toJson(root, true), &error, 0600)) {
        Log::error("Credential store not saved: " + error);
        return false;
    }
    return true;
}

std::optional<std::string> FileCredentialStore::passwordForURL(std::string_view url,
                                                               std::string_view user) {
    auto credential = credentialForURL(url, user);
    if (!credential) {
        return std::nullopt;
    }
    return std::move(credential->password);
}

std::optional<CredentialStore::StoredCredential> FileCredentialStore::credentialForURL(
    std::string_view url, std::string_view user) {
    auto address = RemoteAddress::parse(url);
    if (!address) {
        return std::nullopt;
    }
    std::string wanted = user.empty() ? address->user : std::string(user);
    std::lock_guard<std::mutex> lock(mutex_);
    auto entries = load();
    if (!entries) {
        return std::nullopt;
    }
    for (const Entry& entry : *entries) {
        if (entry.service == address->service() && (wanted.empty() || entry.user == wanted)) {
            return StoredCredential{entry.user, entry.password};
        }
    }
    return std::nullopt;
}

bool FileCredentialStore::setPasswordForURL(std::string_view url, std::string_view user,
                                            std::string_view password) {
    auto address = RemoteAddress::parse(url);
    if (!address) {
        return false;
    }
    std::string account = user.empty() ? address->user : std::string(user);
    std::lock_guard<std::mutex> lock(mutex_);
    auto entries = load();
    if (!entries) {
        return false;
    }
    bool replaced = false;
    for (Entry& entry : *entries) {
        if (entry.service == address->service() && entry.user == account) {
            entry.password = std::string(password);
            replaced = true;
        }
    }
    if (!replaced) {
        entries->push_back(Entry{address->service(), account, std::string(password)});
    }
    return save(*entries);
}

std::size_t FileCredentialStore::removePasswordForURL(std::string_view url) {
    auto address = RemoteAddress::parse(url);
    if (!address) {
        return 0;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    auto entries = load();
    if (!entries) {
        return 0;
    }
    std::size_t before = entries->size();
    std::erase_if(*entries, [&](const Entry& entry) {
        return entry.service == address->service() &&
               (address->user.empty() || entry.user == address->user);
    });
    std::size_t removed = before - entries->size();
    if (removed > 0 && !save(*entries)) {
        return 0;
    }
    return removed;
}

}  // namespace vn

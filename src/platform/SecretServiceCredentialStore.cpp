#include "platform/SecretServiceCredentialStore.h"

#include <atomic>
#include <cstdlib>
#include <type_traits>

#include "platform/Log.h"

#ifdef VARNEL_HAVE_LIBSECRET
#include <dlfcn.h>
#include <libsecret/secret.h>
#endif

namespace vn {

#ifdef VARNEL_HAVE_LIBSECRET

namespace {

// libsecret and the GLib stack under it (a dozen libraries) are opened the first time a
// password is looked for, not when the program starts: most commands never need them, and
// loading them costs every start about two milliseconds.
struct SecretLibrary {
    decltype(&::secret_service_get_sync) serviceGet = nullptr;
    decltype(&::secret_service_disconnect) serviceDisconnect = nullptr;
    decltype(&::secret_password_lookup_sync) lookup = nullptr;
    decltype(&::secret_password_search_sync) search = nullptr;
    decltype(&::secret_password_store_sync) store = nullptr;
    decltype(&::secret_password_clear_sync) clear = nullptr;
    decltype(&::secret_password_free) passwordFree = nullptr;
    decltype(&::secret_retrievable_get_attributes) attributes = nullptr;
    decltype(&::secret_retrievable_retrieve_secret_sync) retrieve = nullptr;
    decltype(&::secret_value_get_text) valueText = nullptr;
    decltype(&::secret_value_unref) valueUnref = nullptr;
    decltype(&::g_error_free) errorFree = nullptr;
    decltype(&::g_object_unref) objectUnref = nullptr;
    decltype(&::g_hash_table_lookup) tableLookup = nullptr;
    decltype(&::g_hash_table_unref) tableUnref = nullptr;
    decltype(&::g_list_free_full) listFreeFull = nullptr;

    // The library when it and every function are there; null otherwise (logged once).
    static const SecretLibrary* get() {
        static const SecretLibrary* loaded = load();
        return loaded;
    }
    // The same without opening the library when nothing has needed it yet.
    static const SecretLibrary* ifOpened() { return opened_.load() ? get() : nullptr; }

  private:
    static const SecretLibrary* load() {
        // Kept open for the life of the process: libsecret keeps a connection of its own.
        void* handle = dlopen("libsecret-1.so.0", RTLD_NOW | RTLD_LOCAL);
        if (!handle) {
            Log::warning(std::string("Secret Service not available: ") + dlerror());
            return nullptr;
        }
        static SecretLibrary library;
        bool complete = true;
        auto bind = [&](auto& function, const char* name) {
            function =
                reinterpret_cast<std::remove_reference_t<decltype(function)>>(dlsym(handle, name));
            if (!function) {
                Log::warning(std::string("Secret Service not available: no ") + name);
                complete = false;
            }
        };
        bind(library.serviceGet, "secret_service_get_sync");
        bind(library.serviceDisconnect, "secret_service_disconnect");
        bind(library.lookup, "secret_password_lookup_sync");
        bind(library.search, "secret_password_search_sync");
        bind(library.store, "secret_password_store_sync");
        bind(library.clear, "secret_password_clear_sync");
        bind(library.passwordFree, "secret_password_free");
        bind(library.attributes, "secret_retrievable_get_attributes");
        bind(library.retrieve, "secret_retrievable_retrieve_secret_sync");
        bind(library.valueText, "secret_value_get_text");
        bind(library.valueUnref, "secret_value_unref");
        bind(library.errorFree, "g_error_free");
        bind(library.objectUnref, "g_object_unref");
        bind(library.tableLookup, "g_hash_table_lookup");
        bind(library.tableUnref, "g_hash_table_unref");
        bind(library.listFreeFull, "g_list_free_full");
        opened_ = complete;
        return complete ? &library : nullptr;
    }

    static inline std::atomic<bool> opened_{false};
};

const SecretLibrary& lib() {
    // Every caller below is reached only through a store that `connect` made, which needs the
    // library.
    return *SecretLibrary::get();
}

const SecretSchema* schema() {
    static const SecretSchema value = {
        "org.varnel.RemotePassword",
        SECRET_SCHEMA_NONE,
        {
            {"service", SECRET_SCHEMA_ATTRIBUTE_STRING},
            {"user", SECRET_SCHEMA_ATTRIBUTE_STRING},
            {nullptr, SECRET_SCHEMA_ATTRIBUTE_STRING},
        },
        0,
        nullptr,
        nullptr,
        nullptr,
        nullptr,
        nullptr,
        nullptr,
        nullptr,
    };
    return &value;
}

// Logs the failure's message (never a secret: libsecret reports the bus or the service) and
// frees it.
bool failed(GError* error, const char* what) {
    if (!error) {
        return false;
    }
    Log::warning(std::string("Secret Service ") + what + ": " + error->message);
    lib().errorFree(error);
    return true;
}

}  // namespace

std::shared_ptr<SecretServiceCredentialStore> SecretServiceCredentialStore::connect() {
    const char* bus = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    if (!bus || !*bus) {
        return nullptr;
    }
    if (!SecretLibrary::get()) {
        return nullptr;
    }
    GError* error = nullptr;
    SecretService* service = lib().serviceGet(SECRET_SERVICE_OPEN_SESSION, nullptr, &error);
    if (failed(error, "not available") || !service) {
        return nullptr;
    }
    lib().objectUnref(service);
    return std::shared_ptr<SecretServiceCredentialStore>(new SecretServiceCredentialStore());
}

void SecretServiceCredentialStore::disconnect() {
    if (const SecretLibrary* library = SecretLibrary::ifOpened()) {
        library->serviceDisconnect();
    }
}

std::optional<std::string> SecretServiceCredentialStore::passwordForURL(std::string_view url,
                                                                        std::string_view user) {
    auto address = RemoteAddress::parse(url);
    if (!address) {
        return std::nullopt;
    }
    std::string service = address->service();
    std::string account = user.empty() ? address->user : std::string(user);
    GError* error = nullptr;
    gchar* password =
        account.empty()
            ? lib().lookup(schema(), nullptr, &error, "service", service.c_str(), nullptr)
            : lib().lookup(schema(), nullptr, &error, "service", service.c_str(), "user",
                           account.c_str(), nullptr);
    if (failed(error, "lookup failed") || !password) {
        return std::nullopt;
    }
    std::string result(password);
    lib().passwordFree(password);
    return result;
}

std::optional<CredentialStore::StoredCredential> SecretServiceCredentialStore::credentialForURL(
    std::string_view url, std::string_view user) {
    auto address = RemoteAddress::parse(url);
    if (!address) {
        return std::nullopt;
    }
    std::string account = user.empty() ? address->user : std::string(user);
    if (!account.empty()) {
        auto password = passwordForURL(url, account);
        if (!password) {
            return std::nullopt;
        }
        return StoredCredential{account, std::move(*password)};
    }
    // Without a user the item's own attributes tell whose password it is.
    std::string service = address->service();
    GError* error = nullptr;
    GList* items = lib().search(
        schema(), static_cast<SecretSearchFlags>(SECRET_SEARCH_UNLOCK | SECRET_SEARCH_LOAD_SECRETS),
        nullptr, &error, "service", service.c_str(), nullptr);
    if (failed(error, "search failed") || !items) {
        return std::nullopt;
    }
    std::optional<StoredCredential> result;
    auto* item = static_cast<SecretRetrievable*>(items->data);
    GHashTable* attributes = lib().attributes(item);
    auto* owner =
        attributes ? static_cast<const char*>(lib().tableLookup(attributes, "user")) : nullptr;
    SecretValue* value = lib().retrieve(item, nullptr, &error);
    if (!failed(error, "read failed") && value) {
        const gchar* text = lib().valueText(value);
        if (text) {
            result = StoredCredential{owner ? owner : "", text};
        }
        lib().valueUnref(value);
    }
    if (attributes) {
        lib().tableUnref(attributes);
    }
    lib().listFreeFull(items, lib().objectUnref);
    return result;
}

bool SecretServiceCredentialStore::setPasswordForURL(std::string_view url, std::string_view user,
                                                     std::string_view password) {
    auto address = RemoteAddress::parse(url);
    if (!address) {
        return false;
    }
    std::string service = address->service();
    std::string account = user.empty() ? address->user : std::string(user);
    std::string label = "Varnel: " + (account.empty() ? "" : account + " at ") + service;
    std::string secret(password);
    GError* error = nullptr;
    gboolean stored =
        lib().store(schema(), SECRET_COLLECTION_DEFAULT, label.c_str(), secret.c_str(), nullptr,
                    &error, "service", service.c_str(), "user", account.c_str(), nullptr);
    return !failed(error, "store failed") && stored;
}

std::size_t SecretServiceCredentialStore::removePasswordForURL(std::string_view url) {
    auto address = RemoteAddress::parse(url);
    if (!address) {
        return 0;
    }
    std::string service = address->service();
    GError* error = nullptr;
    // Every matching item goes in one call.
    gboolean cleared =
        address->user.empty()
            ? lib().clear(schema(), nullptr, &error, "service", service.c_str(), nullptr)
            : lib().clear(schema(), nullptr, &error, "service", service.c_str(), "user",
                          address->user.c_str(), nullptr);
    return !failed(error, "removal failed") && cleared ? 1 : 0;
}

#else

std::shared_ptr<SecretServiceCredentialStore> SecretServiceCredentialStore::connect() {
    return nullptr;
}

void SecretServiceCredentialStore::disconnect() {}

std::optional<std::string> SecretServiceCredentialStore::passwordForURL(std::string_view,
                                                                        std::string_view) {
    return std::nullopt;
}

std::optional<CredentialStore::StoredCredential> SecretServiceCredentialStore::credentialForURL(
    std::string_view, std::string_view) {
    return std::nullopt;
}

bool SecretServiceCredentialStore::setPasswordForURL(std::string_view, std::string_view,
                                                     std::string_view) {
    return false;
}

std::size_t SecretServiceCredentialStore::removePasswordForURL(std::string_view) {
    return 0;
}

#endif

}  // namespace vn

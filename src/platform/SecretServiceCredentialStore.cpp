#include "platform/SecretServiceCredentialStore.h"

#include <cstdlib>

#include "platform/Log.h"

#ifdef VARNEL_HAVE_LIBSECRET
#include <libsecret/secret.h>
#endif

namespace vn {

#ifdef VARNEL_HAVE_LIBSECRET

namespace {

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
    g_error_free(error);
    return true;
}

}  // namespace

std::shared_ptr<SecretServiceCredentialStore> SecretServiceCredentialStore::connect() {
    const char* bus = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    if (!bus || !*bus) {
        return nullptr;
    }
    GError* error = nullptr;
    SecretService* service = secret_service_get_sync(SECRET_SERVICE_OPEN_SESSION, nullptr, &error);
    if (failed(error, "not available") || !service) {
        return nullptr;
    }
    g_object_unref(service);
    return std::shared_ptr<SecretServiceCredentialStore>(new SecretServiceCredentialStore());
}

void SecretServiceCredentialStore::disconnect() {
    secret_service_disconnect();
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
            ? secret_password_lookup_sync(schema(), nullptr, &error, "service", service.c_str(),
                                          nullptr)
            : secret_password_lookup_sync(schema(), nullptr, &error, "service", service.c_str(),
                                          "user", account.c_str(), nullptr);
    if (failed(error, "lookup failed") || !password) {
        return std::nullopt;
    }
    std::string result(password);
    secret_password_free(password);
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
    GList* items = secret_password_search_sync(
        schema(), static_cast<SecretSearchFlags>(SECRET_SEARCH_UNLOCK | SECRET_SEARCH_LOAD_SECRETS),
        nullptr, &error, "service", service.c_str(), nullptr);
    if (failed(error, "search failed") || !items) {
        return std::nullopt;
    }
    std::optional<StoredCredential> result;
    auto* item = static_cast<SecretRetrievable*>(items->data);
    GHashTable* attributes = secret_retrievable_get_attributes(item);
    auto* owner =
        attributes ? static_cast<const char*>(g_hash_table_lookup(attributes, "user")) : nullptr;
    SecretValue* value = secret_retrievable_retrieve_secret_sync(item, nullptr, &error);
    if (!failed(error, "read failed") && value) {
        const gchar* text = secret_value_get_text(value);
        if (text) {
            result = StoredCredential{owner ? owner : "", text};
        }
        secret_value_unref(value);
    }
    if (attributes) {
        g_hash_table_unref(attributes);
    }
    g_list_free_full(items, g_object_unref);
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
    gboolean stored = secret_password_store_sync(schema(), SECRET_COLLECTION_DEFAULT, label.c_str(),
                                                 secret.c_str(), nullptr, &error, "service",
                                                 service.c_str(), "user", account.c_str(), nullptr);
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
            ? secret_password_clear_sync(schema(), nullptr, &error, "service", service.c_str(),
                                         nullptr)
            : secret_password_clear_sync(schema(), nullptr, &error, "service", service.c_str(),
                                         "user", address->user.c_str(), nullptr);
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

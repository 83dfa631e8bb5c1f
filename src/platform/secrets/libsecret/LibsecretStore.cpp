#include "platform/secrets/libsecret/LibsecretStore.h"

#include <gio/gio.h>
#include <libsecret/secret.h>

namespace qm::platform {

namespace {

const char* const kService = "com.quillworks.quillmark";
const char* const kSecretServiceName = "org.freedesktop.secrets";

struct GErrorFree {
    void operator()(GError* e) const { g_error_free(e); }
};
using ErrorPtr = std::unique_ptr<GError, GErrorFree>;

struct HashUnref {
    void operator()(GHashTable* t) const { g_hash_table_unref(t); }
};
using AttributesPtr = std::unique_ptr<GHashTable, HashUnref>;

// Secrets are wiped from memory when freed.
struct PasswordFree {
    void operator()(gchar* p) const { secret_password_free(p); }
};
using PasswordPtr = std::unique_ptr<gchar, PasswordFree>;

struct ValueUnref {
    void operator()(SecretValue* v) const { secret_value_unref(v); }
};
struct ObjectUnref {
    void operator()(gpointer o) const { g_object_unref(o); }
};
struct VariantUnref {
    void operator()(GVariant* v) const { g_variant_unref(v); }
};
using VariantPtr = std::unique_ptr<GVariant, VariantUnref>;

// Matched by the two attributes alone, so items stored by other tools under the same names
// are found as well.
const SecretSchema* schema() {
    static const SecretSchema s = {"com.quillworks.quillmark",
                                   SECRET_SCHEMA_DONT_MATCH_NAME,
                                   {{"service", SECRET_SCHEMA_ATTRIBUTE_STRING},
                                    {"account", SECRET_SCHEMA_ATTRIBUTE_STRING},
                                    {nullptr, SECRET_SCHEMA_ATTRIBUTE_STRING}},
                                   0,
                                   nullptr,
                                   nullptr,
                                   nullptr,
                                   nullptr,
                                   nullptr,
                                   nullptr,
                                   nullptr};
    return &s;
}

// Owns copies of its keys and values.
AttributesPtr attributes(const QString& account) {
    AttributesPtr table(g_hash_table_new_full(g_str_hash, g_str_equal, g_free, g_free));
    g_hash_table_insert(table.get(), g_strdup("service"), g_strdup(kService));
    g_hash_table_insert(table.get(), g_strdup("account"), g_strdup(account.toUtf8().constData()));
    return table;
}

// One sentence for the user; the keyring's own words only where they add something.
QString reasonFor(const GError* error, const char* doing) {
    if (error && g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CANCELLED))
        return QStringLiteral("The keyring stayed locked, so the API key could not be %1.")
            .arg(QLatin1String(doing));
    return QStringLiteral("The keyring could not be reached, so the API key could not be %1 (%2).")
        .arg(QLatin1String(doing),
             error ? QString::fromUtf8(error->message) : QStringLiteral("no answer"));
}

// Whether the Secret Service runs on the bus now or can be started by it.
bool secretServiceOnBus(GDBusConnection* bus) {
    GError* raw = nullptr;
    VariantPtr owned(g_dbus_connection_call_sync(
        bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "NameHasOwner", g_variant_new("(s)", kSecretServiceName), G_VARIANT_TYPE("(b)"),
        G_DBUS_CALL_FLAGS_NONE, 5000, nullptr, &raw));
    ErrorPtr ownerError(raw);
    gboolean hasOwner = FALSE;
    if (owned)
        g_variant_get(owned.get(), "(b)", &hasOwner);
    if (hasOwner)
        return true;
    raw = nullptr;
    VariantPtr activatable(g_dbus_connection_call_sync(
        bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "ListActivatableNames", nullptr, G_VARIANT_TYPE("(as)"), G_DBUS_CALL_FLAGS_NONE, 5000,
        nullptr, &raw));
    ErrorPtr listError(raw);
    if (!activatable)
        return false;
    GVariantIter* names = nullptr;
    g_variant_get(activatable.get(), "(as)", &names);
    const gchar* name = nullptr;
    bool found = false;
    while (!found && g_variant_iter_next(names, "&s", &name))
        found = g_strcmp0(name, kSecretServiceName) == 0;
    g_variant_iter_free(names);
    return found;
}

} // namespace

Result<std::unique_ptr<LibsecretStore>> LibsecretStore::open() {
    GError* raw = nullptr;
    std::unique_ptr<GDBusConnection, ObjectUnref> bus(
        g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &raw));
    ErrorPtr error(raw);
    if (!bus)
        return failure(QStringLiteral("There is no session bus, so no keyring can keep the API "
                                      "key."));
    if (!secretServiceOnBus(bus.get()))
        return failure(QStringLiteral("No keyring answers on the session bus; install GNOME "
                                      "Keyring or KeePassXC to keep the API key."));
    return std::unique_ptr<LibsecretStore>(new LibsecretStore);
}

Status LibsecretStore::save(const QString& account, const QString& secret) {
    // Pasted keys often carry a newline or spaces that the API would refuse.
    const QByteArray value = secret.trimmed().toUtf8();
    const QByteArray label = QStringLiteral("Quillmark: %1").arg(account).toUtf8();
    AttributesPtr attrs = attributes(account);
    std::unique_ptr<SecretValue, ValueUnref> secretValue(
        secret_value_new(value.constData(), value.size(), "text/plain"));
    GError* raw = nullptr;
    // Without a schema the item carries exactly the two attributes, so it replaces the one kept
    // under them, even when another program (secret-tool) stored it, instead of adding another.
    const gboolean stored =
        secret_service_store_sync(nullptr, nullptr, attrs.get(), SECRET_COLLECTION_DEFAULT,
                                  label.constData(), secretValue.get(), nullptr, &raw);
    ErrorPtr error(raw);
    if (!stored)
        return failure(reasonFor(error.get(), "saved"));
    return {};
}

Result<std::optional<QString>> LibsecretStore::load(const QString& account) {
    AttributesPtr attrs = attributes(account);
    GError* raw = nullptr;
    PasswordPtr password(secret_password_lookupv_sync(schema(), attrs.get(), nullptr, &raw));
    ErrorPtr error(raw);
    if (error)
        return failure(reasonFor(error.get(), "read"));
    if (!password)
        return std::optional<QString>();
    return std::optional<QString>(QString::fromUtf8(password.get()));
}

Status LibsecretStore::remove(const QString& account) {
    AttributesPtr attrs = attributes(account);
    GError* raw = nullptr;
    // FALSE without an error means nothing matched: already removed.
    secret_password_clearv_sync(schema(), attrs.get(), nullptr, &raw);
    ErrorPtr error(raw);
    if (error)
        return failure(reasonFor(error.get(), "removed"));
    return {};
}

} // namespace qm::platform

// One request to the Secret Service.

#include "keyring_request.h"

#include "libsecret.h"

#include <algorithm>
#include <memory>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr auto serviceName = "org.freedesktop.secrets";

/// What a secret of ours is found by.
const SecretSchema schema = {"app.vesk.Key",
                             SECRET_SCHEMA_NONE,
                             {{"target", SECRET_SCHEMA_ATTRIBUTE_STRING}, {nullptr, SECRET_SCHEMA_ATTRIBUTE_STRING}},
                             0,
                             nullptr,
                             nullptr,
                             nullptr,
                             nullptr,
                             nullptr,
                             nullptr,
                             nullptr};

const LibSecret &lib()
{
    return *LibSecret::get();
}

struct Unref {
    void operator()(void *object) const { lib().g_object_unref(object); }
};
template <class T> using Held = std::unique_ptr<T, Unref>;

struct UnrefTable {
    void operator()(GHashTable *table) const { lib().g_hash_table_unref(table); }
};
struct UnrefValue {
    void operator()(SecretValue *value) const { lib().secret_value_unref(value); }
};

/// Ends the operation with what stood in its way.
struct KeyringRefusal {
    SecretOutcome outcome;
    QString reason;
};

/// An error of a call, freed with the object.
class Fault {
public:
    Fault() = default;
    ~Fault()
    {
        if (error)
            lib().g_error_free(error);
    }
    Fault(const Fault &) = delete;
    Fault &operator=(const Fault &) = delete;

    GError **out() { return &error; }
    explicit operator bool() const { return error; }
    bool is(GQuark domain, int code) const { return lib().g_error_matches(error, domain, code); }
    QString text() const { return error ? QString::fromUtf8(error->message) : u"причина не названа"_s; }
    /// Ends the operation unless all is well.
    void check(const QString &step) const
    {
        if (!error)
            return;
        const bool locked = is(lib().secret_error_get_quark(), SECRET_ERROR_IS_LOCKED);
        throw KeyringRefusal{locked ? SecretOutcome::Locked : SecretOutcome::Failed, step + u": "_s + text()};
    }

private:
    GError *error = nullptr;
};

class Operation {
public:
    Operation(const KeyringRequest &request, GCancellable *cancellable, const std::function<bool(bool)> &askingPerson)
        : request(request)
        , cancellable(cancellable)
        , askingPerson(askingPerson)
    {
    }

    SecretAnswer run();

private:
    using Items = std::vector<Held<SecretItem>>;

    void connect();
    void askBus(const char *method, GVariant *arguments, Fault &fault) const;
    void startService() const;
    SecretAnswer read();
    SecretAnswer save();
    SecretAnswer remove();
    void add(SecretValue *value);
    void erase(SecretItem *item);
    Items find();
    Items search() const;
    Held<SecretCollection> defaultCollection() const;
    void makeDefaultCollection();
    void stopAsking();
    void open(SecretItem *item);
    bool unlock(GDBusProxy *object);

    const KeyringRequest &request;
    GCancellable *cancellable;
    const std::function<bool(bool)> &askingPerson;
    Held<GDBusConnection> bus;
    Held<SecretService> service;
    std::unique_ptr<GHashTable, UnrefTable> attributes;
};

/// Everything is fetched anew for each operation: a connection that is kept would not outlive its bus, nor a session
/// its service.
void Operation::connect()
{
    Fault fault;
    bus.reset(lib().g_bus_get_sync(G_BUS_TYPE_SESSION, cancellable, fault.out()));
    if (!bus)
        throw KeyringRefusal{SecretOutcome::Absent, u"сеансовая шина D-Bus недоступна: "_s + fault.text()};
    // Else GLib ends the whole process when the bus goes away.
    lib().g_dbus_connection_set_exit_on_close(bus.get(), FALSE);
    startService();
    service.reset(lib().secret_service_open_sync(lib().secret_service_get_type(), nullptr, SECRET_SERVICE_OPEN_SESSION,
                                                 cancellable, fault.out()));
    fault.check(u"служба секретов не открывает сеанс"_s);
    attributes.reset(lib().secret_attributes_build(&schema, "target", request.target.constData(), nullptr));
}

void Operation::askBus(const char *method, GVariant *arguments, Fault &fault) const
{
    GVariant *reply = lib().g_dbus_connection_call_sync(bus.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                                        "org.freedesktop.DBus", method, arguments, nullptr,
                                                        G_DBUS_CALL_FLAGS_NONE, G_MAXINT, cancellable, fault.out());
    if (reply)
        lib().g_variant_unref(reply);
}

/// Asked of the bus itself: to all else an absent service answers as if it merely had no such secret.
void Operation::startService() const
{
    // A service that was started by other means than the bus need not be known to the bus as one that can be started.
    Fault unowned;
    askBus("GetNameOwner", lib().g_variant_new("(s)", serviceName), unowned);
    if (!unowned)
        return;
    Fault fault;
    askBus("StartServiceByName", lib().g_variant_new("(su)", serviceName, 0U), fault);
    if (fault.is(lib().g_dbus_error_quark(), G_DBUS_ERROR_SERVICE_UNKNOWN))
        throw KeyringRefusal{SecretOutcome::Absent, u"на сеансовой шине нет службы секретов"_s};
    fault.check(u"служба секретов не запускается"_s);
}

SecretAnswer Operation::run()
{
    connect();
    switch (request.action) {
    case KeyringRequest::Action::Read:
        return read();
    case KeyringRequest::Action::Save:
        return save();
    case KeyringRequest::Action::Remove:
        return remove();
    }
    return {};
}

SecretAnswer Operation::read()
{
    const Items items = find();
    if (items.empty())
        return {SecretOutcome::Missing, {}, {}};
    const auto unlocked = std::ranges::find_if(
        items, [](const Held<SecretItem> &item) { return !lib().secret_item_get_locked(item.get()); });
    SecretItem *item = unlocked == items.end() ? items.front().get() : unlocked->get();
    open(item);

    Fault fault;
    lib().secret_item_load_secret_sync(item, cancellable, fault.out());
    fault.check(u"служба секретов не отдаёт ключ"_s);
    const std::unique_ptr<SecretValue, UnrefValue> value(lib().secret_item_get_secret(item));
    if (!value)
        throw KeyringRefusal{SecretOutcome::Failed, u"служба секретов отдала запись без ключа"_s};
    gsize size = 0;
    const char *bytes = lib().secret_value_get(value.get(), &size);
    return {SecretOutcome::Done, SecretBytes(bytes, qsizetype(size)), {}};
}

SecretAnswer Operation::save()
{
    const std::unique_ptr<SecretValue, UnrefValue> value(
        lib().secret_value_new(request.secret.view().data(), request.secret.size(), "text/plain"));
    const Items items = find();
    if (items.empty()) {
        add(value.get());
        return {SecretOutcome::Done, {}, {}};
    }
    Fault fault;
    open(items.front().get());
    lib().secret_item_set_secret_sync(items.front().get(), value.get(), cancellable, fault.out());
    fault.check(u"служба секретов не заменяет ключ"_s);
    // The same key in another collection, left from when that was the default one, would go on being found.
    for (std::size_t i = 1; i < items.size(); ++i)
        erase(items[i].get());
    return {SecretOutcome::Done, {}, {}};
}

SecretAnswer Operation::remove()
{
    const Items items = find();
    for (const Held<SecretItem> &item : items)
        erase(item.get());
    return {items.empty() ? SecretOutcome::Missing : SecretOutcome::Done, {}, {}};
}

void Operation::add(SecretValue *value)
{
    if (!defaultCollection())
        makeDefaultCollection();
    Fault fault;
    lib().secret_service_store_sync(service.get(), &schema, attributes.get(), SECRET_COLLECTION_DEFAULT, "VESK: ключ",
                                    value, cancellable, fault.out());
    fault.check(u"служба секретов не сохраняет ключ"_s);
}

void Operation::erase(SecretItem *item)
{
    open(item);
    Fault fault;
    lib().secret_item_delete_sync(item, cancellable, fault.out());
    fault.check(u"служба секретов не удаляет ключ"_s);
}

/// The items of this target. A keyring that is locked since its start answers like one that has none, so before
/// "none" is believed it is unlocked.
Operation::Items Operation::find()
{
    Items items = search();
    if (!items.empty())
        return items;
    const Held<SecretCollection> collection = defaultCollection();
    if (!collection || !lib().secret_collection_get_locked(collection.get()))
        return items;
    if (!unlock(G_DBUS_PROXY(collection.get())))
        throw KeyringRefusal{SecretOutcome::Locked, u"связка ключей заблокирована"_s};
    return search();
}

Operation::Items Operation::search() const
{
    Fault fault;
    GList *list = lib().secret_service_search_sync(service.get(), &schema, attributes.get(), SECRET_SEARCH_ALL,
                                                   cancellable, fault.out());
    Items items;
    for (const GList *link = list; link; link = link->next)
        items.emplace_back(static_cast<SecretItem *>(link->data));
    lib().g_list_free(list);
    fault.check(u"служба секретов не ищет ключ"_s);
    return items;
}

Held<SecretCollection> Operation::defaultCollection() const
{
    Fault fault;
    Held<SecretCollection> collection(lib().secret_collection_for_alias_sync(
        service.get(), SECRET_COLLECTION_DEFAULT, SECRET_COLLECTION_NONE, cancellable, fault.out()));
    fault.check(u"служба секретов не называет связку ключей"_s);
    return collection;
}

/// A person chooses its password.
void Operation::makeDefaultCollection()
{
    Fault fault;
    askingPerson(true);
    const Held<SecretCollection> made(lib().secret_collection_create_sync(
        service.get(), "VESK", SECRET_COLLECTION_DEFAULT, SECRET_COLLECTION_CREATE_NONE, cancellable, fault.out()));
    stopAsking();
    fault.check(u"служба секретов не создаёт связку ключей"_s);
}

void Operation::stopAsking()
{
    if (!askingPerson(false))
        throw KeyringRefusal{SecretOutcome::Silent, u"ответ пришёл слишком поздно"_s};
}

void Operation::open(SecretItem *item)
{
    if (lib().secret_item_get_locked(item) && !unlock(G_DBUS_PROXY(item)))
        throw KeyringRefusal{SecretOutcome::Locked, u"связка ключей заблокирована"_s};
}

bool Operation::unlock(GDBusProxy *object)
{
    if (!request.mayUnlock)
        return false;
    GList one{object, nullptr, nullptr};
    Fault fault; // Whatever it is: the keyring stays locked.
    askingPerson(true);
    const int unlocked = lib().secret_service_unlock_sync(service.get(), &one, cancellable, nullptr, fault.out());
    stopAsking();
    return unlocked > 0;
}

} // namespace

bool hasSessionBus()
{
    const QByteArray address = qgetenv("DBUS_SESSION_BUS_ADDRESS");
    if (!address.isEmpty())
        return !address.contains("autolaunch:") && address != "disabled:";
    const QByteArray runtime = qgetenv("XDG_RUNTIME_DIR");
    struct stat status;
    return !runtime.isEmpty() && ::stat((runtime + "/bus").constData(), &status) == 0 && S_ISSOCK(status.st_mode)
        && status.st_uid == ::geteuid();
}

SecretAnswer askKeyring(const KeyringRequest &request, GCancellable *cancellable,
                        const std::function<bool(bool)> &askingPerson)
{
    try {
        return Operation(request, cancellable, askingPerson).run();
    } catch (const KeyringRefusal &refusal) {
        return {refusal.outcome, {}, refusal.reason};
    }
}

} // namespace vesk

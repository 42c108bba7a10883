#pragma once

#include <libsecret/secret.h>

namespace vesk {

// Everything that is called of libsecret and of GLib below it.
#define VESK_LIBSECRET_FUNCTIONS(F)                                                                                    \
    F(g_bus_get_sync)                                                                                                  \
    F(g_cancellable_cancel)                                                                                            \
    F(g_cancellable_new)                                                                                               \
    F(g_dbus_connection_call_sync)                                                                                     \
    F(g_dbus_connection_set_exit_on_close)                                                                             \
    F(g_dbus_error_quark)                                                                                              \
    F(g_error_free)                                                                                                    \
    F(g_error_matches)                                                                                                 \
    F(g_hash_table_unref)                                                                                              \
    F(g_list_free)                                                                                                     \
    F(g_object_unref)                                                                                                  \
    F(g_variant_new)                                                                                                   \
    F(g_variant_unref)                                                                                                 \
    F(secret_attributes_build)                                                                                         \
    F(secret_collection_create_sync)                                                                                   \
    F(secret_collection_for_alias_sync)                                                                                \
    F(secret_collection_get_locked)                                                                                    \
    F(secret_error_get_quark)                                                                                          \
    F(secret_item_delete_sync)                                                                                         \
    F(secret_item_get_locked)                                                                                          \
    F(secret_item_get_secret)                                                                                          \
    F(secret_item_load_secret_sync)                                                                                    \
    F(secret_item_set_secret_sync)                                                                                     \
    F(secret_service_get_type)                                                                                         \
    F(secret_service_open_sync)                                                                                        \
    F(secret_service_search_sync)                                                                                      \
    F(secret_service_store_sync)                                                                                       \
    F(secret_service_unlock_sync)                                                                                      \
    F(secret_value_get)                                                                                                \
    F(secret_value_new)                                                                                                \
    F(secret_value_unref)

/// libsecret, loaded when it is first asked for instead of with the program. Its functions are the members, under their
/// own names and with the types that libsecret's headers give them.
class LibSecret {
public:
    /// Nothing where it isn't installed. Once loaded it stays: GLib can't be unloaded.
    static const LibSecret *get();

#define VESK_MEMBER(name) decltype(&::name) name = nullptr;
    VESK_LIBSECRET_FUNCTIONS(VESK_MEMBER)
#undef VESK_MEMBER

private:
    LibSecret();
    bool complete = false;
};

} // namespace vesk

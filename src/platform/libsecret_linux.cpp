// libsecret, loaded when a key is first asked for.

#include "libsecret.h"

#include <QLibrary>

using namespace Qt::StringLiterals;

namespace vesk {

LibSecret::LibSecret()
{
    QLibrary library(u"secret-1"_s, 0);
    library.setLoadHints(QLibrary::PreventUnloadHint);
    if (!library.load())
        return;
    complete = true;
    // GLib's functions are found through it, since it depends on GLib.
#define VESK_RESOLVE(name)                                                                                             \
    name = reinterpret_cast<decltype(name)>(library.resolve(#name));                                                   \
    complete = complete && name;
    VESK_LIBSECRET_FUNCTIONS(VESK_RESOLVE)
#undef VESK_RESOLVE
}

const LibSecret *LibSecret::get()
{
    static const LibSecret library;
    return library.complete ? &library : nullptr;
}

} // namespace vesk

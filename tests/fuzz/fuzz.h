#pragma once

#include <QByteArray>
#include <QByteArrayView>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <source_location>

/// What each target defines: takes any bytes and must neither crash nor find that something does not hold.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

inline QByteArray bytesOf(const uint8_t *data, size_t size)
{
    return {reinterpret_cast<const char *>(data), qsizetype(size)};
}

/// Ends the program unless what should be so is so.
inline void holds(bool ok, std::source_location place = std::source_location::current())
{
    if (ok)
        return;
    std::fprintf(stderr, "%s:%u: does not hold\n", place.file_name(), unsigned(place.line()));
    std::abort();
}

// A look for the user's edits in slices.

#include "edit_look.h"

#include "slice.h"
#include "workspace.h"

#include <algorithm>

namespace vesk {

namespace {

/// Files that are looked at before the time is: whether a small project takes one slice is no matter of luck.
constexpr qsizetype piece = 64;

} // namespace

EditLook::EditLook(const Workspace &workspace)
    : workspace(workspace)
    , records(workspace.files())
{
}

bool EditLook::lookOn()
{
    const Slice slice;
    do {
        const qsizetype end = std::min(next + piece, records.size());
        found += workspace.handEditsAmong(records, next, end);
        next = end;
    } while (next < records.size() && !slice.isOver());
    return next < records.size();
}

} // namespace vesk

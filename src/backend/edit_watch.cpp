// A look for the user's edits in slices.

#include "edit_watch.h"

#include "helpers.h"
#include "slice.h"

#include <exception>
#include <utility>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

QVariantMap shown(const HandEdit &edit)
{
    return {{u"path"_s, edit.path}, {u"text"_s, edit.text()}, {u"kind"_s, edit.text().section(u' ', 0, 0)}};
}

} // namespace

EditWatch::EditWatch(const Workspace &workspace)
    : workspace(workspace)
{
    connect(&timer, &QTimer::timeout, this, &EditWatch::lookOn);
}

void EditWatch::look()
{
    records = workspace.files();
    next = 0;
    finding.clear();
    timer.start(0);
}

void EditWatch::forget()
{
    timer.stop();
    records = {};
    found.clear();
    Q_EMIT changed();
}

void EditWatch::lookOn()
{
    const Slice slice;
    try {
        for (; next < records.size() && !slice.isOver(); ++next) {
            // Of the newest record: a run may have written since the look began.
            if (const auto edit = workspace.handEdit(std::as_const(records)[next]["path"_L1].toString()))
                finding.append(shown(*edit));
        }
    } catch (const std::exception &fault) { // of the store
        timer.stop();
        Q_EMIT failed(textOf(fault));
        return;
    }
    if (next < records.size())
        return;
    timer.stop();
    records = {};
    found = std::exchange(finding, {});
    Q_EMIT changed();
}

} // namespace vesk

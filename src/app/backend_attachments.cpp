// Files that go with a message.

#include "backend.h"

#include "helpers.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype maxUsage = 120;

} // namespace

void Backend::pinAsset(const QString &path, const QString &usage)
{
    guard([&] {
        const QString project = workspace.project();
        const QJsonArray rows = project.isEmpty() ? QJsonArray() : store.list(u"artifacts"_s, project);
        const auto row = std::ranges::find_if(rows, [&](const QJsonValue &artifact) {
            return artifact["type"_L1].toString() == "media"_L1 && artifact["path"_L1].toString() == path;
        });
        require(row != rows.end(), u"Ресурс не найден в проекте"_s);
        QJsonObject medium = row->toObject();
        medium["usage"_L1] = usage.trimmed().left(maxUsage);
        medium["pinned"_L1] = !usage.trimmed().isEmpty();
        store.put(u"artifacts"_s, std::as_const(medium)["id"_L1].toString(), project, medium);
    });
}

} // namespace vesk

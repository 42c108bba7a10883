// The lines that a conversation gets while a task runs.

#include "narration.h"

#include "helpers.h"
#include "narrator.h"

#include <QJsonArray>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

QString fileLine(const QJsonObject &data)
{
    return data["path"_L1].toString() + u" · версия "_s + QString::number(data["revision"_L1].toInt())
        + u". Проверяю."_s;
}

QString fixLine(const QJsonObject &data)
{
    return u"Нашёл замечание в файле "_s + data["file"_L1].toString() + u":\n"_s
        + strings(data["description"_L1].toArray()).join(u'\n') + u"\nПередаю главному агенту."_s;
}

} // namespace

QString narration(const QJsonObject &event, const QJsonObject &state)
{
    const QString type = event["type"_L1].toString();
    const QJsonObject data = event["data"_L1].toObject();
    if (type == "PhaseChanged"_L1)
        return Narrator::progress(state);
    if (type == "AutomaticCorrection"_L1)
        return event["message"_L1].toString();
    if (type == "RetryScheduled"_L1)
        return u"Запрос прервался. Повторяю текущий шаг; готовые файлы сохранены."_s;
    if (type == "FileModified"_L1)
        return fileLine(data);
    if (type == "FixRequested"_L1)
        return fixLine(data);
    return {};
}

QString narrationKind(const QJsonObject &event)
{
    return event["type"_L1].toString() == "FileModified"_L1 ? u"file"_s : u"progress"_s;
}

} // namespace vesk

#include "helpers.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QJsonDocument>
#include <QUuid>

#include <stdexcept>

using namespace Qt::StringLiterals;

namespace vesk {

QString id()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces);
}

QString now()
{
    return QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs);
}

QString json(const QJsonObject &object)
{
    return QString::fromUtf8(jsonBytes(object));
}

QByteArray jsonBytes(const QJsonObject &object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

QString digest(const QByteArray &bytes)
{
    return QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex());
}

void require(bool ok, const QString &message)
{
    if (!ok)
        throw std::runtime_error(message.toStdString());
}

QJsonObject parseObject(QString text)
{
    const qsizetype first = text.indexOf(u'{');
    const qsizetype last = text.lastIndexOf(u'}');
    require(first >= 0 && last >= first, u"Expected a JSON object"_s);

    QJsonParseError error;
    const QJsonDocument document
        = QJsonDocument::fromJson(QStringView(text).sliced(first, last - first + 1).toUtf8(), &error);
    require(document.isObject(), u"Invalid JSON: "_s + error.errorString());
    return document.object();
}

QStringList strings(const QJsonArray &array)
{
    QStringList list;
    list.reserve(array.size());
    for (const QJsonValue &value : array)
        list.append(value.toString());
    return list;
}

QString textOf(const std::exception &error)
{
    return QString::fromUtf8(error.what());
}

} // namespace vesk

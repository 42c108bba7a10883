// What every layer needs: ids, times, JSON, digests, failures.

#include "helpers.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QJsonDocument>
#include <QUuid>

#include <exception>
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
        refuse(message);
}

void refuse(const QString &message)
{
    throw std::runtime_error(message.toStdString());
}

bool isTooDeep(const QByteArray &json)
{
    // Qt reads no text that is nested deeper than 1024 levels, but writes one.
    constexpr int deepest = 512;
    int depth = 0;
    bool quoted = false;
    for (qsizetype i = 0; i < json.size(); ++i) {
        const char c = json.at(i);
        if (quoted && c == '\\')
            ++i;
        else if (c == '"')
            quoted = !quoted;
        else if (!quoted && (c == '{' || c == '[') && ++depth > deepest)
            return true;
        else if (!quoted && (c == '}' || c == ']'))
            --depth;
    }
    return false;
}

QJsonObject parseObject(const QString &text)
{
    const qsizetype first = text.indexOf(u'{');
    const qsizetype last = text.lastIndexOf(u'}');
    require(first >= 0 && last >= first, u"Expected a JSON object"_s);
    const QByteArray bytes = QStringView(text).sliced(first, last - first + 1).toUtf8();

    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    require(document.isObject(), u"Invalid JSON: "_s + error.errorString());
    require(!isTooDeep(bytes), u"Invalid JSON: too deep"_s);
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

QString visibleText(const QString &text)
{
    QString result;
    result.reserve(text.size());
    const auto characters = text.toUcs4();
    for (const char32_t c : characters) {
        const bool visible = c == U' ' || (QChar::isPrint(c) && !QChar::isSpace(c));
        result += visible ? QString::fromUcs4(&c, 1) : u"\\u{%1}"_s.arg(QString::number(uint(c), 16));
    }
    return result;
}

QString visibleLines(const QString &text)
{
    QStringList lines = text.split(u'\n');
    for (QString &line : lines)
        line = visibleText(line);
    return lines.join(u'\n');
}

QString oneLine(const QString &text)
{
    return visibleText(text.simplified());
}

QString textOf(const std::exception &error)
{
    return QString::fromUtf8(error.what());
}

} // namespace vesk

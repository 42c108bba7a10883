// What every layer needs: ids, times, JSON, digests, failures.

#include "helpers.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QJsonDocument>
#include <QUuid>

#include <algorithm>
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
        throw std::runtime_error(message.toStdString());
}

namespace {

/// Qt reads no text that is nested deeper than 1024 levels, but writes one: an answer that is just read would stand in
/// a task's document, some levels further down, and that could never be read again.
constexpr int deepest = 512;

/// How deep the values of a well-formed JSON text are nested.
int nesting(const QString &text)
{
    int depth = 0;
    int most = 0;
    bool quoted = false;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        if (quoted && c == u'\\')
            ++i;
        else if (c == u'"')
            quoted = !quoted;
        else if (!quoted && (c == u'{' || c == u'['))
            most = std::max(most, ++depth);
        else if (!quoted && (c == u'}' || c == u']'))
            --depth;
    }
    return most;
}

} // namespace

QJsonObject parseObject(QString text)
{
    const qsizetype first = text.indexOf(u'{');
    const qsizetype last = text.lastIndexOf(u'}');
    require(first >= 0 && last >= first, u"Expected a JSON object"_s);
    text = text.sliced(first, last - first + 1);

    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8(), &error);
    require(document.isObject(), u"Invalid JSON: "_s + error.errorString());
    require(nesting(text) <= deepest, u"Invalid JSON: "_s + u"too deep"_s);
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

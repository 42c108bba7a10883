#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QString>

namespace vesk {

/// A random UUID as 36 characters of lower-case hexadecimal and hyphens, without braces.
QString id();

/// The current UTC time as ISO 8601 with milliseconds and a trailing "Z"; text order is time order.
QString now();

/// The object as compact JSON.
QString json(const QJsonObject &object);

/// The same text as UTF-8 bytes, without the detour over UTF-16.
QByteArray jsonBytes(const QJsonObject &object);

/// SHA-256 of the bytes as 64 lower-case hexadecimal digits.
QString digest(const QByteArray &bytes);

/// Throws std::runtime_error with the UTF-8 of `message` unless `ok`.
void require(bool ok, const QString &message);

/// Throws it in any case.
[[noreturn]] void refuse(const QString &message);

/// Whether the values of a JSON text are nested deeper than 512 levels. Such a text can be read, but a few levels
/// further down, in the record that it goes into, it could be written and never be read again.
bool isTooDeep(const QByteArray &json);

/// The JSON object inside a model's reply: all from the first opening to the last closing brace.
/// Throws "Expected a JSON object" when there is no such pair, "Invalid JSON: " and the parser's text when it is none
/// or is nested deeper than 512 levels.
QJsonObject parseObject(const QString &text);

/// The strings of an array, each element by string conversion.
QStringList strings(const QJsonArray &array);

/// The text with what can't be seen, or makes other text look different (control, format and direction characters,
/// unusual blanks), as numbers: \u{202e}.
QString visibleText(const QString &text);

/// The same for each line of a text, whose line ends stay.
QString visibleLines(const QString &text);

/// The same on one line, blanks and line ends taken together: for a title or a summary in a list.
QString oneLine(const QString &text);

/// The text of a caught exception.
QString textOf(const std::exception &error);

} // namespace vesk

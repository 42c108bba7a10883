// Whether JSON, XML and SVG can be read.

#include "data_syntax.h"

#include "evidence_text.h"
#include "helpers.h"

#include <QJsonArray>
#include <QRegularExpression>
#include <QXmlStreamReader>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

QString placed(qsizetype line, const QString &fault)
{
    return u"строка %1: %2"_s.arg(line).arg(fault);
}

/// Whether whoever reads the file takes comments in it, and a comma behind the last element.
bool takesComments(const QString &path)
{
    static const QRegularExpression names(
        u"\\.(?:jsonc|code-workspace)\\z|(?:^|/)(?:[tj]sconfig[^/]*|\\.eslintrc|tslint|deno|turbo|nx|angular|"
        u"wrangler|api-extractor|\\.?devcontainer|babel\\.config|\\.babelrc|\\.swcrc)\\.json\\z|"
        u"(?:^|/)\\.(?:vscode|devcontainer)/[^/]+\\.json\\z"_s,
        QRegularExpression::CaseInsensitiveOption);
    return names.match(path).hasMatch();
}

/// Of a text that Qt's reader does not take as it is: how many values it holds. 0 when it cannot be read.
qsizetype valuesIn(const QByteArray &text)
{
    return QJsonDocument::fromJson('[' + text + ']').array().size();
}

QString jsonFault(const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    const QJsonParseError error = jsonError(bytes);
    if (error.error == QJsonParseError::NoError)
        return {};
    if ((error.error == QJsonParseError::IllegalValue || error.offset <= 1) && valuesIn(bytes) > 1)
        return placed(1, u"нужно одно значение"_s);
    return placed(bytes.first(std::min<qsizetype>(error.offset, bytes.size())).count('\n') + 1, error.errorString());
}

QString xmlFault(const QString &text)
{
    // What a document type declares elsewhere is not read, so its entities are not known.
    QXmlStreamReader reader(text);
    while (!reader.atEnd())
        reader.readNext();
    const bool isFaulty
        = reader.hasError() && !(text.contains("<!DOCTYPE"_L1) && reader.errorString().contains("ntity"_L1));
    return isFaulty ? placed(reader.lineNumber(), reader.errorString()) : QString();
}

} // namespace

bool isData(const QString &path)
{
    static const QStringList kinds{u"xml"_s, u"svg"_s, u"webmanifest"_s, u"geojson"_s, u"jsonc"_s, u"code-workspace"_s};
    static const QRegularExpression meant(
        u"(?:^|/)(?:fixtures?|testdata|samples?)/|broken|invalid|malformed|corrupt|bad[_-]|\\[\\[|\\{\\{"_s);
    return kinds.contains(suffixOf(path)) && !isTestPath(path) && !meant.match(path).hasMatch();
}

QJsonParseError jsonError(const QByteArray &text)
{
    QJsonParseError error;
    QJsonDocument::fromJson(text, &error);
    if (error.error != QJsonParseError::NoError && valuesIn(text) == 1)
        error.error = QJsonParseError::NoError;
    return error;
}

QString plainJson(const QString &path, const QString &text)
{
    if (!takesComments(path))
        return text;
    // A string, which stays as it is; a comment; or a comma before an end, with what stands between.
    static const QRegularExpression part(
        u"\"(?:[^\"\\\\\\n]++|\\\\.)*+\"|(//[^\\n]*|/\\*.*?\\*/)|(,)(?=(?:\\s|//[^\\n]*\\n|/\\*.*?\\*/)*+[}\\]])"_s,
        QRegularExpression::DotMatchesEverythingOption);
    QString plain = text;
    for (auto it = part.globalMatch(text); it.hasNext();) {
        const auto match = it.next();
        // Blanks in their place, so that faults stand where they are; line ends are kept.
        for (qsizetype at = match.capturedStart(); match.lastCapturedIndex() > 0 && at < match.capturedEnd(); ++at) {
            if (plain.at(at) != u'\n')
                plain[at] = u' ';
        }
    }
    return plain;
}

QString dataFault(const QString &path, const QString &text)
{
    static const QRegularExpression unfilled(u"\\{%|\\{\\{|<%|<\\?php"_s);
    // An empty file is told as such elsewhere.
    if (text.trimmed().isEmpty() || text.contains(unfilled))
        return {};
    const QString suffix = suffixOf(path);
    return suffix == "xml"_L1 || suffix == "svg"_L1 ? xmlFault(text) : jsonFault(plainJson(path, text));
}

QJsonObject dataSyntaxResult(const QStringList &paths, const std::function<QString(const QString &path)> &textOf)
{
    QStringList faults;
    for (const QString &path : paths) {
        const QString fault = dataFault(path, textOf(path));
        if (!fault.isEmpty())
            faults.append(path + u": "_s + fault);
    }
    return {
        {u"success"_s, faults.isEmpty()},
        {u"exit_code"_s, faults.isEmpty() ? 0 : 1},
        {u"stdout"_s, faults.isEmpty() ? u"Прочитано файлов: %1."_s.arg(paths.size()) : QString()},
        {u"stderr"_s, faults.join(u'\n')},
    };
}

} // namespace vesk

#include "calculator_page.h"

#include <QFile>
#include <QJsonDocument>
#include <QProcess>
#include <QTemporaryDir>

using namespace Qt::StringLiterals;

namespace {

constexpr auto browser = R"(
const fs = require('fs');
const [page, a, op, b] = process.argv.slice(2);
const elements = {a: {value: a}, op: {value: op}, b: {value: b}, run: {}, result: {textContent: ''}};
for (const id of Object.keys(elements))
    if (!fs.readFileSync(page, 'utf8').includes(`id="${id}"`)) throw new Error(id);
const document = {getElementById: id => elements[id]};
const alerts = [];
const script = /<script>(.*)<\/script>/s.exec(fs.readFileSync(page, 'utf8'))[1];
new Function('document', 'alert', script)(document, text => alerts.push(text));
elements.run.onclick();
console.log(JSON.stringify({result: String(elements.result.textContent), alerts}));
)";

void save(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        qFatal("%s cannot be written", qPrintable(path));
}

} // namespace

QJsonObject calculate(const QString &node, const QString &page, const QStringList &entries)
{
    const QTemporaryDir folder;
    save(folder.filePath(u"page.html"_s), page.toUtf8());
    save(folder.filePath(u"browser.js"_s), browser);

    QProcess process;
    process.start(node, QStringList{folder.filePath(u"browser.js"_s), folder.filePath(u"page.html"_s)} + entries);
    process.waitForFinished(20000);
    return QJsonDocument::fromJson(process.readAllStandardOutput()).object();
}

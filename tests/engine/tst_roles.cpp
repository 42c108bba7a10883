#include "helpers.h"
#include "roles.h"

#include <QDir>
#include <QFile>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

qsizetype lengthOf(const QJsonArray &memory)
{
    return json({{u"task"_s, QJsonObject()}, {u"artifact"_s, QJsonObject()}, {u"memory"_s, memory}}).size();
}

/// The selection as it is defined: the whole is written out after every entry. Undefined when nothing fits.
QJsonValue selectedByWritingItOut(const QJsonArray &memory, int limit)
{
    QJsonArray chosen;
    for (qsizetype i = memory.size() - 1; i >= 0; --i) {
        chosen.append(memory.at(i));
        if (lengthOf(chosen) > limit) {
            chosen.removeLast();
            break;
        }
    }
    return lengthOf(chosen) <= limit ? QJsonValue(chosen) : QJsonValue(QJsonValue::Undefined);
}

} // namespace

class RolesTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { registerPrompts(); }

    void aPromptIsTheFileByteForByte()
    {
        const QFileInfoList files = QDir(QStringLiteral(PROMPTS_FOLDER)).entryInfoList({u"*.md"_s});
        QCOMPARE(files.size(), 18);
        for (const QFileInfo &file : files) {
            QFile source(file.filePath());
            QVERIFY(source.open(QIODevice::ReadOnly));
            QCOMPARE(PromptManager::get(file.completeBaseName()).toUtf8(), source.readAll());
        }
    }

    void aRoleWithoutAPromptGetsTheSpecialists()
    {
        QVERIFY(!PromptManager::get(u"specialist"_s).isEmpty());
        for (const QString &role : {u"botanist"_s, u"Planner"_s, QString(), u"../../etc/hostname"_s})
            QCOMPARE(PromptManager::get(role), PromptManager::get(u"specialist"_s));
    }

    void theNewestMemoryThatFitsReachesTheModel()
    {
        const QJsonArray memory{
            u"простой текст"_s, u"кавычка \" и \\ и\nстрока\u0001"_s,   u"эмодзи 🧮"_s, 1e300, -7, QJsonValue(),
            QJsonArray{1},      QJsonObject{{u"ключ"_s, QJsonObject()}}};
        for (int limit = 0; limit <= lengthOf(memory) + 1; ++limit) {
            QJsonValue selected(QJsonValue::Undefined);
            try {
                selected = ContextManager::select({}, {}, memory, limit)["memory"_L1];
            } catch (const std::runtime_error &error) {
                QCOMPARE(textOf(error), u"Selected context exceeds configured limit"_s);
            }
            QCOMPARE(selected, selectedByWritingItOut(memory, limit));
        }
    }
};

QTEST_GUILESS_MAIN(RolesTest)
#include "tst_roles.moc"

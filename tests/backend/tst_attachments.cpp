// Files that go with a message: real workers on real files, called as the window calls.

#include "backend_desk.h"
#include "files.h"
#include "media_worker.h"
#include "process_containment.h"
#include "roles.h"

#include <QBuffer>
#include <QGuiApplication>
#include <QImage>
#include <QTest>
#include <QUrl>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

const QString unreadable = u"Не удалось прочитать путь вложения. Выберите файл повторно или перетащите его в чат."_s;

} // namespace

class AttachmentsTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup() { desk.reset(); }
    void filesBecomeAttachmentsOfOneMessage();
    void oneBadFileStopsTheWholeCall_data();
    void oneBadFileStopsTheWholeCall();
    void noMoreThanEightGoTogether();
    void whatCannotBeImportedIsTold();
    void stoppingEndsAnImport();
    void aFileStaysWithTheProjectThatItWasAddedTo();
    void aFileWithoutAProjectMakesOne();
    void aFileGoesWithTheLineThatItWasAddedFor();
    void aPictureNeedsAModelThatCanSee();
    void aFollowUpQuestionKeepsItsFile();

private:
    QString file(const QString &name, const QByteArray &bytes = "текст") const
    {
        save(desk->path(u"files/"_s + name), bytes);
        return desk->path(u"files/"_s + name);
    }
    QVariantList attachments() const { return desk->read("attachments").toList(); }
    bool importing() const { return desk->read("importing").toBool(); }
    void begin(const QVariantList &files)
    {
        QVariantList arguments;
        arguments.append(QVariant(files)); // in braces it would be the list of arguments itself
        desk->call("attachFiles", arguments);
    }
    /// Attaches them and waits for the end of it.
    void attach(const QVariantList &files)
    {
        begin(files);
        QTRY_VERIFY_WITH_TIMEOUT(!importing(), 20000);
    }
    std::unique_ptr<Desk> desk;
};

void AttachmentsTest::init()
{
    desk = std::make_unique<Desk>();
    desk->createProject();
}

void AttachmentsTest::filesBecomeAttachmentsOfOneMessage()
{
    QImage image(20, 10, QImage::Format_RGB32);
    image.fill(Qt::blue);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    image.save(&buffer, "PNG");
    const QString picture = file(u"Фото 100%.png"_s, bytes);
    begin({QUrl::fromLocalFile(picture).toString()});
    QVERIFY(importing());
    desk->call("sendMessage", {u"Опиши"_s});
    QCOMPARE(desk->message(), u"Дождитесь добавления вложений"_s);
    QTRY_VERIFY(!importing());
    attach({file(u"b.txt"_s)}); // a plain path, too
    QCOMPARE(attachments().size(), 2);
    const QVariantMap first = attachments()[0].toMap();
    QCOMPARE(first[u"type"_s].toString(), u"media"_s);
    QCOMPARE(first[u"status"_s].toString(), u"IMPORTED"_s);
    QCOMPARE(first[u"width"_s].toInt(), 20);
    QVERIFY(QImage(QUrl(first[u"url"_s].toString()).toLocalFile()).size() == QSize(20, 10));
    desk->call("showFile", {first[u"path"_s]});
    QTRY_VERIFY(desk->read("viewerPicture").toString().startsWith(u"data:image/jpeg;base64,/9j/"_s));
    desk->call("showFile", {u""_s});
    QCOMPARE(desk->read("viewerPicture").toString(), QString());
    const QString second = attachments()[1].toMap()[u"id"_s].toString();
    desk->call("removeAttachment", {second});
    QCOMPARE(attachments().size(), 1);

    desk->call("sendMessage", {u"Поставь как баннер"_s});
    QCOMPARE(attachments().size(), 0);
    QVERIFY(desk->chat(u"message"_s)[0].endsWith(u"\n\nВложения:\n"_s + first[u"path"_s].toString()));
    const auto pinned = [&] {
        const QVariantList files = desk->read("files").toList();
        QString notes;
        for (const QVariant &medium : files)
            notes
                += medium.toMap()[u"usage"_s].toString() + (medium.toMap()[u"pinned"_s].toBool() ? u"!"_s : QString());
        return notes;
    };
    QCOMPARE(pinned(), u"Баннер!"_s);
    desk->call("pinAsset", {first[u"path"_s], u"  "_s});
    QCOMPARE(pinned(), QString());
    QCOMPARE(desk->read("files").toList().size(), 2); // what was taken out of the message stays with the project
    desk->reopen();
    QCOMPARE(desk->read("files").toList().size(), 2);
}

void AttachmentsTest::oneBadFileStopsTheWholeCall_data()
{
    QTest::addColumn<QString>("bad");
    QTest::newRow("folder") << u"/tmp"_s;
    QTest::newRow("nothing") << u"/none/none.png"_s;
    QTest::newRow("empty") << QString();
    QTest::newRow("web") << u"http://127.0.0.1:9/a.png"_s;
    QTest::newRow("relative") << u"a.png"_s;
    QTest::newRow("device") << u"file:///dev/zero"_s;
}

void AttachmentsTest::oneBadFileStopsTheWholeCall()
{
    QFETCH(QString, bad);
    begin({file(u"a.txt"_s), bad});
    QVERIFY(!importing());
    QCOMPARE(desk->message(), unreadable);
}

void AttachmentsTest::noMoreThanEightGoTogether()
{
    QVariantList files;
    for (int i = 0; i < 5; ++i)
        files.append(file(u"%1.txt"_s.arg(i)));
    attach(files);
    QCOMPARE(attachments().size(), 5);
    begin(files.mid(0, 2));
    begin(files.mid(0, 2));
    QCOMPARE(desk->message(), u"До 8 вложений в одном сообщении"_s);
    begin(files.mid(0, 1));
    QTRY_VERIFY(!importing());
    QCOMPARE(attachments().size(), 8);
}

void AttachmentsTest::whatCannotBeImportedIsTold()
{
    attach({file(u"broken.png"_s), file(u"good.txt"_s)});
    QCOMPARE(desk->message(), u"Не удалось декодировать изображение"_s);
    QCOMPARE(attachments().size(), 1);
    attach({file(u"c:\\a?.txt"_s)}); // a name that the workspace refuses
    const QString path = attachments()[1].toMap()[u"path"_s].toString();
    QCOMPARE(desk->call("fileContent", {path}).toString(), u"текст"_s);
}

void AttachmentsTest::stoppingEndsAnImport()
{
    QFile large(file(u"large.bin"_s));
    QVERIFY(large.resize(250000000));
    begin({large.fileName()});
    QVERIFY(importing());
    const QDir copies(desk->read("root").toString() + u"/assets"_s);
    QTRY_VERIFY(!copies.entryList(QDir::Dirs | QDir::NoDotAndDotDot).isEmpty());
    desk->call("stop");
    QVERIFY(!importing());
    QTRY_VERIFY(copies.entryList(QDir::Dirs | QDir::NoDotAndDotDot).isEmpty());
    QCOMPARE(attachments().size(), 0);
}

void AttachmentsTest::aFileStaysWithTheProjectThatItWasAddedTo()
{
    const QString first = desk->read("projects").toList()[0].toMap()[u"id"_s].toString();
    begin({file(u"note.txt"_s)});
    desk->createProject(u"Другой"_s);
    QTRY_VERIFY(!importing());
    QCOMPARE(attachments().size(), 0);
    QCOMPARE(desk->read("files").toList().size(), 0);
    desk->call("selectProject", {first});
    QCOMPARE(desk->read("files").toList().size(), 1);
}

void AttachmentsTest::aFileWithoutAProjectMakesOne()
{
    desk = std::make_unique<Desk>();
    attach({file(u"a.txt"_s), u"/none"_s});
    QCOMPARE(desk->message(), unreadable);
    QCOMPARE(desk->read("projectName").toString(), QString());
    attach({file(u"a.txt"_s)});
    QCOMPARE(desk->message(), QString());
    QCOMPARE(desk->read("projectName").toString(), u"Мой проект"_s);
    QCOMPARE(attachments().size(), 1);
    desk->createProject(u"Другой"_s);
    QCOMPARE(attachments().size(), 0);
}

void AttachmentsTest::aFileGoesWithTheLineThatItWasAddedFor()
{
    const auto mediaOfTasks = [&] {
        return desk->sql(u"SELECT group_concat(json_extract(body, '$.spec.media[#-1].name')) FROM tasks"_s).toString();
    };
    desk->call("sendMessage", {u"Создай калькулятор"_s});
    QVERIFY(desk->waitForPhase(u"CLARIFICATION"_s));
    attach({file(u"logo.txt"_s)});
    desk->call("sendMessage", {u"Используй этот файл"_s}); // the answer
    QCOMPARE(attachments().size(), 0);
    QCOMPARE(mediaOfTasks(), u"logo.txt"_s);

    desk->call("start", {u"Создай калькулятор"_s, false, 1000000, u""_s, u"[]"_s});
    QCOMPARE(desk->read("queue").toList().size(), 1);
    desk->call("stop");
    attach({file(u"later.txt"_s)});
    desk->call("resumeQueue");
    QTRY_COMPARE(desk->read("queue").toList().size(), 0);
    QVERIFY(desk->waitForPhase(u"CLARIFICATION"_s));
    QCOMPARE(mediaOfTasks(), u"logo.txt,logo.txt"_s); // of the conversation
    QCOMPARE(attachments().size(), 1);
}

void AttachmentsTest::aPictureNeedsAModelThatCanSee()
{
    QImage image(2, 2, QImage::Format_RGB32);
    const QString picture = desk->path(u"p.png"_s);
    image.fill(Qt::red);
    QVERIFY(image.save(picture));
    attach({picture});
    desk->call("sendMessage", {u"Что на фото?"_s});
    QCOMPARE(desk->chat(u"error"_s).size(), 1);
    QVERIFY(desk->chat(u"error"_s)[0].startsWith(u"Для чтения фото нужна модель с поддержкой изображений."_s));
    QVERIFY(!desk->busy());
}

void AttachmentsTest::aFollowUpQuestionKeepsItsFile()
{
    desk->sql(u"INSERT INTO files SELECT id || ':gone', id, '{\"path\":\"gone\",\"hash\":\"x\"}', '' FROM projects"_s);
    desk->reopen();
    attach({file(u"plan.txt"_s)});
    desk->call("sendMessage", {u"Создай калькулятор"_s});
    QVERIFY2(desk->message().contains(u"удалён gone"_s), qPrintable(desk->message()));
    QCOMPARE(attachments().size(), 1); // with the line that is still to be sent
    desk->sql(u"DELETE FROM files"_s);
    desk->reopen();
    attach({file(u"plan.txt"_s)});
    desk->call("sendMessage", {u"Создай калькулятор"_s});
    QCOMPARE(desk->message(), QString());
    QCOMPARE(attachments().size(), 0);
    desk->call("stop");
    desk->call("newConversation");
    attach({file(u"note.txt"_s)});
    desk->call("sendMessage", {u"О чём это?"_s});
    QTRY_VERIFY(!desk->busy());
    // Without a sign of a question: it goes to the chat, not to the demonstration's refusal, because of the file.
    desk->call("sendMessage", {u"а короче?"_s});
    QTRY_VERIFY(!desk->busy());
    QCOMPARE(desk->chat(u"message"_s).size(), 4);
    QVERIFY(desk->chat(u"message"_s)[3].startsWith(u"Я работаю в деморежиме"_s));
}

int main(int argc, char **argv)
{
    int code = 0;
    if (wasMediaWorker(argc, argv, code))
        return code;
    registerPrompts();
    ProcessContainment::useGuard(QStringLiteral(VESK_GUARD_PROGRAM));
    const QGuiApplication application(argc, argv);
    AttachmentsTest test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_attachments.moc"

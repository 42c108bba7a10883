// Jobs on real files: pictures and videos made here, paths that lead elsewhere, broken input.

#include "files.h"
#include "helpers.h"
#include "media_job.h"

#include <QBuffer>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <array>

#include <sys/stat.h>

using namespace Qt::StringLiterals;
using namespace vesk;

class MediaJobTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void init();
    void aPathStaysInTheProject_data();
    void aPathStaysInTheProject();
    void aLinkIsNoPath();
    void aFileIsCopiedWithWhatAModelSeesOfIt();
    void aPictureIsShownSmallAndABrokenOneRefused();
    void aPictureIsReadByItsContent_data();
    void aPictureIsReadByItsContent();
    void aPhotographIsTurnedAsItWasTaken();
    void aTransparentPictureStandsOnWhite();
    void aFileOfAnyNameIsTaken_data();
    void aFileOfAnyNameIsTaken();
    void noMoreThan256MiBAreImported();
    void aVideoIsShownByPicturesOfIt();
    void theTimesAreSpreadOverTheLength_data();
    void theTimesAreSpreadOverTheLength();
    void aPictureIsEdited_data();
    void aPictureIsEdited();
    void aVideoIsCutAndAPictureTakenOfIt();
    void aVideoIsNotCutAnyHow_data();
    void aVideoIsNotCutAnyHow();
    void onlyVerticesMove();
    void filesAreFoundByAPartOfTheirName();
    void whatFfmpegSaysIsTakenAsItIs();
    void anyKindOfFileHasAnAnswer_data();
    void anyKindOfFileHasAnAnswer();
    void theWorkerAnswersEvenNonsense_data();
    void theWorkerAnswersEvenNonsense();

private:
    QString path(const QString &name) const { return project->filePath(name); }
    QString made(const QString &name, const QByteArray &bytes) const
    {
        save(outside->filePath(name), bytes);
        return outside->filePath(name);
    }
    QJsonObject imported(const QString &source) const
    {
        return mediaJob({{u"operation"_s, u"import"_s},
                         {u"root"_s, project->path()},
                         {u"source"_s, source},
                         {u"ffmpeg"_s, QStandardPaths::findExecutable(u"ffmpeg"_s)}});
    }
    QJsonObject edited(QJsonObject job) const
    {
        job["root"_L1] = project->path();
        return mediaJob(job);
    }
    std::unique_ptr<QTemporaryDir> project;
    std::unique_ptr<QTemporaryDir> outside;
};

namespace {

QString errorOf(const QJsonObject &result)
{
    return result["success"_L1].toBool() ? u"(none)"_s : result["error"_L1].toString();
}

QByteArray picture(int width, int height)
{
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(Qt::red);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    image.save(&buffer, "PNG");
    return bytes;
}

/// A GIF of one empty frame on a canvas of another size.
QByteArray animation(QSize canvas, QSize frame)
{
    const auto bytes = [](QSize size) {
        return QByteArray() + char(size.width() & 255) + char(size.width() >> 8) + char(size.height() & 255)
            + char(size.height() >> 8);
    };
    return "GIF89a" + bytes(canvas)
        + QByteArray::fromHex("800000"
                              "000000ffffff"
                              "2c00000000")
        + bytes(frame)
        + QByteArray::fromHex("00"
                              "02024c0100"
                              "3b");
}

bool makeVideo(const QString &file, double seconds)
{
    return QProcess::execute(u"ffmpeg"_s,
                             {u"-nostdin"_s, u"-loglevel"_s, u"error"_s, u"-f"_s, u"lavfi"_s, u"-i"_s,
                              u"testsrc=size=64x48:rate=10:duration=%1"_s.arg(seconds), file})
        == 0;
}

} // namespace

void MediaJobTest::init()
{
    project = std::make_unique<QTemporaryDir>();
    outside = std::make_unique<QTemporaryDir>();
}

void MediaJobTest::aPathStaysInTheProject_data()
{
    QTest::addColumn<QString>("relative");
    QTest::addColumn<bool>("taken");
    QTest::newRow("plain") << u"assets/новый файл.png"_s << true;
    for (const char *bad :
         {"", "/etc/passwd", "../x", "a/../x", "a//x", "./x", "c:x", "a\\x", "a/.GIT/x", "a./x", "x "})
        QTest::newRow(bad) << QString::fromUtf8(bad) << false;
}

void MediaJobTest::aPathStaysInTheProject()
{
    QFETCH(QString, relative);
    QFETCH(bool, taken);
    QString found;
    try {
        found = safeMediaPath(project->path(), relative);
    } catch (const std::exception &failure) {
        QCOMPARE(QString::fromUtf8(failure.what()), u"Invalid media path"_s);
    }
    QCOMPARE(found, taken ? QDir(project->path()).canonicalPath() + u'/' + relative : QString());
}

void MediaJobTest::aLinkIsNoPath()
{
    QVERIFY(QFile::link(outside->path(), path(u"away"_s)));
    QVERIFY(QFile::link(outside->filePath(u"none"_s), path(u"nowhere.png"_s)));
    for (const QString &way : {u"away/x.png"_s, u"nowhere.png"_s}) {
        const QJsonObject result = edited({{u"operation"_s, u"image"_s}, {u"input"_s, way}, {u"output"_s, u"o.png"_s}});
        QCOMPARE(errorOf(result), u"Media symlinks are not allowed"_s);
    }
    const QString file = made(u"a.txt"_s, "a");
    QVERIFY(QFile::link(file, outside->filePath(u"link.txt"_s)));
    QCOMPARE(errorOf(imported(outside->filePath(u"link.txt"_s))), u"Файл должен быть обычным файлом до 256 МиБ."_s);
}

void MediaJobTest::aFileIsCopiedWithWhatAModelSeesOfIt()
{
    const QByteArray text = QByteArray("строка\n").repeated(2000);
    const QJsonObject result = imported(made(u"Заметка.TXT"_s, text));
    QCOMPARE(errorOf(result), u"(none)"_s);
    QCOMPARE(result["kind"_L1].toString(), u"text"_s);
    QCOMPARE(result["name"_L1].toString(), u"Заметка.TXT"_s);
    QCOMPARE(result["bytes"_L1].toInteger(), text.size());
    QCOMPARE(contentOf(path(result["path"_L1].toString())), text);
    QCOMPARE(result["excerpt"_L1].toString(), QString::fromUtf8(text.left(12000)));
    QVERIFY(!result.contains("note"_L1));
    QCOMPARE(imported(made(u"a.stl"_s, "solid"))["note"_L1].toString(),
             u"3D-ресурс: геометрия не визуализирована автоматически."_s);
    QCOMPARE(imported(made(u"безымянный"_s, "?"))["kind"_L1].toString(), u"file"_s);
    QCOMPARE(errorOf(imported(outside->path())), u"Файл должен быть обычным файлом до 256 МиБ."_s);
}

void MediaJobTest::aPictureIsShownSmallAndABrokenOneRefused()
{
    const QJsonObject result = imported(made(u"p.png"_s, picture(3000, 1000)));
    QCOMPARE(errorOf(result), u"(none)"_s);
    QCOMPARE(result["width"_L1].toInt(), 3000);
    QCOMPARE(QImage(path(result["preview"_L1].toString())).size(), QSize(1536, 512));
    const QString tall = imported(made(u"tall.png"_s, picture(1000, 3000)))["preview"_L1].toString();
    QCOMPARE(QImage(path(tall)).size(), QSize(512, 1536));
    const QStringList before = everythingIn(project->path());
    const QJsonObject shown = edited({{u"operation"_s, u"preview"_s}, {u"input"_s, tall}});
    QCOMPARE(QImage::fromData(QByteArray::fromBase64(shown["jpeg"_L1].toString().toLatin1())).size(), QSize(512, 1536));
    QCOMPARE(errorOf(edited({{u"operation"_s, u"preview"_s}, {u"input"_s, u"../p.png"_s}})), u"Invalid media path"_s);
    QCOMPARE(everythingIn(project->path()), before);
    QCOMPARE(errorOf(imported(made(u"broken.png"_s, picture(9, 9).left(40)))),
             u"Не удалось декодировать изображение"_s);
    // Headers without a picture behind them.
    QCOMPARE(errorOf(imported(made(u"most.png"_s, "P6 7071 7071 255\n"))), u"Не удалось декодировать изображение"_s);
    QCOMPARE(errorOf(imported(made(u"huge.png"_s, "P6 7072 7071 255\n"))), u"Изображение превышает 50 мегапикселей"_s);
}

void MediaJobTest::aPictureIsReadByItsContent_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QSize>("preview");
    QTest::addColumn<QString>("error");
    const QString tooLarge = u"Изображение превышает 50 мегапикселей"_s;
    QTest::newRow("another format") << animation({100, 50}, {100, 50}) << QSize(100, 50) << u"(none)"_s;
    QTest::newRow("too large for what it says") << animation({8200, 8200}, {1, 1}) << QSize() << tooLarge;
    QTest::newRow("a line") << picture(5000, 1) << QSize(1536, 1) << u"(none)"_s;
}

void MediaJobTest::aPictureIsReadByItsContent()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QSize, preview);
    const QJsonObject result = imported(made(u"a.png"_s, bytes));
    QTEST(errorOf(result), "error");
    const QImage shown(path(result["preview"_L1].toString()));
    QCOMPARE(shown.size(), preview.isValid() ? preview : QSize(0, 0));
    // What can't be imported isn't in the project.
    QCOMPARE(everythingIn(path(u"assets"_s)).size(), preview.isValid() ? 1 : 0);
}

void MediaJobTest::aPhotographIsTurnedAsItWasTaken()
{
    QBuffer buffer;
    QImage::fromData(picture(40, 20)).save(&buffer, "JPG");
    // A camera notes that it was held upright.
    const QByteArray note = QByteArray::fromHex("ffe10022457869660000"
                                                "4d4d002a00000008"
                                                "0001"
                                                "0112000300000001"
                                                "00060000"
                                                "00000000");
    save(path(u"photo.jpg"_s), QByteArray(buffer.data()).insert(2, note));
    QCOMPARE(QImage(path(imported(path(u"photo.jpg"_s))["preview"_L1].toString())).size(), QSize(20, 40));
    QCOMPARE(errorOf(edited({{u"operation"_s, u"image"_s},
                             {u"input"_s, u"photo.jpg"_s},
                             {u"output"_s, u"o.png"_s},
                             {u"width"_s, 20},
                             {u"height"_s, 40}})),
             u"(none)"_s);
    QCOMPARE(QImage(path(u"o.png"_s)).size(), QSize(20, 40));
}

void MediaJobTest::aTransparentPictureStandsOnWhite()
{
    QImage glass(4, 4, QImage::Format_ARGB32);
    glass.fill(Qt::transparent);
    QVERIFY(glass.save(path(u"glass.png"_s)));
    QCOMPARE(errorOf(edited({{u"operation"_s, u"image"_s}, {u"input"_s, u"glass.png"_s}, {u"output"_s, u"o.webp"_s}})),
             u"(none)"_s);
    const QImage shown(path(imported(path(u"o.webp"_s))["preview"_L1].toString()));
    QCOMPARE(shown.pixelColor(1, 1), QColor(Qt::white));
}

void MediaJobTest::aFileOfAnyNameIsTaken_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("stored");
    QTest::newRow("of other systems") << u"a:b\\c?.txt"_s << u"a_b_c_.txt"_s;
    QTest::newRow("dot at the end") << u"a. ."_s << u"a"_s;
    QTest::newRow("two lines") << u"a\nb.txt"_s << u"a_b.txt"_s;
    QTest::newRow("a device") << u"Con.txt"_s << u"_Con.txt"_s;
    QTest::newRow("of git") << u".Git"_s << u"_.Git"_s;
    QTest::newRow("long") << QString(120, u'я') + u".txt"_s << QString(108, u'я') + u".txt"_s;
}

void MediaJobTest::aFileOfAnyNameIsTaken()
{
    QFETCH(QString, name);
    QFETCH(QString, stored);
    const QJsonObject result = imported(made(name, "x"));
    QCOMPARE(result["name"_L1].toString(), name);
    QCOMPARE(result["path"_L1].toString().section(u'/', 2), stored);
    QCOMPARE(contentOf(path(result["path"_L1].toString())), "x");
}

void MediaJobTest::noMoreThan256MiBAreImported()
{
    QFile file(made(u"big.bin"_s, {}));
    QVERIFY(file.resize(268435457));
    QCOMPARE(errorOf(imported(file.fileName())), u"Файл должен быть обычным файлом до 256 МиБ."_s);
    QVERIFY(file.resize(268435456));
    QCOMPARE(errorOf(imported(file.fileName())), u"(none)"_s);
}

void MediaJobTest::aVideoIsShownByPicturesOfIt()
{
    const QString video = outside->filePath(u"v%d.mp4"_s); // in the name of a picture it would stand for a number
    QVERIFY(makeVideo(video, 2));
    const QJsonObject result = imported(video);
    QCOMPARE(result["duration_seconds"_L1].toDouble(), 2.0);
    const QJsonArray frames = result["frames"_L1].toArray();
    QCOMPARE(frames.size(), 2);
    QCOMPARE(frames[1]["second"_L1].toDouble(), 1.0);
    QCOMPARE(QImage(path(frames[1]["preview"_L1].toString())).width(), 1024);
    QCOMPARE(result["preview"_L1], frames[0]["preview"_L1]);
    const QJsonObject broken = imported(made(u"broken.mp4"_s, "no video"));
    QCOMPARE(errorOf(broken), u"(none)"_s);
    QCOMPARE(broken["frames"_L1].toArray(), QJsonArray());
    QVERIFY(!broken.contains("preview"_L1));
}

void MediaJobTest::theTimesAreSpreadOverTheLength_data()
{
    QTest::addColumn<double>("seconds");
    QTest::addColumn<QList<double>>("times");
    QTest::newRow("short") << .4 << QList<double>{0};
    QTest::newRow("two") << 2. << QList<double>{0, 1};
    QTest::newRow("three") << 3. << QList<double>{0, 1, 2};
    QTest::newRow("long") << 71. << QList<double>{0, 10, 20, 30, 40, 50, 60, 70};
}

void MediaJobTest::theTimesAreSpreadOverTheLength()
{
    QFETCH(double, seconds);
    QTEST(sampleTimes(seconds), "times");
}

void MediaJobTest::aPictureIsEdited_data()
{
    QTest::addColumn<QString>("job");
    QTest::addColumn<QSize>("size");
    QTest::addColumn<QString>("error");
    const QString done = u"(none)"_s;
    QTest::newRow("fits its box") << u"{'width':100}"_s << QSize(100, 50) << done;
    QTest::newRow("cut, then sized") << u"{'crop':[0,0,200,200],'width':50,'height':90}"_s << QSize(50, 50) << done;
    QTest::newRow("turned") << u"{'rotate':90}"_s << QSize(200, 400) << done;
    QTest::newRow("turned beyond bounds")
        << u"{'width':7000,'height':7000,'rotate':45}"_s << QSize() << u"Размер результата превышен"_s;
    QTest::newRow("on a colour") << u"{'background':'#ff0000'}"_s << QSize(400, 200) << done;
    QTest::newRow("cut outside") << u"{'crop':[300,0,200,10]}"_s << QSize() << u"Область обрезки за границами"_s;
    QTest::newRow("cut beyond numbers") << u"{'crop':[9007199254740991,1,9007199254740991,1]}"_s << QSize()
                                        << u"Область обрезки за границами"_s;
    QTest::newRow("cut at a word") << u"{'crop':['a',0,9,9]}"_s << QSize() << u"Область обрезки за границами"_s;
    QTest::newRow("cut by three") << u"{'crop':[1,2,3]}"_s << QSize() << u"crop: [x,y,width,height]"_s;
    QTest::newRow("too large") << u"{'width':9000,'height':9000}"_s << QSize() << u"Размер результата превышен"_s;
    QTest::newRow("no colour") << u"{'background':'nocolour'}"_s << QSize() << u"Неверный цвет фона"_s;
    QTest::newRow("no format") << u"{'output':'o.xyz'}"_s << QSize() << u"Формат изображения не поддерживается"_s;
    QTest::newRow("over itself") << u"{'output':'in.png'}"_s << QSize()
                                 << u"Результат должен быть новым файлом; оригинал сохраняется."_s;
}

void MediaJobTest::aPictureIsEdited()
{
    QFETCH(QString, job);
    QFETCH(QSize, size);
    save(path(u"in.png"_s), picture(400, 200));
    QJsonObject whole = QJsonDocument::fromJson(job.replace(u'\'', u'"').toUtf8()).object();
    whole["operation"_L1] = u"image"_s;
    whole["input"_L1] = u"in.png"_s;
    if (!whole.contains("output"_L1))
        whole["output"_L1] = u"new/out.png"_s;
    const QJsonObject result = edited(whole);
    QTEST(errorOf(result), "error");
    QCOMPARE(QImage(path(u"new/out.png"_s)).size(), size.isValid() ? size : QSize(0, 0));
}

void MediaJobTest::aVideoIsCutAndAPictureTakenOfIt()
{
    QVERIFY(makeVideo(path(u"in.mp4"_s), 3));
    const QString ffmpeg = QStandardPaths::findExecutable(u"ffmpeg"_s);
    QJsonObject job{{u"operation"_s, u"video"_s}, {u"input"_s, u"in.mp4"_s}, {u"output"_s, u"out.mp4"_s},
                    {u"ffmpeg"_s, ffmpeg},        {u"start"_s, 1},           {u"duration"_s, 1}};
    QCOMPARE(errorOf(edited(job)), u"(none)"_s);
    QCOMPARE(imported(path(u"out.mp4"_s))["duration_seconds"_L1].toDouble(), 1.0);
    job["operation"_L1] = u"frame"_s;
    job["output"_L1] = u"frame.png"_s;
    job["width"_L1] = 32;
    QCOMPARE(errorOf(edited(job)), u"(none)"_s);
    QCOMPARE(QImage(path(u"frame.png"_s)).size(), QSize(32, 24));
    job["output"_L1] = u"frame.jpeg"_s;
    QCOMPARE(errorOf(edited(job)), u"(none)"_s);
}

void MediaJobTest::aVideoIsNotCutAnyHow_data()
{
    QTest::addColumn<QString>("job");
    QTest::addColumn<QString>("error");
    const QString width = u"Ширина видео должна быть 16–7680"_s;
    const QString time = u"Неверный интервал видео"_s;
    QTest::newRow("a frame as an animation")
        << u"{'operation':'frame','output':'o.gif'}"_s << u"Кадр сохраняется в PNG/JPG"_s;
    QTest::newRow("not MP4") << u"{'output':'o.avi'}"_s << u"Видео сохраняется в MP4"_s;
    QTest::newRow("narrow") << u"{'width':15}"_s << width;
    QTest::newRow("wide") << u"{'width':7681}"_s << width;
    QTest::newRow("before the start") << u"{'start':-1}"_s << time;
    QTest::newRow("for ever") << u"{'duration':864000}"_s << time;
    QTest::newRow("no program") << u"{'ffmpeg':'/none'}"_s << u"FFmpeg не найден. Укажите путь в настройках API."_s;
    QTest::newRow("no video") << u"{}"_s << u"FFmpeg: "_s;
}

void MediaJobTest::aVideoIsNotCutAnyHow()
{
    QFETCH(QString, job);
    QFETCH(QString, error);
    save(path(u"in.mp4"_s), "no video");
    QJsonObject whole{{u"operation"_s, u"video"_s},
                      {u"input"_s, u"in.mp4"_s},
                      {u"output"_s, u"o.mp4"_s},
                      {u"ffmpeg"_s, QStandardPaths::findExecutable(u"ffmpeg"_s)}};
    const QJsonObject more = QJsonDocument::fromJson(job.replace(u'\'', u'"').toUtf8()).object();
    for (auto entry = more.begin(); entry != more.end(); ++entry)
        whole[entry.key()] = *entry;
    const QString told = errorOf(edited(whole));
    QVERIFY2(told.startsWith(error), qPrintable(told));
}

void MediaJobTest::onlyVerticesMove()
{
    QJsonObject job{{u"operation"_s, u"obj_transform"_s},
                    {u"input"_s, u"in.obj"_s},
                    {u"output"_s, u"out.obj"_s},
                    {u"scale"_s, 2},
                    {u"translate"_s, QJsonArray{1, 0, -1}}};
    save(path(u"in.obj"_s),
         "# v 1 2 3\r\n\nv 1 2.5 3 .5\nvn 1 2 3\nv\t1 2 3\n" + QByteArray(1 << 20, 'x') + "v 1 2 3\nf 1");
    QCOMPARE(errorOf(edited(job)), u"(none)"_s);
    QCOMPARE(contentOf(path(u"out.obj"_s)),
             "# v 1 2 3\r\n\nv 3 5 5 .5\nvn 1 2 3\nv\t1 2 3\n" + QByteArray(1 << 20, 'x') + "v 1 2 3\nf 1");
    job["output"_L1] = u"other.obj"_s;
    for (const auto &[line, error] : {std::pair(QByteArray("v 1 2"), u"Повреждённая вершина OBJ"_s),
                                      std::pair(QByteArray("v 1 nan 3"), u"Неверная координата OBJ"_s),
                                      std::pair(QByteArray("v -inf 2 3"), u"Неверная координата OBJ"_s),
                                      std::pair(QByteArray("v 1 2 1e308"), u"Неверная координата OBJ"_s)}) {
        save(path(u"in.obj"_s), line);
        QCOMPARE(errorOf(edited(job)), error);
        QVERIFY(!QFile::exists(path(u"other.obj"_s)));
    }
    save(path(u"in.obj"_s), "v 1 2 3");
    job["translate"_L1] = QJsonArray{1, 1}; // not one for each axis
    QCOMPARE(errorOf(edited(job)), u"(none)"_s);
    QCOMPARE(contentOf(path(u"other.obj"_s)), "v 2 4 6\n");
    job["output"_L1] = u"third.obj"_s;
    job["scale"_L1] = 0;
    QCOMPARE(errorOf(edited(job)), u"Неверный масштаб"_s);
    save(path(u"in.stl"_s), "v 1 2 3");
    job["input"_L1] = u"in.stl"_s;
    QCOMPARE(errorOf(edited(job)), u"Преобразование геометрии поддерживает OBJ"_s);
}

void MediaJobTest::filesAreFoundByAPartOfTheirName()
{
    for (const QString &name : {u"Отпуск.jpg"_s, u"deep/ОТПУСК2.png"_s, u"Node_Modules/отпуск.js"_s, u"work.txt"_s})
        save(path(name), "x");
    const auto found
        = [&](const QString &query) { return edited({{u"operation"_s, u"find_files"_s}, {u"query"_s, query}}); };
    QCOMPARE(found(u" отпуск "_s)["files"_L1].toArray().size(), 2);
    QVERIFY(!found(u"отпуск"_s)["limited"_L1].toBool());
    QCOMPARE(errorOf(found(u" "_s)), u"Укажите часть имени файла"_s);
    for (int i = 0; i < 101; ++i)
        save(path(u"many/%1.log"_s.arg(i)), "x");
    QCOMPARE(found(u".log"_s)["files"_L1].toArray().size(), 100);
    QVERIFY(found(u".log"_s)["limited"_L1].toBool());
    const QJsonObject many
        = mediaJob({{u"operation"_s, u"find_files"_s}, {u"root"_s, path(u"many"_s)}, {u"query"_s, u".log"_s}});
    QCOMPARE(many["visited"_L1].toInt(), 101);
}

void MediaJobTest::whatFfmpegSaysIsTakenAsItIs()
{
    const auto ffmpeg = [&](const QByteArray &script) {
        const QString program = made(u"ffmpeg"_s, "#!/bin/sh\nfor last; do :; done\n" + script);
        QFile::setPermissions(program, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        return program;
    };
    const QJsonObject still = mediaJob({{u"operation"_s, u"import"_s},
                                        {u"root"_s, project->path()},
                                        {u"source"_s, made(u"still.mp4"_s, "x")},
                                        {u"ffmpeg"_s, ffmpeg("echo Duration: 00:00:00.00 >&2; echo x > \"$last\"")}});
    QCOMPARE(still["duration_seconds"_L1].toDouble(-1), 0.0);
    QCOMPARE(still["frames"_L1].toArray().size(), 1);

    save(path(u"in.mp4"_s), "x");
    const QByteArray complaint = QByteArray("я").repeated(1600) + "\321"; // and half a letter
    const QJsonObject failed = edited({{u"operation"_s, u"video"_s},
                                       {u"input"_s, u"in.mp4"_s},
                                       {u"output"_s, u"o.mp4"_s},
                                       {u"ffmpeg"_s, ffmpeg("printf " + complaint + " >&2; echo x > $last; exit 1")}});
    QCOMPARE(errorOf(failed), u"FFmpeg: "_s + QString(1499, u'я') + QChar::ReplacementCharacter);
    QVERIFY(!QFile::exists(path(u"o.mp4"_s)));
}

void MediaJobTest::anyKindOfFileHasAnAnswer_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("error");
    const QString special = u"Исходный файл должен быть обычным файлом"_s;
    const QString noSize = u"Неподдерживаемый размер изображения"_s;
    const QString noObj = u"OBJ не читается или превышает 64 МиБ"_s;
    for (const auto &[operation, file, error] : QList<std::array<QString, 3>>{
             {u"image"_s, u"pipe.png"_s, special},
             {u"obj_transform"_s, u"pipe.obj"_s, special},
             {u"frame"_s, u"pipe.mp4"_s, special},
             {u"import"_s, u"pipe.mp4"_s, u"Файл должен быть обычным файлом до 256 МиБ."_s},
             {u"image"_s, u"folder.png"_s, noSize},
             {u"obj_transform"_s, u"folder.obj"_s, noObj},
             {u"image"_s, u"none.png"_s, noSize},
             {u"obj_transform"_s, u"none.obj"_s, noObj},
             {u"image"_s, u"empty.png"_s, noSize},
             {u"obj_transform"_s, u"empty.obj"_s, u"(none)"_s},
             {u"image"_s, u"half.png"_s, u"Изображение не читается"_s},
             {u"image"_s, u"lies.png"_s, noSize},
             {u"frame"_s, u"short.mp4"_s, u"FFmpeg не создал файл: в этом месте видео ничего нет"_s},
         })
        QTest::addRow("%s %s", qPrintable(operation), qPrintable(file)) << operation << file << error;
}

void MediaJobTest::anyKindOfFileHasAnAnswer()
{
    QFETCH(QString, operation);
    QFETCH(QString, file);
    if (file.startsWith(u"pipe"_s))
        QCOMPARE(mkfifo(QFile::encodeName(path(file)).constData(), 0600), 0);
    else if (file.startsWith(u"folder"_s))
        QVERIFY(QDir().mkdir(path(file)));
    else if (file == u"short.mp4"_s)
        QVERIFY(makeVideo(path(file), 1));
    else if (file == u"lies.png"_s)
        save(path(file), animation({8200, 8200}, {1, 1}));
    else if (!file.startsWith(u"none"_s))
        save(path(file), file == u"half.png"_s ? picture(9, 9).chopped(20) : QByteArray());
    const QString output = u"out."_s + (operation == u"frame"_s ? u"png"_s : QFileInfo(file).suffix());
    const QJsonObject job{{u"operation"_s, operation},
                          {u"root"_s, project->path()},
                          {u"source"_s, path(file)},
                          {u"input"_s, file},
                          {u"output"_s, output},
                          {u"start"_s, 100},
                          {u"ffmpeg"_s, QStandardPaths::findExecutable(u"ffmpeg"_s)}};
    QProcess worker;
    worker.start(QStringLiteral(VESK_PROGRAM), {u"--media-job"_s, json(job)});
    QVERIFY(worker.waitForFinished(10000));
    const QJsonObject result = QJsonDocument::fromJson(worker.readAllStandardOutput()).object();
    QTEST(errorOf(result), "error");
    QCOMPARE(QFile::exists(path(output)), result["success"_L1].toBool());
}

void MediaJobTest::theWorkerAnswersEvenNonsense_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("none") << QStringList{u"--run"_s, u"x"_s, u"--media-job"_s};
    QTest::newRow("no JSON") << QStringList{u"--media-job"_s, u"{{"_s};
    QTest::newRow("no operation") << QStringList{u"--media-job"_s, u"{\"operation\":[1]}"_s};
}

void MediaJobTest::theWorkerAnswersEvenNonsense()
{
    QFETCH(QStringList, arguments);
    QProcess worker;
    worker.start(QStringLiteral(VESK_PROGRAM), arguments);
    QVERIFY(worker.waitForFinished());
    QCOMPARE(worker.exitCode(), 2);
    QCOMPARE(QString::fromUtf8(worker.readAllStandardOutput()),
             u"{\"error\":\"Неизвестная операция медиа\",\"success\":false}\n"_s);
}

QTEST_GUILESS_MAIN(MediaJobTest)
#include "tst_media_job.moc"

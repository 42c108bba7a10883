// A project's files for somewhere else.

#include "export_files.h"

#include "helpers.h"
#include "path_rules.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QtEndian>

#include <array>
#include <limits>
#include <memory>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

quint32 crc32(const QByteArray &bytes)
{
    static const auto table = [] {
        std::array<quint32, 256> values{};
        for (quint32 i = 0; i < values.size(); ++i) {
            quint32 value = i;
            for (int bit = 0; bit < 8; ++bit)
                value = (value >> 1) ^ ((value & 1) != 0 ? 0xedb88320U : 0);
            values[i] = value;
        }
        return values;
    }();
    quint32 sum = ~0U;
    for (const char c : bytes)
        sum = (sum >> 8) ^ table[(sum ^ uchar(c)) & 0xff];
    return ~sum;
}

template <typename Number> QByteArray little(Number number)
{
    QByteArray bytes(sizeof(Number), Qt::Uninitialized);
    qToLittleEndian(number, bytes.data());
    return bytes;
}

/// The raw stream of these bytes; nothing where there is none to be had, and of no bytes.
QByteArray deflated(const QByteArray &bytes)
{
    // qCompress puts a length and a zlib header in front of the raw stream, and a checksum behind it; of no bytes it
    // gives the length alone.
    constexpr qsizetype before = 6;
    constexpr qsizetype behind = 4;
    const QByteArray wrapped = bytes.isEmpty() ? QByteArray() : qCompress(bytes);
    return wrapped.size() > before + behind ? wrapped.sliced(before, wrapped.size() - before - behind) : QByteArray();
}

/// The plain form of a zip file, without the extensions for more than 65,535 files or 4 GiB.
class ZipFile : public FileSink {
public:
    explicit ZipFile(const QString &target)
        : device(target)
    {
        require(device.open(QIODevice::WriteOnly), u"Не удалось создать файл: "_s + target);
    }

    void add(const QString &path, const QByteArray &bytes, int mode) override
    {
        const QByteArray name = path.toUtf8();
        require(count < std::numeric_limits<quint16>::max()
                    && device.pos() + bytes.size() < std::numeric_limits<quint32>::max(),
                u"Для одного zip-файла слишком много файлов: сохраните в папку."_s);
        const QByteArray packed = deflated(bytes);
        const bool isSmaller = !packed.isEmpty() && packed.size() < bytes.size();
        const QByteArray &stored = isSmaller ? packed : bytes;
        constexpr quint16 utf8Names = 0x0800;
        constexpr quint16 noTime = 0;
        constexpr quint16 firstDay = 0x21; // 1 January 1980
        const QByteArray common = little<quint16>(20) + little<quint16>(utf8Names) + little<quint16>(isSmaller ? 8 : 0)
            + little<quint16>(noTime) + little<quint16>(firstDay) + little<quint32>(crc32(bytes))
            + little<quint32>(quint32(stored.size())) + little<quint32>(quint32(bytes.size()))
            + little<quint16>(quint16(name.size())) + little<quint16>(0);
        const quint16 madeOnUnix = 3 << 8 | 20;
        directory += "PK\1\2" + little<quint16>(madeOnUnix) + common + little<quint16>(0) + little<quint16>(0)
            + little<quint16>(0) + little<quint32>(quint32(0100000 | mode) << 16)
            + little<quint32>(quint32(device.pos())) + name;
        write("PK\3\4" + common + name + stored);
        ++count;
    }

    void finish() override
    {
        const quint32 start = quint32(device.pos());
        write(directory);
        write("PK\5\6" + little<quint16>(0) + little<quint16>(0) + little<quint16>(count) + little<quint16>(count)
              + little<quint32>(quint32(directory.size())) + little<quint32>(start) + little<quint16>(0));
        require(device.commit(), u"Не удалось записать файл: "_s + device.errorString());
    }

private:
    void write(const QByteArray &bytes)
    {
        require(device.write(bytes) == bytes.size(), u"Не удалось записать файл: "_s + device.errorString());
    }

    QSaveFile device;
    QByteArray directory;
    quint16 count = 0;
};

/// Under another name until it is whole.
class NewFolder : public FileSink {
public:
    explicit NewFolder(const QString &target)
        : target(target)
        , part(target + u".vesk-part-"_s + id().left(8))
    {
        require(QDir().mkpath(part), u"Не удалось создать папку: "_s + target);
    }
    ~NewFolder() override { QDir(part).removeRecursively(); }
    Q_DISABLE_COPY_MOVE(NewFolder)

    void add(const QString &path, const QByteArray &bytes, int mode) override
    {
        const QString name = part + u'/' + path;
        QDir().mkpath(QFileInfo(name).path());
        QFile file(name);
        require(file.open(QIODevice::WriteOnly | QIODevice::NewOnly) && file.write(bytes) == bytes.size()
                    && file.flush(),
                u"Не удалось записать файл: "_s + path + u": "_s + file.errorString());
        if ((mode & 0100) != 0)
            file.setPermissions(file.permissions() | QFileDevice::ExeOwner | QFileDevice::ExeUser
                                | QFileDevice::ExeGroup | QFileDevice::ExeOther);
    }

    void finish() override { require(QDir().rename(part, target), u"Не удалось создать папку: "_s + target); }

private:
    QString target;
    QString part;
};

/// Where a path that may not exist yet leads, with all links on the way followed.
QString leadingTo(const QString &path)
{
    QString there = QDir::cleanPath(path);
    QString rest;
    while (!QFileInfo::exists(there) && there.contains(u'/') && there != "/"_L1) {
        rest.prepend(u'/' + there.section(u'/', -1));
        there = QFileInfo(there).path();
    }
    return QFileInfo(there).canonicalFilePath() + rest;
}

} // namespace

FileExport::FileExport(const QString &projectRoot, const QString &target)
    : target(target)
{
    require(QDir::isAbsolutePath(target), u"Нужен полный путь: "_s + target);
    require(!QFileInfo::exists(target), u"Такой файл или папка уже есть: "_s + target);
    // Into the project itself a copy would be taken for the user's new files.
    require(!(leadingTo(target) + u'/').startsWith(projectRoot + u'/'),
            u"Выберите место вне папки проекта: "_s + target);
}

/// Made with the first file, on the thread that writes.
FileSink &FileExport::sink()
{
    if (!opened && target.endsWith(".zip"_L1, Qt::CaseInsensitive))
        opened = std::make_unique<ZipFile>(target);
    else if (!opened)
        opened = std::make_unique<NewFolder>(target);
    return *opened;
}

void FileExport::add(const QString &path, const QByteArray &bytes, int mode)
{
    sink().add(slashed(path), bytes, mode);
}

void FileExport::finish()
{
    sink().finish();
}

} // namespace vesk

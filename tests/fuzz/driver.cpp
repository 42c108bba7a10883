// Stands in for libFuzzer in the ordinary build: gives a target each of its seeds, and copies of them that are changed
// at random places, the same in each run. The argument is a folder of seeds, or one file, which is given as it is.

#include "fuzz.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QList>
#include <QRandomGenerator>

#include <chrono>

namespace {

constexpr int copies = 500;
constexpr int mostChanges = 6;
constexpr std::chrono::seconds slowTime(17); // the targets together: two minutes

void give(const QByteArray &bytes)
{
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.constData()), size_t(bytes.size()));
}

QByteArray read(const QString &path)
{
    QFile file(path);
    holds(file.open(QIODevice::ReadOnly));
    return file.readAll();
}

QList<QByteArray> seedsIn(const QDir &folder)
{
    QList<QByteArray> seeds;
    for (const QString &name : folder.entryList(QDir::Files, QDir::Name))
        seeds.append(read(folder.filePath(name)));
    return seeds;
}

/// One change: a byte, a piece taken out, or a piece of some seed put in.
void change(QByteArray &bytes, const QList<QByteArray> &seeds, QRandomGenerator &random)
{
    const qsizetype at = random.bounded(bytes.size() + 1);
    const QByteArray &other = seeds[random.bounded(seeds.size())];
    switch (random.bounded(4)) {
    case 0:
        bytes.insert(at, char(random.bounded(256)));
        break;
    case 1:
        bytes.replace(at, 1, QByteArray(1, char(random.bounded(256))));
        break;
    case 2:
        bytes.remove(at, random.bounded(1, 9));
        break;
    default:
        bytes.insert(at, other.mid(random.bounded(other.size() + 1), random.bounded(1, 33)));
    }
}

void giveChanged(QByteArray bytes, const QList<QByteArray> &seeds, QRandomGenerator &random)
{
    for (int left = random.bounded(1, mostChanges + 1); left > 0; --left)
        change(bytes, seeds, random);
    give(bytes);
}

} // namespace

int main(int argc, char **argv)
{
    holds(argc == 2);
    const QString path = QFile::decodeName(argv[1]);
    const QList<QByteArray> seeds = QDir(path).exists() ? seedsIn(QDir(path)) : QList{read(path)};
    holds(!seeds.isEmpty());
    for (const QByteArray &seed : seeds)
        give(seed);
    if (!QDir(path).exists())
        return 0;

    QRandomGenerator random(1);
    const bool slow = qEnvironmentVariableIsSet("VESK_SLOW_TESTS");
    const QDeadlineTimer deadline(slow ? slowTime : std::chrono::seconds(0));
    do {
        for (const QByteArray &seed : seeds) {
            for (int i = 0; i < copies; ++i)
                giveChanged(seed, seeds, random);
        }
    } while (!deadline.hasExpired());
    return 0;
}

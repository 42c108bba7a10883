// What compilers leave in a project.

#include "by_products.h"

#include <QFile>
#include <QFileInfo>
#include <QStringList>

using namespace Qt::StringLiterals;

namespace vesk {

bool isCompiled(const QFileInfo &file)
{
    static const QStringList suffixes{u"o"_s,     u"a"_s,   u"d"_s,   u"so"_s,  u"pyc"_s,
                                      u"class"_s, u"jar"_s, u"exe"_s, u"obj"_s, u"tsbuildinfo"_s};
    QFile content(file.filePath());
    return suffixes.contains(file.suffix()) || file.fileName() == "a.out"_L1
        || (file.isExecutable() && content.open(QIODevice::ReadOnly) && content.read(512).contains('\0'));
}

} // namespace vesk

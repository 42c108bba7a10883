#pragma once

#include <QFile>
#include <QFileInfo>
#include <QStringList>

#include <algorithm>

namespace vesk {

// What tools leave in a project that nobody wrote.

/// Whether a folder of this name holds what tools make for themselves.
inline bool isMachineMade(const QString &name)
{
    static const QStringList names{
        QStringLiteral(".git"),        QStringLiteral("node_modules"), QStringLiteral("dist"),
        QStringLiteral("build"),       QStringLiteral("out"),          QStringLiteral("target"),
        QStringLiteral(".venv"),       QStringLiteral("__pycache__"),  QStringLiteral(".pytest_cache"),
        QStringLiteral(".mypy_cache"), QStringLiteral(".cache"),
    };
    return names.contains(name);
}

/// Whether a file is what a compiler has made of others.
inline bool isCompiled(const QFileInfo &file)
{
    static const QStringList suffixes{
        QStringLiteral("o"),   QStringLiteral("a"),           QStringLiteral("d"),   QStringLiteral("so"),
        QStringLiteral("pyc"), QStringLiteral("class"),       QStringLiteral("jar"), QStringLiteral("exe"),
        QStringLiteral("obj"), QStringLiteral("tsbuildinfo"),
    };
    QFile content(file.filePath());
    return suffixes.contains(file.suffix()) || file.fileName() == QLatin1StringView("a.out")
        || (file.isExecutable() && content.open(QIODevice::ReadOnly) && content.read(512).contains('\0'));
}

} // namespace vesk

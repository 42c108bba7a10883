#pragma once

#include <QString>

namespace vesk {

/// Where a new project's files go.

/// A folder name that every file system takes: at most 60 characters of the name, "project" when nothing is left.
QString safeFolderName(const QString &name);

/// The folder of a new project inside `folder`, which is a path or a file URL. Without one it stays relative, which
/// the workspace refuses.
QString projectFolder(const QString &name, const QString &folder, const QString &projectId);

/// Writes "VESK-project.json" into the root, for people: nothing reads it back. Throws "Не удалось сохранить описание
/// проекта.".
void writeProjectFile(const QString &root, const QString &name, const QString &projectId);

} // namespace vesk

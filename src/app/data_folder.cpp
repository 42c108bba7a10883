// The folder of database and history, held by one process at a time.

#include "data_folder.h"

#include "helpers.h"
#include "project_record.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace vesk {

DataFolder::DataFolder(const QString &path)
    : folder(path)
{
    require(!folder.isEmpty(), u"Не указана папка данных"_s);
    const bool isNew = !QFileInfo::exists(folder);
    require(QDir().mkpath(folder), u"Не удалось создать папку данных: "_s + folder);
    // Only what is ours: a folder that was there may be anything that the user has named.
    if (isNew || QFileInfo::exists(databaseIn(folder)))
        QFile::setPermissions(folder, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    lock = std::make_unique<FolderLock>(folder);
    require(lock->outcome() != FolderLock::Outcome::Unavailable, u"Не удалось занять папку данных: "_s + folder);
}

bool DataFolder::isTaken() const
{
    return lock->outcome() == FolderLock::Outcome::Busy;
}

QString DataFolder::takenText() const
{
    return u"VESK уже работает с этой папкой данных: "_s + folder
        + u"\nДождитесь его завершения или укажите другую папку через --data-dir."_s;
}

} // namespace vesk

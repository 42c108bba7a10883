// Technical texts that end a task, told to its user.

#include "reasons.h"

#include <array>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

struct Reason {
    QStringView error; ///< The whole text, or, when it ends in a colon and a blank, its start.
    QStringView text;
};

/// What cannot be said of a file list, a plan or a review without the model that made it.
constexpr QStringView malformed = u"Модель дважды ответила не по форме";

constexpr std::array reasons{
    Reason{u"A task is already active", u"Задача уже выполняется."},
    Reason{u"Create or select a project first", u"Сначала создайте или выберите проект."},
    Reason{u"Select a workspace first", u"Сначала выберите папку проекта."},
    Reason{u"Enter a task request", u"Введите запрос."},
    Reason{u"No task to pause", u"Нет задачи, которую можно приостановить."},
    Reason{u"No task to resume", u"Нет задачи, которую можно продолжить."},
    Reason{u"No preview ready", u"Нет готового предпросмотра."},
    Reason{u"Stop the active task before changing provider", u"Остановите задачу, прежде чем менять модель."},
    Reason{u"Workspace must be an absolute folder", u"Для папки проекта нужен полный путь."},
    Reason{u"Cannot create workspace", u"Не удалось создать папку проекта."},
    Reason{u"Invalid workspace", u"Эта папка не может быть папкой проекта."},
    Reason{u"Checkpoint belongs to another project", u"Эта точка восстановления принадлежит другому проекту."},
    Reason{u"Selected context exceeds configured limit", u"Задание не помещается в один запрос к модели."},
    Reason{u"Token budget reached before next request", u"Закончился бюджет токенов этой задачи."},
    Reason{u"Plan revision limit reached", u"План не прошёл проверку после трёх вариантов."},
    Reason{u"Structure revision limit reached", u"Структура не прошла проверку после трёх вариантов."},
    Reason{u"Terminal permission denied", u"Вы не разрешили выполнить команду."},
    Reason{u"Stale review rejected", u"Файл изменился, пока его проверяли."},
    Reason{u"File write failed", u"Не удалось записать файл."},
    Reason{u"Checkpoint conflict: external changes", u"Файлы проекта изменены вне программы."},
    Reason{u"Rollback conflict: external changes",
           u"Файлы проекта изменены вне программы, восстановление остановлено."},
    Reason{u"Restoring is under way", u"Файлы ещё восстанавливаются."},
    Reason{u"Existing/untracked or externally modified file: ", u"Файл изменён вне программы или ей не известен: "},
    Reason{u"Tracked file removed externally: ", u"Файл удалён вне программы: "},
    Reason{u"Stale revision: ", u"Файл уже изменён более новой версией: "},
    Reason{u"File exceeds 2 MiB limit", u"Файл больше 2 МиБ."},
    Reason{u"Cannot read ", u"Не удалось прочитать файл: "},
    Reason{u"Cannot restore ", u"Содержимое этой версии не сохранено, вернуть её нельзя: "},
    Reason{u"Cannot write ", u"Не удалось записать файл: "},
    Reason{u"Short write", u"Файл записан не полностью: возможно, закончилось место на диске."},
    Reason{u"Atomic file replacement failed", u"Не удалось заменить файл новой версией."},
    Reason{u"Cannot create parent directory", u"Не удалось создать папку для файла."},
    Reason{u"Symlink paths are not allowed", u"Путь ведёт через ссылку, это запрещено."},
    Reason{u"Reparse paths are not allowed", u"Путь ведёт через другую файловую систему, это запрещено."},
    Reason{u"Path escapes workspace", u"Путь выходит за пределы папки проекта."},
    Reason{u"Unsafe path component", u"Недопустимое имя в пути файла."},
    Reason{u"Invalid filename", u"Недопустимое имя файла."},
    Reason{u"Invalid relative path", u"Недопустимый путь файла."},
    Reason{u"Reserved device filename", u"Это имя занято системой."},
    Reason{u"Git metadata is protected", u"Папка .git защищена от изменений."},
    Reason{u"Workspace root changed or was redirected", u"Папка проекта перемещена или заменена."},
    Reason{u"Executable not found", u"Программа не найдена."},
    Reason{u"Terminal requires absolute executable path", u"Для программы нужен полный путь."},
    Reason{u"Graph requires 1..64 nodes", u"В плане должно быть от 1 до 64 шагов."},
    Reason{u"Missing dependency: ", u"Шаг плана зависит от неизвестного шага: "},
    Reason{u"Dependency cycle", u"Шаги плана ждут друг друга по кругу."},
    Reason{u"Final gate: graph incomplete", u"Не все шаги плана выполнены."},
    Reason{u"Final gate: permissions pending", u"Остались команды без разрешения."},
    Reason{u"Final gate: unresolved fixes", u"Остались неустранённые замечания."},
    Reason{u"Final gate: stale file revision", u"Файл изменён после проверки."},
    Reason{u"Final gate: external file change", u"Файл изменён вне программы после проверки."},
    Reason{u"SQLite open failed: ", u"Не удалось открыть базу данных: "},
    Reason{u"SQLite: ", u"Не удалось сохранить состояние в базе данных: "},
    Reason{u"Commit failed", u"Не удалось сохранить состояние в базе данных."},
    Reason{u"Cannot start transaction", u"Не удалось сохранить состояние в базе данных."},
    Reason{u"Invalid JSON: ", malformed},
    Reason{u"Expected a JSON object", malformed},
    Reason{u"Invalid verdict", malformed},
    Reason{u"Review requires issues and required_changes arrays", malformed},
    Reason{u"Invalid confidence", malformed},
    Reason{u"Plan requires nodes", malformed},
    Reason{u"Invalid task specification", malformed},
    Reason{u"Specification title missing", malformed},
    Reason{u"Structure requires items", malformed},
    Reason{u"Code output needs files", malformed},
    Reason{u"Too many files per node", malformed},
    Reason{u"File requires path and content", malformed},
    Reason{u"File requires path and content, or edits of old and new", malformed},
    Reason{u"Split long documents into chapters of at most 60000 characters each",
           u"Документ длиннее 60000 символов: его нужно разделить на главы."},
    Reason{u"Cannot remove controlled file", u"Не удалось удалить файл проекта."},
    Reason{u"Approval is no longer pending", u"Этот вопрос о команде уже закрыт."},
    Reason{u"Agent does not have this tool capability", u"Этому агенту инструмент не разрешён."},
    Reason{u"Unknown tool", u"Неизвестный инструмент."},
    Reason{u"Permission required for this action", u"На это действие нет разрешения."},
    Reason{u"path must be a string", u"Путь файла должен быть строкой."},
    Reason{u"content must be a string", u"Содержимое файла должно быть строкой."},
    Reason{u"folder must be an existing absolute path", u"Папка команды должна быть задана полным путём."},
    Reason{u"arguments must be an array", u"Аргументы команды должны быть списком."},
    Reason{u"Argument must be a string", u"Аргумент команды должен быть строкой."},
    Reason{u"Cannot create process job", u"Не удалось подготовить запуск программы."},
    Reason{u"Cannot set process job limits", u"Не удалось подготовить запуск программы."},
    Reason{u"Cannot initialize process attributes", u"Не удалось подготовить запуск программы."},
    Reason{u"Cannot assign process job attribute", u"Не удалось подготовить запуск программы."},
    Reason{u"Coordinator summary missing", malformed},
    Reason{u"Result requires summary", malformed},
    Reason{u"Empty result", malformed},
    Reason{u"Node must be object", malformed},
    Reason{u"Node needs title", malformed},
    Reason{u"Duplicate/empty node ID", malformed},
    Reason{u"Unsupported node kind", malformed},
};

bool isStart(QStringView text)
{
    return text.endsWith(u' ');
}

} // namespace

QString reasonText(const QString &error)
{
    for (const Reason &reason : reasons) {
        if (error != reason.error && !(isStart(reason.error) && error.startsWith(reason.error)))
            continue;
        if (reason.text == malformed)
            return malformed.toString() + u": "_s + error;
        return reason.text.toString() + (isStart(reason.error) ? error.sliced(reason.error.size()) : QString());
    }
    return error;
}

} // namespace vesk

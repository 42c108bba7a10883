// Which mode the command line asks for.

#include "command_line.h"

#include <algorithm>
#include <array>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

struct ModeOption {
    QString name;
    Mode mode = Mode::Interface;
};

/// In the order in which they are tested.
const std::array<ModeOption, 11> &modeOptions()
{
    static const std::array<ModeOption, 11> options{{
        {u"--media-job"_s, Mode::MediaJob},
        {u"--background-worker"_s, Mode::BackgroundWorker},
        {u"--self-test-background"_s, Mode::SelfTestBackground},
        {u"--probe-mcp"_s, Mode::ProbeMcp},
        {u"--help"_s, Mode::Help},
        {u"--version"_s, Mode::Version},
        {u"--run"_s, Mode::Run},
        {u"--diff"_s, Mode::Diff},
        {u"--live-smoke"_s, Mode::LiveSmoke},
        {u"--probe-skill"_s, Mode::ProbeSkill},
        {u"--connect-qwen-environment"_s, Mode::ConnectQwenEnvironment},
    }};
    return options;
}

/// The first one found, wherever it stands in the list.
ModeOption chosenMode(const CommandLine &line)
{
    const auto &options = modeOptions();
    const auto found = std::ranges::find_if(options, [&](const ModeOption &option) { return line.has(option.name); });
    return found == options.end() ? ModeOption() : *found;
}

} // namespace

CommandLine::CommandLine(const QStringList &arguments)
    : arguments(arguments)
{
}

Mode CommandLine::mode() const
{
    return chosenMode(*this).mode;
}

QString CommandLine::modeOption() const
{
    return chosenMode(*this).name;
}

bool CommandLine::has(const QString &option) const
{
    return arguments.contains(option);
}

QString CommandLine::value(const QString &option) const
{
    const qsizetype at = arguments.indexOf(option);
    return at < 0 ? QString() : arguments.value(at + 1);
}

QString CommandLine::dataFolder(const QString &usual) const
{
    return has(u"--data-dir"_s) ? value(u"--data-dir"_s) : usual;
}

QString helpText()
{
    return uR"(VESK — команда агентов, которая доводит запрос до работающего проекта.

Использование:
  vesk                          открыть приложение
  vesk --run ЗАПРОС [ПАРАМЕТРЫ] выполнить одну задачу без окна
  vesk --diff [ФАЙЛ] [ПАРАМЕТРЫ] показать, что изменилось с последнего запроса
  vesk --help | --version

Параметры окна:
  --data-dir ПАПКА         папка с базой и историей
  --settings               открыть настройки; --settings-agent АГЕНТ — на этом агенте
  --attach-file ФАЙЛ       приложить файл к первому сообщению
  --compact-ui             окно 1000 × 720
  --screenshot ФАЙЛ        сохранить снимок окна и закончить
  --smoke-test             открыть окно на две секунды

Проверки без участия человека:
  --self-test-ui ПАПКА     приложение целиком, снимки — в папку; --workflow-demo — вместе с цепочкой агентов
  --self-test-background   живой фон: кадр, остановка бесконечного кода и снова кадр
  --probe-mcp              подключиться к серверу MCP, в имени которого есть Roblox
  --probe-skill ССЫЛКА     загрузить skill главного агента
  --connect-qwen-environment
                           подключить Qwen с ключом из переменной VESK_QWEN_API_KEY
  --live-smoke ПАПКА       сделать в папке игру на модели Alem Plus, ключ которой сохранён в окне

Служебные режимы, которые приложение запускает само:
  --media-job JSON         одна операция с медиафайлом
  --background-worker      кадры живого фона: строка JSON на входе, строка на выходе

Параметры --run:
  --project ПАПКА          папка проекта; создаётся, если её нет (текущая папка)
  --data-dir ПАПКА         папка с базой и историей
  --endpoint URL           сервер модели, совместимый с OpenAI (https или http на этом компьютере);
                           без него работает модель, подключённая в окне, а если такой нет —
                           демонстрационная
  --model ИМЯ              имя модели на этом сервере
  --key-env ПЕРЕМЕННАЯ     переменная окружения с ключом; без неё ключ берётся из хранилища ключей
  --mock                   демонстрационная модель, даже если подключена другая
  --budget N               предел токенов на задачу (1000000)
  --build-command JSON     команда сборки: {"program": "/полный/путь", "arguments": ["..."]}
  --answer ТЕКСТ           ответ на вопрос; можно повторять, ответы идут по порядку.
                           Когда ответы кончились, выбирается первый вариант
  --simulate               остановиться перед выполнением и напечатать план
  --take-in                принять в проект файлы, которые уже есть в папке
  --accept-edits           взять ваши версии файлов, изменённых вне программы
  --allow-commands         запускать команды без вопроса; серверы MCP, названные в запросе, подключаются
  --workflow-demo          с примером команды: пять агентов работают перед разработкой
  --json                   печатать события в JSON, по одному в строке; последним — итог
  --strict                 закончить с кодом 5, если не всё подтверждено проверками
  --mock-delay МС          пауза демонстрационной модели перед ответом (300)

Параметры --diff (вывод принимает patch -p1):
  ФАЙЛ [--from N] [--to N] между версиями файла; без номеров — предпоследняя и последняя, 0 — файла нет
  --task ЗАДАЧА            что изменилось с запроса этой задачи; без неё — последней
  --edits                  что изменено вне программы
  --project ПАПКА, --data-dir ПАПКА  как у --run

Ход работы печатается в stderr, отчёт — в stdout.
Коды завершения: 0 — задача завершена (с --simulate — план готов), 1 — задача не завершена,
2 — ошибка параметров или запуска, 3 — нужно разрешение на команду, 4 — нужен ответ на вопрос,
5 — с --strict: завершена, но подтверждено не всё, 130 — остановлено сигналом.)"_s;
}

} // namespace vesk

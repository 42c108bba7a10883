#include "narrator.h"
#include "reasons.h"

#include <QJsonArray>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

QJsonObject node(const QString &kind, const QString &status, const QJsonObject &output, const QJsonObject &input = {})
{
    return {{u"title"_s, u"Шаг "_s + kind},
            {u"kind"_s, kind},
            {u"status"_s, status},
            {u"input"_s, input},
            {u"output"_s, output}};
}

QJsonObject run(const QString &role, const QString &logicalRole, const QString &status)
{
    return {{u"role"_s, role}, {u"logical_role"_s, logicalRole}, {u"status"_s, status}};
}

QJsonObject inPhase(const QString &phase)
{
    return {{u"phase"_s, phase}};
}

QJsonObject plannedState(const QString &phase)
{
    const QJsonObject page{{u"title"_s, u"Страница"_s}, {u"input"_s, QJsonObject{{u"path"_s, u"a.html"_s}}}};
    const QJsonObject build{{u"title"_s, u"Сборка"_s}, {u"input"_s, QJsonObject{{u"path"_s, u""_s}}}};
    return {{u"phase"_s, phase},
            {u"plan"_s, QJsonObject{{u"nodes"_s, QJsonArray{page, build}}}},
            {u"structure"_s, QJsonObject{{u"items"_s, QJsonArray{u"Один файл"_s, 7, u"Без сети"_s}}}}};
}

} // namespace

class NarratorTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void aPhaseIsAnnouncedInTheConversation()
    {
        const QJsonObject asking{{u"phase"_s, u"CLARIFICATION"_s},
                                 {u"decision"_s, QJsonObject{{u"question"_s, u"Для браузера?"_s}}}};
        QCOMPARE(Narrator::progress(asking), u"Для браузера?"_s);
        QCOMPARE(Narrator::progress(plannedState(u"PLAN_REVIEW"_s)),
                 u"План\n\n1. Страница\n2. Сборка\n\nПередаю трём проверяющим."_s);
        QCOMPARE(Narrator::progress(plannedState(u"STRUCTURE_REVIEW"_s)),
                 u"Структура\n\n• Один файл\n• Без сети\n  a.html\n\nПроверяю связи между файлами."_s);
        QCOMPARE(Narrator::progress(plannedState(u"STRUCTURING"_s)), QString());
    }

    void aFinishedRunIsToldInFull()
    {
        const QJsonObject output{{u"path"_s, u"a.html"_s}, {u"revision"_s, 2}};
        const QJsonObject built{{u"exit_code"_s, 0}, {u"success"_s, true}};
        const QJsonObject state{
            {u"phase"_s, u"COMPLETED"_s},
            {u"provider"_s, u"Mock / deterministic"_s},
            {u"graph"_s,
             QJsonArray{node(u"code"_s, u"COMPLETED"_s, output, {{u"fix_attempts"_s, 1}, {u"output_repairs"_s, 2}}),
                        node(u"tool"_s, u"COMPLETED"_s, built, {{u"recovery_attempts"_s, 4}}),
                        node(u"tool"_s, u"COMPLETED"_s,
                             {{u"exit_code"_s, 2}, {u"success"_s, false}, {u"limitation"_s, u"Нет браузера."_s}})}},
            {u"runs"_s,
             QJsonArray{run(u"validator"_s, {}, u"COMPLETED"_s),
                        run(u"my-agent"_s, u"correctness_reviewer"_s, u"COMPLETED"_s),
                        run(u"risk_judge"_s, u"risk_judge"_s, u"ERROR"_s),
                        run(u"my_reviewer"_s, u"coding"_s, u"COMPLETED"_s)}},
            {u"spec"_s,
             QJsonObject{{u"disabled_agents"_s, QJsonArray{u"risk_judge"_s, u"x"_s}},
                         {u"verification_limitation"_s, u"Браузер не найден."_s}}},
        };

        QCOMPARE(Narrator::report(state),
                 u"Задача завершена.\n\n"
                 "Что сделано\n• Шаг code\n• Шаг tool\n• Шаг tool — не проверено\n\n"
                 "Что не выполнено\n• Незавершённых этапов в утверждённом плане нет.\n\n"
                 "Файлы\n• a.html — версия 2; проверка принята\n\n"
                 "Что проверено\n• Завершённых проверок агентов: 2. Циклов исправления: 7.\n"
                 "• Отключены пользователем: Проверка рисков, x. Их отдельные проверки не выполнялись.\n"
                 "• Граф завершён, открытых замечаний нет. Актуальность созданных файлов проверена по контрольным "
                 "суммам.\n\n"
                 "Результаты инструментов\n• Шаг tool — код завершения 0; успешно\n"
                 "• Шаг tool — код завершения 2; ошибка\n\n"
                 "Что ещё нужно проверить\n• Браузер не найден.\n"
                 "• Выполненные команды перечислены выше. Их успешное завершение не подтверждает все пользовательские "
                 "сценарии — проверьте результат в целевом приложении.\n\n"
                 "Это деморежим: решения агентов и расход токенов смоделированы. Запись файлов и одобренные команды "
                 "выполняются реально.\n\n"
                 "Следующий шаг: откройте раздел «Файлы» или спросите меня о результате в этом чате."_s);
    }

    void aBrokenRunSaysWhatIsLeftAndWhy()
    {
        const QJsonObject state{
            {u"phase"_s, u"FAILED"_s},
            {u"error"_s, u"Сеть недоступна"_s},
            {u"graph"_s,
             QJsonArray{node(u"code"_s, u"REVIEWING"_s, {{u"path"_s, u"a.html"_s}, {u"revision"_s, 1}}),
                        node(u"tool"_s, u"FAILED"_s, {{u"error"_s, u"x"_s}}), node(u"tool"_s, u"BLOCKED"_s, {}),
                        node(u"research"_s, u"RUNNING"_s, {{u"path"_s, u"b.html"_s}})}},
        };
        const QString report = Narrator::report(state);
        for (const QString &part :
             {u"Не удалось завершить.\n\nЧто сделано\n• Завершённых этапов пока нет.\n\n"_s,
              u"Что не выполнено\n• Шаг code — Проверяю\n• Шаг tool — Ошибка\n• Шаг tool — Нужен доступ\n"
              "• Шаг research — В работе\n\nФайлы\n• a.html — версия 1; проверка не завершена\n\n"_s,
              u"Результаты инструментов\n• Шаг tool — код завершения -1; ошибка: x\n\n"_s,
              u"Почему работа остановилась\nСеть недоступна\n\n"_s})
            QVERIFY2(report.contains(part), qPrintable(part));
    }

    void aTechnicalReasonIsToldToAPerson()
    {
        const QList<std::pair<QString, QString>> reasons{
            {u"Cannot read a b.txt"_s, u"Не удалось прочитать файл: a b.txt"_s},
            {u"Dependency cycle"_s, u"Шаги плана ждут друг друга по кругу."_s},
            {u"Invalid verdict"_s, u"Модель дважды ответила не по форме: Invalid verdict"_s},
            {u"Dependency cycle of another kind"_s, u"Dependency cycle of another kind"_s},
        };
        for (const auto &[error, told] : reasons)
            QCOMPARE(reasonText(error), told);
    }

    void aRunThatHasNotGotFarSaysSo()
    {
        const QString report = Narrator::report(inPhase(u"PLANNING"_s));
        QVERIFY(report.startsWith(u"Составляю план.\n\n"_s));
        QVERIFY(report.contains(u"Что не выполнено\n• План ещё готовится. Работа продолжается."_s));
        QVERIFY(report.contains(u"Проверка агентов не заменяет реальный запуск"_s));
        QVERIFY(Narrator::report(inPhase(u"INTERRUPTED"_s)).contains(u"• Работа остановилась до выполнения плана."_s));
    }

    void aQuestionIsAnsweredWithoutAReport()
    {
        QJsonObject state{{u"phase"_s, u"COMPLETED"_s},
                          {u"spec"_s, QJsonObject{{u"answer_only"_s, true}, {u"summary"_s, u"Сорок два."_s}}}};
        QCOMPARE(Narrator::report(state), u"Сорок два."_s);

        state[u"phase"_s] = u"FAILED"_s;
        QVERIFY(Narrator::report(state).startsWith(u"Не удалось завершить."_s));
    }
};

QTEST_GUILESS_MAIN(NarratorTest)
#include "tst_narrator.moc"

#include "json_text.h"
#include "narrator.h"
#include "reasons.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace vesk;

class NarratorTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void aPhaseIsAnnouncedInTheConversation()
    {
        QJsonObject state = object(
            u"{'decision':{'question':'Для браузера?'},'plan':{'nodes':[{'title':'Страница','input':{'path':'a.html'}},"
            "{'title':'Сборка','input':{'path':''}}]},'structure':{'items':['Один файл',7,'Без сети']}}"_s);
        for (const auto &[phase, told] :
             {std::pair{u"CLARIFICATION"_s, u"Для браузера?"_s},
              {u"PLAN_REVIEW"_s, u"План\n\n1. Страница\n2. Сборка\n\nПередаю трём проверяющим."_s},
              {u"STRUCTURE_REVIEW"_s,
               u"Структура\n\n• Один файл\n• Без сети\n  a.html\n\nПроверяю связи между файлами."_s},
              {u"STRUCTURING"_s, QString()}}) {
            state[u"phase"_s] = phase;
            QCOMPARE(Narrator::progress(state), told);
        }
    }

    void aFinishedRunIsToldInFull()
    {
        const QJsonObject state = object(uR"({'phase':'COMPLETED','provider':'Mock / deterministic','graph':[
            {'title':'Шаг code','kind':'code','status':'COMPLETED','output':{'path':'a.html','revision':2},
             'input':{'fix_attempts':1,'output_repairs':2}},
            {'title':'Шаг tool','kind':'tool','status':'COMPLETED','output':{'exit_code':0,'success':true},
             'input':{'recovery_attempts':4}},
            {'title':'Шаг tool','kind':'tool','status':'COMPLETED',
             'output':{'exit_code':2,'success':false,'limitation':'Нет браузера.'}}],
            'runs':[{'role':'validator','status':'COMPLETED'},
             {'role':'my-agent','logical_role':'correctness_reviewer','status':'COMPLETED'},
             {'role':'risk_judge','logical_role':'risk_judge','status':'ERROR'},
             {'role':'second','logical_role':'validator','status':'COMPLETED'},
             {'role':'my_reviewer','logical_role':'coding','status':'COMPLETED'}],
            'spec':{'disabled_agents':['risk_judge','x'],'verification_limitation':'Браузер не найден.'}})"_s);

        QCOMPARE(Narrator::report(state),
                 u"Задача завершена.\n\n"
                 "Что сделано\n• Шаг code\n• Шаг tool\n• Шаг tool — не проверено\n\n"
                 "Что не выполнено\n• Незавершённых этапов в утверждённом плане нет.\n\n"
                 "Файлы\n• a.html — версия 2; проверка принята\n\n"
                 "Что проверено\n• Завершённых проверок агентов: 3. Циклов исправления: 7.\n"
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
        const QString report = Narrator::report(object(uR"({'phase':'FAILED','error':'Сеть недоступна','graph':[
            {'title':'Шаг code','kind':'code','status':'REVIEWING','output':{'path':'a.html','revision':1}},
            {'title':'Шаг tool','kind':'tool','status':'FAILED','output':{'error':'x'}},
            {'title':'Шаг tool','kind':'tool','status':'BLOCKED'},
            {'title':'Шаг research','kind':'research','status':'RUNNING','output':{'path':'b.html'}}]})"_s));
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
        const QString report = Narrator::report(object(u"{'phase':'PLANNING'}"_s));
        QVERIFY(report.startsWith(u"Составляю план.\n\n"_s));
        QVERIFY(report.contains(u"Что не выполнено\n• План ещё готовится. Работа продолжается."_s));
        QVERIFY(report.contains(u"Проверка агентов не заменяет реальный запуск"_s));
        QVERIFY(Narrator::report(object(u"{'phase':'INTERRUPTED'}"_s))
                    .contains(u"• Работа остановилась до выполнения плана."_s));
    }

    void aQuestionIsAnsweredWithoutAReport()
    {
        QJsonObject state = object(u"{'phase':'COMPLETED','spec':{'answer_only':true,'summary':'Сорок два.'}}"_s);
        QCOMPARE(Narrator::report(state), u"Сорок два."_s);
        state[u"phase"_s] = u"FAILED"_s;
        QVERIFY(Narrator::report(state).startsWith(u"Не удалось завершить."_s));
    }
};

QTEST_GUILESS_MAIN(NarratorTest)
#include "tst_narrator.moc"

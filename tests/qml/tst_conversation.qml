import QtQuick
import QtTest
import Vesk
import "qrc:/qt/qml/Vesk/Records.js" as Records
import "qrc:/qt/qml/Vesk/Wording.js" as Wording

/* How messages, questions, events and agents' reports read. */
Item {
    id: root
    width: 900
    height: 700
    readonly property string markup: "<b>жирно</b> <img src='http://127.0.0.1:9/x.png'> <a href='x'>ссылка</a> &amp;"
    readonly property string fixedReport:
        "Готово. Результат сохранён в проекте.\nВыполненные проверки и ограничения — в подробностях."

    QtObject {
        id: labels
        function phaseLabel(code: string): string { return "фаза " + code; }
        function statusLabel(code: string): string { return "статус " + code; }
        function roleLabel(code: string): string { return "роль " + code; }
        readonly property var agentProfiles: [{ id: "custom_1", custom: true, name: "Мой" }]
    }
    Component { id: messageComponent; MessageRow { width: 700 } }
    Component { id: cardComponent; DecisionCard { width: 400; y: 300 } }
    Component { id: spyComponent; SignalSpy {} }

    TestCase {
        name: "Conversation"
        when: windowShown

        function init() {
            failOnWarning(/.?/);
        }
        function spy(target, signalName) {
            return createTemporaryObject(spyComponent, root, { target, signalName });
        }
        function message(row, more) {
            return createTemporaryObject(messageComponent, root, Object.assign({ row }, more ?? {}));
        }
        function textOf(row) {
            return findChild(row, "messageText").text;
        }
        /* Every text below an item, as it is drawn. */
        function verifyNothingReadsMarkup(item) {
            if (item.textFormat !== undefined && item.text !== "")
                compare(item.textFormat, Text.PlainText, item.text);
            for (const child of item.children)
                verifyNothingReadsMarkup(child);
        }
        function buttonOf(item, text) {
            if (item.text === text && item.clicked)
                return item;
            for (const child of item.children) {
                const found = buttonOf(child, text);
                if (found)
                    return found;
            }
            return null;
        }

        function test_aMessageSaysWhoSpeaksAndWhat_data() {
            return [
                { tag: "user", row: { role: "user", content: "Создай" }, header: "Вы", text: "Создай" },
                { tag: "system", row: { role: "assistant", content: "Готово" }, header: "VESK", text: "Готово" },
                { tag: "shortened", row: { role: "user", content: "длинно", display_content: "кратко" }, header: "Вы",
                  text: "кратко" },
                { tag: "good report", row: { role: "assistant", kind: "report", content: "Задача завершена. Да\n\nЕщё" },
                  header: "VESK · результат", text: root.fixedReport },
                { tag: "bad report", row: { role: "assistant", kind: "report", content:
                    "Не вышло.\nПочему\n\nПочему работа остановилась\nНет сети.\n\nЕщё" },
                  header: "VESK · результат", text: "Не вышло.\nПочему", reason: "Нет сети." },
                { tag: "empty", row: { role: "assistant" }, header: "VESK", text: "" },
                { tag: "markup", row: { role: "user", content: root.markup }, header: "Вы", text: root.markup }
            ];
        }
        function test_aMessageSaysWhoSpeaksAndWhat(data) {
            const row = message(data.row);
            compare(findChild(row, "messageHeader").text, data.header);
            compare(textOf(row), data.text);
            compare(findChild(row, "reportReason")?.text, data.reason);
            compare(buttonOf(row, "Подробности") !== null, data.row.kind === "report");
            verifyNothingReadsMarkup(row);
        }
        function test_onlyTheUsersMessagesStandOnACardAtTheRight() {
            const own = message({ role: "user", content: "слово ".repeat(300) });
            waitForRendering(own);
            const card = own.children[0];
            compare([card.width, card.x + card.width, card.radius], [610, 700, 14]);
            own.width = 500;
            compare(card.width, 450);
            const other = message({ role: "assistant", content: "да" }).children[0];
            compare([other.width, other.color.a], [700, 0]);
        }
        function test_aReportOpensItsResultAndItsWhole() {
            const headline = "Задача завершена. 2 из 3 критериев подтверждены проверками, 1 — только мнением агентов.";
            const report = message({ role: "assistant", kind: "report", content: headline + "\n\nПроверки" });
            const details = spy(report, "detailsRequested");
            const result = spy(report, "resultRequested");
            const proofs = spy(report, "proofsRequested");
            waitForRendering(report);
            mouseClick(findChild(report, "openResult"));
            compare(result.count, 0);
            report.hasFiles = true;
            mouseClick(findChild(report, "openResult"));
            mouseClick(findChild(report, "reportDetails"));
            mouseClick(findChild(report, "reportProofs"));
            mouseClick(findChild(report, "proof-opinion"));
            mouseClick(findChild(report, "proof-check"));
            compare(proofs.signalArguments.map(call => call[0]), ["", "opinion", "check"]);
            compare(findChild(report, "proof-opinion").text, "1 — только мнением агентов");
            compare(result.count, 1);
            compare(details.signalArguments[0][0], headline + "\n\nПроверки");
        }
        function test_aLongMessageIsShownWholeAndAHugeOneApart() {
            const whole = message({ role: "assistant", content: "строка 10\n".repeat(1000) });
            compare(textOf(whole).length, 10000);
            waitForRendering(whole);
            verify(whole.height > 10000);
            const huge = message({ role: "assistant", content: "x".repeat(50000) });
            verify(textOf(huge).length < 50000);
            const details = spy(huge, "detailsRequested");
            buttonOf(huge, "Показать полностью").clicked();
            compare(details.signalArguments[0][0].length, 50000);
        }
        function test_attachmentsAreOpenedByAClick() {
            const row = message({ role: "user", content: "Вот", attachments: [{ name: "a.txt", path: "media/a.txt" },
                { name: root.markup, path: "media/b.txt" }] });
            const opened = spy(row, "fileRequested");
            waitForRendering(row);
            const tile = buttonOf(row, "") ;
            compare([tile.width, tile.height, tile.Accessible.name], [156, 104, "Открыть a.txt"]);
            verifyNothingReadsMarkup(row);
            mouseClick(tile);
            compare(opened.signalArguments[0][0], "media/a.txt");
        }
        function test_aQuestionIsAnsweredByItsOptions() {
            const card = createTemporaryObject(cardComponent, root,
                { decision: { question: root.markup, options: ["HTML", root.markup + root.markup] } });
            const answered = spy(card, "answered");
            waitForRendering(card);
            compare(findChild(card, "decisionQuestion").text, root.markup);
            verifyNothingReadsMarkup(card);
            mouseClick(findChild(card, "decisionOption1"));
            compare(answered.signalArguments[0][0], root.markup + root.markup);
            card.decision = { question: "" };
            compare(findChild(card, "decisionQuestion").text, "Уточните задачу");
            card.decision = undefined;
            compare(findChild(card, "decisionOption0"), null);
        }
        function test_aLongOptionIsReadWhole() {
            const card = createTemporaryObject(cardComponent, root,
                { decision: { question: "?", options: [root.markup + root.markup] } });
            waitForRendering(card);
            const option = findChild(card, "decisionOption0").contentItem;
            verify(option.lineCount > 1 && !option.truncated);
        }
        function test_eventsReadLikeSentences_data() {
            const of = (type, message, text, data) => ({ tag: type + message, event: { type, message, data }, text });
            return [
                of("WorkflowStepCompleted", "Анализ", "Анализ · результат передан дальше"),
                of("PhaseChanged", "CODING", "фаза CODING"),
                of("FileModified", "", "Сохранён файл a/b.js", { path: "a/b.js" }),
                of("AgentStarted", "planner", "роль planner · начал работу"),
                of("AgentCreated", "Terminal Agent", "роль terminal · подключён"),
                of("AgentCreated", "Главный · coding", "Главный · роль coding · подключён"),
                of("AgentFinished", "custom_1", "Мой · завершил этап"),
                of("AgentFinished", "custom_2", "Удалённый агент · завершил этап"),
                of("Unheard", "x", "Событие работы")
            ];
        }
        function test_eventsReadLikeSentences(data) {
            compare(Wording.eventText(data.event, labels), data.text);
        }
        function test_recordsReadAsFields_data() {
            const time = "2026-11-25T12:04:11";
            const moment = "25 ноября 2026, 12:04:11";
            return [
                { tag: "event", made: Records.ofEvent({ type: "AutomaticCorrection", time, message: "Уточняю" }, labels),
                  fields: ["Событие: Событие работы", "Когда: " + moment, "Подробно: Уточняю"] },
                { tag: "event without a sentence",
                  made: Records.ofEvent({ type: "TaskFailed", message: "Stale" }, labels),
                  fields: ["Событие: Задачу не удалось завершить"] },
                { tag: "command", made: Records.ofRun({ role: "terminal", status: "ERROR", model: "x",
                    started_at: time, finished_at: "2026-11-25T12:06:12", context: { program: "make", arguments: ["a", "б в"] },
                    output: { exit_code: 0, stdout: "вывод" } }, [], labels),
                  fields: ["Агент: роль terminal", "Состояние: статус ERROR", "Начало: " + moment,
                    "Длительность: 2 мин 1 с", "Команда: make a \"б в\"!", "Код завершения: 0", "Вывод: вывод!"] },
                { tag: "answer", made: Records.ofRun({ name: "planner", model: "m", attempt: 2, input_tokens: 5,
                    output: { plan: "Сначала" } }, [], labels),
                  fields: ["Агент: роль planner", "Состояние: статус IDLE", "Модель: m", "Попытка: 2",
                    "Токены: вопрос 5, ответ 0", "План: Сначала"] },
                { tag: "versions", made: Records.ofVersions([{ revision: 2, time, author: "Вы", bytes: 1025 },
                    { revision: 1, time, author: "Агент", deleted: true }]),
                  fields: ["Версия 2: " + moment + " · Вы · 2 КБ", "Версия 1: " + moment + " · Агент · файл удалён"] }
            ];
        }
        function test_recordsReadAsFields(data) {
            compare(data.made.map(field => field.label + ": " + field.text + (field.raw ? "!" : "")), data.fields);
        }
        function test_anAgentsReportTellsWhatThereIs_data() {
            const end = "Это отчёт о полученном результате. Выполнение кода подтверждается отдельными проверками.";
            const never = "Агент ещё не получал задание в этой задаче.";
            const profiles = [{ id: "mine", name: "Мой", custom: true, parent: "planner", after: [] },
                { id: "next", name: "Следующий", custom: true, parent: "mine", after: ["mine"] }];
            return [
                { tag: "never asked", run: { role: "planner" }, parts: ["Состояние: статус IDLE", never, end] },
                { tag: "no output yet", run: { id: "1", role: "planner", status: "RUNNING", error: "Сбой" },
                  parts: ["Состояние: статус RUNNING", "Причина остановки\nСбой", "Готового результата пока нет.", end] },
                { tag: "everything", run: { id: "1", role: "coder", status: "DONE", output: { summary: "Сделано",
                    files: [{ path: "a.js", content: "12345" }, { path: "b.js" }], verdict: "REVISE",
                    issues: ["Мало", { line: 3 }], plan: "Сначала", steps: [], requirements: ["x"] } },
                  parts: ["Состояние: статус DONE", "Результат\nСделано",
                    "Подготовленные файлы\n• a.js — 5 символов\n• b.js — 0 символов",
                    "Решение проверки: Нужны исправления", "Замечания\n• Мало\n• {\n  \"line\": 3\n}", "План\nСначала",
                    "Требования\n[\n  \"x\"\n]", end] },
                { tag: "own agent", run: { role: "mine" }, profiles,
                  parts: ["Состояние: статус IDLE",
                    "Далее по схеме\nСледующий. Получатель ждёт завершения зависимостей.", never, end] }
            ];
        }
        function test_anAgentsReportTellsWhatThereIs(data) {
            compare(Wording.agentReport(data.run, data.run, data.profiles ?? [], labels), data.parts.join("\n\n"));
        }
    }
}

.pragma library
.import "Wording.js" as Wording

// Stored records as fields to be read, {label, text, raw}; `raw` is what a program wrote. What has no name that a user
// knows is left out: whoever wants it opens the record itself.

const eventsWithText = ["TaskCreated", "AutomaticCorrection", "ObserverReport", "RetryScheduled", "TaskFailed",
    "TaskCompleted", "VerificationUnavailable"];

function moment(time) {
    const date = new Date(time ?? "");
    return isNaN(date) ? "" : date.toLocaleString(Qt.locale("ru_RU"), "d MMMM yyyy, hh:mm:ss");
}

// What has something in it.
function given(fields) {
    return fields.filter(field => field.text !== "");
}

function ofEvent(event, labels) {
    const text = eventsWithText.includes(event.type) ? event.message ?? "" : "";
    return given([
        { label: "Событие", text: Wording.eventText(event, labels) },
        { label: "Когда", text: moment(event.time) },
        { label: "Файл", text: event.data?.path ?? "" },
        // Words of the program's own layers are no sentence for a user.
        { label: "Подробно", text: /[а-яё]/i.test(text) ? text : "" }
    ]);
}

function tokens(run) {
    return run.input_tokens || run.output_tokens
        ? "вопрос " + (run.input_tokens ?? 0) + ", ответ " + (run.output_tokens ?? 0) : "";
}

function modelName(run) {
    const name = run.role === "terminal" ? "" : run.model ?? "";
    return name.startsWith("Mock") ? "Демонстрация" : name;
}

function command(run) {
    const input = run.context ?? {};
    const words = input.program ? [input.program].concat(Array.from(input.arguments ?? [])) : [];
    return words.map(word => /^[^\s"']+$/.test(word) ? word : JSON.stringify(word)).join(" ");
}

function duration(run) {
    const from = new Date(run.started_at ?? "");
    const to = new Date(run.finished_at ?? "");
    return isNaN(to - from) ? "" : Wording.duration(to - from);
}

// The record of one piece of work of an agent, or of a command.
function ofRun(run, profiles, labels) {
    const output = run.output ?? {};
    return given([
        { label: "Агент", text: Wording.agentName(run.name || run.role || "", profiles, labels) },
        { label: "Состояние", text: labels.statusLabel(run.status || "IDLE") },
        { label: "Модель", text: modelName(run) },
        { label: "Начало", text: moment(run.started_at) },
        { label: "Длительность", text: duration(run) },
        { label: "Попытка", text: run.attempt > 1 ? String(run.attempt) : "" },
        { label: "Токены", text: tokens(run) },
        { label: "Причина остановки", text: run.error ?? "" },
        { label: "Команда", text: command(run), raw: true },
        { label: "Сообщение", text: output.error ?? "" },
        { label: "Код завершения", text: output.exit_code === undefined ? "" : String(output.exit_code) },
        { label: "Вывод", text: output.stdout ?? "", raw: true },
        { label: "Ошибки", text: output.stderr ?? "", raw: true }
    ]).concat(Wording.asFields(Wording.outputSections(output)));
}

function ofVersions(versions) {
    return Array.from(versions).map(version => ({
        label: "Версия " + version.revision,
        text: [moment(version.time), version.author,
               version.deleted ? "файл удалён" : Wording.size(version.bytes)].join(" · ")
    }));
}

.pragma library

// How events and agents' reports read, and what a program's output tells. `labels` is the application object: phaseLabel, statusLabel, roleLabel.

const eventTexts = {
    TaskCreated: "Запрос принят",
    RetryScheduled: "Повторяю запрос",
    DiscussionStarted: "Агенты обсуждают замечания",
    DiscussionCompleted: "Обсуждение завершено",
    CheckpointCreated: "Сохранён снимок проекта",
    FixRequested: "Нужно исправление",
    PermissionRequested: "Запрошено разрешение",
    PermissionGranted: "Команда разрешена",
    ObserverReport: "Проверка цикла завершена",
    TaskCompleted: "Задача завершена",
    TaskPaused: "Работа приостановлена",
    TaskResumed: "Работа продолжена",
    TaskFailed: "Задачу не удалось завершить",
    ToolFinished: "Команда завершена"
};
const agentSteps = {
    AgentStarted: "начал работу",
    AgentFinished: "завершил этап",
    AgentCreated: "подключён"
};
const verdicts = {
    APPROVE: "Принято",
    REVISE: "Нужны исправления",
    REJECT: "Отклонено"
};
const sections = [
    ["plan", "План"],
    ["steps", "Шаги"],
    ["deliverables", "Подготовлено"],
    ["recommendations", "Рекомендации"],
    ["requirements", "Требования"]
];

function pretty(value) {
    return JSON.stringify(value, null, 2);
}

// A text whose every sign can be seen: what changes the direction of writing, or has no width, is written as a number.
function visible(text) {
    return text.replace(/[\u00ad\u061c\u180e\u200b-\u200f\u202a-\u202e\u2060-\u206f\ufeff]/g,
                        sign => "\\u" + sign.charCodeAt(0).toString(16).padStart(4, "0"));
}

function eventText(event, labels) {
    if (event.type === "WorkflowStepCompleted")
        return (event.message ?? "") + " · результат передан дальше";
    if (event.type === "PhaseChanged")
        return labels.phaseLabel(event.message);
    if (event.type === "FileModified")
        return "Сохранён файл " + (event.data?.path ?? "");
    if (event.type in agentSteps)
        return labels.roleLabel(event.message) + " · " + agentSteps[event.type];
    return eventTexts[event.type] ?? "Событие работы";
}

// Lists that come from C++ have a length, and are no arrays by Array.isArray.
function isGiven(value) {
    return value !== undefined && value !== null && value !== "" && value.length !== 0;
}

function lines(items) {
    const list = typeof items === "string" ? [items] : Array.from(items);
    return list.map(item => "• " + (typeof item === "string" ? item : pretty(item))).join("\n");
}

function fileLines(files) {
    return Array.from(files).map(file => "• " + (file?.path ?? "") + " — " + String(file?.content ?? "").length
        + " символов").join("\n");
}

// Where the result of a user's own agent goes.
function route(profile, profiles, labels) {
    const next = profiles.filter(other => Array.from(other.after ?? []).includes(profile.id)).map(other => other.name);
    return "Далее по схеме\n" + (next.length ? next.join(", ") : labels.roleLabel(profile.parent ?? ""))
        + ". Получатель ждёт завершения зависимостей.";
}

// `run` as it is in view, `whole` as it is stored (or the same), `profiles` of all agents.
function agentReport(run, whole, profiles, labels) {
    const output = whole.output ?? {};
    const role = whole.logical_role || whole.role || run.role || "";
    const profile = profiles.find(other => other.id === role || other.id === run.role);
    const parts = ["Состояние: " + labels.statusLabel(run.status || whole.status || "IDLE")];
    if (isGiven(whole.error))
        parts.push("Причина остановки\n" + whole.error);
    if (isGiven(output.summary))
        parts.push("Результат\n" + output.summary);
    if (isGiven(output.files))
        parts.push("Подготовленные файлы\n" + fileLines(output.files));
    if (isGiven(output.verdict))
        parts.push("Решение проверки: " + (verdicts[output.verdict] ?? output.verdict));
    if (isGiven(output.issues))
        parts.push("Замечания\n" + lines(output.issues));
    for (const [key, title] of sections) {
        if (isGiven(output[key]))
            parts.push(title + "\n" + (typeof output[key] === "string" ? output[key] : pretty(output[key])));
    }
    if (profile?.custom)
        parts.push(route(profile, profiles, labels));
    if (!run.id)
        parts.push("Агент ещё не получал задание в этой задаче.");
    else if (Object.keys(output).length === 0)
        parts.push("Готового результата пока нет.");
    parts.push("Это отчёт о полученном результате. Выполнение кода подтверждается отдельными проверками.");
    return parts.join("\n\n");
}

// The path that a tool has reported last, by its output, or none. Most output is no such report.
function reportedPath(graph) {
    let path = "";
    for (const node of graph) {
        try {
            const told = JSON.parse(node.output?.stdout ?? "");
            if (told?.success && told.path)
                path = told.path;
        } catch (error) {
            continue;
        }
    }
    return path;
}

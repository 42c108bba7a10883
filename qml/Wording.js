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

// An agent as the user knows it, by its role, its id or the name that records have for it.
function agentName(name, profiles, labels) {
    const own = Array.from(profiles ?? []).find(profile => profile.custom && profile.id === name);
    const stands = "Главный · ";
    if (own)
        return own.name;
    if (name === "Terminal Agent")
        return labels.roleLabel("terminal");
    if (name.startsWith("custom_"))
        return "Удалённый агент";
    return name.startsWith(stands) ? stands + labels.roleLabel(name.slice(stands.length)) : labels.roleLabel(name);
}

function duration(milliseconds) {
    const seconds = Math.max(0, Math.round(milliseconds / 1000));
    const minutes = Math.floor(seconds / 60);
    return minutes === 0 ? seconds + " с"
        : minutes < 60 ? minutes + " мин " + seconds % 60 + " с"
        : Math.floor(minutes / 60) + " ч " + minutes % 60 + " мин";
}

function size(bytes) {
    return bytes < 1024 ? bytes + " Б" : bytes < 10 * 1024 * 1024 ? Math.ceil(bytes / 1024) + " КБ"
        : Math.ceil(bytes / 1024 / 1024) + " МБ";
}

// What a command runs, and below it an argument a line; one whose end could not be seen is in quotation marks.
function commandText(input) {
    const words = Array.from(input.arguments?.length > 0 ? input.arguments : [], String);
    const lines = words.map(word => word === word.trim() && word !== "" && !/[\n\r\t]/.test(word) ? word : JSON.stringify(word));
    return [input.program ?? input.tool ?? ""].concat(lines.map(line => "    " + line)).join("\n");
}

function eventText(event, labels) {
    if (event.type === "WorkflowStepCompleted")
        return (event.message ?? "") + " · результат передан дальше";
    if (event.type === "PhaseChanged")
        return labels.phaseLabel(event.message);
    if (event.type === "FileModified")
        return "Сохранён файл " + (event.data?.path ?? "");
    if (event.type in agentSteps)
        return agentName(event.message ?? "", labels.agentProfiles, labels) + " · " + agentSteps[event.type];
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
    return (next.length ? next.join(", ") : labels.roleLabel(profile.parent ?? ""))
        + ". Получатель ждёт завершения зависимостей.";
}

// What an agent handed over.
function outputSections(output) {
    const found = [];
    if (isGiven(output.summary))
        found.push({ label: "Результат", text: String(output.summary) });
    if (isGiven(output.files))
        found.push({ label: "Подготовленные файлы", text: fileLines(output.files) });
    if (isGiven(output.verdict))
        found.push({ label: "Решение проверки", text: verdicts[output.verdict] ?? output.verdict, short: true });
    if (isGiven(output.issues))
        found.push({ label: "Замечания", text: lines(output.issues) });
    for (const [key, title] of sections) {
        if (isGiven(output[key]))
            found.push({ label: title, text: typeof output[key] === "string" ? output[key] : pretty(output[key]),
                         list: output[key] });
    }
    return found;
}

// The same to be read in a window: a list of sentences is no data.
function asFields(parts) {
    const isList = list => list?.length > 0 && Array.from(list).every(item => typeof item === "string");
    return parts.map(part => typeof part.list !== "string" && isList(part.list)
        ? Object.assign({}, part, { text: lines(part.list) }) : part);
}

// The report of an agent as fields, {label, text, short}. `run` as it is in view, `whole` as it is stored (or the
// same), `profiles` of all agents.
function agentSections(run, whole, profiles, labels) {
    const output = whole.output ?? {};
    const role = whole.logical_role || whole.role || run.role || "";
    const profile = profiles.find(other => other.id === role || other.id === run.role);
    const parts = [{ label: "Состояние", text: labels.statusLabel(run.status || whole.status || "IDLE"), short: true }];
    if (isGiven(whole.error))
        parts.push({ label: "Причина остановки", text: whole.error });
    parts.push(...outputSections(output));
    if (profile?.custom)
        parts.push({ label: "Далее по схеме", text: route(profile, profiles, labels) });
    if (!run.id)
        parts.push({ label: "", text: "Агент ещё не получал задание в этой задаче." });
    else if (Object.keys(output).length === 0)
        parts.push({ label: "", text: "Готового результата пока нет." });
    const end = "Это отчёт о полученном результате. Выполнение кода подтверждается отдельными проверками.";
    return parts.concat({ label: "", text: end });
}

function agentReport(run, whole, profiles, labels) {
    return agentSections(run, whole, profiles, labels)
        .map(part => (part.label && part.label + (part.short ? ": " : "\n")) + part.text).join("\n\n");
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

/* Of a file or folder by its path. */
function addressOf(path) {
    return "file://" + path.split("/").map(encodeURIComponent).join("/");
}

/* A marked line without its marks, to be heard. */
function plain(marked) {
    const signs = { lt: "<", gt: ">", quot: '"', nbsp: " ", amp: "&" };
    return marked.replace(/<[^>]*>/g, "").replace(/&(lt|gt|quot|nbsp|amp);/g, (_, sign) => signs[sign]);
}

.pragma library

// The picture of the team as plain data: which agents there are, where they stand, what joins them, how each is doing.
// A node is {role, label, x, y, custom}; x and y are fractions of the view's width and of its height less `below`.

/* Room for the labels of the lowest row, and the height of a row of the user's own agents. */
const below = 48;
const rowHeight = 100;

/* A node as it is drawn, in pixels: a square above its label. */
const nodeWidth = 80;
const square = 34;
const labelTop = 39;
const labelHeight = 15;
const labelWidth = 100;
/* What labels keep clear of one another, and the width below which one says nothing any more. */
const labelGap = 8;
const leastLabel = 22;

/* The agents that are always there; edges name them by their places in this list. */
const baseAgents = [
    { role: "orchestrator", label: "Главный", x: .50, y: .12 },
    { role: "planner", label: "План", x: .50, y: .29 },
    { role: "requirements_judge", label: "Требования", x: .18, y: .44 },
    { role: "architecture_judge", label: "Архитектура", x: .50, y: .47 },
    { role: "risk_judge", label: "Риски", x: .82, y: .44 },
    { role: "structure", label: "Структура", x: .50, y: .64 },
    { role: "dependency_judge", label: "Связи", x: .19, y: .73 },
    { role: "maintainability_judge", label: "Поддержка", x: .81, y: .73 },
    { role: "coding", label: "Разработка", x: .50, y: .79 },
    { role: "correctness_reviewer", label: "Код", x: .18, y: .87 },
    { role: "integration_reviewer", label: "Интеграция", x: .82, y: .87 },
    { role: "validator", label: "Результат", x: .50, y: .99 },
];
const baseEdges = [
    [0, 1], [1, 2], [1, 3], [1, 4], [2, 3], [3, 4], [2, 4], [2, 0], [4, 0], [3, 5], [5, 6], [5, 7], [6, 7], [6, 0],
    [7, 0], [5, 8], [8, 9], [8, 10], [9, 10], [9, 0], [10, 0], [9, 11], [10, 11], [11, 0],
];
const activeStates = ["THINKING", "PLANNING", "WORKING", "REVIEWING", "FIXING", "USING_TOOL"];

function byId(profiles) {
    const found = {};
    for (const profile of profiles)
        found[profile.id] = profile;
    return found;
}

/* A plain array: the lists of the engine's own type lack some of its methods. */
function ownAgents(profiles) {
    return Array.from(profiles).filter(profile => profile.custom);
}

/* The nodes: the user's own agents stand in a band at the top, three in a row, the others below it. */
function definitions(profiles, height) {
    const inner = Math.max(1, height - below);
    const own = ownAgents(profiles);
    const band = Math.ceil(own.length / 3) * rowHeight / inner;
    const base = baseAgents.map(agent => Object.assign({}, agent, { custom: false, y: band + agent.y * (1 - band) }));
    return base.concat(own.map((profile, i) => ({
        role: profile.id,
        label: profile.name,
        custom: true,
        x: .17 + i % 3 * .33,
        y: (below + Math.floor(i / 3) * rowHeight) / inner,
    })));
}

/* Who hands results to whom, as [from, to], of the user's agents: one that another agent waits for goes to its stage by
   that other one. */
function handovers(profiles) {
    const own = ownAgents(profiles);
    const isWaitedFor = id => own.some(profile => Array.from(profile.after ?? []).includes(id));
    const found = [];
    for (const agent of own) {
        for (const dependency of agent.after ?? [])
            found.push([dependency, agent.id]);
        if (!isWaitedFor(agent.id) || agent.mode !== "workflow")
            found.push([agent.id, agent.parent]);
    }
    return found;
}

/* The same as places in `nodes`, behind those of the stages themselves. */
function edges(profiles, nodes) {
    const place = {};
    nodes.forEach((node, i) => place[node.role] = i);
    const drawn = handovers(profiles).filter(([from, to]) => place[from] !== undefined && place[to] !== undefined);
    return baseEdges.concat(drawn.map(([from, to]) => [place[from], place[to]]));
}

function graph(profiles, height) {
    const nodes = definitions(profiles, height);
    return { nodes, edges: edges(profiles, nodes) };
}

/* The links that can be taken away, as {from, to, text}, of those that begin or end at `role`: those that are drawn. */
function links(role, profiles, nodes) {
    const labels = {};
    nodes.forEach(node => labels[node.role] = node.label);
    return handovers(profiles)
        .filter(([from, to]) => (from === role || to === role) && labels[from] && labels[to])
        .map(([from, to]) => ({ from, to, text: "Убрать связь: " + labels[from] + " → " + labels[to] }));
}

/* The labels that results of the agent go to, without repeats. */
function destinations(role, nodes, joined) {
    const labels = joined.filter(edge => nodes[edge[0]].role === role).map(edge => nodes[edge[1]].label);
    return Array.from(new Set(labels)).join(", ");
}

/* Where a node stands: while it is dragged, where it was put, or by itself. */
function position(node, positions, dragged) {
    return dragged[node.role] ?? positions[node.role] ?? node;
}

/* `positions` with the node under the pointer, as far as it may go. */
function moved(positions, role, pointer, width, height) {
    const clamp = (value, least, most) => Math.max(least, Math.min(most, value));
    const next = Object.assign({}, positions);
    next[role] = {
        x: clamp(pointer.x / Math.max(1, width), .08, .92),
        y: clamp((pointer.y - 16) / Math.max(1, height - below), .04, .96),
    };
    return next;
}

/* The last run of each role. */
function latestRuns(runs) {
    const latest = {};
    for (const run of runs)
        latest[run.role || run.logical_role || ""] = run;
    return latest;
}

function isActive(run) {
    return activeStates.includes(run.status);
}

/* Its turn has come, and it has not begun. */
function isWaiting(run) {
    return run.status === "WAITING";
}

function stateText(role, enabled, phase, run) {
    return !enabled ? "Отключён"
        : role === "orchestrator" && phase === "CLARIFICATION" ? "Ваш ответ"
        : isActive(run) ? "В работе"
        : run.status === "COMPLETED" ? "Готово"
        : run.status === "ERROR" ? "Ошибка" : "Ожидает";
}

function noteText(run) {
    const given = run.output?.issues ?? [];
    const issues = (typeof given === "string" ? [given] : Array.from(given))
        .map(issue => typeof issue === "string" ? issue : JSON.stringify(issue));
    return run.error || run.output?.summary
        || (issues.length ? "Есть замечания: " + issues.join("; ")
            : isActive(run) ? "Выполняет задание. Результат ещё не получен."
            : run.status === "COMPLETED" ? "Работа завершена. Откройте результат."
            : "Ожидает задания и результатов предыдущих агентов.");
}

/* Five numbers for each edge, see NetworkWires: its ends in pixels, and 1 when either end is at work. An end that has
   no place yet is one that was added in this moment. */
function wires(joined, places, active) {
    const numbers = [];
    for (const [from, to] of joined.filter(edge => places[edge[0]] && places[edge[1]])) {
        for (const end of [from, to])
            numbers.push(places[end].x + nodeWidth / 2, places[end].y + 20);
        numbers.push(active[from] || active[to] ? 1 : 0);
    }
    return numbers;
}

/* The widths that labels have when none runs into another, into a square or beyond the edges; 0 for one that there is no
   room for. `places` are the upper left corners of the nodes, `wanted` what the labels would take; `scale` is that of
   texts, `across` the width of the view, when it is known. */
function labelWidths(places, wanted, scale = 1, across = 0) {
    const middle = place => place.x + nodeWidth / 2;
    const edge = place => across ? 2 * Math.max(0, Math.min(middle(place), across - middle(place))) : Infinity;
    const widths = wanted.map((width, i) => Math.min(labelWidth * scale, width, edge(places[i])));
    const high = labelHeight * scale;
    const between = (a, b) => Math.abs(a.x - b.x) - labelGap;
    const limit = (i, width) => widths[i] = width < leastLabel ? 0 : Math.min(widths[i], width);
    places.forEach((label, i) => places.forEach((other, j) => {
        if (i !== j && label.y + labelTop < other.y + square && label.y + labelTop + high > other.y)
            limit(i, 2 * between(label, other) - square);
    }));
    for (let i = 0; i < places.length; ++i) {
        for (let j = i + 1; j < places.length; ++j) {
            const room = between(places[i], places[j]);
            if (!widths[i] || !widths[j] || Math.abs(places[i].y - places[j].y) >= high
                || (widths[i] + widths[j]) / 2 <= room)
                continue;
            if (room < leastLabel) {
                widths[j] = 0;
                continue;
            }
            // A short one keeps its width, the other gets what that leaves.
            const [short, long] = widths[i] <= widths[j] ? [i, j] : [j, i];
            const kept = Math.min(widths[short], room);
            limit(short, kept);
            limit(long, 2 * room - kept);
        }
    }
    return widths;
}

/* The place of the node that an arrow key leads to, in the direction (dx, dy) of one axis; -1 when there is none. */
function neighbour(places, from, dx, dy) {
    let nearest = -1;
    let least = Infinity;
    places.forEach((place, i) => {
        const x = place.x - places[from].x;
        const y = place.y - places[from].y;
        const ahead = x * dx + y * dy;
        const aside = Math.abs(x * dy) + Math.abs(y * dx);
        if (i !== from && ahead > 1 && ahead + 2 * aside < least) {
            nearest = i;
            least = ahead + 2 * aside;
        }
    });
    return nearest;
}

pragma ComponentBehavior: Bound
import QtQuick
import Vesk
import "network/Network.js" as Network

/* The picture of the team: who there is, who hands results to whom, and how each is doing in the task in view. It lays
   out and tells what was pressed; every change is made by the one who hears the signal. */
Item {
    id: root

    property var task: ({})
    property list<var> profiles: []
    property var positions: ({})
    property bool animated: true
    property real scrollOffset: 0
    readonly property real toolsHeight: tools.height

    property var dragPositions: ({})
    property string hoveredRole: ""
    property string connecting: ""
    property string selectedRole: ""
    property real pulse: 0

    readonly property var profileOf: Network.byId(profiles)
    /* Nodes and edges change in one step: edges name nodes by their places. */
    readonly property var graph: Network.graph(profiles, height)
    readonly property var nodes: graph.nodes
    readonly property var edges: graph.edges
    readonly property var latest: Network.latestRuns(Array.from(task.runs ?? []))
    readonly property bool working: Object.values(latest).some(run => Network.isActive(run))
    readonly property var places: nodes.map(node => {
        const at = Network.position(node, positions, dragPositions);
        return Qt.point(at.x * width - Network.nodeWidth / 2, at.y * (height - Network.below) - 4);
    })
    readonly property var labelWidths: Network.labelWidths(places,
                                                           nodes.map(node => Math.ceil(metrics.advanceWidth(node.label)) + 1),
                                                           Theme.textScale, width)
    /* Each edge from end to end in pixels, as NetworkWires takes them. */
    readonly property list<real> wires: Network.wires(graph.edges, places, graph.nodes.map(node => active(node.role)))

    signal configure(string role)
    signal link(string agent, string role)
    signal unlink(string agent, string role)
    signal remove(string role)
    signal moveNode(var positions)
    signal inspect(var run)
    /* What has got the focus by keyboard, to be scrolled to. */
    signal revealed(real top, real bottom)

    function profile(role: string): var {
        return profileOf[role] ?? {};
    }
    /* The last run of an agent, or an empty record. The chief agent has two roles, and one name. */
    function run(role: string): var {
        return latest[role] ?? (role === "orchestrator" ? latest.coordinator : undefined) ?? {};
    }
    function active(role: string): bool {
        return Network.isActive(run(role));
    }
    function waiting(role: string): bool {
        return Network.isWaiting(run(role));
    }
    function stateText(role: string): string {
        return Network.stateText(role, profile(role).enabled ?? true, task.phase ?? "", run(role));
    }
    function noteText(role: string): string {
        return Network.noteText(run(role));
    }
    function destinations(role: string): string {
        return Network.destinations(role, graph.nodes, graph.edges);
    }
    function links(role: string): var {
        return Network.links(role, profiles, graph.nodes);
    }
    function inspectRole(role: string) {
        inspect(Object.assign({}, run(role), { role: role, name: profile(role).name ?? "" }));
    }
    function pick(role: string) {
        if (connecting === "" || connecting === role) {
            selectedRole = role;
            return;
        }
        const from = connecting;
        connecting = "";
        link(from, role);
    }
    function beginConnecting(role: string) {
        selectedRole = role;
        connecting = role;
        Accessible.announce("Выберите второго агента. Enter — соединить, Escape — отменить");
    }
    function drag(role: string, pointer: point) {
        dragPositions = Network.moved(positions, role, pointer, width, height);
    }
    function drop(keep: bool) {
        const put = dragPositions;
        if (keep)
            moveNode(put);
        dragPositions = {};
    }
    function focusTowards(index: int, dx: int, dy: int) {
        const next = Network.neighbour(places, index, dx, dy);
        if (next >= 0)
            team.itemAt(next).forceActiveFocus(Qt.TabFocusReason);
    }
    function openMenu(index: int) {
        const node = team.itemAt(index) as AgentNode;
        const opened = menu.show() as AgentMenu;
        opened.role = node.role;
        opened.popup(node, node.width / 2, node.height / 2);
    }

    onNodesChanged: {
        if (connecting !== "" && !nodes.some(node => node.role === connecting))
            connecting = "";
        if (selectedRole !== "" && !nodes.some(node => node.role === selectedRole))
            selectedRole = "";
    }

    FontMetrics {
        id: metrics
        font.family: Theme.family
        font.pixelSize: Theme.small
    }
    Timer {
        interval: 100
        repeat: true
        running: root.visible && root.animated && root.working
        onTriggered: root.pulse = (root.pulse + .018) % 1
    }
    NetworkWires {
        objectName: "wires"
        anchors.fill: parent
        wires: root.wires
        color: Theme.wire
        litColor: Theme.wireLit
    }
    /* What is on its way: the lines stand still, so that only these are drawn anew ten times in a second. */
    Repeater {
        model: root.wires.length / 5
        Rectangle {
            required property int index
            readonly property int at: index * 5
            readonly property point from: Qt.point(root.wires[at] - width / 2, root.wires[at + 1] - height / 2)
            readonly property real dx: root.wires[at + 2] - root.wires[at]
            readonly property real dy: root.wires[at + 3] - root.wires[at + 1]
            visible: root.wires[at + 4] === 1
            x: visible ? from.x + dx * root.pulse : 0
            y: visible ? from.y + dy * root.pulse : 0
            width: 5
            height: 5
            radius: 2.5
            color: Theme.dotLive
        }
    }
    Repeater {
        id: team
        model: root.nodes.length
        AgentNode {
            required property int index
            readonly property var definition: root.nodes[index] ?? {}
            network: root
            role: definition.role ?? ""
            label: definition.label ?? ""
            custom: definition.custom ?? false
            labelWidth: root.labelWidths[index] ?? 0
            x: root.places[index]?.x ?? 0
            y: root.places[index]?.y ?? 0
            onArrowPressed: (dx, dy) => root.focusTowards(index, dx, dy)
            onMenuRequested: root.openMenu(index)
        }
    }
    NetworkTools {
        id: tools
        y: root.scrollOffset
        width: root.width
        z: 10
        network: root
    }
    LazyDialog {
        id: menu
        sourceComponent: AgentMenu { network: root }
    }
}

import QtQuick
import Vesk

/* A slowly drifting net behind the conversation. */
Canvas {
    id: mesh

    property bool animate: false
    property real drift: 0
    property real painted: -1
    readonly property int gap: 58

    opacity: .22
    renderTarget: Canvas.Image
    onWidthChanged: requestPaint()
    onHeightChanged: requestPaint()

    Connections {
        target: Theme
        function onLightChanged() { mesh.requestPaint(); }
    }

    function place(x: int, y: int): point {
        return Qt.point(x * gap + Math.sin(y * .7 + drift) * 4, y * gap + Math.cos(x * .4 + drift) * 4);
    }

    onPaint: {
        painted = drift;
        const context = getContext("2d");
        const columns = Math.ceil(width / gap) + 1;
        const rows = Math.ceil(height / gap) + 1;
        context.clearRect(0, 0, width, height);
        context.lineWidth = .5;
        context.strokeStyle = Theme.meshLine;
        context.fillStyle = Theme.meshPoint;
        context.beginPath();
        for (let y = 0; y < rows; ++y) {
            for (let x = 0; x < columns; ++x) {
                const here = place(x, y);
                const right = place(x + 1, y);
                const below = place(x, y + 1);
                context.moveTo(right.x, right.y);
                context.lineTo(here.x, here.y);
                context.lineTo(below.x, below.y);
                context.fillRect(here.x - 1, here.y - 1, 2, 2);
            }
        }
        context.stroke();
    }

    Timer {
        interval: 120
        repeat: true
        running: mesh.visible && mesh.animate
        onTriggered: {
            mesh.drift += .008;
            // A step moves a point by a thirtieth of a pixel; painting every other one costs half and looks the same.
            if (mesh.drift - mesh.painted > .012)
                mesh.requestPaint();
        }
    }
}

import QtQuick
import Vesk

/* The shapes that the user's background script describes, behind everything else. */
Canvas {
    id: canvas

    required property Backend service
    property bool animated: true

    opacity: .55

    function render() {
        service.renderBackground(Date.now() / 1000, width, height);
    }
    function paintShape(context: var, shape: var) {
        if (typeof shape !== "object" || shape === null)
            return;
        context.fillStyle = context.strokeStyle = shape.color ?? Theme.shape;
        context.beginPath();
        if (shape.type === "circle") {
            context.arc(shape.x, shape.y, Math.max(0, Math.min(2000, shape.r ?? 10)), 0, Math.PI * 2);
            context.fill();
        } else if (shape.type === "rect") {
            context.fillRect(shape.x, shape.y, shape.w ?? 10, shape.h ?? 10);
        } else if (shape.type === "line") {
            context.lineWidth = Math.max(1, Math.min(30, shape.width ?? 1));
            context.moveTo(shape.x, shape.y);
            context.lineTo(shape.x2, shape.y2);
            context.stroke();
        }
    }

    onPaint: {
        const context = getContext("2d");
        context.clearRect(0, 0, width, height);
        for (const shape of service.backgroundFrame)
            paintShape(context, shape);
    }

    Connections {
        target: canvas.service
        function onBackgroundChanged() { canvas.requestPaint(); }
    }
    Timer {
        interval: 100
        repeat: true
        running: canvas.visible && canvas.animated && !!canvas.service.preferences.background_js
        onTriggered: canvas.render()
    }
}

import QtQuick
import Vesk

/* The shapes that the user's background script describes, behind everything else. */
Canvas {
    id: canvas

    required property Backend service
    property bool animated: true
    /* A frame is on its way to the screen, at first an empty one; what comes meanwhile is drawn behind it. */
    property bool painting: true
    property bool outdated: false

    opacity: Theme.backdropOpacity
    // Two hundred shapes as large as the window take longer than a frame of the window may.
    renderStrategy: Canvas.Threaded

    function render() {
        service.renderBackground(Date.now() / 1000, width, height);
    }
    /* What is missing, nought or no number is what is usual. */
    function number(value: var, usual: real): real {
        return Number(value) || usual;
    }
    function clamp(value: real, least: real, most: real): real {
        return Math.max(least, Math.min(most, value));
    }
    function paintShape(context: var, shape: var) {
        const x = number(shape.x, 0);
        const y = number(shape.y, 0);
        if (shape.type === "rect") {
            context.fillRect(x, y, number(shape.w, 10), number(shape.h, 10));
            return;
        }
        context.beginPath();
        if (shape.type === "circle") {
            context.arc(x, y, clamp(number(shape.r, 10), 0, 2000), 0, Math.PI * 2);
            context.fill();
        } else if (shape.type === "line") {
            context.lineWidth = clamp(number(shape.width, 1), 1, 30);
            context.moveTo(x, y);
            context.lineTo(number(shape.x2, 0), number(shape.y2, 0));
            context.stroke();
        }
    }

    onPaint: {
        const context = getContext("2d");
        context.clearRect(0, 0, width, height);
        let colour;
        for (const shape of service.backgroundFrame) {
            // To set a colour costs as much as a shape, and neighbours mostly have the same.
            if (shape.color !== colour || colour === undefined) {
                // One that the canvas does not know leaves the one before.
                context.fillStyle = context.strokeStyle = Theme.shape;
                colour = shape.color;
                if (colour)
                    context.fillStyle = context.strokeStyle = colour;
            }
            paintShape(context, shape);
        }
    }
    onPainted: {
        painting = outdated;
        outdated = false;
        if (painting)
            requestPaint();
    }

    Connections {
        target: canvas.service
        function onBackgroundChanged() {
            canvas.outdated = canvas.painting;
            if (canvas.painting)
                return;
            canvas.painting = true;
            canvas.requestPaint();
        }
    }
    Timer {
        interval: 100
        repeat: true
        running: canvas.visible && canvas.animated && !!canvas.service.preferences.background_js
        onTriggered: canvas.render()
    }
}

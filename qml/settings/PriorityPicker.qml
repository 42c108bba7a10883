pragma ComponentBehavior: Bound
import QtQuick
import Vesk

/* Who starts first among those that could. */
Row {
    id: root

    property int value: 50

    spacing: 5
    Accessible.role: Accessible.Grouping
    Accessible.name: "Приоритет"

    Repeater {
        model: [
            { name: "Лёгкий", sets: 25, from: -1, to: 40 },
            { name: "Стандарт", sets: 50, from: 40, to: 80 },
            { name: "Высокий", sets: 100, from: 80, to: 1000 },
        ]
        SoftButton {
            required property var modelData
            readonly property bool chosen: root.value >= modelData.from && root.value < modelData.to
            text: (chosen ? "✓ " : "") + modelData.name
            tip: "Порядок старта среди готовых агентов. Связи и ожидание результатов сохраняются."
            Accessible.checkable: true
            Accessible.checked: chosen
            onClicked: root.value = modelData.sets
        }
    }
}

import QtQuick.Layouts
import Vesk

/* What can be done by keyboard from anywhere. Kept in step with WindowKeys, DialogKeys and the lists. */
FloatingDialog {
    id: root

    objectName: "keysDialog"
    title: "Сочетания клавиш"
    width: Math.min(Theme.px(600), (parent?.width ?? 600) - 40)
    height: Math.min(Theme.px(640), (parent?.height ?? 640) - 40)

    contentItem: ColumnLayout {
        FieldList {
            objectName: "keyList"
            name: root.title
            Layout.fillWidth: true
            Layout.fillHeight: true
            fields: [
                ["Ctrl+N", "Новый чат"],
                ["Ctrl+Shift+N", "Новый проект"],
                ["Ctrl+O", "Открыть свою папку"],
                ["Ctrl+,", "Настройки"],
                ["Ctrl+1, 2, 3", "Справа: команда, файлы, события; ещё раз — закрыть"],
                ["Ctrl+B", "Показать или скрыть панель с диалогами"],
                ["Alt+↑, Alt+↓", "Соседний диалог"],
                ["F6, Shift+F6", "Следующая и предыдущая часть окна"],
                ["Ctrl+L, Escape", "К полю ввода"],
                ["Enter, Shift+Enter", "В поле ввода: отправить, новая строка"],
                ["PageUp, PageDown", "Листать сообщения, не уходя из поля ввода"],
                ["F1", "Эта справка"],
                ["Ctrl+Q", "Выход"],
                ["Tab, Shift+Tab", "Следующий и предыдущий элемент"],
                ["Стрелки, Enter", "В списке: выбрать, открыть. В сообщениях и подробностях Enter начинает чтение, Escape заканчивает"],
                ["Shift+F10, Menu", "Действия с диалогом или агентом"],
                ["F2", "Переименовать диалог, настроить агента"],
                ["Delete", "Убрать агента"],
                ["Escape, Ctrl+W", "Закрыть диалоговое окно"],
                ["Alt+стрелки", "Передвинуть диалоговое окно"],
                ["Alt+Shift+стрелки", "Изменить его размер"],
                ["Ctrl+Tab", "Следующий раздел настроек"]
            ].map(([label, text]) => ({ label, text }))
        }
    }
}

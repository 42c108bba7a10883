import QtQuick
import Vesk

/* Which model answers, or what it is sending right now. */
Note {
    required property Backend service
    required property bool live
    /* What it is sending stands elsewhere in view. */
    property bool told: false

    objectName: "statusLine"
    text: !told && (live || service.chatBusy) && service.streamNote !== "" ? service.streamNote
        : service.settings.mock ?? true ? "Подключение модели — в настройках API"
        : (service.settings.model ?? "") + " · до 8 агентов"
    font.pixelSize: Theme.caption
    horizontalAlignment: Text.AlignHCenter
    wrapMode: Text.NoWrap
    elide: Text.ElideRight
}

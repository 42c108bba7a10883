import QtQuick
import Vesk

/* A key, never shown and never remembered by the input method. */
Input {
    echoMode: TextInput.Password
    inputMethodHints: Qt.ImhSensitiveData | Qt.ImhNoPredictiveText
}

import QtQuick.Dialogs
import Vesk

FileDialog {
    required property Backend service

    objectName: "attachmentPicker"
    title: "Добавить фото, видео, 2D или 3D ресурс"
    fileMode: FileDialog.OpenFiles
    nameFilters: [
        "Медиа (*.png *.jpg *.jpeg *.webp *.bmp *.mp4 *.mov *.webm *.mkv *.avi *.obj *.stl *.gltf *.glb *.fbx *.blend *.svg *.mtl)",
        "Документы и код (*.txt *.md *.json *.csv *.pdf *.docx *.js *.ts *.py)",
        "Все файлы (*)"
    ]
    onAccepted: service.attachFiles(selectedFiles.map(file => file.toString()))
}

#pragma once

#include "backend.h"

#include <QtQml/qqmlregistration.h>

/// The application's object as a type of the module, so that each use of it in the scenes is checked when they are
/// built. The window makes the one instance; src/backend knows nothing of this.
struct BackendType {
    Q_GADGET
    QML_FOREIGN(vesk::Backend)
    QML_NAMED_ELEMENT(Backend)
    QML_UNCREATABLE("The window is given the one there is.")
};

struct DifferencesType {
    Q_GADGET
    QML_FOREIGN(vesk::Differences)
    QML_NAMED_ELEMENT(Differences)
    QML_UNCREATABLE("The backend has the one there is.")
};

struct DifferenceModelType {
    Q_GADGET
    QML_FOREIGN(vesk::DifferenceModel)
    QML_NAMED_ELEMENT(DifferenceModel)
    QML_UNCREATABLE("The differences have the one there is.")
};

struct CodeViewType {
    Q_GADGET
    QML_FOREIGN(vesk::CodeView)
    QML_NAMED_ELEMENT(CodeView)
    QML_UNCREATABLE("The backend has the one there is.")
};

#pragma once

#include <QJsonObject>
#include <QString>
#include <QStringList>

/// Runs the script of a calculator's page with the program `node`, in a document that has just its elements: enters
/// first number, action and second number, presses the button and tells {"result", "alerts"}. Empty when the script
/// fails.
QJsonObject calculate(const QString &node, const QString &page, const QStringList &entries);

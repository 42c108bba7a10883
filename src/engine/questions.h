#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>

namespace vesk {

/// Whether what the coordinator answers on a topic ("plan", "structure", "code", "final") is put before the user. Not
/// when it says that it needs nobody, when there is no question or it is only whether to go on with repairs, or when it
/// stands among the task's `decisions` already; two questions that differ in case and spaces are one.
bool isForUser(const QString &topic, const QJsonObject &answer, const QJsonArray &decisions);

/// The questions that can be put before a person: texts, or the "question" or "text" of an object, without blank ones.
QStringList askableQuestions(const QJsonArray &questions);

/// Up to three of the options, without empty ones, cut to 180 characters each.
QJsonArray offeredOptions(const QJsonArray &options);

} // namespace vesk

// Which questions are worth the user's time.

#include "questions.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype maxOptions = 3;
constexpr qsizetype maxOptionChars = 180;
constexpr qsizetype maxRoutineQuestionChars = 179;

/// A question in the form in which two of them are the same.
QString questionKey(const QJsonValue &question)
{
    return question.toString().simplified().toLower();
}

/// Whether to go on with repairs is no question for the user.
bool isRoutineQuestion(const QString &topic, const QString &key)
{
    if ((topic != "code"_L1 && topic != "final"_L1) || key.size() > maxRoutineQuestionChars)
        return false;
    return key == u"продолжить?"_s || (key.contains(u"продолж"_s) && key.contains(u"исправ"_s));
}

bool wasAsked(const QString &key, const QJsonArray &decisions)
{
    return !key.isEmpty() && std::ranges::any_of(decisions, [&](const QJsonValue &past) {
        return questionKey(past["question"_L1]) == key;
    });
}

} // namespace

bool isForUser(const QString &topic, const QJsonObject &answer, const QJsonArray &decisions)
{
    const QString key = questionKey(answer["question"_L1]);
    // Only a plain "no" does without the user: anything unclear is asked.
    return !key.isEmpty() && answer["needs_user"_L1] != QJsonValue(false) && !isRoutineQuestion(topic, key)
        && !wasAsked(key, decisions);
}

QStringList askableQuestions(const QJsonArray &questions)
{
    QStringList askable;
    for (const QJsonValue &question : questions) {
        QString text = question.toString();
        for (const auto key : {"question"_L1, "text"_L1}) {
            if (text.trimmed().isEmpty())
                text = question[key].toString();
        }
        if (!text.trimmed().isEmpty())
            askable.append(text.trimmed());
    }
    return askable;
}

QJsonArray offeredOptions(const QJsonArray &options)
{
    QJsonArray offered;
    for (const QJsonValue &option : options) {
        if (offered.size() < maxOptions && !option.toString().trimmed().isEmpty())
            offered.append(option.toString().left(maxOptionChars));
    }
    return offered;
}

} // namespace vesk

// What a typed line plainly is: a question, work, an answer, or a command to connect something.

#include "message_kind.h"

#include <QRegularExpression>
#include <QStringList>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

bool startsWithAny(const QString &text, const QStringList &beginnings)
{
    return std::ranges::any_of(beginnings, [&](const QString &beginning) { return text.startsWith(beginning); });
}

QString marker()
{
    return u"\n\nВложения:"_s;
}

} // namespace

LineKind kindOf(const QString &line, const LineFacts &facts)
{
    const QString lower = line.toLower();
    if (lower.startsWith(u"подключи"_s))
        return LineKind::Connect;

    const QString body = bodyOf(line);
    const bool action = asksForAction(body);
    if (!action && (facts.attached || (!facts.questionOpen && facts.hasMedia) || asksAQuestion(body)))
        return LineKind::Talk;
    if (facts.questionOpen)
        return LineKind::Answer;
    if (facts.queueWaits && lower.startsWith(u"продолж"_s))
        return LineKind::ResumeQueue;
    if (!facts.chatBusy && (action || beginsLikeWork(lower)))
        return LineKind::Work;
    if (!facts.demo)
        return LineKind::Undecided;
    return beginsLikeTalk(lower) ? LineKind::Talk : LineKind::Work;
}

QString withAttachments(const QString &text, const QStringList &paths)
{
    QString named = text + marker();
    for (const QString &path : paths)
        named += u'\n' + path;
    return named;
}

QString withoutAttachments(const QString &line)
{
    return line.section(marker(), 0, 0);
}

QString bodyOf(const QString &text)
{
    return withoutAttachments(text).toLower();
}

bool asksForAction(const QString &body)
{
    static const QRegularExpression action(
        u"(?:^|[\\s,;.!?])(?:создай|создать|сделай|сделать|исправь|исправить|добавь|добавить|разработай|разработать|"
        "обнови|обновить|переделай|переделать|измени|изменить|улучши|улучшить|замени|заменить|обрежь|убери|удали|"
        "используй|вставь|поставь|примени|продолжи|продолжай|продолжить|напиши|написать|собери|собрать)"
        "(?=$|[\\s,;.!?])"_s,
        QRegularExpression::UseUnicodePropertiesOption);
    return action.match(body).hasMatch();
}

bool asksAQuestion(const QString &body)
{
    static const QStringList beginnings{u"что "_s,     u"как "_s,     u"почему "_s,       u"прочитай"_s, u"опиши"_s,
                                        u"расскажи"_s, u"посмотри"_s, u"проанализируй"_s, u"привет"_s};
    return startsWithAny(body, beginnings);
}

bool beginsLikeWork(const QString &lower)
{
    static const QStringList beginnings{u"используй "_s,  u"вставь "_s,     u"поставь "_s, u"примени "_s,
                                        u"создай "_s,     u"сделай "_s,     u"исправь "_s, u"добавь "_s,
                                        u"разработай "_s, u"напиши сайт"_s, u"продолж"_s,  u"обнов"_s,
                                        u"передел"_s,     u"измени "_s,     u"улучши "_s,  u"замени "_s};
    return startsWithAny(lower, beginnings);
}

bool beginsLikeTalk(const QString &lower)
{
    return startsWithAny(lower, {u"что "_s, u"как "_s, u"почему "_s, u"привет"_s, u"объясни"_s});
}

bool isSmallTalk(const QString &text)
{
    static const QRegularExpression small(
        u"^(привет|здравствуй(?:те)?|спасибо|как дела|что (?:ты |вы )?(?:сделал|сделали)|что уже готово)[.!?\\s]*$"_s,
        QRegularExpression::CaseInsensitiveOption | QRegularExpression::UseUnicodePropertiesOption);
    return small.match(text).hasMatch();
}

QString assetUsage(const QString &text)
{
    const QString lower = text.toLower();
    if (lower.contains(u"баннер"_s))
        return u"Баннер"_s;
    if (lower.contains(u"иконк"_s))
        return u"Иконка"_s;
    return lower.contains(u"фон"_s) ? u"Фон"_s : QString();
}

bool suitsDemo(const QString &request)
{
    return std::ranges::any_of(QStringList{u"кальк"_s, u"calc"_s, u"build"_s, u"сбор"_s},
                               [&](const QString &word) { return request.contains(word, Qt::CaseInsensitive); });
}

} // namespace vesk

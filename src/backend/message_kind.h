#pragma once

#include <QString>

namespace vesk {

/// What a typed line plainly is, before any model is asked: fixed word lists over the text.

/// The part of a message in front of its list of attachments, in lower case.
QString bodyOf(const QString &text);

/// Holds an action word ("создай", "исправь", ...) as a whole word anywhere in the body.
bool asksForAction(const QString &body);

/// Begins like a question or a request to look at something.
bool asksAQuestion(const QString &body);

/// Begins like a piece of work, in the whole text in lower case.
bool beginsLikeWork(const QString &lower);

/// Begins like a question, by the shorter list that demo mode goes by.
bool beginsLikeTalk(const QString &lower);

/// Greetings, thanks and "what have you done": no media belong to these.
bool isSmallTalk(const QString &text);

/// What an attached picture is for, when the text says so: "Баннер", "Иконка", "Фон" or nothing.
QString assetUsage(const QString &text);

/// Whether demo mode can carry the request out.
bool suitsDemo(const QString &request);

} // namespace vesk

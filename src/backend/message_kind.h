#pragma once

#include <QString>
#include <QStringList>

namespace vesk {

/// What a typed line plainly is, before any model is asked: fixed word lists over the text.

/// Where a typed line goes.
enum class LineKind {
    Connect, ///< A command to connect a tool of another program.
    Talk, ///< An answer in the chat.
    Answer, ///< To the open question of the run.
    ResumeQueue,
    Work, ///< A task.
    Undecided, ///< The chat model says whether it is talk or work.
};

/// What the place of a line depends on besides its words.
struct LineFacts {
    bool attached = false; ///< Files go with it.
    bool hasMedia = false; ///< It is about files of the project.
    bool questionOpen = false; ///< The run waits for an answer.
    bool queueWaits = false; ///< The queue is paused with something in it, and no run is active.
    bool chatBusy = false;
    bool demo = false; ///< There is no model to ask.
};

LineKind kindOf(const QString &line, const LineFacts &facts);

/// A line with its files named, one in a line, behind a marker.
QString withAttachments(const QString &text, const QStringList &paths);
/// The line in front of the marker; all of it when there is none.
QString withoutAttachments(const QString &line);

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

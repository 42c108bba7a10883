#pragma once

#include <QJsonObject>
#include <QString>
#include <QStringList>

namespace vesk {

// What can be told from a text alone about what it names, asks for or only promises. Guesses by their nature: each errs
// on the side of silence, since its word goes into a report.

/// The file names in a sentence, paths with their folders, each once. What only looks like one ("Node.js",
/// "example.com", "v1.2") is left out.
QStringList namedFiles(const QString &sentence);

/// The commands in a sentence, each as its words: what stands in quotes or backticks and begins with a known program,
/// and known programs with their arguments in between Russian words.
QList<QStringList> namedCommands(const QString &sentence);

/// The words of a command line for comparing: programs without folder and version ("python3" is "python"), the text
/// behind "sh -c" taken apart, npm's own script as "npm".
QStringList commandWords(const QString &program, const QStringList &arguments);

/// What npm runs of package.json by a command; empty for other commands.
QString packageScript(const QString &program, const QStringList &arguments, const QJsonObject &package);

/// Whether the words stand among the others in this order.
bool isWithin(const QStringList &words, const QStringList &others);

/// Why the success of a command says nothing, in Russian: it ends well whatever happens in it. Empty when it can fail.
/// The scripts of package.json are looked up for "npm run x" and "npm test".
QString emptyProof(const QString &program, const QStringList &arguments, const QJsonObject &package);

/// What a file fails to hold, in Russian: "пустой файл", "только комментарии", "функция без тела: имя". Empty for a
/// file with something in it.
QString hollowness(const QString &path, const QString &text);

/// What a file is although its name promises another kind: "текст вместо изображения". Empty when it may be right.
QString disguise(const QString &path, const QString &text);

/// Whether two texts have a word in common, endings aside. Short words and those of every request do not count.
bool shareWords(const QString &one, const QString &other);

/// Whether a sentence names a file as one that shall not be there ("без style.css", "удали old.txt").
bool isUnwanted(const QString &sentence, const QString &path);

/// True for kinds of files that a program may read or write when it is used.
bool isWrittenInUse(const QString &path);

/// Whether an observer's words complain: "Тесты не запускались", but not "Ошибки отсутствуют".
bool isComplaint(const QString &observation);

/// What kind of file a name promises: "js" for "src/App.JS".
QString suffixOf(const QString &path);
/// True for the path of a file that tests others.
bool isTestPath(const QString &path);

/// What a real check is, for the criteria that it can answer.
enum class CheckKind { Test, Build, Page, Syntax, Other };

/// Programs and options that run tests, whatever else stands in the command, and those that look at syntax alone.
const QStringList &testRunners();
const QStringList &syntaxOptions();

CheckKind kindOfCheck(const QString &program, const QStringList &arguments);

/// Whether a passed check of this kind answers a criterion by the kind alone ("Все тесты проходят").
bool answersKind(const QString &criterion, CheckKind kind);

} // namespace vesk

// The one channel through which the run asks the user something.

#include "engine_p.h"

#include "questions.h"

#include <utility>

using namespace Qt::StringLiterals;

namespace vesk {

void Engine::askDecision(QString question, QJsonArray options, std::function<void()> continuation)
{
    require(decision.isEmpty(), u"Другое уточнение ещё ожидает ответа."_s);
    question = question.trimmed();
    require(!question.isEmpty(), u"Главный агент не сформулировал вопрос."_s);

    decisionReturnPhase = phase;
    decision = {
        {u"id"_s, id()},
        {u"question"_s, question},
        {u"options"_s, offeredOptions(options)},
        {u"stage"_s, phase},
    };
    decisionContinuation = std::move(continuation);
    stage(Phase::clarification);
}

void Engine::clarify(const QString &answer, const QJsonArray &media)
{
    require(phase == Phase::clarification && !decision.isEmpty(), u"Нет ожидающего уточнения."_s);
    require(!answer.trimmed().isEmpty(), u"Введите ответ."_s);
    store.put(u"messages"_s, id(), taskId, {{u"role"_s, u"user"_s}, {u"content"_s, answer}, {u"time"_s, now()}});

    QJsonObject answered = decision;
    answered["answer"_L1] = answer;
    QJsonArray decisions = spec["decisions"_L1].toArray();
    decisions.append(answered);
    spec["decisions"_L1] = decisions;
    // Whose version of a file stands is no wish about the task.
    if (decision["kind"_L1].toString() != "hand_edit"_L1)
        spec["clarification"_L1] = answer;
    decisionAnswer = answer;
    addMedia(media);

    // In front of whatever came in while the question was open.
    deferred.push_front(std::exchange(decisionContinuation, {}));
    decision = {};
    step([this] { stage(decisionReturnPhase); });
    runDeferred();
    step([this] {
        pump();
        persist();
    });
}

void Engine::addMedia(const QJsonArray &media)
{
    if (media.isEmpty())
        return;
    QJsonArray known = spec["media"_L1].toArray();
    for (const QJsonValue &medium : media) {
        if (std::ranges::none_of(known, [&](const QJsonValue &one) { return one["id"_L1] == medium["id"_L1]; }))
            known.append(medium);
    }
    spec["media"_L1] = known;
    requestMedia = known; // by which the user's agents for pictures are chosen
}

void Engine::consult(QString topic, QJsonObject context, std::function<void()> continuation)
{
    context["topic"_L1] = topic;
    enqueue(u"coordinator"_s, context, [this, topic, continuation](const QJsonObject &answer) {
        if (isForUser(topic, answer, spec["decisions"_L1].toArray())) {
            askDecision(answer["question"_L1].toString(), answer["options"_L1].toArray(), continuation);
            return;
        }
        publish(u"AutomaticCorrection"_s, answer["summary"_L1].toString());
        if (busy())
            continuation();
    });
}

} // namespace vesk

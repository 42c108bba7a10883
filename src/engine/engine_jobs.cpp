// The queue of model requests. A stage hands over a role, a context and a continuation, and never sees a failed or
// malformed answer: the continuation gets a valid object, or the task ends.

#include "engine_p.h"

#include "chat_reply.h"
#include "code_answer.h"
#include "file_excerpt.h"
#include "output_contract.h"
#include "prompt_notes.h"
#include "request_room.h"
#include "retry.h"
#include "workflow.h"

#include <QPointer>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

/// Read from a constant job: a look through a modifiable one would copy the record.
QString runIdOf(const Job &job)
{
    return job.run["id"_L1].toString();
}

/// The file that a request is about; empty when it is about none.
QString fileOf(const QJsonObject &artifact)
{
    const QString reviewed = artifact["file"_L1]["path"_L1].toString();
    return reviewed.isEmpty() ? artifact["node"_L1]["input"_L1]["path"_L1].toString() : reviewed;
}

QString taskOf(const Job &job)
{
    return job.run["task_id"_L1].toString();
}

} // namespace

void Engine::enqueue(const QString &role, const QJsonObject &artifact, Answer callback)
{
    if (!busy())
        return;
    if (automaticRouting) {
        enqueueDirect(role, artifact, std::move(callback));
        return;
    }
    runWorkflow(role, artifact, [this, role, artifact, callback = std::move(callback)](const QJsonArray &deliverables) {
        QJsonObject context = artifact;
        if (!deliverables.isEmpty())
            context["team_deliverables"_L1] = deliverables;
        enqueueDirect(role, context, callback);
    });
}

void Engine::enqueueDirect(const QString &role, const QJsonObject &artifact, Answer callback)
{
    if (!busy())
        return;
    if (disabledAgents.contains(role) && isReviewKind(role)) {
        step([&] {
            publish(u"AgentSkipped"_s, role);
            skipRole(std::move(callback));
        });
        return;
    }

    step([&] {
        auto job = std::make_shared<Job>();
        job->agent = agentFor(role);
        job->role = role;
        const QJsonObject custom = customAgentFor(role, artifact);
        job->priority = custom["priority"_L1].toInt(defaultPriority);
        if (role == "workflow_reviewer"_L1)
            job->agent.system_prompt = PromptManager::get(role);
        labelJob(*job, custom);
        job->maxTokens = outputLimit(role);
        job->context = requestInput(role, artifact);
        addInstructions(*job, custom);
        job->provider = agentProviders.value(custom.isEmpty() ? role : custom["id"_L1].toString(), provider);
        job->callback = std::move(callback);
        if (busy()) // still, after the news of its agent
            queueJob(job);
    });
}

/// A reviewer that the user has switched off approves, without a request.
void Engine::skipRole(Answer callback)
{
    if (!callback)
        return;
    later(0, [this, callback = std::move(callback)] {
        const QJsonObject approval{
            {u"verdict"_s, u"APPROVE"_s},
            {u"issues"_s, QJsonArray()},
            {u"required_changes"_s, QJsonArray()},
            {u"confidence"_s, 1},
            {u"summary"_s, u"Роль отключена пользователем; проверка не выполнялась."_s},
        };
        // Like any other answer, it waits while the run stands still.
        if (waiting())
            deferred.push_back([callback, approval] { callback(approval); });
        else
            callback(approval);
    });
}

const Agent &Engine::agentFor(const QString &role)
{
    const QStringList allowed = role == "coding"_L1 ? QStringList{u"write_file"_s, u"read_file"_s} : QStringList();
    return makeAgent(role, role, {}, allowed);
}

/// The task's agent of this role, made on first use.
Agent &Engine::makeAgent(const QString &role, const QString &name, const QStringList &capabilities,
                         const QStringList &allowedTools)
{
    const auto known = agents.find(role);
    if (known != agents.end())
        return *known;
    Agent &agent = *agents.insert(role, AgentFactory::create(role, name, capabilities, allowedTools));
    const QJsonObject object = agent.toJson();
    store.put(u"agents"_s, agent.id, taskId, object);
    publish(u"AgentCreated"_s, name, object);
    return agent;
}

/// The user's agent that takes the job: the member of a workflow, the one that the plan names, or the first in rank
/// below this role. Empty when there is none.
QJsonObject Engine::customAgentFor(const QString &role, const QJsonObject &artifact) const
{
    if (artifact.contains("workflow_agent"_L1))
        return artifact["workflow_agent"_L1].toObject();

    const QString wanted = artifact["node"_L1]["input"_L1]["agent_id"_L1].toString();
    QJsonObject chosen;
    for (const QJsonValue &agent : agentNetwork) {
        if (!agent["enabled"_L1].toBool() || agent["parent"_L1].toString() != role
            || agent["mode"_L1].toString() == "workflow"_L1)
            continue;
        if (!wanted.isEmpty() && agent["id"_L1].toString() == wanted)
            return agent.toObject();
        const int rank = agent["priority"_L1].toInt(defaultPriority);
        if (chosen.isEmpty() || rank > chosen["priority"_L1].toInt(defaultPriority))
            chosen = agent.toObject();
    }
    return chosen;
}

void Engine::labelJob(Job &job, const QJsonObject &custom)
{
    if (!custom.isEmpty()) {
        job.agent.role = custom["id"_L1].toString();
        job.agent.name = custom["name"_L1].toString();
    } else if (disabledAgents.contains(job.role)) {
        // A working role that is switched off still has to be done by somebody.
        job.agent.role = u"orchestrator"_s;
        job.agent.name = u"Главный · "_s + job.role;
    }
}

QJsonObject Engine::requestTask(const QString &role) const
{
    QJsonObject task = spec;
    if (role == "planner"_L1 || role == "orchestrator"_L1)
        task["available_mcp_tools"_L1] = fittedTools(mcpTools, maxToolChars);
    else
        task.remove("available_mcp_tools"_L1);
    if (!glance.map.isEmpty()) {
        task["existing_files"_L1] = glance.named;
        task["project_map"_L1] = glance.map;
    }
    return task;
}

QJsonObject Engine::requestInput(const QString &role, QJsonObject artifact) const
{
    artifact.remove("workflow_agent"_L1);
    const QJsonObject task = requestTask(role);
    const auto chars = [&] { return json({{u"task"_s, task}, {u"artifact"_s, artifact}, {u"memory"_s, {}}}).size(); };
    if (const qsizetype excess = chars() - maxContextChars; excess > 0)
        artifact = fitted(artifact, json(artifact).size() - excess, roomFacts(artifact));
    const QString path = fileOf(artifact);
    require(
        path.isEmpty() || chars() <= maxContextChars,
        u"Задание для файла %1 не помещается в один запрос к модели: в нём %2 символов, а помещается %3."_s.arg(path)
            .arg(chars())
            .arg(maxContextChars));
    return ContextManager::select(task, artifact, store.list(u"memory_entries"_s, workspace.project()),
                                  maxContextChars);
}

RoomFacts Engine::roomFacts(const QJsonObject &artifact) const
{
    const QJsonObject file = artifact["file"_L1].toObject();
    RoomFacts facts;
    facts.distances = dependencyDistances(graph.nodes, artifact["node"_L1]["id"_L1].toString());
    facts.named = namedIn(artifact["node"_L1].toObject(), artifact["fixes"_L1].toArray());
    const int number = file["revision"_L1].toInt();
    if (number > 1)
        facts.before = workspace.revision(file["path"_L1].toString(), number - 1)["content"_L1].toString();
    return facts;
}

/// What tells which passages of a file a job is about.
QStringList Engine::namedIn(const QJsonObject &node, const QJsonArray &fixes) const
{
    QStringList named{spec["original_request"_L1].toString(), spec["clarification"_L1].toString(),
                      node["title"_L1].toString()};
    return named << textsIn(node["input"_L1]) << textsIn(fixes);
}

/// What skills and the user's agents add to input and prompt, in the fixed order of the notes.
void Engine::addInstructions(Job &job, const QJsonObject &custom) const
{
    QString &prompt = job.agent.system_prompt;
    const QString skill = roleSkills[job.role]["instructions"_L1].toString();
    if (!skill.isEmpty()) {
        job.context["role_skill_instructions"_L1] = skill.left(maxInstructionChars);
        prompt += roleSkillNote();
    }
    if (!custom.isEmpty()) {
        job.context["specialist_instructions"_L1] = custom["instructions"_L1].toString().left(maxInstructionChars);
        job.context["agent_rules"_L1] = custom["rules"_L1];
        job.context["enabled_agent_tasks"_L1] = custom["tasks"_L1];
        prompt += specialistNote();
    }
    if (automaticRouting && job.role == "orchestrator"_L1)
        prompt += autonomousNote();
    if (job.context["artifact"_L1].toObject().contains("segment"_L1))
        prompt += segmentNote();
    if (offersEdits(job.context["artifact"_L1].toObject()))
        prompt += editsNote();
}

void Engine::queueJob(std::shared_ptr<Job> job)
{
    job->run = {
        {u"id"_s, id()},
        {u"agent_id"_s, job->agent.id},
        {u"name"_s, job->agent.name},
        {u"role"_s, job->agent.role},
        {u"logical_role"_s, job->role},
        {u"task_id"_s, taskId},
        {u"status"_s, RunStatus::waiting},
        {u"model"_s, job->provider->name()},
        {u"context"_s, job->context},
        {u"system_prompt"_s, job->agent.system_prompt},
        {u"created_at"_s, now()},
    };
    queue.push_back(job);
    saveRun(job->run);
    // Not at once: all jobs of this turn are queued before the first leaves, so that their priorities count.
    later(0, [this] { pump(); });
}

void Engine::pump()
{
    while (!waiting() && busy() && !queue.empty() && active.size() < std::clamp(maxParallel, 1, maxParallelRequests)) {
        // The first of the highest rank.
        const auto next = std::ranges::max_element(queue, {}, [](const auto &job) { return job->priority; });
        const std::shared_ptr<Job> job = *next;
        queue.erase(next);
        dispatch(job);
    }
}

void Engine::dispatch(std::shared_ptr<Job> job)
{
    // One token per byte is an overestimate, which is what a budget needs.
    job->reserved = jsonBytes(job->context).size() + job->agent.system_prompt.toUtf8().size() + job->maxTokens;
    if (!budget.reserve(job->reserved)) {
        fail(u"Token budget reached before next request"_s);
        return;
    }

    const int noted = generation;
    const QString runId = runIdOf(*job);
    active.insert(runId, job);
    ++job->attempts;
    job->run["status"_L1] = runStatus(job->role, job->context);
    job->run["started_at"_L1] = now();
    job->run["attempt"_L1] = job->attempts;
    saveRun(job->run);
    publish(u"AgentStarted"_s, job->role, job->run);
    if (noted != generation)
        return;

    const LLMRequest request{runId, job->role, job->agent.system_prompt, job->context, job->maxTokens};
    // The provider outlives the engine and may answer when there is none any more.
    const auto take = whileThisRun([this, job](const LLMResult &result) { step([&] { receive(job, result); }); });
    job->provider->request(request, [self = QPointer(this), take](const LLMResult &result) {
        if (self)
            take(result);
    });
}

void Engine::receive(const std::shared_ptr<Job> &job, const LLMResult &result)
{
    const qint64 spent = qint64(result.promptTokens) + result.completionTokens;
    active.remove(runIdOf(*job));
    budget.settle(job->reserved, spent > 0 ? spent : job->reserved);
    job->run["input_tokens"_L1] = result.promptTokens;
    job->run["output_tokens"_L1] = result.completionTokens;

    if (!result.error.isEmpty()) {
        retryOrFail(job, result);
        return;
    }

    try {
        QJsonObject answer;
        if (acceptAnswer(job, result.content, answer))
            deliver(job, answer);
    } catch (const std::exception &failure) {
        // What the run has already ended over is not its last word.
        if (!busy() || taskOf(*job) != taskId)
            return;
        job->run["status"_L1] = RunStatus::error;
        job->run["error"_L1] = textOf(failure);
        attempt([&] { saveRun(job->run); });
        fail(textOf(failure));
    }
}

void Engine::retryOrFail(const std::shared_ptr<Job> &job, const LLMResult &result)
{
    job->run["error"_L1] = result.error;
    const RetryDecision decided = retryAfter(result, job->attempts, job->maxTokens);
    if (!decided.again) {
        job->run["status"_L1] = RunStatus::error;
        saveRun(job->run);
        fail(withoutPromise(result.error));
        return;
    }

    job->maxTokens = decided.maxTokens;
    job->run["status"_L1] = RunStatus::waiting;
    saveRun(job->run);
    publish(u"RetryScheduled"_s, result.error);
    if (result.waitMs > 0)
        publish(u"AutomaticCorrection"_s,
                u"Провайдер просит подождать %1 с. Повторю запрос после паузы."_s.arg((result.waitMs + 999) / 1000));
    later(decided.delayMs, [this, job] { requeue(job); });
    pump();
}

/// False when the answer doesn't fit and has gone back for its one repair; throws when that was used up.
bool Engine::acceptAnswer(const std::shared_ptr<Job> &job, const QString &content, QJsonObject &answer)
{
    try {
        answer = parseObject(content);
        validateOutput(job->role, answer, offersEdits(job->context["artifact"_L1].toObject()));
        return true;
    } catch (const std::exception &fault) {
        if (job->formatRepairs > 0)
            throw;
        ++job->formatRepairs;
        job->context["format_error"_L1] = textOf(fault);
        job->context["format_instruction"_L1]
            = u"Return valid JSON satisfying the role schema. This is your only format repair attempt."_s;
    }
    job->run["status"_L1] = RunStatus::waiting;
    saveRun(job->run);
    requeue(job);
    return false;
}

void Engine::deliver(const std::shared_ptr<Job> &job, const QJsonObject &answer)
{
    const int noted = generation;
    const QString runId = runIdOf(*job);
    job->run["status"_L1] = RunStatus::completed;
    job->run["finished_at"_L1] = now();
    job->run["output"_L1] = answer;
    job->run.remove("error"_L1);
    saveRun(job->run);
    store.put(u"artifacts"_s, runId, taskId,
              {{u"id"_s, runId}, {u"version"_s, 1}, {u"type"_s, job->agent.role}, {u"body"_s, answer}});
    publish(u"AgentFinished"_s, job->agent.role, job->run);

    if (job->callback && noted == generation) {
        if (waiting())
            deferred.push_back([job, answer] { job->callback(answer); });
        else
            job->callback(answer);
    }
    pump();
}

void Engine::requeue(const std::shared_ptr<Job> &job)
{
    queue.push_back(job);
    pump();
}

} // namespace vesk

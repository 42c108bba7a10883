#pragma once

#include "budget.h"
#include "job.h"
#include "llm_provider.h"
#include "project_map.h"
#include "roles.h"
#include "task_graph.h"
#include "task_record.h"
#include "workflow.h"
#include "write_pace.h"

#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QObject>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QTimer>

#include <deque>
#include <functional>
#include <memory>
#include <utility>

namespace vesk {

struct BrowserVerdict;
struct HandEdit;
struct CheckTools;
struct Strays;
class EditLook;
class EventBus;
class PermissionManager;
struct ProjectCheck;
struct RoomFacts;
class Store;
class TestCopy;
class ToolRouter;
struct Trial;
class Workspace;

/// Carries one task at a time from a request to its end, on the main thread, driven only by events: a call from
/// outside, a finished model job, a finished tool. It never blocks.
///
/// Phases: IDLE -> INTAKE -> PLANNING -> PLAN_REVIEW -> STRUCTURING -> STRUCTURE_REVIEW -> EXECUTION -> VALIDATION ->
/// COMPLETED, with CLARIFICATION (waits for the user), PREVIEW (a simulated run before execution), FAILED and CANCELLED
/// beside them; docs/architecture.md has the picture. Every change of state is stored before `changed` is emitted.
///
/// Operations called from outside throw std::runtime_error and change nothing before they do. What a step of a run
/// throws ends the run through fail().
class Engine : public QObject {
    Q_OBJECT
public:
    using Answer = std::function<void(QJsonObject)>;

    /// All collaborators outlive the engine, which owns none of them.
    Engine(Store &store, Workspace &workspace, EventBus &events, PermissionManager &permissions, ToolRouter &tools,
           ILLMProvider *provider, QObject *parent = nullptr);
    ~Engine() override;

    // What an application calls

    /// Begins a task. `simulation` stops before execution; `budget` is in tokens, at least 1000; `buildCommand` is
    /// {"program", "arguments"} or empty.
    void start(const QString &request, bool simulation, qint64 budget, QJsonObject buildCommand);
    /// The user's answer to the open decision, and the media that go with it, which belong to the task from then on.
    void clarify(const QString &answer, const QJsonArray &media = {});
    /// The user's answer to a pending permission; a refusal ends the run.
    void approve(const QString &id, bool allow);
    /// Carries a simulated run on into execution.
    void runPreview();
    void pause();
    void resume();
    void cancel();
    /// Ends the run as "FAILED"; files and history stay. Nothing happens when no task is active.
    void fail(const QString &reason);
    /// Sets the priority, held to 0..2, of the node with this id, if there is one.
    void priority(const QString &node, int value);
    /// Throws "Stop the active task before changing provider".
    void setProvider(ILLMProvider *provider);
    /// True while a task is between start and one of its ends.
    bool busy() const;
    /// The code of the current phase, "IDLE" before the first task.
    QString phaseCode() const { return phase; }
    /// The id of the current or last task; empty before the first.
    QString task() const { return taskId; }
    /// The task state document (docs/task-state.md), runs in full.
    QJsonObject snapshot() const;

    // Settings and inputs of the next start. They belong to no task: start() doesn't clear them.

    int maxParallel = maxParallelRequests; ///< Concurrent requests; held to 1..8.
    bool computerAccess = false; ///< Programs run without a question.
    bool automaticRouting = false; ///< The chief agent decides how a run goes on.
    QHash<QString, ILLMProvider *> agentProviders; ///< By agent or role; not owned.
    QSet<QString> disabledAgents;
    QJsonArray agentNetwork;
    QJsonArray mcpTools;
    QJsonObject roleSkills;
    QJsonObject previousSpec;
    QJsonArray conversationHistory;
    QJsonArray requestMedia;
    QJsonObject mediaTools;
    QString copiesFolder; ///< Where tests are tried in copies of the project; empty for not trying them.
    QString picturesFolder; ///< Where pictures of pages are kept, a folder for each task; empty for none.
    /// Of a project whose files are taken in when they are first touched: those that it has, as far as they are known,
    /// and the map of them.
    QStringList projectTree;
    QString projectTreeMap;
    /// Calls an MCP tool: server id, tool, arguments, completion.
    std::function<void(QString, QString, QJsonObject, Answer)> mcpCall;

Q_SIGNALS:
    // Emitted in the middle of a step, like the events. A listener may end the run; what begins a new one or answers a
    // question belongs on a turn of its own.
    void changed();
    /// Once per task, with the end phase.
    void finished(QString status);

public:
    // Steps of a run that are reached from outside, too.

    /// Stores the state of the task as it is.
    void persist();
    /// Asks a model without the user's agents in front of it.
    void enqueueDirect(const QString &role, const QJsonObject &artifact, Answer callback);
    /// Asks the user. Throws when there is nothing to ask, or a question is open.
    void askDecision(QString question, QJsonArray options, std::function<void()> continuation);
    /// Asks the coordinator what an objection means; what only the user can decide becomes a question.
    void consult(QString topic, QJsonObject context, std::function<void()> continuation);
    /// Orders the file of a node from a coder.
    void codeNode(int index, const QJsonArray &fixes);

private:
    using Step = std::function<void()>;
    using Verdict = std::function<void(QString, QList<QJsonObject>)>;

    // engine.cpp
    /// Moves to a phase and stores the state; does no more than store it when the phase is that already or the task has
    /// ended.
    void stage(const QString &phase);
    void reset();
    QJsonArray availableSpecialists() const;
    QJsonArray existingFiles() const;
    QString openings(const QJsonArray &files) const;
    QString projectNotes() const;
    void addMedia(const QJsonArray &media);
    void requireFilesAsLeft() const;
    void grantFileAccess();
    void grantWriting();
    void enter(const QString &next);
    void endRun(const QString &endPhase, const QString &reason);
    void tidyRun(const QString &endPhase);
    void completeRun(const QString &message, const QJsonObject &data);
    bool waiting() const;
    void runDeferred();
    void step(const Step &work);
    void attempt(const Step &work);
    void later(int delayMs, Step work);
    /// A callback that does nothing once this run has ended.
    template <typename Callback> auto whileThisRun(Callback callback)
    {
        return [this, noted = generation, callback = std::move(callback)](const auto &...results) {
            if (noted == generation && busy())
                callback(results...);
        };
    }
    void publish(const QString &type, const QString &message, const QJsonObject &data = {});

    // engine_state.cpp
    /// Replaces or adds a run record and stores it.
    void saveRun(const QJsonObject &run);
    void writeState();
    void writeDocument();
    void writeLateDocument();
    QByteArray documentText();
    QJsonObject headOfState() const;

    // engine_jobs.cpp
    /// The entry for all stages: the user's agents in front of the role first, then the role itself.
    void enqueue(const QString &role, const QJsonObject &artifact, Answer callback);
    void pump();
    void dispatch(std::shared_ptr<Job> job);
    void skipRole(Answer callback);
    const Agent &agentFor(const QString &role);
    Agent &makeAgent(const QString &role, const QString &name, const QStringList &capabilities,
                     const QStringList &allowedTools);
    QJsonObject customAgentFor(const QString &role, const QJsonObject &artifact) const;
    void labelJob(Job &job, const QJsonObject &custom);
    QJsonObject requestTask(const QString &role) const;
    QJsonObject requestInput(const QString &role, QJsonObject artifact) const;
    RoomFacts roomFacts(const QJsonObject &artifact) const;
    QStringList namedIn(const QJsonObject &node, const QJsonArray &fixes) const;
    void addInstructions(Job &job, const QJsonObject &custom) const;
    void queueJob(std::shared_ptr<Job> job);
    void receive(const std::shared_ptr<Job> &job, const LLMResult &result);
    void retryOrFail(const std::shared_ptr<Job> &job, const LLMResult &result);
    bool acceptAnswer(const std::shared_ptr<Job> &job, const QString &content, QJsonObject &answer);
    void deliver(const std::shared_ptr<Job> &job, const QJsonObject &answer);
    void requeue(const std::shared_ptr<Job> &job);

    // engine_intake.cpp
    void intake();
    void takeSpec(const QJsonObject &answer);
    bool takeDelegations(const QJsonObject &answer);
    QJsonObject newDelegations(const QJsonArray &orders);
    void mergeSpec(const QJsonObject &answer);
    void followAction(const QJsonObject &answer);

    // engine_planning.cpp
    void planning();
    void structuring();
    void reviewPlan();
    void reviewStructure();

    // engine_panel.cpp
    void judges(const QStringList &roles, const QJsonObject &artifact, Verdict callback);
    void judgeRound(QStringList roles, QJsonObject artifact, int round, Verdict callback);

    // engine_nodes.cpp
    void activatePlan();
    void execution();
    void lookForEdits(const std::shared_ptr<EditLook> &look);
    void beginExecution();
    void scheduleNodes();
    void executeNode(int index);
    void documentPart(int index, QJsonObject payload, const QString &content, int target, int part);
    void bindBuildCommand(const QJsonObject &command);
    bool isReleased(int index) const;
    QJsonObject codingPayload(const Node &node, const QJsonArray &fixes) const;
    void takeDocumentPart(int index, const QJsonObject &payload, const QString &content, int target, int part,
                          const QJsonObject &answer);
    QStringList codeNodeIds() const;
    QStringList codePaths() const;
    int appendNode(Node node);
    QJsonArray graphWithoutOutputs() const;

    // engine_files.cpp
    void writeCodeResult(int index, const QJsonObject &answer);
    void reviewFile(int index, const QJsonObject &revision);
    QString faultOf(int index, const QJsonArray &files) const;
    QString pathFault(const QString &path) const;
    QString fileFault(const QString &path) const;
    QJsonArray assembled(const QJsonArray &files, const QString &expected, QString &fault) const;
    void repairFileList(int index, const QString &fault, const QString &change);
    QList<std::pair<int, QJsonObject>> splitOff(int index, const QJsonArray &files, const QString &primaryPath);
    void writeFile(int index, const QJsonObject &file);
    void takeWritten(int index, const QJsonObject &file, const QJsonObject &result);
    void takeRevision(int index, const QJsonObject &revision);
    void acceptFile(int index);
    void requestFixes(int index, const QJsonObject &file, const QList<QJsonObject> &reviews);

    // engine_edits.cpp
    QList<HandEdit> editsOf(const QStringList &paths) const;
    bool askAboutEdits(const QList<HandEdit> &edits, const Step &next);
    void settleEdits(const QList<HandEdit> &edits, const QString &answer, const Step &next);
    bool takeSettled();
    void takeOwn(int index, const QJsonObject &record);
    void leaveOut(int index);
    bool isGivenUp(const Node &node) const;
    QString fileText(const QString &path) const;

    // engine_tools.cpp
    void runTool(int index);
    void grantAction(const QString &fingerprint);
    bool needsNoQuestion(const QJsonObject &command) const;
    void askPermission(int index, const QString &fingerprint);
    void startTool(int index);
    void takeToolResult(int index, const QHash<QString, int> &tested, const QJsonObject &run,
                        const QJsonObject &result);
    static void requireRecorded(const QJsonObject &result);
    QJsonObject readData(const Node &node) const;
    void finishNode(int index, const QJsonObject &result, bool done);
    void callMcp(int index);
    bool requeueTwins(int index);
    static QJsonObject terminalRun(const Agent &terminal, const QString &task, const QJsonObject &command);
    void endTerminalRun(QJsonObject run, const QString &status, const QJsonObject &result);

    // engine_trials.cpp
    void tryTests();
    void tryNext(QList<Trial> left);
    void makeCopy(const Trial &trial, const std::function<void(std::shared_ptr<TestCopy>)> &next);
    void runTrial(const Trial &trial, const std::shared_ptr<TestCopy> &copy, qsizetype nth,
                  const std::function<void(bool passed)> &next);

    // engine_checks.cpp
    /// True when there is something to check first; the run then goes on there.
    bool prepareProjectChecks();
    bool prepareBrowserCheck();
    void recoverVerification(int index, const QJsonObject &result);
    void waitFor(const QString &nodeId, const QStringList &others);
    void repeatStepsOf(const QString &codeId);
    void installNewPackages(const QString &path);
    bool addBuildChecks(const QStringList &codeIds);
    CheckTools checkTools() const;
    bool addSharedSyntaxChecks();
    QString addCheck(const ProjectCheck &needed);
    void runAddedChecks(const QString &message);
    QString nodeProgram() const;
    QString addPageCheck(const QString &page, const QString &title, const QStringList &after);
    QString openedPage(const Node &node) const;
    QStringList checkedPages() const;
    bool isBuilt(const QString &path) const;
    BrowserVerdict verdictOf(int index, const QJsonObject &result) const;
    bool tellDeadControls(int index, const QJsonObject &result);
    void noteLimitation(int index, const QString &text);

    // engine_validation.cpp
    void finalValidation();
    void validate();
    QJsonArray compactGraph() const;
    QJsonObject validatorContext() const;
    QJsonArray projectFiles() const;
    void passGates();

    // engine_evidence.cpp
    QJsonObject readEvidence() const;
    Strays strayFiles() const;
    void askJudge(const QString &role, const QJsonObject &artifact, bool again, const Answer &callback);
    void reworkAfterValidation(const QJsonObject &review);

    // engine_workflow.cpp
    void runWorkflow(const QString &key, QJsonObject input, std::function<void(QJsonArray)> callback);
    void pumpWorkflow(const QString &key);
    void startMember(const QString &key, const QJsonObject &member);
    void takeDeliverable(const QString &key, const QJsonObject &member, const QJsonObject &answer);
    void finishWorkflow(const QString &key);
    void reworkChain(const QString &key, const QString &reviewer, const QJsonObject &review);
    void rerunUpstream(const QString &key, const QString &reviewer, const QJsonObject &review);

    Store &store;
    Workspace &workspace;
    EventBus &events;
    PermissionManager &permissions;
    ToolRouter &tools;
    ILLMProvider *provider;
    std::deque<std::shared_ptr<Job>> queue; ///< Jobs waiting for a slot.
    std::deque<Step> deferred; ///< Continuations held back while paused or while a decision is open.
    QHash<QString, std::shared_ptr<Job>> active; ///< By run id, jobs with a request in flight.
    QHash<QString, int> pendingPermissions; ///< Approval id to node index.
    QHash<QString, Agent> agents; ///< By role, the agents made for this task.
    QList<QJsonObject> runs; ///< All run records of the task, in order of creation.
    /// Raised at every start, cancel and failure: whatever returns later and finds another number is stale.
    int generation = 0;
    int planRevisions = 0;
    int structureRevisions = 0;
    bool paused = false;
    bool simulation = false;
    QString taskId;
    QString runProject; ///< The project of the task, whichever is open by now.
    QString phase;
    QString error;
    QJsonObject spec; ///< What the task is to become, the "task" of every request.
    ProjectGlance glance; ///< What stands in requests for a long list of files.
    QJsonObject plan;
    QJsonObject structure;
    QSet<QString> hollowTests; ///< Ids of checks that pass with empty files, too.
    QJsonObject evidence; ///< What the finished task rests on (evidence.h).
    QJsonObject decision; ///< The open question to the user.
    QString decisionReturnPhase;
    QSet<QString> leftOut; ///< Paths of files whose deletion the user has confirmed in this run.
    QString decisionAnswer; ///< What the user has answered last.
    Step decisionContinuation;
    TaskGraph graph;
    QMap<int, QString> limitations; ///< What could not be checked, by node; below 0 what has none.
    BudgetManager budget;
    QHash<QString, std::shared_ptr<WorkflowGroup>> workflowGroups;
    QHash<QString, QJsonArray> workflowResults;
    QJsonObject delegations;
    QSet<QString> seenDelegations;
    int delegationRounds = 0;
    QHash<QString, qsizetype> runIndex; ///< Run id to its place in `runs`.
    QString writtenPhase; ///< That of the stored state document.
    WritePace documentPace;
    QTimer documentTimer; ///< Runs while a change of the state waits to be written.
    TaskRecord record; ///< Remembers the text of what has not changed since the last store.
};

} // namespace vesk

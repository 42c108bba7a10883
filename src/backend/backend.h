#pragma once

#include "agent_team.h"
#include "attachments.h"
#include "background_renderer.h"
#include "code_view.h"
#include "committing.h"
#include "conversation.h"
#include "core.h"
#include "differences.h"
#include "edit_settling.h"
#include "edit_watch.h"
#include "exporting.h"
#include "growing_list.h"
#include "mcp_client.h"
#include "mock_provider.h"
#include "model_connection.h"
#include "openai_provider.h"
#include "picture_view.h"
#include "preferences.h"
#include "request_queue.h"
#include "taking_in.h"
#include "task_view.h"
#include "tree_watch.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QObject>
#include <QString>
#include <QTimer>
#include <QVariant>

#include <functional>

namespace vesk {

/// The one object that the interface talks to. It owns every long-lived service of the process, turns each failure of
/// an operation into the text of `message`, and adds what exists only around the pipeline: projects, the list of tasks,
/// settings, the conversation, the request queue, and the start-up repair of runs that died with their process.
///
/// Operations and readers return at once and never throw: their caller is the event loop, which takes no exception.
/// What the interface reads are copies, empty when the store fails; `changed` and `chatChanged` come at most once in
/// 33 ms. Main thread only.
class Backend : public QObject {
    Q_OBJECT
    Q_PROPERTY(QVariantMap state READ state NOTIFY changed)
    Q_PROPERTY(QVariantMap uiState READ uiState NOTIFY changed)
    Q_PROPERTY(QVariantList projects READ projects NOTIFY changed)
    Q_PROPERTY(QVariantList tasks READ tasks NOTIFY changed)
    Q_PROPERTY(QVariantList events READ events NOTIFY changed)
    Q_PROPERTY(QVariantList files READ files NOTIFY changed)
    Q_PROPERTY(QVariantList memory READ memory NOTIFY changed)
    Q_PROPERTY(QVariantList checkpoints READ checkpoints NOTIFY changed)
    Q_PROPERTY(QString projectName READ currentProjectName NOTIFY changed)
    Q_PROPERTY(QString root READ root NOTIFY changed)
    Q_PROPERTY(QString message READ currentMessage NOTIFY changed)
    Q_PROPERTY(QVariantMap settings READ settingsMap NOTIFY changed)
    Q_PROPERTY(QVariantList chat READ chat NOTIFY chatChanged)
    Q_PROPERTY(bool chatBusy READ currentChatBusy NOTIFY changed)
    Q_PROPERTY(bool apiTesting READ currentApiTesting NOTIFY changed)
    Q_PROPERTY(QString apiStatus READ currentApiStatus NOTIFY changed)
    Q_PROPERTY(QString streamNote READ currentStreamNote NOTIFY streamChanged)
    Q_PROPERTY(QVariantMap progress READ progress NOTIFY changed)
    Q_PROPERTY(QVariantList queue READ queueList NOTIFY changed)
    Q_PROPERTY(int queueRemoved READ queueRemoved NOTIFY changed)
    Q_PROPERTY(bool queuePaused READ currentQueuePaused NOTIFY changed)
    Q_PROPERTY(QVariantMap preferences READ preferencesMap NOTIFY preferencesChanged)
    Q_PROPERTY(QVariantList agentProfiles READ agentProfiles NOTIFY preferencesChanged)
    Q_PROPERTY(QString networkUndo READ networkUndo NOTIFY changed)
    Q_PROPERTY(QStringList loadingSkills READ loadingSkills NOTIFY changed)
    Q_PROPERTY(QVariantList mcpServers READ mcpServers NOTIFY connectorsChanged)
    Q_PROPERTY(QVariantList mcpRequests READ mcpRequests NOTIFY connectorsChanged)
    Q_PROPERTY(QVariantList attachments READ attachmentList NOTIFY changed)
    Q_PROPERTY(bool importing READ importing NOTIFY changed)
    Q_PROPERTY(QVariantList models READ modelList NOTIFY changed)
    Q_PROPERTY(bool modelsLoading READ modelsLoading NOTIFY changed)
    Q_PROPERTY(QString modelCatalogOwner READ modelCatalogOwner NOTIFY changed)
    Q_PROPERTY(bool hasApiKey READ hasApiKey NOTIFY changed)
    Q_PROPERTY(bool serversSearching READ serversSearching NOTIFY changed)
    Q_PROPERTY(QVariantList foundServers READ foundServers NOTIFY changed)
    Q_PROPERTY(QString serverStatus READ serverStatus NOTIFY changed)
    Q_PROPERTY(bool measuring READ measuring NOTIFY changed)
    Q_PROPERTY(QVariantList connectionMeasures READ connectionMeasures NOTIFY changed)
    Q_PROPERTY(vesk::Differences *differences READ differences NOTIFY changed)
    Q_PROPERTY(vesk::CodeView *viewer READ viewer CONSTANT)
    Q_PROPERTY(QString viewerPicture READ viewerPicture NOTIFY changed)
    Q_PROPERTY(QVariantMap takeIn READ takeIn NOTIFY changed)
    Q_PROPERTY(QString exporting READ exportProgress NOTIFY changed)
    Q_PROPERTY(QVariantMap commit READ commitState NOTIFY changed)
    Q_PROPERTY(bool restoring READ restoring NOTIFY changed)
    Q_PROPERTY(bool restoreCanUndo READ restoreCanUndo NOTIFY changed)
    Q_PROPERTY(QVariantList handEdits READ handEdits NOTIFY changed)
    Q_PROPERTY(QVariantList backgroundFrame READ backgroundFrame NOTIFY backgroundChanged)
    Q_PROPERTY(QString backgroundError READ backgroundError NOTIFY backgroundChanged)
    Q_PROPERTY(int backgroundErrorLine READ backgroundErrorLine NOTIFY backgroundChanged)
public:
    /// Opens "vesk.sqlite" in the folder, which this process must hold the lock of, repairs interrupted tasks and
    /// selects the last project. Throws std::runtime_error when the database can't be used.
    explicit Backend(const QString &dataFolder, QObject *parent = nullptr);

    // Projects and their tasks (backend_projects.cpp)

    /// Takes the failure in `message` away: it has been read.
    Q_INVOKABLE void dismissMessage() { show({}); }
    Q_INVOKABLE void createProject(const QString &name, const QString &folder);
    Q_INVOKABLE void selectProject(const QString &id);
    Q_INVOKABLE void selectTask(const QString &id);
    Q_INVOKABLE void renameTask(const QString &task, const QString &title);
    Q_INVOKABLE void archiveTask(const QString &task);
    Q_INVOKABLE void rollback(const QString &checkpoint);
    Q_INVOKABLE void openFile(const QString &path);
    Q_INVOKABLE void openWorkspace();
    Q_INVOKABLE QString defaultFolder() const;
    Q_INVOKABLE void addMemory(const QString &category, const QString &text);

    // What the user does to the files (backend_own.cpp)

    /// Looks for files that were changed outside of the program; `handEdits` follows.
    Q_INVOKABLE void lookForEdits();
    /// The user's version of an edited file, or of all for an empty path, becomes the newest revision.
    Q_INVOKABLE void takeEdits(const QString &path);
    /// The program's version comes back; the user's stays as a revision.
    Q_INVOKABLE void undoEdits(const QString &path);
    /// What is compared then stands in `differences`: an edited file against its record; what has changed since the
    /// request of a task; two revisions of a file, below 0 the newest and the one before.
    Q_INVOKABLE void compareEdit(const QString &path);
    Q_INVOKABLE void compareTask(const QString &task);
    Q_INVOKABLE void compareRevisions(const QString &path, int from = -1, int to = -1);

    /// Looks at a folder of the user's (a path or "file:" address), which becomes a project after acceptFolder():
    /// `takeIn`. One that is a project is opened.
    Q_INVOKABLE void lookAtFolder(const QString &folder);
    Q_INVOKABLE void acceptFolder();
    Q_INVOKABLE void cancelFolder();
    /// Copies the project's files as they are recorded into a folder that doesn't exist yet, or into a zip file that
    /// doesn't: at a snapshot, or now for an empty id. It goes on beside the interface: `exporting` tells how far it
    /// is, `message` how it has ended.
    Q_INVOKABLE void exportFiles(const QString &target, const QString &checkpoint);
    /// A commit of the files of the task in view to the repository that the project lies in, with the report as
    /// message: looked at first, made after a yes. `commit` has what it would hold (Committing::state()) and whether
    /// it is "possible": git is there, there is a repository, and the user has switched it on.
    Q_INVOKABLE void lookAtCommit();
    Q_INVOKABLE void commitFiles(const QString &commitText);
    /// Whether the window may be closed now; `message` says why not.
    Q_INVOKABLE bool mayClose();
    Q_INVOKABLE void cancelCommit();

    /// The states to go back to, the newest first: {"id", "time", "title"}.
    Q_INVOKABLE QVariantList restorePoints() const;
    /// Compares now with what going back would make of it.
    Q_INVOKABLE void compareRestore(const QString &checkpoint);
    /// Goes back file by file, a few milliseconds at a time: `restoring` is true meanwhile. A snapshot of now is taken
    /// first, and undoRestore() goes back to that, any number of times.
    Q_INVOKABLE void restore(const QString &checkpoint);
    Q_INVOKABLE void undoRestore();
    /// One file becomes what a revision of it was.
    Q_INVOKABLE void restoreRevision(const QString &path, int revision);

    // Settings and tools (backend_runtime.cpp)

    Q_INVOKABLE void setPreference(const QString &key, const QVariant &value);
    Q_INVOKABLE void renderBackground(double time, int width, int height);
    Q_INVOKABLE void discoverMcp();
    Q_INVOKABLE void connectMcp(const QString &id);
    Q_INVOKABLE void disconnectMcp(const QString &id);
    /// The user's word on a server of the project that waits in `mcpRequests`.
    Q_INVOKABLE void allowMcp(const QString &id, bool allow);

    // Conversation (backend_conversation.cpp)

    /// The input box: routes a typed line to chat, to work, or to the open question.
    Q_INVOKABLE void sendMessage(const QString &text);
    /// Always a chat answer.
    Q_INVOKABLE void discuss(const QString &text);
    Q_INVOKABLE void newConversation();

    // Run control and queue (backend_run.cpp)

    /// Starts a task, or queues it behind the running one. `program` and `arguments` (a JSON array as text) are the
    /// build command; both may be empty.
    Q_INVOKABLE void start(const QString &request, bool preview, int budget, const QString &program,
                           const QString &arguments);
    Q_INVOKABLE void clarify(const QString &answer);
    Q_INVOKABLE void pause();
    Q_INVOKABLE void resume();
    Q_INVOKABLE void runPreview();
    Q_INVOKABLE void approve(const QString &action, bool allow);
    Q_INVOKABLE void setPriority(const QString &node, int priority);
    /// Ends everything that is going on: checks, imports, chat, the run.
    Q_INVOKABLE void stop();
    /// The same at the end of the program: a commit under way is broken off and waited for.
    Q_INVOKABLE void finish();
    Q_INVOKABLE void cancelQueued(const QString &key);
    /// Takes out all that waits. What was taken out last, one request or all, comes back to its place with
    /// undoQueue(), as long as `queueRemoved`, their number, is not 0.
    Q_INVOKABLE void clearQueue();
    Q_INVOKABLE void undoQueue();
    Q_INVOKABLE void resumeQueue();

    // Attachments (backend_conversation.cpp)

    Q_INVOKABLE void attachFiles(const QVariantList &urls);
    Q_INVOKABLE void removeAttachment(const QString &id);
    /// Notes what a medium of the project is for ("Баннер"); at most 120 characters are kept, and blanks take the note
    /// back.
    Q_INVOKABLE void pinAsset(const QString &path, const QString &usage);

    // Model connections (backend_models.cpp). Keys go in and never come out.

    /// Connects the team to an address, or takes it back to the demonstration, without a check. `parallel` is not used.
    Q_INVOKABLE void saveSettings(bool useMock, const QString &url, const QString &model, const QString &key,
                                  int parallel);
    /// Connects the team to a known provider once that has answered; the outcome stands in `apiStatus`.
    Q_INVOKABLE void connectProvider(const QString &provider, const QString &model, const QString &key);
    Q_INVOKABLE void connectQwen(const QString &key);
    Q_INVOKABLE void testConnection();
    Q_INVOKABLE void loadModels(const QString &provider, const QString &key, const QString &agent = {});
    Q_INVOKABLE void forgetProvider(const QString &provider);
    /// The same for a server of the user's own, by its address.
    Q_INVOKABLE void forgetServer(const QString &url);
    /// A connection of an agent's own; an empty provider takes it back.
    Q_INVOKABLE void setAgentApi(const QString &agent, const QString &provider, const QString &model,
                                 const QString &key);
    Q_INVOKABLE void useDemonstration();
    /// Asks the usual ports of this machine, two seconds at most: `foundServers`, `serverStatus`.
    Q_INVOKABLE void findServers();
    Q_INVOKABLE void loadServerModels(const QString &url, const QString &key, const QString &agent = {});
    /// Connects the team, or an agent, to a server of the user's own once that has answered; the key may be empty.
    Q_INVOKABLE void connectServer(const QString &url, const QString &model, const QString &key,
                                   const QString &agent = {});
    /// testConnection(), and of a server of the user's own what the pipeline needs: `connectionMeasures`.
    Q_INVOKABLE void measureConnection();
    /// Ends the search, the catalogue, the check or the measuring that runs.
    Q_INVOKABLE void stopCheck();

    // The user's own agents and skills (backend_agents.cpp). All counts from the next task on.

    /// The new id, empty after a refusal. A refused skill leaves the agent.
    Q_INVOKABLE QString addAgent(const QString &name, const QString &parent, const QString &skillUrl, int priority = 50,
                                 const QString &rules = {});
    /// An analyst of "photo" or "video".
    Q_INVOKABLE QString addMediaAgent(const QString &type);
    /// `kind` is "specialist", "review" or "delegate".
    Q_INVOKABLE void configureAgent(const QString &agent, const QString &rules, int priority, const QString &kind);
    Q_INVOKABLE void setAgentEnabled(const QString &agent, bool enabled);
    Q_INVOKABLE void setAgentTasks(const QString &agent, const QStringList &tasks);
    /// Loads beside the interface (`loadingSkills`); an empty address takes the skill away.
    Q_INVOKABLE void setAgentSkill(const QString &agent, const QString &skillUrl);
    /// `to` waits for `from`; with a stage on one side the agent's chain moves to it.
    Q_INVOKABLE void connectAgents(const QString &from, const QString &to);
    Q_INVOKABLE void unlinkAgents(const QString &from, const QString &to);
    Q_INVOKABLE void linkAgent(const QString &agent, const QString &parent);
    Q_INVOKABLE void removeAgent(const QString &agent);
    Q_INVOKABLE void addWorkflowTemplate();
    /// Layouts hold the places of nodes only.
    Q_INVOKABLE void saveNetwork(const QString &name);
    Q_INVOKABLE void loadNetwork(const QString &name);
    /// Takes back what `networkUndo` names: the last change of agents, links, places or layouts, once.
    Q_INVOKABLE void undoNetwork();
    /// What was loaded as an agent's skill, see AgentTeam::skill().
    Q_INVOKABLE QVariantMap agentSkill(const QString &agent) const;

    // What the interface reads (backend_read.cpp)

    Q_INVOKABLE QString phaseLabel(const QString &code) const;
    Q_INVOKABLE QString statusLabel(const QString &code) const;
    Q_INVOKABLE QString roleLabel(const QString &code) const;
    Q_INVOKABLE QString resultReport() const;
    /// The report of the task in view as Markdown, with the files that have changed since its request if those are what
    /// is compared.
    Q_INVOKABLE QString reportMarkdown() const;
    /// Puts it into the clipboard.
    Q_INVOKABLE void copyReport() const;
    /// What the task in view rests on, and the records behind one row of it: proof_view.h.
    Q_INVOKABLE QVariantMap proofs() const;
    Q_INVOKABLE QString proofBehind(const QString &list, int place) const;
    /// Addresses of the pictures behind it.
    Q_INVOKABLE QStringList proofPictures(const QString &list, int place) const;
    Q_INVOKABLE QString fileContent(const QString &path) const;
    /// Puts the same into `viewer`, or a picture into `viewerPicture`; nothing for an empty path.
    Q_INVOKABLE void showFile(const QString &path);
    Q_INVOKABLE QString fileHistory(const QString &path) const;
    /// The same for reading: versionsOf().
    Q_INVOKABLE QVariantList fileVersions(const QString &path) const;
    Q_INVOKABLE QString search(const QString &query) const;
    Q_INVOKABLE QVariantMap runDetails(const QString &key) const;

    QVariantMap state() const;
    QVariantMap uiState() const;
    /// How far the task in view is: progressOf().
    QVariantMap progress() const;
    QVariantList projects() const;
    QVariantList tasks() const;
    QVariantList events() const;
    QVariantList files() const;
    QVariantList memory() const;
    QVariantList checkpoints() const;
    QVariantList chat() const;
    QVariantList agentProfiles() const;
    QString root() const { return core.workspace.root(); }

    /// The document of the task in view.
    QJsonObject selected() const { return view.selected(); }
    /// For those who drive the application as a whole.
    const Engine &runner() const { return core.engine; }

    /// Runs an operation's body: its failure becomes `message`, its success empties it.
    void guard(const std::function<void()> &body);
    /// Asks for one `changed` and one `chatChanged`.
    void notifyUi();

Q_SIGNALS:
    void preferencesChanged();
    void backgroundChanged();
    void connectorsChanged();
    void streamChanged();
    void changed();
    void chatChanged();

private:
    // backend.cpp
    void connectRun();
    void connectServices();
    void follow(const QJsonObject &event);
    void finishRun(const QString &status);
    QString speaker(const QString &role) const;
    void showProgress(const QString &role, int characters);
    void clearProgress();
    void attempt(const std::function<void()> &body);
    void show(const QString &text);
    void showFailure(const std::exception &failure) const;

    // backend_projects.cpp
    void requireQuiet();
    void requireProject(const QString &name);
    void makeProject(const QString &name, const QString &folder);
    void openProject(const QString &projectId);
    QJsonObject ownTask(const QString &task) const;

    // backend_own.cpp
    static QString taskTitle(); ///< Of the comparison of a task.
    void settleEdits(const QString &path, bool takesOwn);
    void requireStill();
    void takeUpProject();
    void takeSettled(const QStringList &faults);
    void beginRestore(const QString &checkpoint);
    void startRestoring();
    void resumeRestore();
    void restoreOn();
    QString lastRestore() const;

    // backend_conversation.cpp
    void takeLine(const QString &typed);
    QString lineWithAttachments(const QString &typed);
    void connectByName(const QString &text);
    void answer(const QString &text);
    void routeByModel(const QString &text);
    void takeRoute(const QString &text, const QString &where, const LLMResult &result);
    void askChat(const QString &text, const QString &where);
    bool configureVisionChat(const QJsonArray &media, QJsonObject &input);
    QJsonArray mediaForRequest(const QString &request) const;
    void say(const QString &where, const QString &role, const QString &content, const QString &kind);

    // backend_run.cpp
    void submit(const StartRequest &request);
    bool admit(const StartRequest &request);
    void enqueueRequest(const StartRequest &request);
    void begin(const StartRequest &request);
    void drainQueue();
    void drainLater();
    void stopChat();

    // backend_runtime.cpp
    void prepareRuntime(const QString &request);
    void startServers(const QString &request);
    void connectAgentClients();
    QJsonObject mediaCapabilities() const;

    // backend_read.cpp
    template <typename T> struct Remembered {
        QString key;
        T value;
    };
    template <typename Read> auto answered(const Read &read) const -> decltype(read());
    QVariantList projectRecords(Remembered<QVariantList> &slot, const QString &table) const;
    QJsonArray projectMedia() const;
    bool isOpaque(const QString &path) const;
    QVariantMap settingsMap() const { return connection.settings().toVariantMap(); }
    QVariantMap preferencesMap() const { return preferences.document().toVariantMap(); }
    QVariantList queueList() const { return queue.items().toVariantList(); }
    int queueRemoved() const { return int(queue.removed().size()); }
    QVariantList attachmentList() const { return attachments.items().toVariantList(); }
    QVariantList modelList() const { return connection.catalog().models(); }
    QString networkUndo() const { return team.undoText(); }
    QStringList loadingSkills() const { return team.loadingSkills(); }
    QVariantList mcpServers() const;
    QVariantList mcpRequests() const { return mcp.requests().toVariantList(); }
    QVariantList backgroundFrame() const { return background.frame(); }
    QString backgroundError() const { return background.error(); }
    int backgroundErrorLine() const { return background.errorLine(); }
    QString currentProjectName() const { return projectName; }
    QString currentMessage() const { return message; }
    bool currentChatBusy() const { return conversation.isBusy(); }
    bool currentApiTesting() const { return connection.isTesting(); }
    QString currentApiStatus() const { return connection.status(); }
    QString currentStreamNote() const { return streamNote; }
    bool currentQueuePaused() const { return queue.isPaused(); }
    bool importing() const { return attachments.isImporting(); }
    bool modelsLoading() const { return connection.catalog().isLoading(); }
    QString modelCatalogOwner() const { return connection.catalog().owner(); }
    bool hasApiKey() const { return !client.key.isEmpty(); }
    bool serversSearching() const { return connection.finder().isSearching(); }
    QVariantList foundServers() const { return connection.finder().found(); }
    QString serverStatus() const { return connection.serverStatus(); }
    bool measuring() const { return connection.isMeasuring(); }
    QVariantList connectionMeasures() const { return connection.measures(); }
    Differences *differences() { return &compared; }
    QString viewerPicture() const { return shownPicture.source(); }
    CodeView *viewer() { return &shownFile; }
    QVariantMap takeIn() const { return taking.state(); }
    QVariantMap commitState() const;
    QString exportProgress() const { return exporting.progress(); }
    bool restoring() const { return restoreTimer.isActive(); }
    bool restoreCanUndo() const { return canUndoRestore; }
    QVariantList handEdits() const { return editWatch.edits(); }

    BackgroundRenderer background;
    McpClient mcp;
    MockProvider mock;
    OpenAICompatibleProvider client;
    Core core;
    Preferences preferences;
    TaskView view;
    RequestQueue queue;
    Conversation conversation;
    ModelConnection connection;
    AgentTeam team;
    Attachments attachments;
    EditWatch editWatch;
    EditSettling settling;
    TreeWatch treeWatch;
    Differences compared;
    CodeView shownFile;
    PictureView shownPicture;
    TakingIn taking;
    Exporting exporting;
    Committing committing;
    QTimer restoreTimer; ///< Runs while files are restored.
    int restoreFaults = 0;
    bool canUndoRestore = false;

    bool uiPending = false;
    QString streamNote;
    QString projectName;
    QString message;

    // What reading has already made, valid as long as what it was made of is unchanged.
    mutable GrowingList messageRows;
    mutable GrowingList eventRows;
    mutable Remembered<QVariantList> projectRows;
    mutable Remembered<QVariantList> taskRows;
    mutable Remembered<QVariantList> fileRows;
    mutable Remembered<QVariantList> memoryRows;
    mutable Remembered<QVariantList> checkpointRows;
    mutable Remembered<QVariantList> chatRows;
    mutable Remembered<QVariantMap> stateMap;
};

} // namespace vesk

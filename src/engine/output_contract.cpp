// What the answer of each role must look like.

#include "output_contract.h"

#include "helpers.h"
#include "roles.h"
#include "task_graph.h"

#include <QHash>
#include <QJsonArray>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr int maxFiles = 16;

using Contract = void (*)(const QJsonObject &result);

bool isText(const QJsonValue &value)
{
    return value.isString();
}

bool isFilled(const QJsonValue &value)
{
    return !value.toString().trimmed().isEmpty();
}

void requireVerdict(const QJsonObject &result)
{
    const QString verdict = result["verdict"_L1].toString();
    require(verdict == "APPROVE"_L1 || verdict == "REVISE"_L1 || verdict == "REJECT"_L1, u"Invalid verdict"_s);
    require(result["issues"_L1].isArray() && result["required_changes"_L1].isArray(),
            u"Review requires issues and required_changes arrays"_s);

    const double confidence = result["confidence"_L1].toDouble(-1);
    require(confidence >= 0 && confidence <= 1, u"Invalid confidence"_s);
}

void requirePlan(const QJsonObject &result)
{
    require(result["nodes"_L1].isArray(), u"Plan requires nodes"_s);
    TaskGraph().load(result["nodes"_L1].toArray());
}

void requireSpec(const QJsonObject &result)
{
    require(result["requirements"_L1].isArray() && result["acceptance_criteria"_L1].isArray()
                && result["questions"_L1].isArray(),
            u"Invalid task specification"_s);
    require(!result["title"_L1].toString().isEmpty(), u"Specification title missing"_s);
}

void requireStructure(const QJsonObject &result)
{
    require(result["items"_L1].isArray(), u"Structure requires items"_s);
}

bool isEdit(const QJsonValue &value)
{
    return isText(value["old"_L1]) && isText(value["new"_L1]);
}

bool isFile(const QJsonValue &value)
{
    return isText(value["path"_L1]) && isText(value["content"_L1]);
}

bool isEditedFile(const QJsonValue &value)
{
    const QJsonArray edits = value["edits"_L1].toArray();
    return isText(value["path"_L1]) && !edits.isEmpty() && std::ranges::all_of(edits, isEdit);
}

void requireFiles(const QJsonObject &result, bool editsOffered)
{
    const QJsonArray files = result["files"_L1].toArray();
    require(!files.isEmpty(), u"Code output needs files"_s);
    require(files.size() <= maxFiles, u"Too many files per node"_s);
    for (const QJsonValue &file : files) {
        if (editsOffered)
            require(isFile(file) || isEditedFile(file), u"File requires path and content, or edits of old and new"_s);
        else
            require(isFile(file), u"File requires path and content"_s);
    }
}

void requireQuestion(const QJsonObject &result)
{
    const QJsonArray options = result["options"_L1].toArray();
    require(isText(result["summary"_L1]) && isFilled(result["question"_L1]) && !options.isEmpty(),
            u"Главный агент должен вернуть вопрос и варианты."_s);
    require(std::ranges::all_of(options, isText), u"Вариант должен быть строкой."_s);
}

void requireCoordination(const QJsonObject &result)
{
    // Only a plain "no" does without a question: anything unclear is asked.
    if (result["needs_user"_L1] == QJsonValue(false))
        require(isFilled(result["summary"_L1]), u"Coordinator summary missing"_s);
    else
        requireQuestion(result);
}

void requireSummary(const QJsonObject &result)
{
    require(isText(result["summary"_L1]), u"Result requires summary"_s);
}

Contract contractOf(const QString &role)
{
    static const QHash<QString, Contract> contracts{
        {u"planner"_s, requirePlan},
        {u"orchestrator"_s, requireSpec},
        {u"structure"_s, requireStructure},
        {u"coordinator"_s, requireCoordination},
    };
    return givesVerdict(role) ? requireVerdict : contracts.value(role, requireSummary);
}

} // namespace

void validateOutput(const QString &role, const QJsonObject &result, bool editsOffered)
{
    require(!result.isEmpty(), u"Empty result"_s);
    if (role == "coding"_L1)
        requireFiles(result, editsOffered);
    else
        contractOf(role)(result);
}

} // namespace vesk

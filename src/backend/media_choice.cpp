// Which files a request is about, and who can look at them.

#include "media_choice.h"

#include "roles.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype maxRequestMedia = 12;
constexpr qsizetype maxRules = 8000;

QString pathOf(const QJsonValue &medium)
{
    return medium["path"_L1].toString();
}

QStringList pathsOf(const QJsonArray &media)
{
    QStringList paths;
    for (const QJsonValue &medium : media)
        paths.append(pathOf(medium));
    return paths;
}

bool isVisual(const QJsonValue &medium)
{
    const QString kind = medium["kind"_L1].toString();
    return kind == "image"_L1 || kind == "video"_L1;
}

/// Whether an agent with this "media_analysis" looks at all that there is to see.
bool covers(const QString &analysis, const QJsonArray &media)
{
    return std::ranges::all_of(media, [&](const QJsonValue &medium) {
        const QString kind = medium["kind"_L1].toString();
        return analysis == "both"_L1 || !isVisual(medium) || analysis == (kind == "image"_L1 ? "photo"_L1 : "video"_L1);
    });
}

} // namespace

QStringList mediaInQuestion(const QJsonArray &attachments, const QStringList &userTexts, const QJsonArray &taskMedia,
                            const QJsonArray &projectMedia)
{
    if (!attachments.isEmpty())
        return pathsOf(attachments);
    for (const QString &text : userTexts) {
        QStringList named = pathsOf(projectMedia);
        named.removeIf([&](const QString &path) { return path.isEmpty() || !text.contains(path); });
        if (!named.isEmpty())
            return named;
    }
    return pathsOf(taskMedia);
}

QJsonArray requestMedia(const QString &request, const QJsonArray &projectMedia, const QStringList &inQuestion,
                        const QString &root)
{
    QJsonArray found;
    for (const QJsonValue &value : projectMedia) {
        const QString path = pathOf(value);
        if (path.isEmpty() || (!inQuestion.contains(path) && !request.contains(path)))
            continue;
        QJsonObject medium = value.toObject();
        medium["absolute_path"_L1] = QString(root + u'/' + path);
        found.append(medium);
    }
    while (found.size() > maxRequestMedia)
        found.removeFirst();
    return found;
}

bool hasVisuals(const QJsonArray &media)
{
    return std::ranges::any_of(media, isVisual);
}

std::optional<VisualAgent> visualAgent(const QJsonObject &preferences, const QJsonArray &media,
                                       const std::function<QString(const QString &)> &keyOf)
{
    const auto connectionOf = [&](const QString &agent) -> std::optional<VisualAgent> {
        const QJsonObject entry = preferences["agent_api"_L1][agent].toObject();
        const QString provider = entry["provider"_L1].toString();
        const QString key = provider == "OpenAI"_L1 || provider == "Gemini"_L1 ? keyOf(agent) : QString();
        if (key.isEmpty())
            return {};
        return VisualAgent{entry["url"_L1].toString(), entry["model"_L1].toString(), key, provider == "OpenAI"_L1, {}};
    };

    const QJsonArray agents = preferences["custom_agents"_L1].toArray();
    for (const QJsonValue &agent : agents) {
        const QString analysis = agent["media_analysis"_L1].toString();
        if (!agent["enabled"_L1].toBool() || analysis.isEmpty() || !covers(analysis, media))
            continue;
        if (std::optional<VisualAgent> found = connectionOf(agent["id"_L1].toString())) {
            found->guidance = agent["instructions"_L1].toString().left(maxInstructionChars) + u'\n'
                + agent["rules"_L1].toString().left(maxRules);
            return found;
        }
    }
    return connectionOf(u"orchestrator"_s);
}

} // namespace vesk

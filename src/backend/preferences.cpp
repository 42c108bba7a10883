// What the user has set, and what of it a run goes by.

#include "preferences.h"

#include "helpers.h"
#include "roles.h"
#include "store.h"

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype maxBackgroundScript = 32000;

const QStringList &settableKeys()
{
    static const QStringList keys{u"glass"_s,         u"animations"_s,         u"computer_access"_s,
                                  u"sidebar_width"_s, u"inspector_width"_s,    u"background_js"_s,
                                  u"team_left"_s,     u"background_opacity"_s, u"agent_positions"_s,
                                  u"ffmpeg_path"_s,   u"blender_path"_s,       u"automatic_routing"_s,
                                  u"theme"_s,         u"text_scale"_s,         u"git_commit"_s};
    return keys;
}

} // namespace

Preferences::Preferences(Store &store)
    : store(store)
    , values(store.get(u"settings"_s, u"workspace-ui"_s))
{
    for (const QString &key : {u"computer_access"_s, u"glass"_s, u"animations"_s}) {
        if (!values.contains(key))
            values[key] = true;
    }
}

QString Preferences::skillOf(const QString &role) const
{
    return values["role_skills"_L1][role]["instructions"_L1].toString().left(maxInstructionChars);
}

void Preferences::set(const QString &key, const QJsonValue &value)
{
    require(settableKeys().contains(key), u"Неизвестная настройка"_s);
    require(key != "background_js"_L1 || value.toString().size() <= maxBackgroundScript, u"Код фона слишком большой"_s);
    QJsonObject next = values;
    next[key] = value;
    savePreferences(next);
}

void Preferences::savePreferences(const QJsonObject &next)
{
    store.put(u"settings"_s, u"workspace-ui"_s, {}, next);
    values = next;
    Q_EMIT changed();
}

RunPreferences runPreferences(const QJsonObject &preferences)
{
    return {preferences["computer_access"_L1].toBool(), preferences["automatic_routing"_L1].toBool(true),
            strings(preferences["disabled_agents"_L1].toArray()), preferences["role_skills"_L1].toObject(),
            preferences["custom_agents"_L1].toArray()};
}

} // namespace vesk

// Test support: one change deep inside a JSON document, addressed by a coding
// path as the call-history decoder reports them ("data[2].summary.key_points[0]").
#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QRegularExpression>
#include <QStringList>

namespace JsonEdit {

namespace detail {

inline QJsonValue edited(const QJsonValue& node, const QStringList& steps, qsizetype at,
                         const QJsonValue& replacement)
{
    const QString& step = steps.at(at);
    const bool last = at == steps.size() - 1;
    if (step.startsWith(u'[')) {
        QJsonArray array = node.toArray();
        const qsizetype index = step.mid(1, step.size() - 2).toLongLong();
        if (last && replacement.isUndefined()) {
            array.removeAt(index);
        } else {
            array.replace(index,
                          last ? replacement : edited(array.at(index), steps, at + 1, replacement));
        }
        return array;
    }
    QJsonObject object = node.toObject();
    // Inserting Undefined removes the key.
    object.insert(step,
                  last ? replacement : edited(object.value(step), steps, at + 1, replacement));
    return object;
}

} // namespace detail

// `root` with the value at `path` replaced; an Undefined replacement removes it.
inline QJsonObject edited(const QJsonObject& root, const QString& path,
                          const QJsonValue& replacement)
{
    static const QRegularExpression step(QStringLiteral("[^.\\[\\]]+|\\[\\d+\\]"));
    QStringList steps;
    for (const QRegularExpressionMatch& match : step.globalMatch(path)) {
        steps.append(match.captured());
    }
    return detail::edited(root, steps, 0, replacement).toObject();
}

} // namespace JsonEdit

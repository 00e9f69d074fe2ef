#include "account/UserModel.h"

#include <QJsonDocument>
#include <QJsonParseError>

using namespace Qt::StringLiterals;

std::optional<UserModel> UserModel::fromJson(const QByteArray& body, QString* error)
{
    auto fail = [error](const QString& why) -> std::optional<UserModel> {
        if (error)
            *error = why;
        return std::nullopt;
    };

    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(body, &parseError);
    if (parseError.error != QJsonParseError::NoError)
        return fail(u"the data is not valid JSON (%1 at offset %2)"_s.arg(parseError.errorString())
                        .arg(parseError.offset));
    if (!document.isObject())
        return fail(u"expected a JSON object"_s);
    const QJsonObject object = document.object();

    const QJsonValue email = object.value("email"_L1);
    if (email.isUndefined())
        return fail(u"missing key 'email'"_s);
    if (!email.isString())
        return fail(u"type mismatch for key 'email': expected a string"_s);

    UserModel user;
    user.email = email.toString();
    const std::pair<QLatin1String, QString*> optionalKeys[] = {
        {"fullName"_L1, &user.fullName},   {"avatarUrl"_L1, &user.avatarUrl},
        {"phone"_L1, &user.phone},         {"createdAt"_L1, &user.createdAt},
        {"updatedAt"_L1, &user.updatedAt},
    };
    for (const auto& [key, field] : optionalKeys) {
        const QJsonValue value = object.value(key);
        if (value.isUndefined() || value.isNull())
            continue;
        if (!value.isString())
            return fail(u"type mismatch for key '%1': expected a string"_s.arg(key));
        *field = value.toString();
    }
    return user;
}

QJsonObject UserModel::toJson() const
{
    QJsonObject object{{"email"_L1, email}};
    const std::pair<QLatin1String, const QString*> optionalKeys[] = {
        {"fullName"_L1, &fullName},   {"avatarUrl"_L1, &avatarUrl}, {"phone"_L1, &phone},
        {"createdAt"_L1, &createdAt}, {"updatedAt"_L1, &updatedAt},
    };
    for (const auto& [key, field] : optionalKeys) {
        if (!field->isEmpty())
            object.insert(key, *field);
    }
    return object;
}

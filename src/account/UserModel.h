// The signed-in user's profile as the backend describes it.
#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QMetaType>
#include <QString>

#include <optional>

class UserModel
{
    Q_GADGET
    Q_PROPERTY(QString email MEMBER email)
    Q_PROPERTY(QString fullName MEMBER fullName)
    Q_PROPERTY(QString avatarUrl MEMBER avatarUrl)
    Q_PROPERTY(QString phone MEMBER phone)
    Q_PROPERTY(QString createdAt MEMBER createdAt)
    Q_PROPERTY(QString updatedAt MEMBER updatedAt)
    Q_PROPERTY(QString displayName READ displayName)

public:
    QString email;
    // The rest may be absent (empty); the profile may carry further keys, unused here.
    QString fullName;
    QString avatarUrl;
    QString phone;
    QString createdAt;
    QString updatedAt;

    // The name to greet the user with: the full name, else the e-mail.
    QString displayName() const { return fullName.isEmpty() ? email : fullName; }

    // Decodes a profile body: a JSON object with a string "email"; the other keys,
    // when present and not null, must be strings. On failure `error` says why.
    static std::optional<UserModel> fromJson(const QByteArray& body, QString* error = nullptr);
    QJsonObject toJson() const;

    friend bool operator==(const UserModel&, const UserModel&) = default;
};

Q_DECLARE_METATYPE(UserModel)

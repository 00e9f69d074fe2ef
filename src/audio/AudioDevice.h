// An audio input device of the sound server, as listed to the user.
#pragma once

#include <QMetaType>
#include <QString>

struct AudioDevice
{
    Q_GADGET
    Q_PROPERTY(QString id MEMBER id)
    Q_PROPERTY(QString name MEMBER name)
    Q_PROPERTY(QString manufacturer MEMBER manufacturer)
    Q_PROPERTY(bool isDefault MEMBER isDefault)

public:
    // The sound server's source name: persistent, and what is stored as the choice.
    QString id;
    QString name = QStringLiteral("Unknown");
    QString manufacturer = QStringLiteral("Unknown");
    bool isDefault = false;
    // The server's run-time index of the source.
    quint32 deviceID = 0;

    bool operator==(const AudioDevice& other) const = default;
};

Q_DECLARE_METATYPE(AudioDevice)

// Test support: a throw-away Secret Service (private D-Bus session bus plus an
// unlocked gnome-keyring) for the life of the object.
#pragma once

#include <QProcessEnvironment>
#include <QString>
#include <QTemporaryDir>

class KeyringSession
{
public:
    // Starts the session and points this process at it (DBUS_SESSION_BUS_ADDRESS).
    // Start it before the first Secret Service call: GLib keeps the first bus
    // connection it makes.
    KeyringSession();
    ~KeyringSession();
    KeyringSession(const KeyringSession&) = delete;
    KeyringSession& operator=(const KeyringSession&) = delete;

    bool isRunning() const { return !m_busAddress.isEmpty(); }
    QString error() const { return m_error; }
    QString busAddress() const { return m_busAddress; }

    // Stops the keyring and the bus now (to test an unreachable store).
    void stop();

    // An environment for child processes that use this session.
    QProcessEnvironment environment() const;

private:
    QTemporaryDir m_directory;
    QString m_busAddress;
    QString m_error;
};

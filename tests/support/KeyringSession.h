// Test support: a throw-away Secret Service (private D-Bus session bus plus an
// unlocked gnome-keyring) for the life of the object.
#pragma once

#include <QString>
#include <QTemporaryDir>

class KeyringSession
{
public:
    // Starts the session and points this process, and so its children, at it
    // (DBUS_SESSION_BUS_ADDRESS).
    // Start it before the first Secret Service call: GLib keeps the first bus
    // connection it makes.
    KeyringSession();
    ~KeyringSession();
    KeyringSession(const KeyringSession&) = delete;
    KeyringSession& operator=(const KeyringSession&) = delete;

    bool isRunning() const { return !m_busAddress.isEmpty(); }
    QString error() const { return m_error; }

    // Stops the keyring and the bus now (to test an unreachable store).
    void stop();

private:
    QTemporaryDir m_directory;
    QString m_busAddress;
    QString m_error;
};

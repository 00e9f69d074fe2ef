// One running app per user: the first launch listens on a local socket; a
// later launch (the browser opening a "quillmoss://" link, a desktop shortcut
// running "quillmoss-app --toggle-mini-window") hands its URLs and commands
// to it and exits.
#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QUrl>

class QLocalServer;

class SingleInstance : public QObject
{
    Q_OBJECT

public:
    // `name` is the socket's name; instances with different names never meet.
    explicit SingleInstance(QString name, QObject* parent = nullptr);
    ~SingleInstance() override;
    SingleInstance(const SingleInstance&) = delete;
    SingleInstance& operator=(const SingleInstance&) = delete;

    // The socket name of this user's instance.
    static QString defaultName();

    // Hands the URLs (maybe none) to the running instance. True when one took
    // them; false when none runs (or it did not answer in time).
    static bool forward(const QString& name, const QList<QUrl>& urls, int timeoutMs = 3000);
    // The same, with commands ("--toggle-mini-window") after the URLs.
    static bool forward(const QString& name, const QList<QUrl>& urls, const QStringList& commands,
                        int timeoutMs = 3000);

    // Starts listening; a socket left behind by a crashed instance is replaced.
    // False when another instance listens already or the socket cannot be made.
    bool listen();
    bool isListening() const;

Q_SIGNALS:
    // A URL a later launch was given.
    void urlReceived(const QUrl& url);
    // A command a later launch was given, as written ("--toggle-mini-window").
    void commandReceived(const QString& command);
    // A later launch handed over all it had and no command: the window comes
    // to the front.
    void activated();

private:
    void acceptConnection();

    QString m_name;
    QLocalServer* m_server; // child
};

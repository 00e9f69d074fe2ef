// Test support: a person in a web browser going through the local backend's
// OAuth sign-in for its demo MCP server, from the authorization URL an app
// opened to the link the browser would hand back to the app.
#pragma once

#include "LocalBackend.h"

#include <QNetworkReply>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>

#include <functional>
#include <memory>

class QNetworkAccessManager;

// Loads pages as a browser would (its own cookies; redirects followed by hand),
// signs in on the login page with the chosen e-mail address, and on the
// consent page presses Allow or Deny, reading both forms from the pages
// themselves. It stops, without loading it, at the first URL that is not an
// http(s) one on the authorization URL's own origin: the app's quillmoss://
// link, or its loopback listener (127.0.0.1 or [::1] on another port). That
// URL is the result. Every other outcome (an error page, a page without a
// form it knows, a refused connection) is an error text.
class OAuthTestBrowser : public QObject
{
    Q_OBJECT

public:
    struct Choice
    {
        QString email = LocalBackend::demoEmail();
        bool allow = true;
    };
    // `finalUrl` is empty when `error` is not.
    using Done = std::function<void(const QUrl& finalUrl, const QString& error)>;

    explicit OAuthTestBrowser(QObject* parent = nullptr);
    ~OAuthTestBrowser() override;
    OAuthTestBrowser(const OAuthTestBrowser&) = delete;
    OAuthTestBrowser& operator=(const OAuthTestBrowser&) = delete;

    // Starts at `authorizationUrl`; `done` runs once, from the event loop. A
    // browser already under way refuses another start (through `done`).
    void open(const QUrl& authorizationUrl, Choice choice, Done done);
    bool isBusy() const { return m_reply != nullptr; }

    // For a test's failure message: the pages shown so far (answers that are
    // not redirects), and the HTML of the last one.
    int pagesLoaded() const { return m_pagesLoaded; }
    QString lastPage() const { return m_lastPage; }

    // Runs a local event loop until the browser is done; for tests that drive
    // a child process, which goes on meanwhile.
    struct Result
    {
        QUrl finalUrl;
        QString error;
        int pagesLoaded = 0;
        QString lastPage;
    };
    static Result run(const QUrl& authorizationUrl, Choice choice);
    // With the default choice: the demo account, allowed.
    static Result run(const QUrl& authorizationUrl);

private:
    void load(const QUrl& url, const QByteArray& method = "GET", const QByteArray& form = {});
    void answered();
    void showPage(const QUrl& url, int status, const QString& html);
    bool staysHere(const QUrl& url) const;
    void finish(const QUrl& finalUrl, const QString& error);

    std::unique_ptr<QNetworkAccessManager> m_network;
    QPointer<QNetworkReply> m_reply;
    QUrl m_origin;
    Choice m_choice;
    Done m_done;
    int m_steps = 0; // requests made for this sign-in, to stop a loop
    int m_pagesLoaded = 0;
    QString m_lastPage;
};

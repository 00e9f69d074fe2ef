// Test support: local stand-ins for Brave Search, Firecrawl and Resend, each
// a small HTTP server answering with bodies shaped as the service documents
// them, and recording every request for the test to look at.
#pragma once

#include "HttpStub.h"

#include <QList>
#include <QUrl>

class ToolServiceFake
{
public:
    enum class Service
    {
        BraveSearch,
        Firecrawl,
        Resend,
    };
    // How every endpoint of the service answers.
    enum class Answer
    {
        Success,
        Empty,        // success with nothing found
        Unauthorized, // 401 with the service's error body
        RateLimited,  // 429 with its error body and a Retry-After header
        ServerError,  // 500
        NotJson,      // 200 with an HTML page
        Huge,         // 200 with a body of several megabytes
        Silent,       // never answers
    };

    explicit ToolServiceFake(Service service);

    QUrl url() const { return m_stub.url(); }
    void answerWith(Answer answer);
    QList<HttpStub::Request> requests() const { return m_stub.requests(); }

    // The size of the Huge body.
    static constexpr qsizetype hugeSize = 6 * 1024 * 1024;

private:
    QList<QByteArray> paths() const;
    QByteArray successBody(const QByteArray& path) const;
    QByteArray emptyBody(const QByteArray& path) const;
    QByteArray errorBody(int status) const;

    Service m_service;
    HttpStub m_stub;
};

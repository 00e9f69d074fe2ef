// What can go wrong between the live summary and the backend session, with
// the text the screens show for it.
#pragma once

#include <QString>

class SummaryModelError
{
public:
    enum class Kind
    {
        WebsocketNotConnected,
        DecodingError,
        ServerError,
        InvalidResponse,
        InvalidUrl,
        RequestError,
    };

    static SummaryModelError websocketNotConnected() { return {Kind::WebsocketNotConnected}; }
    static SummaryModelError decodingError() { return {Kind::DecodingError}; }
    static SummaryModelError serverError(int statusCode) { return {Kind::ServerError, statusCode}; }
    static SummaryModelError invalidResponse() { return {Kind::InvalidResponse}; }
    static SummaryModelError invalidUrl() { return {Kind::InvalidUrl}; }
    // `underlyingDescription`: the failed request's own description, shown as it is.
    static SummaryModelError requestError(const QString& underlyingDescription)
    {
        return {Kind::RequestError, 0, underlyingDescription};
    }

    Kind kind() const { return m_kind; }
    int statusCode() const { return m_statusCode; } // ServerError only
    QString message() const;

    friend bool operator==(const SummaryModelError&, const SummaryModelError&) = default;

private:
    SummaryModelError(Kind kind, int statusCode = 0, QString underlying = {})
        : m_kind(kind), m_statusCode(statusCode), m_underlying(std::move(underlying))
    {}

    Kind m_kind;
    int m_statusCode;
    QString m_underlying;
};

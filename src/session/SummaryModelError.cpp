#include "session/SummaryModelError.h"

using namespace Qt::StringLiterals;

QString SummaryModelError::message() const
{
    switch (m_kind) {
    case Kind::WebsocketNotConnected:
        return u"Websocket is not connected."_s;
    case Kind::DecodingError:
        return u"Failed to decode the response."_s;
    case Kind::ServerError:
        return u"Server error with status code: "_s + QString::number(m_statusCode);
    case Kind::InvalidResponse:
        return u"Invalid response from server."_s;
    case Kind::InvalidUrl:
        return u"Invalid server URL."_s;
    case Kind::RequestError:
        return m_underlying;
    }
    return {};
}

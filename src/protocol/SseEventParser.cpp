#include "protocol/SseEventParser.h"

using namespace Qt::StringLiterals;

SseEventParser::SseEventParser(qsizetype maxEventSize) : m_maxEventSize(maxEventSize) {}

QList<SseEvent> SseEventParser::feed(QByteArrayView bytes)
{
    QList<SseEvent> events;
    if (failed())
        return events;

    if (!m_sawStart) {
        // A UTF-8 byte-order mark may open the stream; it is no part of the first line.
        const QByteArrayView bom("\xEF\xBB\xBF");
        const QByteArray head = m_pending + bytes.toByteArray();
        if (head.size() < bom.size() && bom.startsWith(QByteArrayView(head))) {
            m_pending = head;
            return events;
        }
        m_sawStart = true;
        m_pending.clear();
        // What was held back is read now as if it had just arrived.
        return feed(head.startsWith(bom) ? QByteArrayView(head).sliced(bom.size())
                                         : QByteArrayView(head));
    }

    qsizetype lineStart = 0;
    for (qsizetype i = 0; i < bytes.size(); ++i) {
        const char c = bytes[i];
        if (c == '\n' && m_afterCr && i == lineStart && m_pending.isEmpty()) {
            // The LF of a CRLF whose CR ended the previous line (possibly in the previous read).
            m_afterCr = false;
            lineStart = i + 1;
            continue;
        }
        m_afterCr = false;
        if (c != '\n' && c != '\r')
            continue;
        if (overCap(m_pending.size() + (i - lineStart)))
            return events;
        if (m_pending.isEmpty()) {
            readLine(bytes.sliced(lineStart, i - lineStart), events);
        } else {
            m_pending.append(bytes.sliced(lineStart, i - lineStart));
            readLine(m_pending, events);
            m_pending.clear();
        }
        if (failed())
            return events;
        m_afterCr = c == '\r';
        lineStart = i + 1;
    }
    if (overCap(m_pending.size() + (bytes.size() - lineStart)))
        return events;
    m_pending.append(bytes.sliced(lineStart));
    return events;
}

bool SseEventParser::overCap(qsizetype extra)
{
    if (m_data.size() + extra <= m_maxEventSize)
        return false;
    m_error = u"The event stream sent an event of more than %1 bytes; the stream is given up"_s.arg(
        m_maxEventSize);
    m_pending.clear();
    m_data.clear();
    return true;
}

void SseEventParser::readLine(QByteArrayView line, QList<SseEvent>& events)
{
    if (line.isEmpty()) {
        dispatch(events);
        return;
    }
    if (line.front() == ':')
        return; // a comment, often a keep-alive

    const qsizetype colon = line.indexOf(':');
    const QByteArrayView field = colon < 0 ? line : line.first(colon);
    QByteArrayView value = colon < 0 ? QByteArrayView() : line.sliced(colon + 1);
    if (value.startsWith(' '))
        value = value.sliced(1);

    if (field == "data") {
        if (m_hasData)
            m_data.append('\n');
        m_data.append(value);
        m_hasData = true;
        overCap(0);
    } else if (field == "event") {
        m_type = QString::fromUtf8(value);
    } else if (field == "id") {
        m_id = QString::fromUtf8(value);
    }
    // "retry" and unknown fields mean nothing here.
}

void SseEventParser::dispatch(QList<SseEvent>& events)
{
    // An event without data lines is no event, whatever else it named.
    if (m_hasData) {
        SseEvent event;
        if (!m_type.isEmpty())
            event.type = m_type;
        event.id = m_id;
        event.data = m_data;
        events.append(std::move(event));
    }
    m_type.clear();
    m_id.clear();
    m_data.clear();
    m_hasData = false;
}

// Server-sent events cut out of an HTTP body as it arrives: bytes in any split
// go in, complete events come out. Lines end in LF, CRLF or a lone CR; a blank
// line ends an event; the buffered, unfinished event is capped so that a
// server cannot make the client hold an endless event in memory.
#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QList>
#include <QString>

struct SseEvent
{
    QString type = QStringLiteral("message"); // the "event" field; "message" without one
    QString id;                               // the "id" field of this event, if any
    QByteArray data; // the "data" lines joined by "\n", as bytes (UTF-8 text by the standard)

    bool operator==(const SseEvent&) const = default;
};

class SseEventParser
{
public:
    static constexpr qsizetype defaultMaxEventSize = 8 * 1024 * 1024;

    explicit SseEventParser(qsizetype maxEventSize = defaultMaxEventSize);

    // The events that `bytes` completes, in order. After a failure (see
    // failed()) nothing more is parsed and nothing is returned.
    QList<SseEvent> feed(QByteArrayView bytes);

    // The unfinished event grew past the cap; error() says so.
    bool failed() const { return !m_error.isEmpty(); }
    QString error() const { return m_error; }
    // Bytes held for the event still open (its data so far and a partial line).
    qsizetype bufferedSize() const { return m_pending.size() + m_data.size(); }

private:
    void readLine(QByteArrayView line, QList<SseEvent>& events);
    void dispatch(QList<SseEvent>& events);
    bool overCap(qsizetype extra);

    const qsizetype m_maxEventSize;
    QByteArray m_pending;    // the start of a line whose end has not arrived
    bool m_afterCr = false;  // the last byte seen was a CR: an LF right after it belongs to it
    bool m_sawStart = false; // past a possible byte-order mark at the start of the stream
    // The event being read.
    QString m_type;
    QString m_id;
    QByteArray m_data;
    bool m_hasData = false;
    QString m_error;
};

#include "call/TranscriptionViewModel.h"

#include "core/Logging.h"

#include <QJsonArray>
#include <QLocale>

#include <algorithm>
#include <optional>

using namespace Qt::StringLiterals;

namespace {

// One element of a backend "segments" list, or nothing when it is malformed.
std::optional<TranscriptionSegment> parseSegment(const QJsonValue& element)
{
    if (!element.isObject()) {
        return std::nullopt;
    }
    const QJsonObject object = element.toObject();
    const QJsonValue speaker = object.value("speaker"_L1);
    const QJsonValue text = object.value("text"_L1);
    const QJsonValue partial = object.value("isPartial"_L1);
    const bool speakerValid = speaker.isUndefined() || speaker.isNull() || speaker.isString();
    const bool partialValid = partial.isUndefined() || partial.isNull() || partial.isBool();
    if (!speakerValid || !partialValid || !text.isString() || text.toString().trimmed().isEmpty()) {
        return std::nullopt;
    }
    TranscriptionSegment segment;
    segment.speaker = speaker.toString();
    if (segment.speaker.isEmpty()) {
        segment.speaker = TranscriptionSegment::unknownSpeaker;
    }
    segment.text = text.toString().trimmed();
    segment.isPartial = partial.toBool(false);
    return segment;
}

} // namespace

TranscriptionViewModel::TranscriptionViewModel(QObject* parent) : QObject(parent) {}

QVariantList TranscriptionViewModel::speakerSegmentList() const
{
    QVariantList list;
    list.reserve(m_segments.size());
    for (const TranscriptionSegment& segment : m_segments) {
        list.append(QVariant::fromValue(segment));
    }
    return list;
}

void TranscriptionViewModel::addLocalTranscription(const QString& text)
{
    const QString trimmed = text.trimmed();
    if (trimmed.isEmpty()) {
        return;
    }
    QMetaObject::invokeMethod(
        this, [this, trimmed] { applyLocal(trimmed); }, Qt::QueuedConnection);
}

void TranscriptionViewModel::clear()
{
    QMetaObject::invokeMethod(this, &TranscriptionViewModel::applyClear, Qt::QueuedConnection);
}

void TranscriptionViewModel::addServerSegments(const QJsonObject& message)
{
    // Parsed here, on the caller's thread: only validated segments travel on.
    QList<TranscriptionSegment> segments;
    qsizetype skipped = 0;
    const QJsonArray elements = message.value("segments"_L1).toArray();
    for (const auto& element : elements) {
        if (std::optional<TranscriptionSegment> segment = parseSegment(element)) {
            segments.append(std::move(*segment));
        } else {
            ++skipped;
        }
    }
    if (skipped > 0) {
        qCWarning(lcCapture).noquote()
            << u"⚠️ [Transcript] Skipped %1 malformed transcript segment(s)"_s.arg(skipped);
    }
    if (segments.isEmpty()) {
        return;
    }
    QMetaObject::invokeMethod(
        this, [this, segments] { applyServer(segments); }, Qt::QueuedConnection);
}

void TranscriptionViewModel::applyLocal(const QString& text)
{
    appendText(text);
    const auto latest = std::find_if(
        m_segments.rbegin(), m_segments.rend(), [](const TranscriptionSegment& segment) {
            return segment.speaker == TranscriptionSegment::localSpeaker;
        });
    if (latest != m_segments.rend()) {
        latest->text += u' ' + text;
    } else {
        m_segments.append({TranscriptionSegment::localSpeaker, text, false});
    }
    Q_EMIT speakerSegmentsChanged();
}

void TranscriptionViewModel::applyServer(const QList<TranscriptionSegment>& segments)
{
    for (const TranscriptionSegment& segment : segments) {
        auto latest = std::find_if(m_segments.rbegin(), m_segments.rend(),
                                   [&segment](const TranscriptionSegment& existing) {
                                       return existing.speaker == segment.speaker;
                                   });
        // Provisional text is refined in place, where the speaker began.
        if (latest != m_segments.rend() && latest->isPartial) {
            *latest = segment;
        } else {
            m_segments.append(segment);
        }
    }
    Q_EMIT speakerSegmentsChanged();
    Q_EMIT serverSegmentsAdded(segments);
}

void TranscriptionViewModel::applyClear()
{
    if (!m_segments.isEmpty()) {
        m_segments.clear();
        Q_EMIT speakerSegmentsChanged();
    }
    if (!m_text.isEmpty()) {
        m_text.clear();
        Q_EMIT transcriptionTextChanged();
    }
}

void TranscriptionViewModel::appendText(const QString& text)
{
    m_text += m_text.isEmpty() ? text : u' ' + text;
    Q_EMIT transcriptionTextChanged();
}

QString TranscriptionViewModel::markdown(const QDateTime& exportedAt) const
{
    // A fixed English layout ("Nov 21, 2026 at 9:40 PM"): the copy reads the
    // same whatever the desktop's language.
    const QString exported = QLocale::c().toString(exportedAt, u"MMM d, yyyy 'at' h:mm AP"_s);
    QStringList blocks;
    blocks.reserve(m_segments.size());
    for (const TranscriptionSegment& segment : m_segments) {
        const QString speaker = segment.speaker.isEmpty()
                                    ? QString(TranscriptionSegment::unknownSpeaker)
                                    : segment.speaker;
        blocks.append(u"**%1:** %2"_s.arg(speaker, segment.text));
    }
    return u"# Live Transcription\n\n**Exported:** "_s + exported + u"\n\n"_s +
           blocks.join(u"\n\n"_s);
}

QString TranscriptionViewModel::panelTitle()
{
    return u"Live Transcription"_s;
}

QString TranscriptionViewModel::emptyTitle()
{
    return u"No transcription yet"_s;
}

QString TranscriptionViewModel::emptyHint()
{
    return u"Start speaking to see live transcription appear here"_s;
}

QString TranscriptionViewModel::copiedConfirmation()
{
    return u"Copied!"_s;
}

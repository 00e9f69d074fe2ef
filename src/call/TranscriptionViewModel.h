// The live transcript of a call as the user sees it: one flat text and the
// list of speaker segments, fed by local recognition and by the backend
// session, read by the transcript panel, the mini window and the Markdown copy.
#pragma once

#include <QDateTime>
#include <QJsonObject>
#include <QLatin1String>
#include <QList>
#include <QMetaType>
#include <QObject>
#include <QString>
#include <QVariantList>

struct TranscriptionSegment
{
    Q_GADGET
    Q_PROPERTY(QString speaker MEMBER speaker)
    Q_PROPERTY(QString text MEMBER text)
    Q_PROPERTY(bool isPartial MEMBER isPartial)

public:
    // The user's own speech, recognized on this machine.
    static constexpr QLatin1String localSpeaker{"local"};
    // A segment from the backend that names no speaker.
    static constexpr QLatin1String unknownSpeaker{"unknown"};

    QString speaker;
    QString text;
    // Provisional text from the backend, replaced by the speaker's next segment.
    bool isPartial = false;

    bool operator==(const TranscriptionSegment& other) const = default;
};

Q_DECLARE_METATYPE(TranscriptionSegment)

// Lives on the GUI thread; its properties change only there. The add and clear
// operations may be called from any thread: they queue their work onto the
// object's thread, so calls from one thread take effect in the order made.
class TranscriptionViewModel : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QVariantList speakerSegments READ speakerSegmentList NOTIFY speakerSegmentsChanged)
    Q_PROPERTY(QString transcriptionText READ transcriptionText NOTIFY transcriptionTextChanged)
    Q_PROPERTY(QString panelTitle READ panelTitle CONSTANT)
    Q_PROPERTY(QString emptyTitle READ emptyTitle CONSTANT)
    Q_PROPERTY(QString emptyHint READ emptyHint CONSTANT)
    Q_PROPERTY(QString copiedConfirmation READ copiedConfirmation CONSTANT)

public:
    explicit TranscriptionViewModel(QObject* parent = nullptr);

    // Segments in arrival order (a provisional one keeps the place where it began).
    QList<TranscriptionSegment> speakerSegments() const { return m_segments; }
    // The same, as gadgets in a list QML can read.
    QVariantList speakerSegmentList() const;
    // The user's own recognized text so far, separated by single spaces; the
    // backend's segments are in the segment list only.
    QString transcriptionText() const { return m_text; }

    // One accepted chunk of the user's own speech: appended to the flat text
    // and to the latest "local" segment (a new one when there is none).
    // Empty or blank text is ignored.
    Q_INVOKABLE void addLocalTranscription(const QString& text);

    // Empties the transcript (at call end).
    Q_INVOKABLE void clear();

    // A backend message with a "segments" list of {speaker, text, isPartial}.
    // Each element becomes a segment: a missing speaker is "unknown", and an
    // element that is not an object, or whose speaker, text or isPartial has
    // the wrong type, or whose text is blank, is skipped. A segment replaces
    // its speaker's latest segment when that one is provisional; otherwise it
    // is added. The flat text is left as it is.
    void addServerSegments(const QJsonObject& message);

    // The transcript as the "Copy as Markdown" action puts it on the clipboard.
    Q_INVOKABLE QString markdown(const QDateTime& exportedAt) const;

    static QString panelTitle();
    static QString emptyTitle();
    static QString emptyHint();
    static QString copiedConfirmation();

Q_SIGNALS:
    void speakerSegmentsChanged();
    void transcriptionTextChanged();
    // The backend's segments of one message, as they entered the list.
    void serverSegmentsAdded(const QList<TranscriptionSegment>& segments);

private:
    void applyLocal(const QString& text);
    void applyServer(const QList<TranscriptionSegment>& segments);
    void applyClear();
    void appendText(const QString& text);

    QList<TranscriptionSegment> m_segments;
    QString m_text;
};

// What the call hands its chunks to for recognition: any recognizer (the local
// whisper model, or a scripted one in tests) behind one small interface.
#pragma once

#include "audio/AudioBuffer.h"

#include <QObject>
#include <QString>

class SpeechRecognizer : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;

    // Takes one normalized 16 kHz mono chunk. Safe from any thread; returns at
    // once, the work happens elsewhere.
    virtual void recognize(Samples chunk) = 0;

Q_SIGNALS:
    // Text that passed the transcript cleaner, one emission per accepted chunk.
    void textRecognized(const QString& text);
};

// Receives the blocks of a running capture and passes each to the handler of
// its kind; a kind without a handler is dropped.
#pragma once

#include "audio/AudioBuffer.h"

#include <functional>

enum class CaptureOutputType
{
    Audio,      // the computer's audio output (the other side of the call)
    Microphone, // the user
    Screen,     // frames of a screen capture, where a backend delivers any
};

class CaptureStreamOutput
{
public:
    using Handler = std::function<void(const AudioBuffer&)>;

    Handler audioBufferHandler;
    Handler microphoneBufferHandler;
    Handler screenBufferHandler;

    // Called on a capture thread for every block.
    void stream(const AudioBuffer& buffer, CaptureOutputType type) const;
};

#include "audio/CaptureStreamOutput.h"

void CaptureStreamOutput::stream(const AudioBuffer& buffer, CaptureOutputType type) const
{
    const Handler* handler = nullptr;
    switch (type) {
    case CaptureOutputType::Audio:
        handler = &audioBufferHandler;
        break;
    case CaptureOutputType::Microphone:
        handler = &microphoneBufferHandler;
        break;
    case CaptureOutputType::Screen:
        handler = &screenBufferHandler;
        break;
    }
    if (handler != nullptr && *handler) {
        (*handler)(buffer);
    }
}

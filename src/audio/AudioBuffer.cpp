#include "audio/AudioBuffer.h"

int AudioBuffer::bytesPerFrame() const
{
    int bytesPerSample = 0;
    switch (format) {
    case SampleFormat::Float32:
    case SampleFormat::Int32:
        bytesPerSample = 4;
        break;
    case SampleFormat::Int16:
        bytesPerSample = 2;
        break;
    case SampleFormat::Other:
        return 0;
    }
    return bytesPerSample * channels;
}

qsizetype AudioBuffer::frameCount() const
{
    const int frameBytes = bytesPerFrame();
    return frameBytes > 0 ? data.size() / frameBytes : 0;
}
